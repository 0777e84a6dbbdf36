#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <tuple>
#include <vector>

#include "processing/mesher.h"

namespace Velmor::Test {

struct Mesh {
  API::Array<orlen::Math::vec<3, float>> points;
  API::Array<orlen::Math::vec<3, int>> triangles;
};

inline Mesh meshOf(API::VoxelChannel const& channel, unsigned subdivisions = 0) {
  Mesh mesh;
  Processing::MarchingCubes(subdivisions).mesh(channel, mesh.points, mesh.triangles);
  return mesh;
}

/// Whether two meshes hold the same bytes, NaN included.
inline bool sameBytes(Mesh const& a, Mesh const& b) {
  return a.points.count() == b.points.count() && a.triangles.count() == b.triangles.count() &&
         (a.points.empty() || std::memcmp(a.points.data(), b.points.data(),
                                          a.points.count() * sizeof a.points[0]) == 0) &&
         (a.triangles.empty() || std::memcmp(a.triangles.data(), b.triangles.data(),
                                             a.triangles.count() * sizeof a.triangles[0]) == 0);
}

/// Edges that triangles use more often in one direction than in the other: 0 for
/// a closed, consistently oriented mesh.
inline std::size_t unbalancedEdges(Mesh const& mesh) {
  // Sorted by their two ends; the lowest bit is the direction.
  std::vector<std::uint64_t> uses;
  uses.reserve(3 * mesh.triangles.count());
  for (auto const& t : mesh.triangles) {
    int const ends[] = {t.x, t.y, t.z, t.x};
    for (int n = 0; n < 3; ++n) {
      auto const a = static_cast<std::uint64_t>(ends[n]),
                 b = static_cast<std::uint64_t>(ends[n + 1]);
      if (a != b) uses.push_back(a < b ? a << 32 | b << 1 : b << 32 | a << 1 | 1u);
    }
  }
  std::sort(uses.begin(), uses.end());
  std::size_t count = 0;
  for (std::size_t n = 0; n < uses.size();) {
    auto const edge = uses[n] >> 1;
    int balance = 0;
    for (; n < uses.size() && uses[n] >> 1 == edge; ++n) balance += (uses[n] & 1u) != 0 ? 1 : -1;
    count += balance != 0 ? 1u : 0u;
  }
  return count;
}

/// The volume inside, positive where triangles are counter-clockwise from outside.
inline double volumeOf(Mesh const& mesh) {
  double volume = 0;
  for (auto const& t : mesh.triangles) {
    auto const at = [&](int i) { return mesh.points[static_cast<std::size_t>(i)]; };
    auto const a = at(t.x), b = at(t.y), c = at(t.z);
    volume += (double{a.x} * (double{b.y} * c.z - double{b.z} * c.y) +
               double{a.y} * (double{b.z} * c.x - double{b.x} * c.z) +
               double{a.z} * (double{b.x} * c.y - double{b.y} * c.x)) /
              6;
  }
  return volume;
}

inline std::size_t duplicatePoints(Mesh const& mesh) {
  std::vector<std::tuple<float, float, float>> places;
  places.reserve(mesh.points.count());
  for (auto const& p : mesh.points) places.emplace_back(p.x, p.y, p.z);
  std::sort(places.begin(), places.end());
  auto const others = std::unique(places.begin(), places.end());
  return static_cast<std::size_t>(places.end() - others);
}

}  // namespace Velmor::Test
