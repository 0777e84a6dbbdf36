#pragma once

#include <array>
#include <bit>
#include <cstdint>

#include "core/mask_rows.h"
#include "levelset/field.h"

namespace Velmor::Host {

inline bool isEmpty(CellMask const& mask) noexcept { return (mask.words[0] | mask.words[1]) == 0; }

/// Calls `function(cell)` for the cells of a mask.
template <class Function>
void forBits(CellMask const& mask, Function const& function) {
  for (int w = 0; w < 2; ++w) {
    for (auto bits = mask.words[static_cast<std::size_t>(w)]; bits != 0; bits &= bits - 1) {
      function(64 * w + std::countr_zero(bits));
    }
  }
}

/// A mask of a tile and of the voxels beside it, as rows of seven bits from cell -1 to 5.
class BitRows {
 public:
  /// `maskOf(tile)` is the mask; where there is no tile, `uniform(n)` is the value
  /// everywhere in number n of the 27.
  template <class MaskOf, class Uniform>
  BitRows(Around const& around, MaskOf const& maskOf, Uniform const& uniform) {
    std::array<CellMask, 27> masks;
    for (std::size_t n = 0; n < 27; ++n) {
      if (around[n] != nullptr) {
        masks[n] = maskOf(*around[n]);
      } else if (uniform(static_cast<int>(n))) {
        masks[n].words = {~std::uint64_t{0}, ~std::uint64_t{0}};
      }
    }
    for (int z = -1; z <= 5; ++z) {
      int const tz = (z + 5) / 5;
      for (int y = -1; y <= 5; ++y) {
        int const ty = (y + 5) / 5;
        int const row = y + 5 - 5 * ty + 5 * (z + 5 - 5 * tz);
        auto const first = static_cast<std::size_t>(3 * (ty + 3 * tz));
        rows_[static_cast<std::size_t>(y + 1 + 7 * (z + 1))] = static_cast<std::uint8_t>(
            rowOf(masks[first], row) >> 4 | rowOf(masks[first + 1], row) << 1 |
            (rowOf(masks[first + 2], row) & 1u) << 6);
      }
    }
  }

  /// Cell x is bit x + 1.
  unsigned row(int y, int z) const noexcept {
    return rows_[static_cast<std::size_t>(y + 1 + 7 * (z + 1))];
  }
  bool isEmpty() const noexcept {
    unsigned any = 0;
    for (auto const row : rows_) any |= row;
    return any == 0;
  }
  /// Whether all bits are the same.
  bool isUniform() const noexcept {
    unsigned differing = 0;
    for (auto const row : rows_) differing |= row ^ (rows_[0] & 1u ? 127u : 0u);
    return differing == 0;
  }

 private:
  std::array<std::uint8_t, 49> rows_;
};

}  // namespace Velmor::Host
