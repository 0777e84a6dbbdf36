#include "files/vdb_gather.h"

namespace Velmor::Host::Files {

namespace {

struct AsFloat {
  float operator()(float value) const noexcept { return value; }
};
struct AsInt {
  int operator()(int value) const noexcept { return value; }
};

}  // namespace

void decodeFloat(openvdb::FloatGrid const& grid, VoxelJob& job, ChannelRecord& channel) {
  VoxelDecoder<openvdb::FloatTree, float, AsFloat>(grid.tree(), job, channel).run();
}

void decodeInt(openvdb::Int32Grid const& grid, VoxelJob& job, ChannelRecord& channel) {
  VoxelDecoder<openvdb::Int32Tree, int, AsInt>(grid.tree(), job, channel).run();
}

}  // namespace Velmor::Host::Files
