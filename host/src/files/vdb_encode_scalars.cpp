#include "files/vdb_scatter.h"

namespace Velmor::Host::Files {

namespace {

struct Same {
  template <class T>
  T operator()(T value) const noexcept {
    return value;
  }
};

}  // namespace

EncodedGrid encodeScalars(API::VoxelChannelItem const& channel, SourceField const& field) {
  if (channel.type() == API::DataType::Float) {
    return VoxelEncoder<openvdb::FloatGrid, float, Same>(channel, field).run();
  }
  return VoxelEncoder<openvdb::Int32Grid, std::int32_t, Same>(channel, field).run();
}

}  // namespace Velmor::Host::Files
