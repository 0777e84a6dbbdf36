#pragma once

#include <cstdint>
#include <cstring>

#include "velmorapi/channel.h"
#include "velmorapi/component.h"

namespace Velmor::Processing {

/// Room for one sampled value of any value type: three words of 32 bits, of
/// which a sampling call writes as many as its type has components and leaves
/// the rest alone. Default construction initialises nothing.
struct VELMOR_EXPORT Sample {
  Sample() {}  // NOLINT(modernize-use-equals-default): `Sample()` must not zero the words
  Sample(Sample const& other) = default;
  Sample& operator=(Sample const& other) = default;
  ~Sample() {}  // NOLINT(modernize-use-equals-default)

  /// The leading words read as a `T`, one of the six value types.
  template <class T>
  T as() const {
    static_assert(sizeof(T) <= 3 * sizeof(std::uint32_t));
    T value;
    std::memcpy(&value, words, sizeof(T));
    return value;
  }

  std::uint32_t words[3];
};

/// Reads a voxel channel, or a vector kept as two or three float channels, at
/// world positions (voxel position times the layout's voxel scale).
///
/// Float types are interpolated by the host's quadratic B-splines. Integers are
/// read by the position in voxels, truncated toward zero to find the leaf tile, and
/// from the voxel that the position itself lies in; the background where no leaf
/// tile is. Nothing is reported: what cannot be sampled gives an
/// empty sampler, which leaves its outputs untouched.
///
/// A sampler keeps its channels alive and sees changes to their values. One
/// object serves one thread; copies are independent, so give each worker its own.
class VELMOR_EXPORT Sampler {
 public:
  /// Empty.
  Sampler();
  /// One channel of any of the six value types.
  explicit Sampler(API::VoxelChannel const& channel);
  /// The first of these that can be sampled: the channel `name`; the float
  /// channels `name` with "_u", "_v", "_w"; with "_x", "_y", "_z"; with "_x", "_y".
  Sampler(API::VoxelComponent const& component, API::String const& name);
  /// A deep copy; `other` must not be empty.
  Sampler(Sampler const& other);
  /// Takes over; `other` is empty afterwards.
  Sampler(Sampler&& other) noexcept;
  /// A deep copy, or empty if `other` is; assigning a sampler to itself empties it.
  Sampler& operator=(Sampler const& other);
  Sampler& operator=(Sampler&& other) noexcept;
  ~Sampler();

  bool valid() const;
  /// The type of the samples; `None` when empty.
  API::DataType dataType() const;
  /// Writes the value at `pos` into the leading words of `out`.
  void sample(orlen::Math::vec<3, float> const& pos, Sample& out) const;
  /// Writes the gradient per world unit; only for a single float channel, else
  /// `grad` keeps its value.
  void sampleGradient(orlen::Math::vec<3, float> const& pos,
                      orlen::Math::vec<3, float>& grad) const;

 private:
  class VELMOR_LOCAL Impl;
  template <int N, class T>
  class VELMOR_LOCAL ChannelSamplerT;
  static Impl* makeImpl(API::Array<API::VoxelChannel> const& channels);
  void reset(Impl* impl);

  Impl* impl_ = nullptr;
};

}  // namespace Velmor::Processing
