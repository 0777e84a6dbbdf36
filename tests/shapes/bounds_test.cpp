#include "processing/bounds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <set>
#include <tuple>
#include <vector>

#include "shapes/bounds_visitor.h"
#include "support/distance_scene.h"
#include "velmorhost/settings.h"

namespace Velmor::Processing {
namespace {

using namespace Velmor::Test;
using Point = orlen::Math::vec<3, float>;
using Box = orlen::Math::bbox<Point>;

class BoundsTest : public testing::Test {
 protected:
  ~BoundsTest() override {
    Host::setThreadCount(0);
    Host::setLayoutSettings({});
  }
};
using BBoxTest = BoundsTest;
using AccelLayoutTest = BoundsTest;

TEST_F(BBoxTest, IsTheWorldBoxOfALeafTile) {
  EXPECT_EQ(computeBBox(emptyDistanceScene({{0, 0, 0}}, 0.1f).layout),
            Box(Point(-0.2f), Point(0.3f)));
  Host::setLayoutSettings({.centred = false});
  EXPECT_EQ(computeBBox(emptyDistanceScene({{0, 0, 0}}, 0.1f).layout),
            Box(Point(0.f), Point(0.5f)));
}

TEST_F(BBoxTest, IsInvertedWithoutTiles) {
  Box const box = computeBBox(emptyDistanceScene({}, 0.1f).layout);
  EXPECT_EQ(box, Box(Point(2147483647.f * 0.1f), Point(-2147483648.f * 0.1f)));
  EXPECT_FLOAT_EQ(box.min.x, 214748368.f);
  EXPECT_FLOAT_EQ(box.max.z, -214748368.f);
}

TEST_F(BBoxTest, OfNoLayoutIsInverted) {
  EXPECT_EQ(computeBBox({}), Box(Point(2147483648.f), Point(-2147483648.f)));
}

TEST_F(BBoxTest, LeavesCoarserTilesOut) {
  auto const scene = emptyDistanceScene({{0, 0, 0}}, 1.f);
  scene.layout.tileAccessor().addTile(1000, 2000, -3000, 6);
  EXPECT_EQ(computeBBox(scene.layout), Box(Point(-2.f), Point(3.f)));
}

TEST_F(BBoxTest, CoversAllTilesWithAnyNumberOfThreads) {
  std::vector<API::TileCoord> voxels;
  for (int n = -300; n <= 300; ++n) voxels.push_back({5 * n, 10 * n, -15 * n});
  auto const scene = emptyDistanceScene(voxels, 0.5f);
  for (int const threads : {1, 2, 3, 8, 64}) {
    Host::setThreadCount(threads);
    EXPECT_EQ(computeBBox(scene.layout),
              Box({-751.f, -1501.f, -2251.f}, {751.5f, 1501.5f, 2251.5f}));
  }
}

TEST_F(BoundsTest, FindsTheRangeOfAChannel) {
  auto const scene = sphereScene(20, 0.1f);
  float low = 1e9f, high = -1e9f;
  forEachTile<float>(scene.distance, 7, 7, [&](API::Tile const&, auto const& data) {
    for (std::size_t e = 0; e < data.count; ++e) {
      low = std::min(low, data.data[e]);
      high = std::max(high, data.data[e]);
    }
  });
  for (int const threads : {1, 3}) {
    Host::setThreadCount(threads);
    BoundsVisitor<float> bounds(scene.distance);
    scene.layout.traverse(bounds, API::TraversalMode::Bounds, 7, 7);
    EXPECT_EQ(bounds.min(), low);
    EXPECT_EQ(bounds.max(), high);
  }
}

TEST_F(BoundsTest, CopiesStartAnewAndJoin) {
  auto const scene = emptyDistanceScene({{0, 0, 0}, {5, 0, 0}}, 1.f);
  float next = 0.f;
  std::vector<API::TreeIndex> tiles;
  forEachTile<float>(scene.distance, 7, 7, [&](API::Tile const& tile, auto const& data) {
    for (std::size_t e = 0; e < data.count; ++e) data.data[e] = next++;
    tiles.push_back(tile.index());
  });
  auto const accessor = scene.layout.tileAccessor();
  BoundsVisitor<float> first(scene.distance);
  EXPECT_EQ(first.min(), 3.4028235e38f);
  EXPECT_EQ(first.max(), -3.4028235e38f);
  first.beginTile(accessor, tiles[1]);
  EXPECT_EQ(first.min(), 125.f);
  EXPECT_EQ(first.max(), 249.f);

  std::unique_ptr<API::Visitor> const copy(first.copy());
  auto const& second = dynamic_cast<BoundsVisitor<float> const&>(*copy);
  EXPECT_EQ(second.min(), 3.4028235e38f);
  EXPECT_EQ(second.max(), -3.4028235e38f);
  copy->beginTile(accessor, tiles[0]);
  first.join(*copy);
  EXPECT_EQ(first.min(), 0.f);
  EXPECT_EQ(first.max(), 249.f);
}

TEST_F(BoundsTest, PassOverNaN) {
  auto const scene = emptyDistanceScene({{0, 0, 0}}, 1.f);
  auto const index = scene.layout.tileAccessor().index({0, 0, 0}, 7);
  auto const data = scene.distance.tileData<float>(index);
  std::fill_n(data.data, data.count, std::nanf(""));
  BoundsVisitor<float> bounds(scene.distance);
  bounds.beginTile(scene.layout.tileAccessor(), index);
  EXPECT_EQ(bounds.min(), 3.4028235e38f);
  data.data[7] = -std::numeric_limits<float>::infinity();
  data.data[8] = 2.f;
  bounds.beginTile(scene.layout.tileAccessor(), index);
  EXPECT_EQ(bounds.min(), -std::numeric_limits<float>::infinity());
  EXPECT_EQ(bounds.max(), 2.f);
}

// One leaf tile, far from any surface but for the voxels given.
DistanceScene sceneMarking(std::vector<API::TileCoord> const& voxels, float value,
                           float voxelScale = 1.f) {
  auto const scene = emptyDistanceScene(voxels, voxelScale);
  forEachTile<float>(scene.distance, 0, 7, [&](API::Tile const&, auto const& data) {
    std::fill_n(data.data, data.count, 100.f);
  });
  auto const accessor = scene.layout.tileAccessor();
  for (auto const& v : voxels) {
    auto const tile = accessor.tile(v.i, v.j, v.k, 7);
    auto const data = scene.distance.tileData<float>(tile.index());
    data.data[data.offset(v.i - tile.coord().i, v.j - tile.coord().j, v.k - tile.coord().k)] =
        value;
  }
  return scene;
}

std::vector<API::TileCoord> leafTiles(API::Layout const& layout) {
  std::vector<API::TileCoord> tiles;
  auto const accessor = layout.tileAccessor();
  for (auto at = layout.tileIterator(7, 7, API::TraversalMode::Serial); at.valid(); at.next()) {
    tiles.push_back(accessor.tile(at.index()).coord());
  }
  return tiles;
}

TEST_F(AccelLayoutTest, MarksTheTileOfEachNearVoxelAtEveryDepth) {
  auto const accel = createAccelLayout(sceneMarking({{-1, 0, 7}}, -0.5f).distance);
  // Voxel -1 is point -5, in the tile [-7, -2).
  EXPECT_EQ(leafTiles(accel), (std::vector<API::TileCoord>{{-7, -2, 33}}));
  for (int depth = 0; depth <= 7; ++depth) EXPECT_EQ(Host::tileCount(accel, depth), 1u) << depth;
}

TEST_F(AccelLayoutTest, TakesVoxelsNearerThanOneAndAHalfDiagonals) {
  float const limit = 2.598076f;
  EXPECT_EQ(limit, 2.59807611f);
  auto const marks = [](float value, float voxelScale) {
    return leafTiles(createAccelLayout(sceneMarking({{0, 0, 0}}, value, voxelScale).distance))
        .size();
  };
  for (float const sign : {1.f, -1.f}) {
    EXPECT_EQ(marks(sign * limit, 1.f), 0u);
    EXPECT_EQ(marks(sign * std::nextafter(limit, 0.f), 1.f), 1u);
    EXPECT_EQ(marks(sign * (0.1f * limit), 0.1f), 0u);
    EXPECT_EQ(marks(sign * std::nextafter(0.1f * limit, 0.f), 0.1f), 1u);
  }
  EXPECT_EQ(marks(std::nanf(""), 1.f), 0u);
}

TEST_F(AccelLayoutTest, IsEmptyFarFromTheSurface) {
  auto const accel = createAccelLayout(sceneMarking({{0, 0, 0}}, 2.6f).distance);
  EXPECT_EQ(accel.name(), API::String("accel"));
  EXPECT_TRUE(leafTiles(accel).empty());
}

TEST_F(AccelLayoutTest, HasTheChannelsScaleDividedByTheTileWidth) {
  auto const scene = sceneMarking({{0, 0, 0}}, 0.f, 0.1f);
  auto const accel = createAccelLayout(scene.distance);
  EXPECT_EQ(accel.name(), API::String("accel"));
  EXPECT_EQ(accel.voxelScale(), 0.0199999996f);
  EXPECT_EQ(accel.stateID(), scene.distance.stateID());
  EXPECT_EQ(scene.layout.voxelScale(), 0.1f);
}

TEST_F(AccelLayoutTest, HoldsOneTilePerNearVoxelOfASphere) {
  for (float const voxelScale : {1.f, 0.037f}) {
    auto const scene = sphereScene(12, voxelScale, {0.37f, -0.21f, 0.13f});
    std::set<std::tuple<int, int, int>> expected;
    forEachTile<float>(scene.distance, 7, 7, [&](API::Tile const& tile, auto const& data) {
      for (int z = 0; z < 5; ++z)
        for (int y = 0; y < 5; ++y)
          for (int x = 0; x < 5; ++x)
            if (std::abs(data.data[data.offset(x, y, z)]) < voxelScale * 2.598076f) {
              expected.insert({(tile.coord().i + x) * 5 - 2, (tile.coord().j + y) * 5 - 2,
                               (tile.coord().k + z) * 5 - 2});
            }
    });
    auto const accel = createAccelLayout(scene.distance);
    std::set<std::tuple<int, int, int>> marked;
    for (auto const& t : leafTiles(accel)) marked.insert({t.i, t.j, t.k});
    EXPECT_EQ(marked, expected);
    EXPECT_EQ(Host::tileCount(accel, 7), expected.size());
  }
}

TEST_F(AccelLayoutTest, IsMadeAnewEachTime) {
  auto const scene = sceneMarking({{0, 0, 0}, {20, 0, 0}}, 0.f);
  auto const first = createAccelLayout(scene.distance);
  ASSERT_EQ(leafTiles(first).size(), 2u);
  auto const data =
      scene.distance.tileData<float>(scene.layout.tileAccessor().index({20, 0, 0}, 7));
  std::fill_n(data.data, data.count, 100.f);
  auto const second = createAccelLayout(scene.distance);
  EXPECT_EQ(leafTiles(second).size(), 1u);
  EXPECT_EQ(leafTiles(first).size(), 2u);
  EXPECT_NE(first, second);
}

TEST_F(AccelLayoutTest, LeavesOutVoxelsBeyondItsRoot) {
  EXPECT_EQ(leafTiles(createAccelLayout(sceneMarking({{39062, 0, 0}}, 0.f).distance)).size(), 1u);
  EXPECT_EQ(leafTiles(createAccelLayout(sceneMarking({{39063, 0, 0}}, 0.f).distance)).size(), 0u);
}

TEST_F(AccelLayoutTest, HasNoTilesWithoutFloats) {
  auto const scene = emptyDistanceScene({{0, 0, 0}}, 1.f);
  API::VoxelChannel const ids(
      scene.server.createChannel(scene.component, API::DataType::Int, "id"));
  auto const accel = createAccelLayout(ids);
  EXPECT_TRUE(accel.valid());
  EXPECT_TRUE(leafTiles(accel).empty());
  EXPECT_FALSE(createAccelLayout({}).valid());
}

TEST_F(AccelLayoutTest, ReadsOnlyTheReportedWidth) {
  Host::setLayoutSettings({.reportedWidth = 4});
  auto const scene = sceneMarking({{2, 2, 2}, {1, 1, 1}}, 0.f, 1.f);
  auto const accel = createAccelLayout(scene.distance);
  EXPECT_EQ(accel.voxelScale(), 0.25f);
  // Voxel 2 is the tile's fifth, which a width of four does not reach.
  EXPECT_EQ(leafTiles(accel).size(), 1u);
  for (int const width : {0, 6}) {
    Host::setLayoutSettings({.reportedWidth = width});
    EXPECT_TRUE(leafTiles(createAccelLayout(sceneMarking({{0, 0, 0}}, 0.f).distance)).empty());
  }
}

}  // namespace
}  // namespace Velmor::Processing
