#include "meshing/cell_block.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/seed.h"

namespace Velmor::Processing {
namespace {

TEST(CellBlock, TellsWhichOfARowOfAnyLengthAreAboveZero) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::vector<float> const kinds{1.f, -1.f, 0.f, -0.f, 1e-40f, HUGE_VALF, -HUGE_VALF, NAN};
  for (int count = 1; count <= 32; ++count) {
    std::vector<float> row(static_cast<std::size_t>(count) + 3, 1.f);  // above 0 behind it, too
    std::uint32_t expected = 0;
    for (int k = 0; k < count; ++k) {
      auto& value = row[static_cast<std::size_t>(k)];
      value = kinds[random() % kinds.size()];
      if (value > 0.f) expected |= std::uint32_t{1} << k;
    }
    EXPECT_EQ(CellBlock::positive(row.data(), count), expected) << count << " values";
  }
}

}  // namespace
}  // namespace Velmor::Processing
