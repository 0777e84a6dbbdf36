#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "velmorapi/channel.h"
#include "velmorapi/component.h"

namespace Velmor::Tool {

/// What the active voxels (or the points) of a channel hold.
struct ChannelStats {
  std::uint64_t active = 0;  ///< active voxels, those inside active coarse cells included
  std::uint64_t stored = 0;  ///< voxels in leaf tiles; points
  /// Per component, over the active voxels or the points, values that are not
  /// numbers left out. Minimum above maximum where there is none.
  std::vector<double> min, max;
  /// The active cells, in voxels: from the first to behind the last.
  std::array<std::int64_t, 3> lower{}, upper{};
};

/// Of a voxel channel.
ChannelStats voxelStats(API::VoxelChannel const& channel);
/// Of a point channel; no bounds.
ChannelStats pointStats(API::PointChannel const& channel);

}  // namespace Velmor::Tool
