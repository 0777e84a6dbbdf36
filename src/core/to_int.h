#pragma once

#include <limits>

namespace Velmor::Processing {

/// Truncates toward zero. NaN and values that no int can hold, whose conversion
/// C++ leaves undefined, become the lowest int, as x86 does it.
inline int toInt(float value) noexcept {
  return value >= -2147483648.f && value < 2147483648.f ? static_cast<int>(value)
                                                        : std::numeric_limits<int>::min();
}

}  // namespace Velmor::Processing
