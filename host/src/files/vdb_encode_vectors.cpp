#include "files/keys.h"
#include "files/vdb_scatter.h"

namespace Velmor::Host::Files {

namespace {

using orlen::Math::vec;

struct ToVec3 {
  template <class T>
  openvdb::math::Vec3<T> operator()(vec<3, T> const& v) const noexcept {
    return {v.x, v.y, v.z};
  }
  template <class T>
  openvdb::math::Vec3<T> operator()(vec<2, T> const& v) const noexcept {
    return {v.x, v.y, T(0)};
  }
};

EncodedGrid marked(EncodedGrid encoded, char const* type) {
  encoded.grid->insertMeta(Keys::type, openvdb::StringMetadata(type));
  return encoded;
}

}  // namespace

EncodedGrid encodeVectors(API::VoxelChannelItem const& channel) {
  using openvdb::Vec3IGrid;
  using openvdb::Vec3SGrid;
  switch (channel.type()) {
    case API::DataType::Float2:
      return marked(VoxelEncoder<Vec3SGrid, vec<2, float>, ToVec3>(channel).run(), Keys::float2);
    case API::DataType::Int2:
      return marked(VoxelEncoder<Vec3IGrid, vec<2, int>, ToVec3>(channel).run(), Keys::int2);
    case API::DataType::Int3:
      return VoxelEncoder<Vec3IGrid, vec<3, int>, ToVec3>(channel).run();
    default:
      return VoxelEncoder<Vec3SGrid, vec<3, float>, ToVec3>(channel).run();
  }
}

EncodedGrid encodeVoxels(API::VoxelChannelItem const& channel) {
  auto encoded = channel.type() == API::DataType::Float || channel.type() == API::DataType::Int
                     ? encodeScalars(channel)
                     : encodeVectors(channel);
  switch (channel.fieldClass()) {
    case FieldClass::LevelSet:
      encoded.grid->setGridClass(openvdb::GRID_LEVEL_SET);
      break;
    case FieldClass::FogVolume:
      encoded.grid->setGridClass(openvdb::GRID_FOG_VOLUME);
      break;
    case FieldClass::Staggered:
      encoded.grid->setGridClass(openvdb::GRID_STAGGERED);
      break;
    case FieldClass::Unknown:
      break;
  }
  return encoded;
}

}  // namespace Velmor::Host::Files
