#include "core/bulk_calls.h"

namespace Velmor::Processing::Bulk {

void addTiles(API::Layout const& layout, API::TileCoord const* voxels, std::size_t count,
              int depth) {
  if (&API::addTiles != nullptr) {
    API::addTiles(layout, voxels, count, depth);
    return;
  }
  auto const accessor = layout.tileAccessor();
  for (auto const* voxel = voxels; voxel != voxels + count; ++voxel) {
    for (int d = 0; d <= depth; ++d) accessor.addTile(*voxel, d);
  }
}

void sampleGrid(API::VoxelSampler const& sampler, API::SampleGrid const& grid, float* values) {
  if (&API::sampleGrid != nullptr) {
    API::sampleGrid(sampler, grid, values);
    return;
  }
  for (std::size_t a = 0; a < grid.xCount; ++a) {
    for (std::size_t b = 0; b < grid.yCount; ++b) {
      for (std::size_t c = 0; c < grid.zCount; ++c) {
        *values++ = sampler.sample<float>({grid.x[a], grid.y[b], grid.z[c]});
      }
    }
  }
}

}  // namespace Velmor::Processing::Bulk
