#pragma once

#include "velmorapi/component.h"
#include "velmorapi/export.h"
#include "velmorapi/status.h"

namespace Velmor::API {

/// How particles become a level set. Radii are in voxels of the points' layout.
struct LevelSetOptions {
  float dropletRevealFactor = 3.f;  ///< droplet radii from the surface over which a droplet grows
  float surfaceRadius = 1.4f;
  float dropletRadius = 1.2f;
  float dropletThreshold = 1.f;  ///< a particle whose "droplet" value reaches it is a droplet
  float resolutionFactor = 1.f;  ///< output voxels per point voxel along an edge
  bool enableSpatialAdapt = false;
  float maxVolumeOfHolesToClose = 0.f;  ///< cache world units cubed
  bool keepParticleIds = false;
  bool verbose = false;
};

/// Builds a signed distance (cache world units, negative inside) around the
/// points of `points` and carries further point channels onto its voxels.
/// `inputs` are partial channel paths: position, droplet (or an empty path),
/// then the channels to carry; `outputs` are the distance channel, then one for
/// each carried input; an input whose output is the distance channel is left
/// out, with a warning. `mask` and `maskChannel` may be empty. Fails, with
/// nothing written, if the position or an output is missing or a pair differs
/// in type.
VELMOR_EXPORT Status createLevelSet(LevelSetOptions const& options, PointComponent const& points,
                                    Array<String> const& inputs, VoxelComponent const& mask,
                                    String const& maskChannel, VoxelComponent const& output,
                                    Array<String> const& outputs);

}  // namespace Velmor::API
