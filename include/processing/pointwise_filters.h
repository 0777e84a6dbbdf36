#pragma once

#include "processing/filter.h"

namespace Velmor::Processing {

template <class Family>
struct PointwiseRule;  // what the library's own loops need of a filter

/// Copies: dst = src, for every element of each visited tile, halo and elements
/// that hold the background included. Like all filters it reports nothing: both
/// channels must hold `T` and share a layout (see `Filter`).
template <class T>
class IdentityFilter : public TransformFilter<T> {
 public:
  IdentityFilter();
  IdentityFilter(IdentityFilter const& other);
  IdentityFilter(IdentityFilter&& other) noexcept;
  IdentityFilter& operator=(IdentityFilter const& other);
  IdentityFilter& operator=(IdentityFilter&& other) noexcept;
  ~IdentityFilter() override;
  T compute(T const& value) const override;
};

VELMOR_DECLARE_FAMILY(IdentityFilter);

/// Adds a constant to every element of each visited tile: dst = offset + src.
///
/// Covers the tile's whole array, halo and elements that hold the background
/// included, at all depths by default; the channel's background value itself
/// stays. On a level set the offset is a distance in world units. Integers wrap,
/// nothing clamps. `src` and `dst` may be one channel. One filter may serve many
/// threads.
template <class T>
class OffsetFilter : public TransformFilter<T> {
 public:
  explicit OffsetFilter(T const& offset);
  OffsetFilter(OffsetFilter const& other);
  OffsetFilter(OffsetFilter&& other) noexcept;
  OffsetFilter& operator=(OffsetFilter const& other);
  OffsetFilter& operator=(OffsetFilter&& other) noexcept;
  ~OffsetFilter() override;
  T compute(T const& value) const override;

 private:
  friend struct PointwiseRule<OffsetFilter>;
  T offset_;
};

VELMOR_DECLARE_FAMILY(OffsetFilter);

/// Multiplies every element of each visited tile: dst = scale * src, per
/// component. Covers what `OffsetFilter` covers, in place or not. Integers wrap,
/// nothing clamps.
template <class T>
class ScaleFilter : public TransformFilter<T> {
 public:
  explicit ScaleFilter(T const& scale);
  ScaleFilter(ScaleFilter const& other);
  ScaleFilter(ScaleFilter&& other) noexcept;
  ScaleFilter& operator=(ScaleFilter const& other);
  ScaleFilter& operator=(ScaleFilter&& other) noexcept;
  ~ScaleFilter() override;
  T compute(T const& value) const override;

 private:
  friend struct PointwiseRule<ScaleFilter>;
  T scale_;
};

VELMOR_DECLARE_FAMILY(ScaleFilter);

/// dst = (src - inMin) * factor + outMin, factor = (outMax - outMin) / (inMax - inMin),
/// per component, extrapolating outside [inMin, inMax]. Covers what
/// `OffsetFilter` covers, in place or not.
///
/// The factor of integers is itself an integer, truncated once when the filter
/// is made: [0, 10] to [0, 5] gives 0. Equal bounds give infinities or NaN for
/// floats and must not be used for integers.
template <class T>
class RemapFilter : public TransformFilter<T> {
 public:
  RemapFilter(T const& inMin, T const& inMax, T const& outMin, T const& outMax);
  RemapFilter(RemapFilter const& other);
  RemapFilter(RemapFilter&& other) noexcept;
  RemapFilter& operator=(RemapFilter const& other);
  RemapFilter& operator=(RemapFilter&& other) noexcept;
  ~RemapFilter() override;
  T compute(T const& value) const override;

 private:
  friend struct PointwiseRule<RemapFilter>;
  T inMin_, outMin_, factor_;
};

VELMOR_DECLARE_FAMILY(RemapFilter);

/// Moves the surface of a level set outwards by `amount` world units by
/// subtracting it from every value that an `OffsetFilter` covers; neighbours are
/// not looked at and distances not measured anew.
template <class T>
class DilateFilter : public OffsetFilter<T> {
 public:
  explicit DilateFilter(T const& amount);
  DilateFilter(DilateFilter const& other);
  DilateFilter(DilateFilter&& other) noexcept;
  DilateFilter& operator=(DilateFilter const& other);
  DilateFilter& operator=(DilateFilter&& other) noexcept;
  ~DilateFilter() override;
};

VELMOR_DECLARE_FAMILY(DilateFilter);

/// Moves the surface of a level set inwards by `amount` world units by adding it
/// to every value; else like `DilateFilter`.
template <class T>
class ErodeFilter : public OffsetFilter<T> {
 public:
  explicit ErodeFilter(T const& amount);
  ErodeFilter(ErodeFilter const& other);
  ErodeFilter(ErodeFilter&& other) noexcept;
  ErodeFilter& operator=(ErodeFilter const& other);
  ErodeFilter& operator=(ErodeFilter&& other) noexcept;
  ~ErodeFilter() override;
};

VELMOR_DECLARE_FAMILY(ErodeFilter);

}  // namespace Velmor::Processing
