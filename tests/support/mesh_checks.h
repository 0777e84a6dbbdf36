#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <map>
#include <set>
#include <tuple>
#include <utility>

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
  std::map<std::pair<int, int>, int> balance;
  for (auto const& t : mesh.triangles) {
    for (auto const& [a, b] : {std::pair(t.x, t.y), std::pair(t.y, t.z), std::pair(t.z, t.x)}) {
      if (a != b) balance[std::minmax(a, b)] += a < b ? 1 : -1;
    }
  }
  std::size_t count = 0;
  for (auto const& [edge, uses] : balance) count += uses != 0 ? 1u : 0u;
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
  std::set<std::tuple<float, float, float>> seen;
  for (auto const& p : mesh.points) seen.insert({p.x, p.y, p.z});
  return mesh.points.count() - seen.size();
}

}  // namespace Velmor::Test
