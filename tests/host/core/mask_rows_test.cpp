#include "core/mask_rows.h"

#include <gtest/gtest.h>

namespace Velmor::Test {
namespace {

TEST(MaskRows, TransposingMovesEachBitToTheOtherSideOfTheDiagonal) {
  for (int row = 0; row < 8; ++row) {
    for (int column = 0; column < 8; ++column) {
      EXPECT_EQ(Host::transposed(std::uint64_t{1} << (8 * row + column)),
                std::uint64_t{1} << (8 * column + row));
    }
  }
  EXPECT_EQ(Host::transposed(0x00000000000000FF), 0x0101010101010101u);
}

TEST(MaskRows, ARowIsWhatWasSetAndNothingElse) {
  for (int row = 0; row < 25; ++row) {
    Host::CellMask mask;
    Host::setRow(mask, row % 5, row / 5, 0xF5);  // bits beyond five do not count
    for (int other = 0; other < 25; ++other) {
      EXPECT_EQ(Host::rowOf(mask, other), other == row ? 0x15u : 0u);
    }
    for (int c = 0; c < 125; ++c) EXPECT_EQ(mask.test(c), c / 5 == row && c % 5 % 2 == 0);
  }
}

}  // namespace
}  // namespace Velmor::Test
