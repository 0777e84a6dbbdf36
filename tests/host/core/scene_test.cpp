#include "support/scene.h"

#include <gtest/gtest.h>

namespace {

using namespace Velmor;
using namespace Velmor::Test;

TEST(Scene, ChannelOfGivesBackItsValues) {
  EXPECT_EQ(valuesOf<float>(channelOf<float>({-1.f, 0.f, 2.5f})), (std::vector{-1.f, 0.f, 2.5f}));
  std::vector<int> many(700);
  for (std::size_t n = 0; n < many.size(); ++n) many[n] = static_cast<int>(n);
  EXPECT_EQ(valuesOf<int>(channelOf<int>(many)), many);
}

TEST(Scene, SphereHoldsDistancesAndStaysInsideAndOutside) {
  auto const scene = sphereScene(12.f, {0.5f, 1.f, -3.f}, 0.5f);
  BruteForce<float> const values(scene.distance);
  EXPECT_EQ(values.at(0, 0, -3), -2.5f);
  EXPECT_EQ(values.at(1000, 0, 0), 2.5f);
  EXPECT_NEAR(values.at(12, 1, -3), 0.5f * (std::hypot(12.f, 0.5f, 0.5f) - 12.f), 1e-5);
}

TEST(Scene, SphereHasAllTilesOfItsBand) {
  auto const scene = sphereScene(12.f, {0.5f, 1.f, -3.f});
  auto const accessor = scene.layout.tileAccessor();
  for (int k = -22; k < 16; ++k) {
    for (int j = -18; j < 20; ++j) {
      for (int i = -18; i < 20; ++i) {
        auto const distance = std::hypot(i + 0.5 - 0.5, j + 0.5 - 1.0, k + 0.5 + 3.0) - 12.0;
        ASSERT_TRUE(std::abs(distance) > 3 || accessor.index({i, j, k}, 7).depth == 7);
      }
    }
  }
}

TEST(Scene, LeafTilesAddedInBulkLieInTreeOrder) {
  auto const scene = sphereScene(12.f);
  int slot = 0;
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) { EXPECT_EQ(index.slot, slot++); });
  auto const before = Host::tileCount(scene.layout, 7);
  Host::addLeafTiles(scene.layout, {{0, 12, 0}, {500000, 0, 0}});
  EXPECT_EQ(Host::tileCount(scene.layout, 7), before);
  Host::addLeafTiles(scene.layout, {{0, 0, 0}, {1, 1, 1}, {100, 0, 0}});
  EXPECT_EQ(Host::tileCount(scene.layout, 7), before + 2);
}

}  // namespace
