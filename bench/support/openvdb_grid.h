#pragma once

#include <openvdb/openvdb.h>
#include <openvdb/tools/SignedFloodFill.h>

#include <cmath>

#include "support/distance_scene.h"

namespace Velmor::Bench {

/// The same narrow band as an OpenVDB level set: the voxels within `halfWidth`
/// voxels of the surface are active.
inline openvdb::FloatGrid::Ptr levelSetGrid(API::VoxelChannel const& distance, float halfWidth) {
  openvdb::initialize();
  float const scale = API::Layout(distance.layout()).voxelScale();
  auto const grid = openvdb::FloatGrid::create(halfWidth * scale);
  grid->setTransform(openvdb::math::Transform::createLinearTransform(double{scale}));
  grid->setGridClass(openvdb::GRID_LEVEL_SET);
  auto accessor = grid->getAccessor();
  int const depth = API::Layout(distance.layout()).maxDepth();
  Test::forEachTile<float>(distance, depth, depth, [&](API::Tile const& tile, auto const& data) {
    auto const& at = tile.coord();
    for (int z = 0; z < 5; ++z)
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x) {
          float const value = data.data[data.offset(x, y, z)];
          if (std::abs(value) < halfWidth * scale) {
            accessor.setValue(openvdb::Coord(at.i + x, at.j + y, at.k + z), value);
          }
        }
  });
  openvdb::tools::signedFloodFill(grid->tree());
  return grid;
}

}  // namespace Velmor::Bench
