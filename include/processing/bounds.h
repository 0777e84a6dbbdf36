#pragma once

#include "velmorapi/channel.h"
#include "velmorapi/layout.h"

namespace Velmor::Processing {

/// The world box that the leaf tiles of a layout cover, in world units and half
/// open: `max` is one voxel past the last. Coarser tiles do not count. Without a
/// leaf tile the box is inverted: `min` is 2147483647 and `max` -2147483648
/// times the voxel scale, in every component. Reads the layout only.
VELMOR_EXPORT orlen::Math::bbox<orlen::Math::vec<3, float>> computeBBox(API::Layout const& layout);

/// Builds a layout "accel" whose leaf tiles mark the voxels near a surface, for
/// rays to skip everything else: one tile for each leaf voxel whose stored
/// distance, in world units, is less than 2.598076 voxel sizes (1.5 voxel
/// diagonals) in magnitude, and the tile's ancestors.
///
/// A tile of the layout spans one voxel of the channel: its voxel scale is the
/// channel's divided by the tile width. Voxel (i, j, k) marks the tile that holds
/// voxel (i, j, k) * width, so a tile reaches back before the voxel by half its
/// width, rounded down. NaN marks nothing. Voxels outside the range of the new
/// layout's root (with the embedded host beyond 39,062) mark nothing either.
///
/// The layout belongs to the channel's state server, in which an older "accel" is
/// replaced; handles to that one stay good. Without a float channel the result
/// has no tiles, without any channel it is invalid. Not to be called for channels
/// of one state server from two threads at a time.
VELMOR_EXPORT API::Layout createAccelLayout(API::VoxelChannel const& distance);

}  // namespace Velmor::Processing
