#pragma once

#include <functional>
#include <string>
#include <vector>

#include "files/image.h"
#include "files/vdb_grids.h"

namespace Velmor::Host::Files {

struct PointsJob {
  ImageBuilder& image;
  double offset[3] = {0, 0, 0};  ///< added to OpenVDB's index-space positions to give ours
  float voxelSize = 1;
  float const* clipMin = nullptr;  ///< three floats each, in world units; null: all points
  float const* clipMax = nullptr;
  std::function<bool(std::string const&)> wanted{};         ///< whether to read a channel
  std::function<std::string(std::string const&)> rename{};  ///< gives an attribute its channel name
  std::function<void(std::string const&)> warn{};
};

/// Appends a channel record for the positions and for each attribute of
/// numbers. Throws `openvdb::Exception` for inconsistent data, and `ImageFull`.
void decodePoints(openvdb::GridBase const& grid, PointsJob& job,
                  std::vector<ChannelRecord>& channels);
/// The channel that an attribute becomes where the file says nothing else.
std::string attributeChannel(std::string const& attribute);
bool isPointGrid(openvdb::GridBase const& grid);

}  // namespace Velmor::Host::Files
