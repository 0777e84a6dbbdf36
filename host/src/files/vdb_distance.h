#pragma once

#include <cstdint>
#include <string>

#include "files/vdb_grids.h"
#include "velmorhost/files.h"

namespace Velmor::Host::Files {

/// What became of a distance field.
struct DistanceOutcome {
  DistanceMode mode = DistanceMode::Keep;
  float factor = 1;
  std::string reason;
  std::uint64_t notNumbers = 0;  ///< active values before, tiles counted as one; none under keep
};

/// A background that is not positive becomes five voxel sizes, outside and in
/// all inactive values that equal it. Whether it was so.
bool mendBackground(openvdb::FloatGrid& grid, double voxelSize);

/// Brings the distances of a level set to world units as `mode` says; the grid
/// is changed in place or replaced. A background that was mended is in world
/// units already.
///
/// `Scale` takes the factor that makes the median gradient length along the zero
/// crossing 1, or exactly the voxel size where values are in cells. `Rebuild`
/// makes a narrow band of five voxels to each side anew, values that are no numbers
/// lying outside. `Auto` takes the first of keep, scale and rebuild with gradients
/// of 0.85 to 1.15 and no jumps.
DistanceOutcome treatDistance(openvdb::FloatGrid::Ptr& grid, double voxelSize, DistanceMode mode,
                              bool mended);

}  // namespace Velmor::Host::Files
