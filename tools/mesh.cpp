#include "mesh.h"

#include <tbb/parallel_for.h>
#include <tbb/parallel_sort.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace Velmor::Tool {

std::size_t dropDegenerate(Mesh& mesh) {
  auto const before = mesh.triangles.count();
  std::size_t kept = 0;
  for (auto const& t : mesh.triangles) {
    if (t[0] != t[1] && t[1] != t[2] && t[2] != t[0]) mesh.triangles[kept++] = t;
  }
  mesh.triangles.resize(kept);
  return before - kept;
}

std::size_t openEdges(Mesh const& mesh) {
  // The uses of all edges, sorted into buckets by their smaller vertex: each
  // bucket then holds a handful.
  struct Use {
    std::int32_t other;
    std::int32_t direction;
  };
  std::vector<std::size_t> end(mesh.vertices.count() + 1, 0);
  auto const eachUse = [&mesh](auto&& use) {
    for (auto const& t : mesh.triangles) {
      for (int e = 0; e < 3; ++e) {
        auto const from = t[e], to = t[(e + 1) % 3];
        if (from != to) use(std::min(from, to), Use{std::max(from, to), from < to ? 1 : -1});
      }
    }
  };
  eachUse([&end](int vertex, Use) { ++end[static_cast<std::size_t>(vertex) + 1]; });
  for (std::size_t v = 1; v < end.size(); ++v) end[v] += end[v - 1];
  std::vector<Use> uses(end.back());
  auto place = end;
  eachUse([&](int vertex, Use use) { uses[place[static_cast<std::size_t>(vertex)]++] = use; });

  std::size_t open = 0;
  for (std::size_t v = 0; v + 1 < end.size(); ++v) {
    auto const first = uses.begin() + static_cast<std::ptrdiff_t>(end[v]);
    auto const last = uses.begin() + static_cast<std::ptrdiff_t>(end[v + 1]);
    std::sort(first, last, [](Use const& a, Use const& b) { return a.other < b.other; });
    for (auto at = first; at != last;) {
      auto const other = at->other;
      std::int64_t balance = 0;
      for (; at != last && at->other == other; ++at) balance += at->direction;
      if (balance != 0) ++open;
    }
  }
  return open;
}

namespace {

// Whether vertices that lie apart come to lie on one place as floats.
bool roundsTogether(Mesh const& mesh) {
  std::vector<std::array<std::uint32_t, 3>> places(mesh.vertices.count());
  tbb::parallel_for(std::size_t{0}, places.size(), [&](std::size_t v) {
    for (int axis = 0; axis < 3; ++axis) {
      // Zeros of either sign are one place.
      auto const rounded = static_cast<float>(mesh.world(v, axis)) + 0.f;
      places[v][static_cast<std::size_t>(axis)] = std::bit_cast<std::uint32_t>(rounded);
    }
  });
  tbb::parallel_sort(places.begin(), places.end());
  return std::adjacent_find(places.begin(), places.end()) != places.end();
}

}  // namespace

bool needsDoubles(Mesh const& mesh) {
  if (mesh.origin == std::array<double, 3>{0, 0, 0}) return false;
  double farthest = 0;
  for (std::size_t v = 0; v < mesh.vertices.count(); ++v) {
    for (int axis = 0; axis < 3; ++axis) {
      auto const size = std::abs(mesh.world(v, axis));
      if (std::isfinite(size)) farthest = std::max(farthest, size);
    }
  }
  auto const near = static_cast<float>(farthest);
  double const step = std::nextafter(near, std::numeric_limits<float>::infinity()) - near;
  return step > 0.001 * static_cast<double>(mesh.voxelSize) || roundsTogether(mesh);
}

}  // namespace Velmor::Tool
