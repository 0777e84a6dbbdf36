#include "processing/pointwise_filters.h"

#include <cstddef>

#include "core/arithmetic.h"
#include "core/tile_kernel.h"

namespace Velmor::Processing {

template <class T>
struct PointwiseRule<IdentityFilter<T>> {
  explicit PointwiseRule(IdentityFilter<T> const&) {}
  T operator()(T const& value) const { return value; }
};

template <class T>
struct PointwiseRule<OffsetFilter<T>> {
  explicit PointwiseRule(OffsetFilter<T> const& filter) : offset(filter.offset_) {}
  T operator()(T const& value) const { return Arithmetic::add(offset, value); }
  T offset;
};

template <class T>
struct PointwiseRule<ScaleFilter<T>> {
  explicit PointwiseRule(ScaleFilter<T> const& filter) : scale(filter.scale_) {}
  T operator()(T const& value) const { return Arithmetic::multiply(scale, value); }
  T scale;
};

template <class T>
struct PointwiseRule<RemapFilter<T>> {
  explicit PointwiseRule(RemapFilter<T> const& filter)
      : inMin(filter.inMin_), outMin(filter.outMin_), factor(filter.factor_) {}
  T operator()(T const& value) const {
    return Arithmetic::add(Arithmetic::multiply(Arithmetic::subtract(value, inMin), factor),
                           outMin);
  }
  T inMin, outMin, factor;
};

template <class T>
IdentityFilter<T>::IdentityFilter() = default;
template <class T>
IdentityFilter<T>::IdentityFilter(IdentityFilter const&) = default;
template <class T>
IdentityFilter<T>::IdentityFilter(IdentityFilter&&) noexcept = default;
template <class T>
IdentityFilter<T>& IdentityFilter<T>::operator=(IdentityFilter const&) = default;
template <class T>
IdentityFilter<T>& IdentityFilter<T>::operator=(IdentityFilter&&) noexcept = default;
template <class T>
IdentityFilter<T>::~IdentityFilter() = default;

template <class T>
T IdentityFilter<T>::compute(T const& value) const {
  return PointwiseRule<IdentityFilter<T>>(*this)(value);
}

VELMOR_INSTANTIATE_FAMILY(IdentityFilter);

template <class T>
OffsetFilter<T>::OffsetFilter(T const& offset) : offset_(offset) {}
template <class T>
OffsetFilter<T>::OffsetFilter(OffsetFilter const&) = default;
template <class T>
OffsetFilter<T>::OffsetFilter(OffsetFilter&&) noexcept = default;
template <class T>
OffsetFilter<T>& OffsetFilter<T>::operator=(OffsetFilter const&) = default;
template <class T>
OffsetFilter<T>& OffsetFilter<T>::operator=(OffsetFilter&&) noexcept = default;
template <class T>
OffsetFilter<T>::~OffsetFilter() = default;

template <class T>
T OffsetFilter<T>::compute(T const& value) const {
  return PointwiseRule<OffsetFilter<T>>(*this)(value);
}

VELMOR_INSTANTIATE_FAMILY(OffsetFilter);

template <class T>
ScaleFilter<T>::ScaleFilter(T const& scale) : scale_(scale) {}
template <class T>
ScaleFilter<T>::ScaleFilter(ScaleFilter const&) = default;
template <class T>
ScaleFilter<T>::ScaleFilter(ScaleFilter&&) noexcept = default;
template <class T>
ScaleFilter<T>& ScaleFilter<T>::operator=(ScaleFilter const&) = default;
template <class T>
ScaleFilter<T>& ScaleFilter<T>::operator=(ScaleFilter&&) noexcept = default;
template <class T>
ScaleFilter<T>::~ScaleFilter() = default;

template <class T>
T ScaleFilter<T>::compute(T const& value) const {
  return PointwiseRule<ScaleFilter<T>>(*this)(value);
}

VELMOR_INSTANTIATE_FAMILY(ScaleFilter);

template <class T>
RemapFilter<T>::RemapFilter(T const& inMin, T const& inMax, T const& outMin, T const& outMax)
    : inMin_(inMin),
      outMin_(outMin),
      factor_(Arithmetic::divide(Arithmetic::subtract(outMax, outMin),
                                 Arithmetic::subtract(inMax, inMin))) {}
template <class T>
RemapFilter<T>::RemapFilter(RemapFilter const&) = default;
template <class T>
RemapFilter<T>::RemapFilter(RemapFilter&&) noexcept = default;
template <class T>
RemapFilter<T>& RemapFilter<T>::operator=(RemapFilter const&) = default;
template <class T>
RemapFilter<T>& RemapFilter<T>::operator=(RemapFilter&&) noexcept = default;
template <class T>
RemapFilter<T>::~RemapFilter() = default;

template <class T>
T RemapFilter<T>::compute(T const& value) const {
  return PointwiseRule<RemapFilter<T>>(*this)(value);
}

VELMOR_INSTANTIATE_FAMILY(RemapFilter);

template <class T>
DilateFilter<T>::DilateFilter(T const& amount) : OffsetFilter<T>(Arithmetic::negate(amount)) {}
template <class T>
DilateFilter<T>::DilateFilter(DilateFilter const&) = default;
template <class T>
DilateFilter<T>::DilateFilter(DilateFilter&&) noexcept = default;
template <class T>
DilateFilter<T>& DilateFilter<T>::operator=(DilateFilter const&) = default;
template <class T>
DilateFilter<T>& DilateFilter<T>::operator=(DilateFilter&&) noexcept = default;
template <class T>
DilateFilter<T>::~DilateFilter() = default;

VELMOR_INSTANTIATE_FAMILY(DilateFilter);

template <class T>
ErodeFilter<T>::ErodeFilter(T const& amount) : OffsetFilter<T>(amount) {}
template <class T>
ErodeFilter<T>::ErodeFilter(ErodeFilter const&) = default;
template <class T>
ErodeFilter<T>::ErodeFilter(ErodeFilter&&) noexcept = default;
template <class T>
ErodeFilter<T>& ErodeFilter<T>::operator=(ErodeFilter const&) = default;
template <class T>
ErodeFilter<T>& ErodeFilter<T>::operator=(ErodeFilter&&) noexcept = default;
template <class T>
ErodeFilter<T>::~ErodeFilter() = default;

VELMOR_INSTANTIATE_FAMILY(ErodeFilter);

namespace {

template <class F, class T>
void computeAll(TransformFilter<T> const& base, T const* in, T* out, std::size_t count) {
  // Parameters of its own: no store into the tile can change them.
  PointwiseRule<F> const rule(static_cast<F const&>(base));
  if (in == out) {
    // Said with one pointer, or the two would seem to overlap by a part.
    for (std::size_t e = 0; e < count; ++e) out[e] = rule(out[e]);
  } else {
    for (std::size_t e = 0; e < count; ++e) out[e] = rule(in[e]);
  }
}

// Objects of exactly class `F` follow the rule of `Base`.
template <class F, class Base, class T>
constexpr TileKernelEntry<TransformFilter<T>> entryOf() {
  return {&typeid(F), computeAll<Base, T>};
}

}  // namespace

template <class T>
std::span<TileKernelEntry<TransformFilter<T>> const> TransformKernels<T>::all() {
  static TileKernelEntry<TransformFilter<T>> const entries[] = {
      entryOf<IdentityFilter<T>, IdentityFilter<T>, T>(),
      entryOf<OffsetFilter<T>, OffsetFilter<T>, T>(),
      entryOf<ScaleFilter<T>, ScaleFilter<T>, T>(),
      entryOf<RemapFilter<T>, RemapFilter<T>, T>(),
      entryOf<DilateFilter<T>, OffsetFilter<T>, T>(),
      entryOf<ErodeFilter<T>, OffsetFilter<T>, T>()};
  return entries;
}

VELMOR_INSTANTIATE_FAMILY(TransformKernels);

}  // namespace Velmor::Processing
