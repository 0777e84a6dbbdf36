#pragma once

#include "processing/family.h"
#include "processing/traverser.h"
#include "velmorapi/channel.h"
#include "velmorapi/halo.h"

namespace Velmor::Processing {

/// Writes a voxel channel from another (or the same), tile by tile.
///
/// Filters do not validate: both channels must hold the filter's value type and
/// share a layout. Nothing is reported. A filter is configured once and may then
/// serve many threads; filters are values and copy with all their settings.
class VELMOR_EXPORT Filter : public Traverser {
 public:
  Filter();
  Filter(Filter const& other);
  Filter(Filter&& other) noexcept;
  Filter& operator=(Filter const& other);
  Filter& operator=(Filter&& other) noexcept;
  ~Filter() override;

  /// Writes `dst` from `src` over the depths of the settings. Whether both may
  /// be one channel is up to the class.
  virtual void filter(API::Channel src, API::Channel dst) const = 0;
};

/// Computes every element from the element at the same place:
/// dst[e] = compute(src[e]).
///
/// Covers the whole array of each visited tile, halo elements and elements that
/// hold the background included. `src` and `dst` may be one channel.
template <class T>
class TransformFilter : public Filter {
 public:
  TransformFilter();
  TransformFilter(TransformFilter const& other);
  TransformFilter(TransformFilter&& other) noexcept;
  TransformFilter& operator=(TransformFilter const& other);
  TransformFilter& operator=(TransformFilter&& other) noexcept;
  ~TransformFilter() override;

  void filter(API::Channel src, API::Channel dst) const override;
  /// The new value of an element from its old one. Called from several threads.
  virtual T compute(T const& value) const = 0;
};

VELMOR_DECLARE_FAMILY(TransformFilter);

/// Computes every voxel from the voxel and its neighbours, across tile borders.
///
/// `src` and `dst` must be different channels: tiles of `src` are read while
/// others of `dst` are written. Tiles are at most 5 voxels wide.
template <class T>
class HaloFilter : public Filter {
 public:
  HaloFilter();
  HaloFilter(HaloFilter const& other);
  HaloFilter(HaloFilter&& other) noexcept;
  HaloFilter& operator=(HaloFilter const& other);
  HaloFilter& operator=(HaloFilter&& other) noexcept;
  ~HaloFilter() override;

  void filter(API::Channel src, API::Channel dst) const override;
  /// The new value of voxel (i, j, k) of a tile, each from 0 to 4, given the
  /// tile with a border of one voxel. Called from several threads.
  virtual T compute(API::VoxelTile<T, 1, 5> const& tile, int i, int j, int k) const = 0;
};

VELMOR_DECLARE_FAMILY(HaloFilter);

}  // namespace Velmor::Processing
