#pragma once

#include <cstdint>
#include <limits>

namespace Velmor::Host {

/// Truncates towards zero; NaN and what does not fit give the lowest integer.
inline std::int32_t toInt(double value) noexcept {
  constexpr double limit = 2147483648.0;
  if (!(value > -limit - 1.0 && value < limit)) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

}  // namespace Velmor::Host
