#pragma once

#include <cstddef>
#include <span>
#include <typeinfo>

#include "processing/filter.h"
#include "processing/mixer.h"

/// How the drivers spare the filters and mixers of this library one virtual call
/// per voxel. A kernel is the whole-tile form of one class's `compute`, equal to it
/// bit for bit (but for the sign of a median that is 0). It stands for objects of exactly that
/// class: a client's subclass may override `compute`, which is then called for every voxel.
namespace Velmor::Processing {

/// What a kernel looks like, by the family base whose `compute` it stands for.
template <class Base>
struct TileKernelOf;

/// out[e] = compute(in[e]) for `count` elements; `in` and `out` are one array
/// or do not overlap.
template <class T>
struct TileKernelOf<TransformFilter<T>> {
  using type = void (*)(TransformFilter<T> const& filter, T const* in, T* out, std::size_t count);
};

/// out[e] = compute(a[e], b[e]) for `count` elements; `out` may be `a` or `b`.
template <class T>
struct TileKernelOf<MixerT<T>> {
  using type = void (*)(MixerT<T> const& mixer, T const* a, T const* b, T* out, std::size_t count);
};

/// out[(k * 5 + j) * 5 + i] = compute(tile, i, j, k) for all 125 voxels.
template <class T>
struct TileKernelOf<HaloFilter<T>> {
  using type = void (*)(HaloFilter<T> const& filter, API::VoxelTile<T, 1, 5> const& tile, T* out);
};

template <class Base>
using TileKernel = typename TileKernelOf<Base>::type;

template <class Base>
struct TileKernelEntry {
  std::type_info const* type;
  TileKernel<Base> kernel;
};

/// The kernels of a family base: none, unless a specialisation is declared here
/// and defined beside the classes it lists.
template <class Base>
struct TileKernels {
  static std::span<TileKernelEntry<Base> const> all() { return {}; }
};

/// Defined in filters/pointwise_filters.cpp.
template <class T>
class TransformKernels {
 public:
  static std::span<TileKernelEntry<TransformFilter<T>> const> all();
};
template <class T>
struct TileKernels<TransformFilter<T>> : TransformKernels<T> {};

/// Defined in mixers/mixer_kernels.cpp.
template <class T>
class MixerKernels {
 public:
  static std::span<TileKernelEntry<MixerT<T>> const> all();
};
template <class T>
struct TileKernels<MixerT<T>> : MixerKernels<T> {};

/// Defined in filters/stencil_filters.cpp.
template <>
struct TileKernels<HaloFilter<float>> {
  static std::span<TileKernelEntry<HaloFilter<float>> const> all();
};

/// The kernel that stands for `object.compute`; null where there is none and
/// `compute` must be called.
template <class Base>
TileKernel<Base> findTileKernel(Base const& object) {
  for (auto const& entry : TileKernels<Base>::all()) {
    if (*entry.type == typeid(object)) return entry.kernel;
  }
  return nullptr;
}

}  // namespace Velmor::Processing
