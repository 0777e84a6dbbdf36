#pragma once

#include "core/channel_item.h"
#include "files/source_field.h"
#include "files/vdb_grids.h"
#include "velmorapi/component.h"

namespace Velmor::Host::Files {

/// A grid with the values and active states of a voxel channel, its background
/// and class. Two-component vectors become vec3 grids with z = 0 and a mark.
struct EncodedGrid {
  openvdb::GridBase::Ptr grid;
  /// Whether an inactive value is -0 or no number: OpenVDB's mask compression
  /// compares inactive values as numbers, and would change its bits. Or the
  /// smallest int, which it would negate.
  bool delicate = false;
  /// Coarse cells from this edge on are in the metadata, not in the tree.
  std::int64_t detached = SourceField::none;
};
EncodedGrid encodeVoxels(API::VoxelChannelItem const& channel);

/// The same for a field of the channel: `encodeScalars` for float and int, the
/// other for vectors. They throw `RimsTooLarge` where OpenVDB's nodes do not
/// match coarse cells, so that the rims of these would be spelled out in far
/// more memory than the channel has.
EncodedGrid encodeScalars(API::VoxelChannelItem const& channel, SourceField const& field);
EncodedGrid encodeVectors(API::VoxelChannelItem const& channel, SourceField const& field);
struct RimsTooLarge {};

/// A point grid with the positions ("position", required, in our voxel units)
/// and all other channels as attributes. `offset` is added to our positions to
/// give OpenVDB's index space.
openvdb::GridBase::Ptr encodePoints(API::PointComponent const& points, double const (&offset)[3]);

}  // namespace Velmor::Host::Files
