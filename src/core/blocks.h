#pragma once

#include <cstddef>

namespace Velmor::Processing {

/// out[i] = value(i) for i below `count`. Whatever `value` reads may be the
/// output itself at the same place: each block is computed before any of it is
/// stored, which also spares the compiler from proving that arrays are apart.
template <class C, class Value>
void forEachInBlocks(C* out, std::size_t count, Value value) {
  constexpr std::size_t block = 16;
  std::size_t at = 0;
  for (; at + block <= count; at += block) {
    C results[block];
    for (std::size_t i = 0; i < block; ++i) results[i] = value(at + i);
    for (std::size_t i = 0; i < block; ++i) out[at + i] = results[i];
  }
  for (; at < count; ++at) out[at] = value(at);
}

}  // namespace Velmor::Processing
