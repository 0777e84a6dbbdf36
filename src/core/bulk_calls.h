#pragma once

#include "velmorapi/bulk.h"

namespace Velmor::Processing::Bulk {

/// `API::addTiles`, by single calls where the host lacks it.
void addTiles(API::Layout const& layout, API::TileCoord const* voxels, std::size_t count,
              int depth);

/// `API::sampleGrid`, by single calls where the host lacks it.
void sampleGrid(API::VoxelSampler const& sampler, API::SampleGrid const& grid, float* values);

}  // namespace Velmor::Processing::Bulk
