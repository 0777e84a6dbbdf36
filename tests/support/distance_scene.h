#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "velmorhost/scene.h"

namespace Velmor::Test {

/// A signed distance channel in a state of its own. Nothing but these handles keeps it alive.
struct DistanceScene {
  API::StateServer server;
  API::VoxelComponent component;
  API::Layout layout;
  API::VoxelChannel distance;
};

/// Calls `visit(tile coordinate, depth, data)` for every tile of the channel.
template <class T, class Visit>
void forEachTile(API::VoxelChannel const& channel, int minDepth, int maxDepth, Visit const& visit) {
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  for (auto tiles = layout.tileIterator(minDepth, maxDepth, API::TraversalMode::Serial);
       tiles.valid(); tiles.next()) {
    visit(accessor.tile(tiles.index()), channel.tileData<T>(tiles.index()));
  }
}

/// A channel "distance" over the leaf tiles at the given voxels. Its background is 5 voxel sizes.
inline DistanceScene emptyDistanceScene(std::vector<API::TileCoord> const& voxels,
                                        float voxelScale) {
  DistanceScene scene;
  scene.server = Host::createStateServer("scene");
  auto const object = Host::createObject(scene.server, "liquid");
  scene.component = scene.server.createComponent(API::VoxelComponentType, "volume", voxelScale);
  object.addComponent(scene.component);
  scene.layout = scene.component.layout();
  Host::addLeafTiles(scene.layout, voxels);
  scene.distance = scene.server.createChannel(scene.component, API::DataType::Float, "distance");
  scene.distance.setBackgroundValue(5.f * voxelScale);
  return scene;
}

/// A field of x, y, z in voxels.
using Field = std::function<double(double, double, double)>;

/// The leaf tiles within [-reach, reach] in which |field| can be below
/// `halfWidth`, for a field that changes by at most `slope` per voxel.
inline std::vector<API::TileCoord> tilesNear(Field const& field, int reach, double halfWidth,
                                             double slope = 1) {
  std::vector<API::TileCoord> tiles;
  std::function<void(int, int, int, int)> const refine = [&](int i, int j, int k, int extent) {
    if (i > reach || j > reach || k > reach) return;
    if (i + extent <= -reach || j + extent <= -reach || k + extent <= -reach) return;
    double const half = extent / 2.0;
    if (std::abs(field(i + half, j + half, k + half)) > slope * half * 1.7320509 + halfWidth) {
      return;
    }
    if (extent == 5) {
      tiles.push_back({i, j, k});
      return;
    }
    int const e = extent / 5;
    for (int z = 0; z < 5; ++z)
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x) refine(i + x * e, j + y * e, k + z * e, e);
  };
  int extent = 5;
  while (extent / 2 < reach) extent *= 5;
  refine(-(extent / 2), -(extent / 2), -(extent / 2), extent);
  return tiles;
}

/// Sets all values of a distance channel, clamped to 5 voxel sizes: in every
/// cell of every depth the field at the cell's centre.
inline void fillDistance(API::VoxelChannel const& channel, Field const& field) {
  API::Layout const layout(channel.layout());
  double const scale = layout.voxelScale();
  forEachTile<float>(channel, 0, layout.maxDepth(), [&](API::Tile const& tile, auto const& data) {
    double const cell = tile.info().extent / 5.0;
    auto const at = [&](int first, int c) { return first + (c + 0.5) * cell; };
    for (int z = 0; z < 5; ++z)
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x) {
          double const d =
              field(at(tile.coord().i, x), at(tile.coord().j, y), at(tile.coord().k, z));
          data.data[data.offset(x, y, z)] = static_cast<float>(std::clamp(d, -5.0, 5.0) * scale);
        }
  });
}

/// The distance of a sphere, in voxels, over the leaf tiles within `halfWidth` voxels of it.
inline DistanceScene sphereScene(double radius, float voxelScale = 1.f,
                                 orlen::Math::vec<3, float> const& centre = {0.f, 0.f, 0.f},
                                 double halfWidth = 3) {
  Field const field = [=](double x, double y, double z) {
    return std::hypot(x - centre.x, y - centre.y, z - centre.z) - radius;
  };
  double const far = std::max({std::abs(centre.x), std::abs(centre.y), std::abs(centre.z)});
  int const reach = static_cast<int>(far + radius + halfWidth) + 6;
  auto const scene = emptyDistanceScene(tilesNear(field, reach, halfWidth), voxelScale);
  fillDistance(scene.distance, field);
  return scene;
}

/// A wavy water surface, y up, of the given half extent in voxels. It ends at its border.
inline DistanceScene poolScene(int halfExtent, float voxelScale = 1.f, double halfWidth = 3) {
  Field const field = [](double x, double y, double z) {
    return y - 4.0 * std::sin(x * 0.05) * std::cos(z * 0.04) - 0.7 * std::sin(x * 0.31 + z * 0.23);
  };
  auto const scene = emptyDistanceScene(tilesNear(field, halfExtent, halfWidth, 1.1), voxelScale);
  fillDistance(scene.distance, field);
  return scene;
}

}  // namespace Velmor::Test
