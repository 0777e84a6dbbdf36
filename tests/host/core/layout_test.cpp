#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

#include "random_tree.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

using Key = std::tuple<int, int, int, int>;  // depth and first voxel

std::set<Key> tilesOf(API::Layout const& layout) {
  std::set<Key> tiles;
  auto const accessor = layout.tileAccessor();
  forTiles(layout, 0, layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const c = accessor.tile(index).coord();
    EXPECT_TRUE(tiles.emplace(index.depth, c.i, c.j, c.k).second);
  });
  return tiles;
}

// The tile of a depth that holds a voxel, from the definition of the grid.
Key tileAt(Host::LayoutSettings const& shape, int i, int j, int k, int depth) {
  int extent = 1;
  for (int d = depth; d <= shape.depth; ++d) extent *= 5;
  auto const first = [&](int a) {
    int const start = shape.centred ? -(extent >> 1) : 0;
    int const steps = a - start;
    return start + (steps >= 0 ? steps / extent : -((extent - 1 - steps) / extent)) * extent;
  };
  return {depth, first(i), first(j), first(k)};
}

TEST(Layout, IsCentredOnVoxelZeroWithSevenLevelsBelowTheRoot) {
  auto const scene = emptyScene();
  auto const accessor = scene.layout.tileAccessor();
  EXPECT_EQ(scene.layout.maxDepth(), 7);
  accessor.addTile(0, 0, 0, 7);
  EXPECT_EQ(accessor.tile(0, 0, 0, 7).coord(), (API::TileCoord{-2, -2, -2}));
  EXPECT_EQ(accessor.tile(0, 0, 0, 7).info().extent, 5);
  EXPECT_EQ(accessor.tile(0, 0, 0, 6).coord(), (API::TileCoord{-12, -12, -12}));
  EXPECT_EQ(accessor.tile(0, 0, 0, 0).coord(), (API::TileCoord{-195312, -195312, -195312}));
  EXPECT_EQ(scene.layout.tileDimInfo(0).extent, 390625);
  EXPECT_EQ(scene.layout.tileDimInfo(0).width, 5);
  accessor.addTile(3, -3, 7, 7);
  EXPECT_EQ(accessor.tile(7, -7, 3, 7).coord(), (API::TileCoord{3, -7, 3}));
}

TEST(Layout, CanBeAnchoredAtTheCornerWithAnotherWidth) {
  LayoutShape const settings({2, 4, false});
  auto const scene = emptyScene();
  auto const accessor = scene.layout.tileAccessor();
  EXPECT_EQ(scene.layout.maxDepth(), 2);
  EXPECT_EQ(scene.layout.tileDimInfo(2).width, 4);
  EXPECT_EQ(scene.layout.tileDimInfo(0).extent, 125);
  auto const tile = accessor.tile(accessor.addTile(4, 5, 124, 2));
  EXPECT_EQ(tile.coord(), (API::TileCoord{0, 5, 120}));
  EXPECT_FALSE(accessor.addTile(-1, 0, 0, 2).valid());
  EXPECT_FALSE(accessor.addTile(0, 125, 0, 0).valid());
}

