#include <gtest/gtest.h>

#include <limits>
#include <numeric>

#include "random_tree.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

struct Points {
  API::StateServer server = Host::createStateServer("state");
  API::PointComponent component{server.createComponent(API::PointComponentType, "particle", 0.5f)};
};

TEST(Points, AreSortedIntoLeafTilesAndThenAsTheyCame) {
  Points const points;
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<Vec3> const positions{{10.f, 0.f, 0.f},   {0.f, 0.f, 0.f},     {nan, 0.f, 0.f},
                                    {12.9f, 0.f, 0.f},  {2.99f, -2.f, 1.f},  {0.f, 1e30f, 0.f},
                                    {-2.01f, 0.f, 0.f}, {200000.f, 0.f, 0.f}};
  auto const order = Host::setPoints(points.component, positions);
  EXPECT_EQ(order, (std::vector<std::uint32_t>{6, 1, 4, 0, 3}));
  EXPECT_EQ(points.component.elementCount(), 5u);
  API::PointChannel const channel(points.component.findChannel("position"));
  auto const* const stored = Host::pointData<Vec3>(channel);
  for (std::size_t p = 0; p < order.size(); ++p) EXPECT_EQ(stored[p], positions[order[p]]);
  API::Layout const layout(points.component.layout());
  EXPECT_EQ(layout.voxelScale(), 0.5f);
  EXPECT_EQ(Host::tileCount(layout, 7), 3u);
}

TEST(Points, GiveEachTileItsOwnInTileOrder) {
  auto const seed = newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> axis(-40.f, 40.f);
  std::vector<Vec3> positions(3000);
  for (auto& p : positions) p = {axis(random), axis(random), axis(random)};
  Points const points;
  auto const order = Host::setPoints(points.component, positions);
  API::PointChannel const place(
      points.server.createChannel(points.component, API::DataType::Int, "place"));
  auto* const places = Host::pointData<int>(place);
  for (std::size_t p = 0; p < order.size(); ++p) places[p] = static_cast<int>(order[p]);

  API::PointChannel const channel(points.component.findChannel("position"));
  API::Layout const layout(points.component.layout());
  auto const accessor = layout.tileAccessor();
  std::vector<int> met;
  forTiles(layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const tile = channel.tileData<Vec3>(index);
    auto const numbers = place.tileData<int>(index);
    ASSERT_EQ(tile.count, numbers.count);
    ASSERT_EQ(tile.count > 0, index.depth == 7);
    for (std::size_t p = 0; p < tile.count; ++p) {
      EXPECT_EQ(accessor.index({static_cast<int>(std::floor(tile.data[p].x)),
                                static_cast<int>(std::floor(tile.data[p].y)),
                                static_cast<int>(std::floor(tile.data[p].z))},
                               7),
                index);
      EXPECT_EQ(tile.data[p], positions[static_cast<std::size_t>(numbers.data[p])]);
      EXPECT_TRUE(p == 0 || numbers.data[p - 1] < numbers.data[p]);
      met.push_back(numbers.data[p]);
    }
  });
  EXPECT_EQ(met.size(), positions.size());
  std::sort(met.begin(), met.end());
  EXPECT_EQ(std::unique(met.begin(), met.end()), met.end());
}

TEST(Points, ReplaceWhatTheComponentHeldAndLeaveOldHandlesAlone) {
  Points const points;
  Host::setPoints(points.component, {{0.f, 0.f, 0.f}, {100.f, 0.f, 0.f}});
  API::PointChannel const old(points.component.findChannel("position"));
  points.server.createChannel(points.component, API::DataType::Float, "droplet");
  Host::setPoints(points.component, {{7.f, 7.f, 7.f}});
  EXPECT_EQ(points.component.elementCount(), 1u);
  EXPECT_EQ(points.component.channels().count(), 1u);
  EXPECT_EQ(Host::pointData<Vec3>(old)[1].x, 100.f);
  EXPECT_EQ(old.tileData<Vec3>({1, 7}).count, 1u);
  EXPECT_EQ(Host::tileCount(API::Layout(points.component.layout()), 7), 1u);
  Host::setPoints(points.component, {});
  EXPECT_EQ(points.component.elementCount(), 0u);
}

TEST(Points, AreNothingOnInvalidHandlesAndOtherTypes) {
  Points const points;
  Host::setPoints(points.component, {{0.f, 0.f, 0.f}});
  API::PointChannel const channel(points.component.findChannel("position"));
  EXPECT_EQ(Host::pointData<float>(channel), nullptr);
  EXPECT_EQ(Host::pointData<Vec3>(API::PointChannel()), nullptr);
  EXPECT_EQ(channel.tileData<float>({0, 7}).data, nullptr);
  EXPECT_TRUE(Host::setPoints(API::PointComponent(), {{0.f, 0.f, 0.f}}).empty());
  EXPECT_EQ(API::PointComponent().elementCount(), 0u);
  EXPECT_FALSE(API::VoxelChannel(channel).valid());
  EXPECT_FALSE(API::VoxelComponent(points.component).valid());
  EXPECT_TRUE(API::Channel(channel).valid());
}

}  // namespace
