#pragma once

#include <cstddef>

#include "velmorapi/channel.h"
#include "velmorapi/export.h"
#include "velmorapi/layout.h"

/// Marks an exported function that a host may lack; its address is then null.
#if defined(_WIN32)
#define VELMOR_OPTIONAL
#else
#define VELMOR_OPTIONAL __attribute__((weak))
#endif

/// Operations on many voxels or points at once: the same results as from one
/// call for each, for less. A host may do without them: the symbols are weak, and
/// who finds them null makes the single calls.
namespace Velmor::API {

/// Makes the tiles of the depths 0 to `depth` that hold each of `count` voxels,
/// voxel by voxel and coarse first, as `TileAccessor::addTile` does. Cheapest
/// where voxels that lie close together follow each other. May be called from
/// several threads.
VELMOR_EXPORT VELMOR_OPTIONAL void addTiles(Layout const& layout, TileCoord const* voxels,
                                            std::size_t count, int depth);

/// Points (x[a], y[b], z[c]) in a sampler's space, for all a, b and c.
struct SampleGrid {
  float const* x = nullptr;
  float const* y = nullptr;
  float const* z = nullptr;
  std::size_t xCount = 0, yCount = 0, zCount = 0;

  std::size_t pointCount() const noexcept { return xCount * yCount * zCount; }
};

/// Writes `sampler.sample<float>` at each point of a grid to `values`, z fastest
/// and x slowest. Cheapest where the points lie close together.
VELMOR_EXPORT VELMOR_OPTIONAL void sampleGrid(VoxelSampler const& sampler, SampleGrid const& grid,
                                              float* values);

}  // namespace Velmor::API
