#pragma once

#include <array>
#include <cstdint>

#include "velmorapi/math.h"

/// The marching-cubes cases (Lorensen and Cline, "Marching Cubes", SIGGRAPH
/// 1987). Bit i of a case is set where corner i is positive.
namespace Velmor::Processing::MarchingCubesTables {

inline constexpr std::array<orlen::Math::vec<3, int>, 8> corners = {
    {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}}};

struct Edge {
  int from, to;  // corners
  int axis;      // 0 for x
};

/// Each edge runs from its smaller corner to the larger, so that all cubes
/// around an edge compute the same bits for the vertex on it.
inline constexpr std::array<Edge, 12> edges = {{{0, 1, 0},
                                                {1, 2, 1},
                                                {3, 2, 0},
                                                {0, 3, 1},
                                                {4, 5, 0},
                                                {5, 6, 1},
                                                {7, 6, 0},
                                                {4, 7, 1},
                                                {0, 4, 2},
                                                {1, 5, 2},
                                                {2, 6, 2},
                                                {3, 7, 2}}};

constexpr std::array<std::uint16_t, 256> makeEdgeMasks() {
  std::array<std::uint16_t, 256> masks{};
  for (unsigned cube = 0; cube < 256; ++cube) {
    unsigned mask = 0;
    for (unsigned e = 0; e < 12; ++e) {
      if (((cube >> edges[e].from) & 1u) != ((cube >> edges[e].to) & 1u)) mask |= 1u << e;
    }
    masks[cube] = static_cast<std::uint16_t>(mask);
  }
  return masks;
}

/// Bit e of a case's mask is set where the ends of edge e differ.
inline constexpr std::array<std::uint16_t, 256> edgeMasks = makeEdgeMasks();

/// One case's triangles: sixteen edge numbers of four bits, the first in the
/// lowest bits. Three make a triangle, 15 ends the row.
extern std::array<std::uint64_t, 256> const triangleRows;
inline constexpr unsigned rowEnd = 15;

}  // namespace Velmor::Processing::MarchingCubesTables
