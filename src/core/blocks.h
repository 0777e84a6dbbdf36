#pragma once

#include <cstddef>

namespace Velmor::Processing {

/// out[i] = value(i) from `at` on, as many whole blocks as fit before `count`;
/// returns where the rest begins.
template <std::size_t Block, class C, class Value>
std::size_t forWholeBlocks(C* out, std::size_t at, std::size_t count, Value const& value) {
  for (; at + Block <= count; at += Block) {
    C results[Block];
    for (std::size_t i = 0; i < Block; ++i) results[i] = value(at + i);
    for (std::size_t i = 0; i < Block; ++i) out[at + i] = results[i];
  }
  return at;
}

/// out[i] = value(i) for i below `count`. Whatever `value` reads may be the
/// output itself at the same place: each block is computed before any of it is
/// stored, which also spares the compiler from proving that arrays are apart.
/// Small blocks follow the large ones: of a tile's values an eighth is left over.
template <class C, class Value>
void forEachInBlocks(C* out, std::size_t count, Value value) {
  auto at = forWholeBlocks<16>(out, 0, count, value);
  at = forWholeBlocks<4>(out, at, count, value);
  for (; at < count; ++at) out[at] = value(at);
}

}  // namespace Velmor::Processing
