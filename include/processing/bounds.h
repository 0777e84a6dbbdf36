#pragma once

#include "velmorapi/channel.h"
#include "velmorapi/layout.h"

namespace Velmor::Processing {

/// The world box that the leaf tiles of a layout cover. Without a tile the box
/// is inverted: min is 2147483647 and max -2147483648 times the voxel scale.
VELMOR_EXPORT orlen::Math::bbox<orlen::Math::vec<3, float>> computeBBox(API::Layout const& layout);

/// Builds a layout "accel" in the channel's state server whose leaf tiles mark
/// the voxels within 2.598076 voxel sizes of the surface, one tile per voxel.
/// Its voxel scale is that of the channel divided by the tile width.
VELMOR_EXPORT API::Layout createAccelLayout(API::VoxelChannel const& distance);

}  // namespace Velmor::Processing