TEST(Layout, HoldsTheTilesThatWereAddedAndTheirAncestors) {
  auto const seed = newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  for (auto const& shape : treeShapes()) {
    LayoutShape const settings(shape);
    std::mt19937 random(seed);
    auto const scene = emptyScene();
    auto const accessor = scene.layout.tileAccessor();
    int extent = 5;
    for (int d = 0; d < shape.depth; ++d) extent *= 5;
    int const low = shape.centred ? -(extent >> 1) : 0;
    std::set<Key> expected;
    for (int n = 0; n < 300; ++n) {
      auto const axis = [&] {
        auto const far = static_cast<int>(random() % static_cast<unsigned>(extent));
        return random() % 2 != 0 ? low + far : std::max(low, -20) + far % 60;
      };
      int const i = axis(), j = axis(), k = axis();
      if (i >= low + extent || j >= low + extent || k >= low + extent) continue;
      int const depth = static_cast<int>(random() % static_cast<unsigned>(shape.depth + 1));
      for (int d = 0; d <= depth; ++d) expected.insert(tileAt(shape, i, j, k, d));
      auto const index = accessor.addTile(i, j, k, depth);
      ASSERT_EQ(index.depth, depth);
      auto const tile = scene.layout.tileAccessor().tile(index);
      EXPECT_EQ((Key{depth, tile.coord().i, tile.coord().j, tile.coord().k}),
                tileAt(shape, i, j, k, depth));
      EXPECT_EQ(accessor.addTile(i, j, k, depth), index);
      EXPECT_EQ(accessor.index({i, j, k}, depth), index);
    }
    EXPECT_EQ(tilesOf(scene.layout), expected);
    // The deepest tile, from any place to any other.
    for (int n = 0; n < 500; ++n) {
      auto const axis = [&] {
        return low - 3 + static_cast<int>(random() % static_cast<unsigned>(extent + 6));
      };
      int const i = axis(), j = n % 2 ? axis() : low + 1, k = n % 3 ? axis() : low + 2;
      int const depth = static_cast<int>(random() % 9);
      int deepest = -1;
      for (int d = 0; d <= std::min(depth, shape.depth); ++d) {
        if (expected.count(tileAt(shape, i, j, k, d)) != 0) deepest = d;
      }
      ASSERT_EQ(accessor.index({i, j, k}, depth).depth, deepest);
      ASSERT_EQ(accessor.tile(i, j, k, depth).valid(), deepest >= 0);
    }
  }
}

TEST(Layout, DoesNothingOutsideTheRootAndBelowTheLeaves) {
  auto const scene = emptyScene();
  auto const accessor = scene.layout.tileAccessor();
  EXPECT_FALSE(accessor.addTile(195313, 0, 0, 7).valid());
  EXPECT_FALSE(accessor.addTile(0, -195313, 0, 7).valid());
  EXPECT_FALSE(accessor.addTile(0, 0, 0, 8).valid());
  EXPECT_FALSE(accessor.addTile(0, 0, 0, -1).valid());
  EXPECT_FALSE(accessor.addTile(2147483647, -2147483647 - 1, 0, 0).valid());
  EXPECT_TRUE(tilesOf(scene.layout).empty());
  EXPECT_TRUE(accessor.addTile(195312, -195312, 0, 7).valid());
  EXPECT_FALSE(accessor.index({195313, 0, 0}, 7).valid());
}

// Steps as rays take them, jumps, other depths, and tiles added in between.
TEST(Layout, IsSearchedTheSameWhateverAnAccessorWasAskedBefore) {
  auto const seed = newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  for (auto const& shape : treeShapes()) {
    LayoutShape const settings(shape);
    std::mt19937 random(seed);
    auto const scene = randomScene(seed);
    auto const used = scene.layout.tileAccessor(), adding = scene.layout.tileAccessor();
    auto const pick = [&random](int count) {
      return static_cast<int>(random() % static_cast<unsigned>(count));
    };
    auto const root = used.tile(1, 1, 1, 0);
    std::array<int, 3> at{};
    for (int n = 0; n < 4000; ++n) {
      if (n % 50 == 0) {
        int const nearZero = std::min(200, root.info().extent);
        for (auto& a : at) {
          a = n % 100 == 0 ? root.coord().i - 3 + pick(root.info().extent + 6)
                           : std::max(root.coord().i, -100) + pick(nearZero);
        }
      }
      auto& along = at[static_cast<std::size_t>(pick(3))];
      along += n % 7 == 0 ? 5 : 1;
      API::TileCoord const voxel{at[0], at[1], at[2]};
      if (n % 40 == 0) adding.addTile(voxel, pick(shape.depth + 1));
      if (n % 90 == 0) used.addTile(voxel, pick(shape.depth + 1));
      int const depth = n % 3 == 0 ? pick(shape.depth + 3) - 1 : shape.depth;
      auto const found = used.index(voxel, depth);
      auto const expected = scene.layout.tileAccessor().index(voxel, depth);
      ASSERT_EQ(found.depth, expected.depth) << "tree depth " << shape.depth << ", step " << n;
      ASSERT_EQ(found.slot, expected.slot) << "tree depth " << shape.depth << ", step " << n;
      if (!found.valid()) continue;
      auto const c = used.tile(found).coord();
      ASSERT_EQ(Key(found.depth, c.i, c.j, c.k), tileAt(shape, at[0], at[1], at[2], found.depth));
    }
  }
}

