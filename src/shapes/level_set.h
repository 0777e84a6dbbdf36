#pragma once

#include "processing/surface.h"

namespace Velmor::Processing {

/// The channel that holds the distance of a level set built from points.
inline constexpr char const* builtDistanceName = "distance";

/// Builds the level set of the points through the host and puts its component,
/// "<object>-volume", in the place of `voxels`, whose old one is removed from
/// the state. The distance is in channel `builtDistanceName`; float point channels of
/// one to three components get a voxel channel of their name each, but not
/// "position" and "droplet". The first failure is written into `status` and ends
/// the work.
void buildLevelSet(SurfaceParameters const& parameters, API::PointComponent const& points,
                   API::VoxelComponent& voxels, Status& status);

}  // namespace Velmor::Processing
