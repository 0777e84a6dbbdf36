#pragma once

#include <openvdb/openvdb.h>

#include "core/channel_item.h"
#include "velmorapi/component.h"

namespace Velmor::Host::Files {

/// A grid with the values and active states of a voxel channel, its background
/// and class. Two-component vectors become vec3 grids with z = 0 and a mark.
struct EncodedGrid {
  openvdb::GridBase::Ptr grid;
  /// Whether an inactive value is -0 or no number: OpenVDB's mask compression
  /// compares inactive values as numbers, and would change its bits.
  bool delicate = false;
};
EncodedGrid encodeVoxels(API::VoxelChannelItem const& channel);
EncodedGrid encodeScalars(API::VoxelChannelItem const& channel);  ///< float, int
EncodedGrid encodeVectors(API::VoxelChannelItem const& channel);  ///< all others

/// A point grid with the positions ("position", required, in our voxel units)
/// and all other channels as attributes. `offset` is added to our positions to
/// give OpenVDB's index space.
openvdb::GridBase::Ptr encodePoints(API::PointComponent const& points, double const (&offset)[3]);

}  // namespace Velmor::Host::Files
