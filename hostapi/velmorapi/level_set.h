#pragma once

#include "velmorapi/component.h"
#include "velmorapi/export.h"
#include "velmorapi/status.h"

namespace Velmor::API {

/// How particles become a level set. Radii are in voxels of the points' layout.
///
/// Values outside the ranges named here, and NaN anywhere, make `createLevelSet`
/// fail with nothing written.
struct LevelSetOptions {
  /// Over how many of its radii from the surface of the bulk a droplet grows from
  /// nothing to its full size. At 0 and below all droplets have their full size.
  float dropletRevealFactor = 3.f;
  /// Radius of the particles that are no droplets, at most 16. At 0 and below
  /// they make no surface.
  float surfaceRadius = 1.4f;
  /// Full radius of a droplet, at most 16. At 0 and below there are no droplets.
  float dropletRadius = 1.2f;
  /// A particle whose "droplet" value reaches it is a droplet; NaN values do not.
  float dropletThreshold = 1.f;
  /// Output voxels per voxel of the points along an edge, from 1/16 to 64. The
  /// output layout gets the voxel size that follows. Nothing thinner than two
  /// output voxels is resolved well.
  float resolutionFactor = 1.f;
  /// Whether particles with less than eight in the 2 x 2 x 2 voxels around them get
  /// a larger radius, in proportion to their spacing, at most fourfold.
  bool enableSpatialAdapt = false;
  /// Pockets of air up to this volume, in cache world units cubed, are filled. At 0
  /// and below, or below one output voxel, none is.
  float maxVolumeOfHolesToClose = 0.f;
  /// No effect: particles have no identities that voxels could keep.
  bool keepParticleIds = false;
  /// No effect: the construction prints nothing whatever it is.
  bool verbose = false;
};

/// Builds a signed distance (cache world units, negative inside) around the
/// points of `points` and carries further point channels onto its voxels.
///
/// `inputs` are partial channel paths: position, droplet (or an empty path),
/// then the channels to carry; `outputs` are the distance channel, then one for
/// each carried input. Positions are vectors of three floats, in voxels of the
/// points' layout; droplet values floats or integers; carried channels floats or
/// vectors of two or three.
///
/// The distance is right within five output voxels of the surface and plus or
/// minus that beyond, which is also the channel's background. The surface is
/// where the particles' weighted mean lies one mean radius away: about the
/// surface radius less half their spacing outside the outermost centres, less in
/// hollows. Leaf tiles are added where the band is.
///
/// There are no masks here: `mask` has to be invalid and `maskChannel` empty, else
/// the call fails. It also fails, with nothing written, if the position or an
/// output is missing, or a pair differs in type. Positions that are not finite or
/// lie outside the layout's root are left out, with one warning that counts them.
/// No particles give success and no tiles.
///
/// Call it from one thread at a time per output. It runs on the host's workers;
/// their number changes no byte of the result.
VELMOR_EXPORT Status createLevelSet(LevelSetOptions const& options, PointComponent const& points,
                                    Array<String> const& inputs, VoxelComponent const& mask,
                                    String const& maskChannel, VoxelComponent const& output,
                                    Array<String> const& outputs);

}  // namespace Velmor::API
