#include "processing/pointwise_filters.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "core/arithmetic.h"
#include "core/tile_kernel.h"

namespace Velmor::Processing {

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
  return value;
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
  return Arithmetic::add(offset_, value);
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
  return Arithmetic::multiply(scale_, value);
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
  return Arithmetic::add(Arithmetic::multiply(Arithmetic::subtract(value, inMin_), factor_),
                         outMin_);
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

// Results go through memory of this function's own: a store into the tile might
// change the filter or, in place, the input, for all that the compiler knows,
// and then it computes one element at a time.
template <class F, class T>
void computeAll(TransformFilter<T> const& base, T const* in, T* out, std::size_t count) {
  constexpr std::size_t chunk = 128;  // one tile of the usual 125
  auto const& filter = static_cast<F const&>(base);
  alignas(64) std::byte storage[chunk * sizeof(T)];
  auto* const results = reinterpret_cast<T*>(storage);
  for (std::size_t from = 0; from < count; from += chunk) {
    std::size_t const n = std::min(chunk, count - from);
    for (std::size_t e = 0; e < n; ++e) new (results + e) T(filter.F::compute(in[from + e]));
    std::copy_n(results, n, out + from);
  }
}

template <class F, class T>
constexpr TileKernelEntry<TransformFilter<T>> entryOf() {
  return {&typeid(F), computeAll<F, T>};
}

}  // namespace

template <class T>
std::span<TileKernelEntry<TransformFilter<T>> const> TileKernels<TransformFilter<T>>::all() {
  static TileKernelEntry<TransformFilter<T>> const entries[] = {
      entryOf<IdentityFilter<T>, T>(), entryOf<OffsetFilter<T>, T>(), entryOf<ScaleFilter<T>, T>(),
      entryOf<RemapFilter<T>, T>(),    entryOf<DilateFilter<T>, T>(), entryOf<ErodeFilter<T>, T>()};
  return entries;
}

template struct TileKernels<TransformFilter<int>>;
template struct TileKernels<TransformFilter<float>>;
template struct TileKernels<TransformFilter<orlen::Math::vec<2, int>>>;
template struct TileKernels<TransformFilter<orlen::Math::vec<2, float>>>;
template struct TileKernels<TransformFilter<orlen::Math::vec<3, int>>>;
template struct TileKernels<TransformFilter<orlen::Math::vec<3, float>>>;

}  // namespace Velmor::Processing
