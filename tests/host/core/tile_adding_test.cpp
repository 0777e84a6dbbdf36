#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "random_tree.h"
#include "velmorapi/bulk.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

using Voxels = std::vector<API::TileCoord>;

// Voxels in and around the root, some of them often, many close together.
Voxels randomVoxels(std::mt19937& random, API::Layout const& layout, int count) {
  auto const accessor = layout.tileAccessor();
  auto const low = accessor.tile(accessor.addTile(1, 1, 1, 0)).coord();
  int const extent = layout.tileDimInfo(0).extent;
  Voxels voxels;
  while (static_cast<int>(voxels.size()) < count) {
    auto const far = [&](int first) {
      return first - 2 + static_cast<int>(random() % static_cast<unsigned>(extent + 4));
    };
    API::TileCoord const start{far(low.i), far(low.j), far(low.k)};
    for (auto n = random() % 300; n > 0; --n) {
      auto const near = [&](int at) { return at + static_cast<int>(random() % 40); };
      voxels.push_back({near(start.i), near(start.j), near(start.k)});
    }
  }
  return voxels;
}

// Every tile by its index, with its place and first value.
std::vector<std::tuple<int, int, int, int, int, float>> tilesOf(Scene const& scene) {
  std::vector<std::tuple<int, int, int, int, int, float>> tiles;
  auto const accessor = scene.layout.tileAccessor();
  forTiles(scene.layout, 0, scene.layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const c = accessor.tile(index).coord();
    auto const values = scene.distance.tileData<float>(index);
    EXPECT_TRUE(std::all_of(values.data, values.data + values.count,
                            [&](float v) { return v == values.data[0]; }));
    tiles.emplace_back(index.depth, index.slot, c.i, c.j, c.k, values.data[0]);
  });
  return tiles;
}

TEST(AddTiles, DoesWhatAddingEachTileDoes) {
  auto const seed = newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  for (auto const& shape : treeShapes()) {
    LayoutShape const settings(shape);
    for (int const depth : {shape.depth, shape.depth - 1, 0, 9, -1}) {
      auto const bulk = emptyScene(1.f, 3.f), single = emptyScene(1.f, 3.f);
      auto const voxels = randomVoxels(random, bulk.layout, 2000);
      API::addTiles(bulk.layout, voxels.data(), voxels.size(), depth);
      auto const accessor = single.layout.tileAccessor();
      accessor.addTile(1, 1, 1, 0);
      for (auto const& voxel : voxels) {
        for (int d = 0; d <= depth; ++d) accessor.addTile(voxel, d);
      }
      ASSERT_EQ(tilesOf(bulk), tilesOf(single)) << shape.depth << " levels, to " << depth;
    }
  }
}

TEST(AddTiles, GivesNewTilesTheirParentsCellValue) {
  auto const scene = emptyScene(1.f, 3.f);
  auto const accessor = scene.layout.tileAccessor();
  auto const parent = scene.distance.tileData<float>(accessor.addTile(0, 0, 0, 6));
  for (std::size_t c = 0; c < parent.count; ++c) parent.data[c] = static_cast<float>(c);
  Voxels const voxels{{0, 0, 0}, {5, 0, 0}, {0, 0, -5}};
  API::addTiles(scene.layout, voxels.data(), voxels.size(), 7);
  auto const valueAt = [&](API::TileCoord const& v) {
    return scene.distance.tileData<float>(accessor.index(v, 7)).data[124];
  };
  EXPECT_EQ(valueAt({0, 0, 0}), 62.f);
  EXPECT_EQ(valueAt({5, 0, 0}), 63.f);
  EXPECT_EQ(valueAt({0, 0, -5}), 37.f);
}

TEST(AddTiles, LeavesExistingTilesAlone) {
  auto const scene = emptyScene(1.f, 3.f);
  auto const accessor = scene.layout.tileAccessor();
  auto const leaf = accessor.addTile(0, 0, 0, 7);
  scene.distance.tileData<float>(leaf).data[7] = 42.f;
  Voxels const voxels{{5, 0, 0}, {0, 0, 0}, {1, 1, 1}};
  API::addTiles(scene.layout, voxels.data(), voxels.size(), 7);
  EXPECT_EQ(accessor.index({0, 0, 0}, 7), leaf);
  EXPECT_EQ(scene.distance.tileData<float>(leaf).data[7], 42.f);
  EXPECT_EQ(Host::tileCount(scene.layout, 7), 2u);
}

TEST(AddTiles, TakesTheSameTilesFromManyThreadsAtOnceBesideSingleOnes) {
  auto const scene = emptyScene(1.f, 5.f);
  Voxels voxels;
  for (int k = 0; k < 20; ++k)
    for (int j = 0; j < 20; ++j)
      for (int i = 0; i < 20; ++i) voxels.push_back({5 * i, 5 * j, 5 * k});
  std::vector<std::thread> workers;
  for (std::size_t t = 0; t < 8; ++t) {
    workers.emplace_back([&scene, &voxels, t] {
      auto const accessor = scene.layout.tileAccessor();
      auto turned = voxels;
      std::rotate(turned.begin(), turned.begin() + static_cast<std::ptrdiff_t>(t * 1000),
                  turned.end());
      if (t % 2 == 0) {
        API::addTiles(scene.layout, turned.data(), turned.size(), 7);
      } else {
        for (auto const& voxel : turned) accessor.addTile(voxel, 7);
      }
      for (auto const& voxel : turned) {
        auto const index = accessor.index(voxel, 7);
        EXPECT_EQ(index.depth, 7);
        EXPECT_EQ(scene.distance.tileData<float>(index).data[124], 5.f);
      }
    });
  }
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(Host::tileCount(scene.layout, 7), voxels.size());
}

TEST(AddTiles, DoesNothingWithoutALayoutOrVoxels) {
  API::TileCoord const voxel{0, 0, 0};
  API::addTiles(API::Layout(), &voxel, 1, 7);
  auto const scene = emptyScene();
  API::addTiles(scene.layout, nullptr, 0, 7);
  EXPECT_EQ(Host::tileCount(scene.layout, 0), 0u);
}

}  // namespace
