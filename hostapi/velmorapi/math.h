#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "velmorapi/export.h"

namespace orlen::Math {

namespace detail {

// Integer components wrap on overflow; doing it in unsigned keeps it defined.
template <class T>
constexpr T add(T a, T b) noexcept {
  if constexpr (std::is_integral_v<T>) {
    using U = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<U>(a) + static_cast<U>(b));
  } else {
    return a + b;
  }
}

template <class T>
constexpr T sub(T a, T b) noexcept {
  if constexpr (std::is_integral_v<T>) {
    using U = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<U>(a) - static_cast<U>(b));
  } else {
    return a - b;
  }
}

template <class T>
constexpr T mul(T a, T b) noexcept {
  if constexpr (std::is_integral_v<T>) {
    using U = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<U>(a) * static_cast<U>(b));
  } else {
    return a * b;
  }
}

}  // namespace detail

/// A small fixed-size vector of `N` components of 32 bits, stored x first and
/// without padding. Arithmetic is per component; integers wrap on overflow.
/// Only 2 and 3 components exist. Marked for export so that templates over it
/// keep their own visibility.
template <int N, class T>
struct VELMOR_EXPORT vec;

template <class T>
struct VELMOR_EXPORT vec<2, T> {
  static constexpr int size = 2;
  using value_type = T;
  T x{}, y{};

  constexpr vec() noexcept = default;
  constexpr vec(T x_, T y_) noexcept : x(x_), y(y_) {}
  /// Both components equal to `all`.
  explicit constexpr vec(T all) noexcept : x(all), y(all) {}
  /// Component `i`, 0 for x, anything else for y.
  constexpr T& operator[](int i) noexcept { return i == 0 ? x : y; }
  constexpr T const& operator[](int i) const noexcept { return i == 0 ? x : y; }

  friend constexpr bool operator==(vec const& a, vec const& b) noexcept {
    return a.x == b.x && a.y == b.y;
  }
  friend constexpr bool operator!=(vec const& a, vec const& b) noexcept { return !(a == b); }
  friend constexpr vec operator+(vec const& a, vec const& b) noexcept {
    return {detail::add(a.x, b.x), detail::add(a.y, b.y)};
  }
  friend constexpr vec operator-(vec const& a, vec const& b) noexcept {
    return {detail::sub(a.x, b.x), detail::sub(a.y, b.y)};
  }
  friend constexpr vec operator*(vec const& a, vec const& b) noexcept {
    return {detail::mul(a.x, b.x), detail::mul(a.y, b.y)};
  }
  friend constexpr vec operator*(vec const& a, T b) noexcept { return a * vec(b); }
};

template <class T>
struct VELMOR_EXPORT vec<3, T> {
  static constexpr int size = 3;
  using value_type = T;
  T x{}, y{}, z{};

  constexpr vec() noexcept = default;
  constexpr vec(T x_, T y_, T z_) noexcept : x(x_), y(y_), z(z_) {}
  /// All components equal to `all`.
  explicit constexpr vec(T all) noexcept : x(all), y(all), z(all) {}
  /// Component `i`, 0 for x, 1 for y, anything else for z.
  constexpr T& operator[](int i) noexcept { return i == 0 ? x : (i == 1 ? y : z); }
  constexpr T const& operator[](int i) const noexcept { return i == 0 ? x : (i == 1 ? y : z); }

  friend constexpr bool operator==(vec const& a, vec const& b) noexcept {
    return a.x == b.x && a.y == b.y && a.z == b.z;
  }
  friend constexpr bool operator!=(vec const& a, vec const& b) noexcept { return !(a == b); }
  friend constexpr vec operator+(vec const& a, vec const& b) noexcept {
    return {detail::add(a.x, b.x), detail::add(a.y, b.y), detail::add(a.z, b.z)};
  }
  friend constexpr vec operator-(vec const& a, vec const& b) noexcept {
    return {detail::sub(a.x, b.x), detail::sub(a.y, b.y), detail::sub(a.z, b.z)};
  }
  friend constexpr vec operator*(vec const& a, vec const& b) noexcept {
    return {detail::mul(a.x, b.x), detail::mul(a.y, b.y), detail::mul(a.z, b.z)};
  }
  friend constexpr vec operator*(vec const& a, T b) noexcept { return a * vec(b); }
};

/// An axis-aligned box between two corners. Default constructed it is empty:
/// `min` holds the largest and `max` the lowest float in every component, so
/// that joining any point makes it that point.
template <class V>
struct VELMOR_EXPORT bbox {
  static constexpr typename V::value_type largest =
      static_cast<typename V::value_type>(3.4028234663852886e38);
  V min{largest};
  V max{-largest};

  constexpr bbox() noexcept = default;
  constexpr bbox(V const& min_, V const& max_) noexcept : min(min_), max(max_) {}

  friend constexpr bool operator==(bbox const& a, bbox const& b) noexcept {
    return a.min == b.min && a.max == b.max;
  }
  friend constexpr bool operator!=(bbox const& a, bbox const& b) noexcept { return !(a == b); }
};

static_assert(sizeof(vec<3, float>) == 12 && sizeof(vec<2, int>) == 8);

}  // namespace orlen::Math
