#include "core/halo_block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "support/seed.h"

namespace {

using namespace Velmor;

/// A tile and its 26 neighbours, some of them single values, each in memory of
/// its own size: reading past one is an error that a sanitizer sees.
class Surroundings {
 public:
  Surroundings(std::mt19937& random, std::size_t words, double singles) : words_(words) {
    for (int z = 0; z < 3; ++z) {
      for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x) {
          bool const single = std::bernoulli_distribution(singles)(random);
          auto const count = words * (single ? 1 : 125);
          auto values = std::make_unique<std::uint32_t[]>(count);
          for (std::size_t i = 0; i < count; ++i) values[i] = static_cast<std::uint32_t>(random());
          near_[at(x, y, z)] = {reinterpret_cast<std::byte const*>(values.get()),
                                single ? 0u : ~0u};
          values_.push_back(std::move(values));
        }
      }
    }
  }

  API::CellSource const* near() const { return near_.data(); }

  /// What a block is by its definition.
  std::vector<std::uint32_t> block() const {
    std::vector<std::uint32_t> block;
    for (int z = -1; z <= 5; ++z) {
      for (int y = -1; y <= 5; ++y) {
        for (int x = -1; x <= 5; ++x) {
          auto const& source = near_[at((x + 5) / 5, (y + 5) / 5, (z + 5) / 5)];
          auto const cell =
              static_cast<std::size_t>((x + 5) % 5 + 5 * ((y + 5) % 5) + 25 * ((z + 5) % 5));
          for (std::size_t w = 0; w < words_; ++w) {
            std::uint32_t word;
            auto const first = source.mask == 0 ? 0 : cell * words_;
            std::memcpy(&word, source.data + (first + w) * sizeof word, sizeof word);
            block.push_back(word);
          }
        }
      }
    }
    return block;
  }

 private:
  static std::size_t at(int x, int y, int z) {
    return static_cast<std::size_t>(x + 7 * y + 49 * z);
  }

  std::size_t words_;
  std::array<API::CellSource, 343> near_{};
  std::vector<std::unique_ptr<std::uint32_t[]>> values_;
};

TEST(HaloBlock, IsTheSameInEveryWayOfFillingIt) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  for (std::size_t words = 1; words <= 3; ++words) {
    auto const fillers = API::blockFillers(words * sizeof(std::uint32_t));
    ASSERT_FALSE(fillers.empty());
    for (double const singles : {0., 0.1, 0.5, 1.}) {
      for (int round = 0; round < 50; ++round) {
        Surroundings const around(random, words, singles);
        auto const expected = around.block();
        for (std::size_t f = 0; f < fillers.size(); ++f) {
          auto const block = std::make_unique<std::uint32_t[]>(343 * words);
          fillers[f](around.near(), block.get());
          ASSERT_TRUE(std::equal(expected.begin(), expected.end(), block.get()))
              << "way " << f << ", " << words << " words, " << singles << " of single values";
        }
      }
    }
  }
}

}  // namespace
