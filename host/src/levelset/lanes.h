#pragma once

#include <algorithm>
#include <cstring>

namespace Velmor::Host {

/// Four floats. Sums over particles have four partial sums, one for every fourth
/// particle of a run, on every processor.
using Lanes = float __attribute__((vector_size(16)));

inline Lanes load(float const* from) noexcept {
  Lanes lanes;
  std::memcpy(&lanes, from, sizeof lanes);
  return lanes;
}

/// Of four floats that are members of one struct.
template <class Four>
Lanes loadAll(Four const& from) noexcept {
  static_assert(sizeof from == sizeof(Lanes));
  Lanes lanes;
  std::memcpy(&lanes, &from, sizeof lanes);
  return lanes;
}

inline Lanes all(float value) noexcept { return Lanes{value, value, value, value}; }
inline Lanes larger(Lanes a, Lanes b) noexcept { return a > b ? a : b; }
inline Lanes smaller(Lanes a, Lanes b) noexcept { return a < b ? a : b; }
inline float sumOf(Lanes a) noexcept { return (a[0] + a[1]) + (a[2] + a[3]); }
inline float leastOf(Lanes a) noexcept {
  return std::min(std::min(a[0], a[1]), std::min(a[2], a[3]));
}

// For runs whose length is no multiple of four: 0 in the lanes beyond the end.
inline constexpr float keep[5][4] = {
    {0, 0, 0, 0}, {1, 0, 0, 0}, {1, 1, 0, 0}, {1, 1, 1, 0}, {1, 1, 1, 1}};

}  // namespace Velmor::Host
