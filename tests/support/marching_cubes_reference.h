#pragma once

#include <cmath>
#include <cstdint>
#include <unordered_map>

#include "meshing/marching_cubes_tables.h"
#include "support/mesh_checks.h"
#include "velmorapi/layout.h"

namespace Velmor::Test {

namespace Cases = Processing::MarchingCubesTables;

/// Marching cubes at its plainest, one tile after the other: every corner is
/// sampled for every cell and every vertex searched for by position. The
/// library's mesh must have the same bytes.
class ReferenceMarchingCubes {
 public:
  Mesh mesh(API::VoxelChannel const& channel, int res) {
    API::Layout const layout(channel.layout());
    auto const accessor = layout.tileAccessor();
    sampler_ = channel.createSampler(API::VoxelSamplerQBSplineType, API::SamplerSpace::Index);
    invRes_ = 1.f / static_cast<float>(res);
    cellSize_ = layout.voxelScale() * invRes_;
    float const band = layout.voxelScale();
    int const width = layout.tileDimInfo(0).width, depth = layout.maxDepth();
    for (auto tiles = layout.tileIterator(depth, depth, API::TraversalMode::Serial); tiles.valid();
         tiles.next()) {
      auto const values = channel.tileData<float>(tiles.index());
      auto const o = accessor.tile(tiles.index()).coord();
      for (int x = 0; x < width; ++x)
        for (int y = 0; y < width; ++y)
          for (int z = 0; z < width; ++z) {
            if (!(std::abs(values.data[values.offset(x, y, z)]) <= band)) continue;
            for (int a = 0; a < res; ++a)
              for (int b = 0; b < res; ++b)
                for (int c = 0; c < res; ++c) {
                  cube({(o.i + x) * res + a, (o.j + y) * res + b, (o.k + z) * res + c});
                }
          }
    }
    return mesh_;
  }

 private:
  using Point = orlen::Math::vec<3, float>;
  using Cell = orlen::Math::vec<3, int>;

  struct Hash {
    std::size_t operator()(Point const& p) const {
      return std::hash<float>()(p.x) * 31 + std::hash<float>()(p.y) * 17 + std::hash<float>()(p.z);
    }
  };

  static Point toFloat(Cell const& c) {
    return {static_cast<float>(c.x), static_cast<float>(c.y), static_cast<float>(c.z)};
  }

  void cube(Cell const& cell) {
    float f[8];
    unsigned number = 0;
    for (unsigned i = 0; i < 8; ++i) {
      f[i] = sampler_.sample<float>(toFloat(cell + Cases::corners[i]) * invRes_);
      if (f[i] > 0.f) number |= 1u << i;
    }
    unsigned const mask = Cases::edgeMasks[number];
    if (mask == 0) return;
    int vertex[12] = {};
    for (unsigned e = 0; e < 12; ++e) {
      if ((mask & (1u << e)) == 0) continue;
      auto const p = static_cast<std::size_t>(Cases::edges[e].from);
      auto const q = static_cast<std::size_t>(Cases::edges[e].to);
      float const t = std::abs(f[p] - f[q]) > 1.1920929e-7f ? f[p] / (f[p] - f[q]) : 0.f;
      auto const& from = Cases::corners[p];
      vertex[e] = weld((toFloat(Cases::corners[q] - from) * t + toFloat(cell + from)) * cellSize_);
    }
    for (int entry = 0; entry < 15; entry += 3) {
      auto const edge = [&](int n) { return (Cases::triangleRows[number] >> (4 * n)) & 15u; };
      if (edge(entry) == Cases::rowEnd) break;
      mesh_.triangles.add({vertex[edge(entry)], vertex[edge(entry + 1)], vertex[edge(entry + 2)]});
    }
  }

  int weld(Point const& p) {
    auto const found = map_.find(p);
    if (found != map_.end()) return found->second;
    auto const index = static_cast<int>(mesh_.points.count());
    mesh_.points.add(p);
    if (p == p) map_.emplace(p, index);  // NaN would never be found
    return index;
  }

  API::VoxelSampler sampler_;
  float invRes_ = 1.f, cellSize_ = 1.f;
  Mesh mesh_;
  std::unordered_map<Point, int, Hash> map_;
};

}  // namespace Velmor::Test
