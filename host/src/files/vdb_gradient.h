#pragma once

#include <cstdint>

#include "files/vdb_grids.h"

namespace Velmor::Host::Files {

/// How a field behaves where its sign changes between neighbouring voxels.
struct SurfaceGradients {
  std::uint64_t samples = 0;  ///< voxels next to the surface
  std::uint64_t jumps = 0;    ///< of those, next to a value that no distance can have there
  double median = 0;          ///< of the gradient length, per world unit, where there is no jump
  double steep = 0;           ///< the gradient length that one in a thousand exceeds
  double steepest = 0;
};

/// Looks at all leaf voxels, and at tiles that meet the other sign without a
/// leaf between (as jumps). `unit` is the value that one voxel of distance makes
/// if the field is to be taken for a distance; a step of more than 1.75 of it
/// across the surface is a jump.
SurfaceGradients surfaceGradients(openvdb::FloatGrid const& grid, double voxelSize, double unit);

/// The typical step from voxel to voxel along the steepest axis near the
/// surface, jumps set aside: what one voxel of distance is in the field's own
/// unit. 0 if there is no surface.
double valuePerVoxel(openvdb::FloatGrid const& grid);

}  // namespace Velmor::Host::Files
