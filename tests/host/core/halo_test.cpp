#include "velmorapi/halo.h"

#include <gtest/gtest.h>

#include "random_tree.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

void expectHalosAsDefined(Scene const& scene) {
  BruteForce<float> const values(scene.distance);
  API::HaloedCache<float> cache;
  ASSERT_TRUE(cache.init(scene.distance).succeeded());
  auto const accessor = scene.layout.tileAccessor();
  forTiles(scene.layout, 0, scene.layout.maxDepth(), [&](API::TreeIndex const& index) {
    ASSERT_TRUE(cache.update(index).succeeded());
    auto const tile = accessor.tile(index);
    int const edge = tile.info().extent / 5;
    auto const low = tile.coord();
    for (int z = -1; z <= 5; ++z) {
      for (int y = -1; y <= 5; ++y) {
        for (int x = -1; x <= 5; ++x) {
          ASSERT_EQ(cache.tile(index).at(x, y, z),
                    values.at(low.i + x * edge, low.j + y * edge, low.k + z * edge, index.depth))
              << "depth " << index.depth << " tile " << low.i << ' ' << low.j << ' ' << low.k
              << " cell " << x << ' ' << y << ' ' << z;
        }
      }
    }
  });
}

TEST(Halo, IsWhatTheDeepestCellHoldsInEveryShapeOfTree) {
  auto const seed = newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  for (auto const& shape : treeShapes()) {
    LayoutShape const settings(shape);
    expectHalosAsDefined(randomScene(seed + static_cast<unsigned>(shape.depth)));
  }
}

TEST(Halo, HoldsVectors) {
  auto const scene = randomScene(3);
  auto const channel = addChannel<Vec3>(scene.server, scene.volume, "v", Vec3(1.f, 2.f, 3.f));
  fillCells<Vec3>(channel, [](double x, double y, double z) {
    return Vec3(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
  });
  BruteForce<Vec3> const values(channel);
  API::HaloedCache<Vec3> cache;
  ASSERT_TRUE(cache.init(channel).succeeded());
  auto const accessor = scene.layout.tileAccessor();
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    ASSERT_TRUE(cache.update(index).succeeded());
    auto const low = accessor.tile(index).coord();
    for (int n = 0; n < 343; ++n) {
      int const x = n % 7 - 1, y = n / 7 % 7 - 1, z = n / 49 - 1;
      ASSERT_EQ(cache.tile(index).at(x, y, z), values.at(low.i + x, low.j + y, low.k + z));
    }
  });
}

TEST(Halo, SeesNewTilesAndNewValues) {
  auto const scene = emptyScene(1.f, 4.f);
  auto const accessor = scene.layout.tileAccessor();
  auto const middle = accessor.addTile(0, 0, 0, 7);
  API::HaloedCache<float> cache;
  ASSERT_TRUE(cache.init(scene.distance).succeeded());
  ASSERT_TRUE(cache.update(middle).succeeded());
  EXPECT_EQ(cache.tile(middle).at(5, 0, 0), 4.f);
  auto const right = accessor.addTile(3, 0, 0, 7);
  scene.distance.tileData<float>(right).data[0] = 9.f;
  ASSERT_TRUE(cache.update(middle).succeeded());
  EXPECT_EQ(cache.tile(middle).at(5, 0, 0), 9.f);
  scene.distance.tileData<float>(right).data[0] = 10.f;
  ASSERT_TRUE(cache.update(middle).succeeded());
  EXPECT_EQ(cache.tile(middle).at(5, 0, 0), 10.f);
}

TEST(Halo, RefusesOtherTypesAndTilesThatAreNotThere) {
  auto const scene = randomScene(1);
  API::HaloedCache<int> wrong;
  EXPECT_EQ(wrong.init(scene.distance).message(), "channel 'distance' is of another type");
  EXPECT_EQ(wrong.update({0, 0}).message(), "the haloed cache has no channel");
  API::HaloedCache<float> cache;
  EXPECT_EQ(cache.init(API::VoxelChannel()).message(),
            "cannot read the halo of an invalid channel");
  ASSERT_TRUE(cache.init(scene.distance).succeeded());
  for (API::TreeIndex const& index :
       {API::TreeIndex{-1, -1}, API::TreeIndex{1, 0}, API::TreeIndex{0, 8}}) {
    EXPECT_EQ(cache.update(index).message(), "no such tile") << index.slot << ' ' << index.depth;
  }
}

}  // namespace
