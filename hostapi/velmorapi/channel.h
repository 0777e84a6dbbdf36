#pragma once

#include "velmorapi/export.h"
#include "velmorapi/layout.h"
#include "velmorapi/ref.h"
#include "velmorapi/string.h"
#include "velmorapi/types.h"

namespace Velmor::API {

/// One quantity of a component: a value per cell of every tile, or per point.
class VELMOR_EXPORT Channel : public StateServerItem {
 public:
  Channel() noexcept = default;
  Channel(Ref const& ref) noexcept;

  DataType dataType() const;
  /// The layout of the channel's component, as a `Layout`.
  Ref layout() const;
  /// The component that holds the channel.
  Ref component() const;
  /// object/component/channel.
  String fullPathName() const;
  /// component/channel; empty for an invalid channel.
  String partialPathName() const;

  /// The tile's values. Pointers stay good while the channel lives. Different
  /// tiles may be written from different threads.
  template <class T>
  TileData<T> tileData(TreeIndex const& index) const {
    TileData<T> tile;
    tile.data =
        static_cast<T*>(tileStorage(dataTypeOf<T>, index, tile.count, tile.halo, tile.strides));
    return tile;
  }

  /// The value of voxels outside all tiles; `T()` if `T` is not the channel's type.
  template <class T>
  T backgroundValue() const {
    T value{};
    background(dataTypeOf<T>, &value);
    return value;
  }
  /// Sets the background, and every stored value that is bit-equal to the old
  /// one. False, and nothing done, if `T` is not the channel's type.
  template <class T>
  bool setBackgroundValue(T const& value) const {
    return setBackground(dataTypeOf<T>, &value);
  }

 private:
  // Returns null and leaves the rest at 0 where there is nothing of that type.
  void* tileStorage(DataType type, TreeIndex const& index, std::size_t& count, std::int32_t& halo,
                    std::int32_t (&strides)[3]) const;
  bool background(DataType type, void* value) const;
  bool setBackground(DataType type, void const* value) const;
};

/// The name of the quadratic B-spline sampler for `VoxelChannel::createSampler`.
inline constexpr char const* VoxelSamplerQBSplineType = "QBSpline";

/// A channel of a voxel component.
class VELMOR_EXPORT VoxelChannel : public Channel {
 public:
  VoxelChannel() noexcept = default;
  VoxelChannel(Ref const& ref) noexcept;
  /// A new `VoxelSampler` of the channel; invalid for an unknown type name.
  Ref createSampler(String const& type, SamplerSpace space) const;
};

/// A channel of a point component.
class VELMOR_EXPORT PointChannel : public Channel {
 public:
  PointChannel() noexcept = default;
  PointChannel(Ref const& ref) noexcept;
};

/// Interpolates a voxel channel with quadratic B-splines over voxel centres.
/// It remembers where it was last, so one sampler serves one thread (a copied
/// handle is the same sampler). Values may change between samples; so may the
/// tiles. Outside allocated tiles it reads the deepest tile's cell value, and
/// the background outside the root.
class VELMOR_EXPORT VoxelSampler : public Ref {
 public:
  VoxelSampler() noexcept = default;
  VoxelSampler(Ref const& ref) noexcept;

  /// The interpolated value at `position`; `T` is float or a float vector.
  /// `T()` if that is not the channel's type, NaN for a position that is not finite.
  template <class T>
  T sample(orlen::Math::vec<3, float> const& position) const {
    T value{};
    sampleValue(position, value);
    return value;
  }
  /// The value, and its gradient per unit of the sampler's space.
  template <class T>
  T sampleGradient(orlen::Math::vec<3, float> const& position,
                   orlen::Math::vec<3, float>& gradient) const {
    T value{};
    sampleValueAndGradient(position, value, gradient);
    return value;
  }

 private:
  void sampleValue(orlen::Math::vec<3, float> const& position, float& value) const;
  void sampleValue(orlen::Math::vec<3, float> const& position,
                   orlen::Math::vec<2, float>& value) const;
  void sampleValue(orlen::Math::vec<3, float> const& position,
                   orlen::Math::vec<3, float>& value) const;
  void sampleValueAndGradient(orlen::Math::vec<3, float> const& position, float& value,
                              orlen::Math::vec<3, float>& gradient) const;
};

}  // namespace Velmor::API
