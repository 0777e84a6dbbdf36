#pragma once

#include <cstddef>
#include <type_traits>

#include "core/to_int.h"
#include "processing/mixer.h"

namespace Velmor::Processing {

/// What the mixers do to one component. The order of the operations is part of
/// every result.
namespace rules {

inline float blend(float a, float b, float alpha) { return (a - b) * alpha + b; }

inline int blend(int a, int b, float alpha) {
  using namespace orlen::Math::detail;
  return add(b, toInt(static_cast<float>(sub(a, b)) * alpha));
}

/// By an element of an alpha channel: integers by an integer product.
inline int blend(int a, int b, int alpha) {
  using namespace orlen::Math::detail;
  return add(mul(sub(a, b), alpha), b);
}

inline float advance(float a, float b, float step) { return a + step * b; }

inline int advance(int a, int b, float step) {
  return orlen::Math::detail::add(a, toInt(static_cast<float>(b) * step));
}

}  // namespace rules

template <class T>
struct ComponentsOf {
  using Type = T;
  static constexpr std::size_t count = 1;
  static Type* of(T* values) { return values; }
  static Type const* of(T const* values) { return values; }
};
template <int N, class C>
struct ComponentsOf<orlen::Math::vec<N, C>> {
  using Type = C;
  static constexpr std::size_t count = N;
  static Type* of(orlen::Math::vec<N, C>* values) {
    return values != nullptr ? &values->x : nullptr;
  }
  static Type const* of(orlen::Math::vec<N, C> const* values) {
    return values != nullptr ? &values->x : nullptr;
  }
};

}  // namespace Velmor::Processing
