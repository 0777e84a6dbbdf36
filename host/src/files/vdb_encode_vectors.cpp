#include <new>

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

EncodedGrid encodeVectors(API::VoxelChannelItem const& channel, SourceField const& field) {
  using openvdb::Vec3IGrid;
  using openvdb::Vec3SGrid;
  switch (channel.type()) {
    case API::DataType::Float2:
      return marked(VoxelEncoder<Vec3SGrid, vec<2, float>, ToVec3>(channel, field).run(),
                    Keys::float2);
    case API::DataType::Int2:
      return marked(VoxelEncoder<Vec3IGrid, vec<2, int>, ToVec3>(channel, field).run(), Keys::int2);
    case API::DataType::Int3:
      return VoxelEncoder<Vec3IGrid, vec<3, int>, ToVec3>(channel, field).run();
    default:
      return VoxelEncoder<Vec3SGrid, vec<3, float>, ToVec3>(channel, field).run();
  }
}

EncodedGrid encodeVoxels(API::VoxelChannelItem const& channel) {
  bool const scalar =
      channel.type() == API::DataType::Float || channel.type() == API::DataType::Int;
  EncodedGrid encoded;
  // The largest cells have the largest rims; most fields never need a second go.
  for (std::int64_t detached : {SourceField::none, std::int64_t{3125}, std::int64_t{625},
                                std::int64_t{125}, std::int64_t{25}, std::int64_t{5}}) {
    SourceField const field(channel, detached);
    try {
      encoded = scalar ? encodeScalars(channel, field) : encodeVectors(channel, field);
      encoded.detached = detached;
      break;
    } catch (RimsTooLarge const&) {
    }
  }
  if (!encoded.grid) throw std::bad_alloc();
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
