#pragma once

#include <limits>
#include <type_traits>

namespace orlen::Math::detail {

// Truncates toward zero. NaN and values that no int can hold, whose conversion
// C++ leaves undefined, become the lowest int, as x86 does it.
template <class F>
constexpr int toInt(F value) noexcept {
  static_assert(std::is_floating_point_v<F>);
  constexpr F limit = 2147483648.f;
  return value >= -limit && value < limit ? static_cast<int>(value)
                                          : std::numeric_limits<int>::min();
}

}  // namespace orlen::Math::detail
