#pragma once

#include <openvdb/openvdb.h>
#include <openvdb/tools/SignedFloodFill.h>

#include <cmath>

#include "support/scene.h"

namespace Velmor::Bench {

/// The same narrow band as an OpenVDB level set: the voxels within `halfWidth`
/// voxels of the surface are active.
inline openvdb::FloatGrid::Ptr levelSetGrid(API::VoxelChannel const& distance, float halfWidth) {
  API::Layout const layout(distance.layout());
  float const scale = layout.voxelScale();
  auto const grid = openvdb::FloatGrid::create(halfWidth * scale);
  grid->setTransform(openvdb::math::Transform::createLinearTransform(double{scale}));
  grid->setGridClass(openvdb::GRID_LEVEL_SET);
  auto values = grid->getAccessor();
  auto const tiles = layout.tileAccessor();
  Test::forTiles(layout, layout.maxDepth(), layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const at = tiles.tile(index).coord();
    auto const data = distance.tileData<float>(index);
    for (int c = 0; c < 125; ++c) {
      int const x = c % 5, y = c / 5 % 5, z = c / 25;
      float const value = data.data[data.offset(x, y, z)];
      if (std::abs(value) < halfWidth * scale) {
        values.setValue(openvdb::Coord(at.i + x, at.j + y, at.k + z), value);
      }
    }
  });
  openvdb::tools::signedFloodFill(grid->tree());
  return grid;
}

}  // namespace Velmor::Bench
