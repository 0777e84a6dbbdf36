#include "processing/bounds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <set>
#include <tuple>
#include <vector>

#include "shapes/bounds_visitor.h"
#include "support/scene.h"

namespace Velmor::Processing {
namespace {

using namespace Velmor::Test;
using Point = orlen::Math::vec<3, float>;
using Box = orlen::Math::bbox<Point>;

API::Layout layoutOf(std::vector<API::TileCoord> const& voxels, float voxelScale) {
  auto const scene = emptyScene(voxelScale);
  Host::addLeafTiles(scene.layout, voxels);
  return scene.layout;
}

TEST(ComputeBBox, IsTheWorldBoxOfALeafTile) {
  EXPECT_EQ(computeBBox(layoutOf({{0, 0, 0}}, 0.1f)), Box(Point(-0.2f), Point(0.3f)));
  LayoutShape const shape({.centred = false});
  EXPECT_EQ(computeBBox(layoutOf({{0, 0, 0}}, 0.1f)), Box(Point(0.f), Point(0.5f)));
}

TEST(ComputeBBox, IsInvertedWithoutTiles) {
  Box const box = computeBBox(layoutOf({}, 0.1f));
  EXPECT_EQ(box, Box(Point(2147483647.f * 0.1f), Point(-2147483648.f * 0.1f)));
  EXPECT_FLOAT_EQ(box.min.x, 214748368.f);
  EXPECT_FLOAT_EQ(box.max.z, -214748368.f);
}

TEST(ComputeBBox, OfNoLayoutIsInverted) {
  EXPECT_EQ(computeBBox({}), Box(Point(2147483648.f), Point(-2147483648.f)));
}

TEST(ComputeBBox, LeavesCoarserTilesOut) {
  auto const layout = layoutOf({{0, 0, 0}}, 1.f);
  layout.tileAccessor().addTile(1000, 2000, -3000, 6);
  EXPECT_EQ(computeBBox(layout), Box(Point(-2.f), Point(3.f)));
}

TEST(ComputeBBox, CoversAllTilesWithAnyNumberOfThreads) {
  std::vector<API::TileCoord> voxels;
  for (int n = -300; n <= 300; ++n) voxels.push_back({5 * n, 10 * n, -15 * n});
  auto const layout = layoutOf(voxels, 0.5f);
  for (int const threads : {1, 2, 3, 8, 64}) {
    Threads const limit(threads);
    EXPECT_EQ(computeBBox(layout), Box({-751.f, -1501.f, -2251.f}, {751.5f, 1501.5f, 2251.5f}));
  }
}

TEST(BoundsVisitor, FindsTheRangeOfAChannel) {
  auto const scene = sphereScene(20.f, Vec3(0.f), 0.1f);
  auto const values = valuesOf<float>(scene.distance);
  float const low = *std::min_element(values.begin(), values.end());
  float const high = *std::max_element(values.begin(), values.end());
  for (int const threads : {1, 3}) {
    Threads const limit(threads);
    BoundsVisitor<float> bounds(scene.distance);
    scene.layout.traverse(bounds, API::TraversalMode::Bounds, 7, 7);
    EXPECT_EQ(bounds.min(), low);
    EXPECT_EQ(bounds.max(), high);
  }
}

TEST(BoundsVisitor, CopiesStartAnewAndJoin) {
  std::vector<float> values(250);
  std::iota(values.begin(), values.end(), 0.f);
  auto const channel = channelOf(values);
  std::vector<API::TreeIndex> tiles;
  forTiles(channel.layout(), 7, 7, [&](API::TreeIndex const& index) { tiles.push_back(index); });
  auto const accessor = API::Layout(channel.layout()).tileAccessor();
  BoundsVisitor<float> first(channel);
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

TEST(BoundsVisitor, PassOverNaN) {
  auto const channel = channelOf(std::vector<float>(125, std::nanf("")));
  auto const accessor = API::Layout(channel.layout()).tileAccessor();
  auto const index = accessor.index({0, 0, 0}, 7);
  auto const data = channel.tileData<float>(index);
  BoundsVisitor<float> bounds(channel);
  bounds.beginTile(accessor, index);
  EXPECT_EQ(bounds.min(), 3.4028235e38f);
  data.data[7] = -std::numeric_limits<float>::infinity();
  data.data[8] = 2.f;
  bounds.beginTile(accessor, index);
  EXPECT_EQ(bounds.min(), -std::numeric_limits<float>::infinity());
  EXPECT_EQ(bounds.max(), 2.f);
}

// One leaf tile, far from any surface but for the voxels given.
Scene sceneMarking(std::vector<API::TileCoord> const& voxels, float value, float voxelScale = 1.f) {
  auto scene = emptyScene(voxelScale, 100.f);
  Host::addLeafTiles(scene.layout, voxels);
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
  forTiles(layout, 7, 7,
           [&](API::TreeIndex const& index) { tiles.push_back(accessor.tile(index).coord()); });
  return tiles;
}

TEST(CreateAccelLayout, MarksTheTileOfEachNearVoxelAtEveryDepth) {
  auto const accel = createAccelLayout(sceneMarking({{-1, 0, 7}}, -0.5f).distance);
  // Voxel -1 is point -5, in the tile [-7, -2).
  EXPECT_EQ(leafTiles(accel), (std::vector<API::TileCoord>{{-7, -2, 33}}));
  for (int depth = 0; depth <= 7; ++depth) EXPECT_EQ(Host::tileCount(accel, depth), 1u) << depth;
}

TEST(CreateAccelLayout, TakesVoxelsNearerThanOneAndAHalfDiagonals) {
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

TEST(CreateAccelLayout, IsEmptyFarFromTheSurface) {
  auto const accel = createAccelLayout(sceneMarking({{0, 0, 0}}, 2.6f).distance);
  EXPECT_EQ(accel.name(), API::String("accel"));
  EXPECT_TRUE(leafTiles(accel).empty());
}

TEST(CreateAccelLayout, HasTheChannelsScaleDividedByTheTileWidth) {
  auto const scene = sceneMarking({{0, 0, 0}}, 0.f, 0.1f);
  auto const accel = createAccelLayout(scene.distance);
  EXPECT_EQ(accel.name(), API::String("accel"));
  EXPECT_EQ(accel.voxelScale(), 0.0199999996f);
  EXPECT_EQ(accel.stateID(), scene.distance.stateID());
  EXPECT_EQ(scene.layout.voxelScale(), 0.1f);
}

TEST(CreateAccelLayout, HoldsOneTilePerNearVoxelOfASphere) {
  for (float const voxelScale : {1.f, 0.037f}) {
    auto const scene = sphereScene(12.f, {0.37f, -0.21f, 0.13f}, voxelScale);
    std::set<std::tuple<int, int, int>> expected;
    auto const accessor = scene.layout.tileAccessor();
    forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
      auto const at = accessor.tile(index).coord();
      auto const data = scene.distance.tileData<float>(index);
      for (int c = 0; c < 125; ++c) {
        int const x = c % 5, y = c / 5 % 5, z = c / 25;
        if (std::abs(data.data[data.offset(x, y, z)]) < voxelScale * 2.598076f) {
          expected.insert({(at.i + x) * 5 - 2, (at.j + y) * 5 - 2, (at.k + z) * 5 - 2});
        }
      }
    });
    auto const accel = createAccelLayout(scene.distance);
    std::set<std::tuple<int, int, int>> marked;
    for (auto const& t : leafTiles(accel)) marked.insert({t.i, t.j, t.k});
    EXPECT_EQ(marked, expected);
    EXPECT_EQ(Host::tileCount(accel, 7), expected.size());
  }
}

TEST(CreateAccelLayout, AddsTilesInTheOrderOfTheTilesAndInThemWithXOutermost) {
  auto const scene = sphereScene(9.f);  // of many more tiles than are added at once
  auto const accel = createAccelLayout(scene.distance);
  auto const sources = scene.layout.tileAccessor(), marked = accel.tileAccessor();
  int next = 0;
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    auto const data = scene.distance.tileData<float>(index);
    auto const o = sources.tile(index).coord();
    for (int p = 0; p < 125; ++p) {
      int const x = p / 25, y = p / 5 % 5, z = p % 5;
      if (!(std::abs(data.data[data.offset(x, y, z)]) < 2.598076f)) continue;
      auto const found = marked.index({5 * (o.i + x), 5 * (o.j + y), 5 * (o.k + z)}, 7);
      ASSERT_EQ(found, (API::TreeIndex{next++, 7}));
    }
  });
  EXPECT_EQ(static_cast<std::size_t>(next), Host::tileCount(accel, 7));
}

