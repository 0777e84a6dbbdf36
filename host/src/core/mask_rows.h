#pragma once

#include <cstdint>

#include "velmorhost/scene.h"

namespace Velmor::Host {

inline constexpr int cellsInRow = 5;

/// The bits of a row of five cells of a mask; rows are numbered y + 5 z.
inline unsigned rowOf(CellMask const& mask, int row) noexcept {
  int const bit = row * cellsInRow;
  auto const low = bit < 64 ? mask.words[0] >> bit : mask.words[1] >> (bit - 64);
  auto const high = bit < 64 && bit + cellsInRow > 64 ? mask.words[1] << (64 - bit) : 0;
  return static_cast<unsigned>((low | high) & 31u);
}

/// Adds bits to row (y, z) of a mask; of `bits` only the lowest five count.
inline void setRow(CellMask& mask, int y, int z, unsigned bits) noexcept {
  int const bit = (y + cellsInRow * z) * cellsInRow;
  auto const row = std::uint64_t{bits & 31u};
  if (bit < 64) mask.words[0] |= row << bit;
  if (bit >= 64) mask.words[1] |= row << (bit - 64);
  if (bit < 64 && bit + cellsInRow > 64) mask.words[1] |= row >> (64 - bit);
}

/// A matrix of 8 x 8 bits, one byte per row, with rows and columns exchanged
/// (H. S. Warren, Hacker's Delight, 7-3).
constexpr std::uint64_t transposed(std::uint64_t m) noexcept {
  auto const exchange = [&m](int distance, std::uint64_t mask) {
    auto const different = (m ^ (m >> distance)) & mask;
    m ^= different ^ (different << distance);
  };
  exchange(7, 0x00AA00AA00AA00AA);
  exchange(14, 0x0000CCCC0000CCCC);
  exchange(28, 0x00000000F0F0F0F0);
  return m;
}

}  // namespace Velmor::Host
