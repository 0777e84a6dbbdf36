#pragma once

#include <cstddef>
#include <type_traits>

#include "velmorapi/math.h"

/// Arithmetic of the six value types: per component, integers wrapping as in
/// two's complement, and nothing undefined but a division by integer zero.
namespace Velmor::Processing::Arithmetic {

template <class T>
struct ComponentOf {
  using type = T;
};
template <int N, class C>
struct ComponentOf<orlen::Math::vec<N, C>> {
  using type = C;
};
/// `int` or `float`.
template <class T>
using Component = typename ComponentOf<T>::type;

/// How many there are in a value.
template <class T>
inline constexpr std::size_t componentCount = sizeof(T) / sizeof(Component<T>);

/// An array of values as the array of their components, which have no gaps.
template <class T>
Component<T>* components(T* values) noexcept {
  return reinterpret_cast<Component<T>*>(values);
}
template <class T>
Component<T> const* components(T const* values) noexcept {
  return reinterpret_cast<Component<T> const*>(values);
}

/// `operation` applied to the components of its operands one by one.
template <class T, class Operation, class... Rest>
constexpr T perComponent(Operation operation, T const& first, Rest const&... rest) noexcept {
  if constexpr (std::is_arithmetic_v<T>) {
    return operation(first, rest...);
  } else if constexpr (T::size == 2) {
    return T(operation(first.x, rest.x...), operation(first.y, rest.y...));
  } else {
    return T(operation(first.x, rest.x...), operation(first.y, rest.y...),
             operation(first.z, rest.z...));
  }
}

template <class T>
constexpr T add(T const& a, T const& b) noexcept {
  return perComponent<T>(orlen::Math::detail::add<Component<T>>, a, b);
}

template <class T>
constexpr T subtract(T const& a, T const& b) noexcept {
  return perComponent<T>(orlen::Math::detail::sub<Component<T>>, a, b);
}

template <class T>
constexpr T multiply(T const& a, T const& b) noexcept {
  return perComponent<T>(orlen::Math::detail::mul<Component<T>>, a, b);
}

/// Integers truncate toward zero and must not be divided by zero; floats
/// follow IEEE.
template <class T>
constexpr T divide(T const& a, T const& b) noexcept {
  return perComponent<T>(
      [](Component<T> p, Component<T> q) {
        if constexpr (std::is_integral_v<Component<T>>) {
          // The one quotient that does not fit wraps instead of trapping.
          if (q == -1) return orlen::Math::detail::sub<Component<T>>(0, p);
        }
        return p / q;
      },
      a, b);
}

template <class T>
constexpr T negate(T const& a) noexcept {
  return perComponent<T>(
      [](Component<T> p) {
        if constexpr (std::is_integral_v<Component<T>>) {
          return orlen::Math::detail::sub<Component<T>>(0, p);
        } else {
          return -p;  // not 0 - p, which loses the sign of zero
        }
      },
      a);
}

}  // namespace Velmor::Processing::Arithmetic
