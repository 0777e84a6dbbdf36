#include "files/vdb_gather.h"

namespace Velmor::Host::Files {

namespace {

using orlen::Math::vec;

template <class T>
struct AsVector3 {
  template <class U>
  vec<3, T> operator()(openvdb::math::Vec3<U> const& v) const noexcept {
    return {static_cast<T>(v.x()), static_cast<T>(v.y()), static_cast<T>(v.z())};
  }
};
template <class T>
struct AsVector2 {
  vec<2, T> operator()(openvdb::math::Vec3<T> const& v) const noexcept { return {v.x(), v.y()}; }
};

}  // namespace

void decodeFloat3(openvdb::Vec3SGrid const& grid, VoxelJob& job, ChannelRecord& channel) {
  VoxelDecoder<openvdb::Vec3STree, vec<3, float>, AsVector3<float>>(grid.tree(), job, channel)
      .run();
}

void decodeDouble3(openvdb::Vec3DGrid const& grid, VoxelJob& job, ChannelRecord& channel) {
  VoxelDecoder<openvdb::Vec3DTree, vec<3, float>, AsVector3<float>>(grid.tree(), job, channel)
      .run();
}

void decodeInt3(openvdb::Vec3IGrid const& grid, VoxelJob& job, ChannelRecord& channel) {
  VoxelDecoder<openvdb::Vec3ITree, vec<3, int>, AsVector3<int>>(grid.tree(), job, channel).run();
}

void decodeFloat2(openvdb::Vec3SGrid const& grid, VoxelJob& job, ChannelRecord& channel) {
  VoxelDecoder<openvdb::Vec3STree, vec<2, float>, AsVector2<float>>(grid.tree(), job, channel)
      .run();
}

void decodeInt2(openvdb::Vec3IGrid const& grid, VoxelJob& job, ChannelRecord& channel) {
  VoxelDecoder<openvdb::Vec3ITree, vec<2, int>, AsVector2<int>>(grid.tree(), job, channel).run();
}

}  // namespace Velmor::Host::Files