TEST(Layout, NamesChildrenByTheirCell) {
  auto const scene = emptyScene();
  auto const accessor = scene.layout.tileAccessor();
  auto const leaf = accessor.addTile(3, -2, 8, 7);
  auto const parent = accessor.tile(3, -2, 8, 6);
  EXPECT_EQ(parent.child(3, 2, 4).index(), leaf);
  EXPECT_FALSE(parent.child(2, 2, 4).valid());
  EXPECT_FALSE(parent.child(5, 2, 4).valid());
  EXPECT_FALSE(parent.child(-1, 2, 4).valid());
  EXPECT_FALSE(accessor.tile(leaf).child(0, 0, 0).valid());
}

TEST(Layout, GivesNewTilesTheirParentsCellValue) {
  auto const scene = emptyScene(1.f, 3.f);
  using Triple = orlen::Math::vec<3, int>;
  auto const other = addChannel<Triple>(scene.server, scene.volume, "other");
  auto const accessor = scene.layout.tileAccessor();
  auto const root = accessor.addTile(0, 0, 0, 0);
  EXPECT_EQ(scene.distance.tileData<float>(root).data[62], 3.f);
  scene.distance.tileData<float>(root).data[62] = -1.f;
  other.tileData<Triple>(root).data[62] = {1, 2, 3};
  auto const leaf = accessor.addTile(0, 0, 0, 7);
  auto const values = scene.distance.tileData<float>(leaf);
  EXPECT_TRUE(std::all_of(values.data, values.data + 125, [](float v) { return v == -1.f; }));
  EXPECT_EQ(other.tileData<Triple>(leaf).data[124], Triple(1, 2, 3));
  EXPECT_EQ(scene.distance.tileData<float>(root).data[61], 3.f);
}

TEST(Layout, NeverMovesValuesNorIndices) {
  auto const scene = emptyScene();
  auto const accessor = scene.layout.tileAccessor();
  auto const first = accessor.addTile(0, 0, 0, 7);
  auto* const data = scene.distance.tileData<float>(first).data;
  data[7] = 42.f;
  for (int n = 0; n < 5000; ++n) accessor.addTile(5 * n, 0, 0, 7);
  EXPECT_EQ(scene.distance.tileData<float>(first).data, data);
  EXPECT_EQ(data[7], 42.f);
  EXPECT_EQ(accessor.index({0, 0, 0}, 7), first);
}

TEST(Layout, TakesTilesFromEightThreadsAtOnce) {
  auto const fill = [](int threads) {
    auto const scene = emptyScene(1.f, 5.f);
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
      workers.emplace_back([&scene, t, threads] {
        auto const accessor = scene.layout.tileAccessor();
        // All threads want the same tiles, each from another place on.
        for (int n = 0; n < 8000; ++n) {
          int const m = (n + t * (8000 / threads)) % 8000;
          auto const index = accessor.addTile(m % 20 * 5, m / 20 % 20 * 5, m / 400 * 5, 7);
          EXPECT_EQ(scene.distance.tileData<float>(index).data[124], 5.f);
        }
      });
    }
    for (auto& worker : workers) worker.join();
    EXPECT_EQ(Host::tileCount(scene.layout, 7), 8000u);
    return tilesOf(scene.layout);
  };
  EXPECT_EQ(fill(8), fill(1));
}

TEST(Layout, TurnsInvalidIntoNothing) {
  API::Layout const none;
  EXPECT_EQ(none.voxelScale(), 1.f);
  EXPECT_EQ(none.maxDepth(), 0);
  EXPECT_EQ(none.tileDimInfo(0).width, 0);
  EXPECT_FALSE(none.tileIterator(0, 7, API::TraversalMode::Serial).valid());
  EXPECT_FALSE(none.tileAccessor().valid());
  EXPECT_FALSE(none.tileAccessor().addTile(0, 0, 0, 0).valid());
  EXPECT_FALSE(none.tileAccessor().tile(0, 0, 0, 0).valid());
  EXPECT_FALSE(API::Tile().child(0, 0, 0).valid());
  auto const scene = emptyScene();
  EXPECT_EQ(scene.layout.tileDimInfo(8).extent, 0);
  EXPECT_FALSE(scene.layout.tileAccessor().tile(API::TreeIndex{0, 7}).valid());
  EXPECT_FALSE(API::Layout(scene.distance).valid());
}

}  // namespace
