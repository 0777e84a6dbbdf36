#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "support/scene.h"

namespace Velmor::Test {

/// A signed distance in voxels, negative inside the liquid.
using Field = std::function<double(double x, double y, double z)>;

/// The level set of a field whose surface lies within the box: leaf tiles along
/// it, values clamped to 5 voxels, coarse cells 5 voxels or minus that.
inline Scene liquidScene(Field const& field, API::TileCoord const& low, API::TileCoord const& high,
                         float voxelScale = 1.f, float halfWidth = 3.f) {
  float const band = 5.f * voxelScale;
  auto scene = emptyScene(voxelScale, band);
  Host::setFieldClass(scene.distance, Host::FieldClass::LevelSet);
  std::vector<API::TileCoord> tiles;
  for (int z = low.k; z < high.k; z += 5)
    for (int y = low.j; y < high.j; y += 5)
      for (int x = low.i; x < high.i; x += 5)
        // The tile of voxel x reaches from x - 2 to x + 3 if x is a multiple of 5.
        if (std::abs(field(x + 0.5, y + 0.5, z + 0.5)) < halfWidth + 3.5)
          tiles.push_back({x, y, z});
  Host::addLeafTiles(scene.layout, tiles);
  fillCells<float>(scene.distance, [&](double x, double y, double z) {
    return std::clamp(static_cast<float>(field(x, y, z)) * voxelScale, -band, band);
  });
  forTiles(scene.layout, 0, scene.layout.maxDepth() - 1, [&](API::TreeIndex const& index) {
    auto const cells = scene.distance.tileData<float>(index);
    for (int c = 0; c < 125; ++c) cells.data[c] = cells.data[c] < 0.f ? -band : band;
  });
  return scene;
}

/// A pool of 120 x 120 voxels and a depth of 40 below a level.
inline double pool(double x, double y, double z, double level) {
  return std::max({y - level, std::abs(x) - 60., std::abs(z) - 60., -40. - y});
}

/// Waves in the middle of the pool that die out towards its rim. Gentle ones: where
/// liquid and plane coincide their join is 3.4 times as steep below the surface, and
/// slopes of a half and more then leave holes in the mesh.
inline double waveHeight(double x, double z) {
  double const fade = std::clamp((50. - std::hypot(x, z)) / 20., 0., 1.);
  return 2. * fade * std::sin(0.1 * x) * std::cos(0.08 * z);
}

inline Scene wavyPool(double level = 0.3, float voxelScale = 1.f) {
  return liquidScene(
      [level](double x, double y, double z) { return pool(x, y, z, level + waveHeight(x, z)); },
      {-75, -50, -75}, {80, 20, 80}, voxelScale);
}

/// How far a place is inside a boat: above its keel, within its sides.
inline double hull(double x, double y, double z, double halfX, double halfZ, double draft) {
  return std::max({std::abs(x) - halfX, std::abs(z) - halfZ, -draft - y});
}

inline Scene poolWithHull(double halfX, double halfZ, double draft, double level = 0.3) {
  return liquidScene(
      [=](double x, double y, double z) {
        return std::max(pool(x, y, z, level), -hull(x, y, z, halfX, halfZ, draft));
      },
      {-75, -50, -75}, {80, 20, 80});
}

}  // namespace Velmor::Test