TEST(CreateAccelLayout, IsMadeAnewEachTime) {
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

TEST(CreateAccelLayout, LeavesOutVoxelsBeyondItsRoot) {
  EXPECT_EQ(leafTiles(createAccelLayout(sceneMarking({{39062, 0, 0}}, 0.f).distance)).size(), 1u);
  EXPECT_EQ(leafTiles(createAccelLayout(sceneMarking({{39063, 0, 0}}, 0.f).distance)).size(), 0u);
}

TEST(CreateAccelLayout, HasNoTilesWithoutFloats) {
  auto const accel = createAccelLayout(channelOf({0, 1, 2}));
  EXPECT_TRUE(accel.valid());
  EXPECT_TRUE(leafTiles(accel).empty());
  EXPECT_FALSE(createAccelLayout({}).valid());
}

TEST(CreateAccelLayout, ReadsOnlyTheReportedWidth) {
  auto const accelWith = [](int width) {
    LayoutShape const shape({.reportedWidth = width});
    return createAccelLayout(sceneMarking({{2, 2, 2}, {1, 1, 1}}, 0.f).distance);
  };
  EXPECT_EQ(accelWith(4).voxelScale(), 0.25f);
  // Voxel 2 is the tile's fifth, which a width of four does not reach.
  EXPECT_EQ(leafTiles(accelWith(4)).size(), 1u);
  EXPECT_TRUE(leafTiles(accelWith(0)).empty());
  EXPECT_TRUE(leafTiles(accelWith(6)).empty());
}

}  // namespace
}  // namespace Velmor::Processing
