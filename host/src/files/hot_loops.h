#pragma once

#include <cstddef>
#include <type_traits>

namespace Velmor::Host::Files {

/// Calls body(n) with a run of 1 to 5 as a constant, so that a loop over it is
/// unrolled: regrouping voxels is all short runs.
template <class Body>
void withConstant(int run, Body const& body) {
  switch (run) {
    case 1:
      return body(std::integral_constant<int, 1>());
    case 2:
      return body(std::integral_constant<int, 2>());
    case 3:
      return body(std::integral_constant<int, 3>());
    case 4:
      return body(std::integral_constant<int, 4>());
    default:
      return body(std::integral_constant<int, 5>());
  }
}

/// Begins to fetch memory that will be read in short strides, in an order that
/// the processor does not foresee.
inline void prefetch(void const* memory, std::size_t bytes) {
  constexpr std::size_t line = 64;
  auto const* const first = static_cast<char const*>(memory);
  for (std::size_t at = 0; at < bytes; at += line) __builtin_prefetch(first + at);
}

}  // namespace Velmor::Host::Files
