#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "random_tree.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;
using orlen::Math::vec;

TEST(Channel, StartsAtZeroInEveryExistingTile) {
  auto const scene = randomScene(9);
  API::VoxelChannel const channel(
      scene.server.createChannel(scene.volume, API::DataType::Int2, "n"));
  EXPECT_EQ(channel.dataType(), API::DataType::Int2);
  EXPECT_EQ((channel.backgroundValue<vec<2, int>>()), (vec<2, int>()));
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const tile = channel.tileData<vec<2, int>>(index);
    ASSERT_EQ(tile.count, 125u);
    EXPECT_TRUE(
        std::all_of(tile.data, tile.data + 125, [](auto const& v) { return v == vec<2, int>(); }));
  });
}

TEST(Channel, HasTilesOf125ValuesWithoutHaloXFastest) {
  auto const scene = sphereScene(3.f);
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const tile = scene.distance.tileData<float>(index);
    EXPECT_EQ(tile.count, 125u);
    EXPECT_EQ(tile.halo, 0);
    EXPECT_EQ(tile.offset(1, 2, 3), 1 + 2 * 5 + 3 * 25);
  });
}

TEST(Channel, TakesSixTypesAndNoOther) {
  auto const scene = emptyScene();
  for (int type = -1; type <= 12; ++type) {
    bool const known = (type >= 1 && type <= 4) || type == 8 || type == 9;
    auto const channel =
        scene.server.createChannel(scene.volume, static_cast<API::DataType>(type), "c");
    EXPECT_EQ(channel.valid(), known) << type;
  }
}

TEST(Channel, HasNothingForOtherTypesTilesAndHandles) {
  auto const scene = sphereScene(3.f);
  API::TreeIndex const leaf{0, 7};
  EXPECT_EQ(scene.distance.tileData<int>(leaf).data, nullptr);
  EXPECT_EQ(scene.distance.tileData<Vec3>(leaf).count, 0u);
  EXPECT_EQ(scene.distance.tileData<double>(leaf).data, nullptr);
  for (API::TreeIndex const index : {API::TreeIndex{-1, -1}, {0, 8}, {1, 0}, {-1, 7}}) {
    auto const tile = scene.distance.tileData<float>(index);
    EXPECT_EQ(tile.data, nullptr);
    EXPECT_EQ(tile.count, 0u);
    EXPECT_EQ(tile.strides[0], 0);
  }
  API::Channel const none;
  EXPECT_EQ(none.tileData<float>(leaf).data, nullptr);
  EXPECT_EQ(none.dataType(), API::DataType::None);
  EXPECT_EQ(none.backgroundValue<float>(), 0.f);
  EXPECT_FALSE(none.setBackgroundValue(1.f));
  EXPECT_FALSE(none.layout().valid());
  EXPECT_TRUE(none.partialPathName().empty());
  EXPECT_TRUE(none.fullPathName().empty());
  EXPECT_FALSE(scene.distance.setBackgroundValue(1));
  EXPECT_EQ(scene.distance.backgroundValue<int>(), 0);
}

TEST(Channel, RewritesItsOldBackgroundBitForBit) {
  auto const scene = emptyScene();
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  auto const tile = scene.distance.tileData<float>(scene.layout.tileAccessor().addTile(0, 0, 0, 7));
  tile.data[0] = -0.f;
  tile.data[1] = 2.f;
  EXPECT_TRUE(scene.distance.setBackgroundValue(nan));
  EXPECT_TRUE(std::signbit(tile.data[0]) && tile.data[0] == 0.f);
  EXPECT_EQ(tile.data[1], 2.f);
  EXPECT_TRUE(std::isnan(tile.data[2]));
  EXPECT_TRUE(scene.distance.setBackgroundValue(4.f));
  EXPECT_EQ(tile.data[2], 4.f);
  EXPECT_EQ(scene.distance.backgroundValue<float>(), 4.f);
  EXPECT_EQ(BruteForce<float>(scene.distance).at(100000, 0, 0), 4.f);
}

TEST(Channel, IsDetachedByAnotherOfItsNameAndLivesOnByItsHandle) {
  auto const scene = sphereScene(3.f);
  auto const index = scene.layout.tileAccessor().index({3, 0, 0}, 7);
  scene.distance.tileData<float>(index).data[0] = 123.f;
  API::VoxelChannel const fresh(
      scene.server.createChannel(scene.volume, API::DataType::Float, "distance"));
  EXPECT_NE(fresh, scene.distance);
  EXPECT_EQ(scene.volume.findChannel("distance"), fresh);
  EXPECT_EQ(scene.volume.channels().count(), 1u);
  EXPECT_EQ(fresh.tileData<float>(index).data[0], 0.f);
  EXPECT_EQ(scene.distance.tileData<float>(index).data[0], 123.f);
  EXPECT_EQ(scene.distance.partialPathName(), API::String("volume/distance"));
  // It also goes on growing with its layout.
  auto const added = scene.layout.tileAccessor().addTile(1000, 0, 0, 7);
  EXPECT_EQ(scene.distance.tileData<float>(added).data[0], 5.f);
}

TEST(Channel, TakesItsCoarseValuesFromTheCentresOfChildren) {
  auto const scene = sphereScene(8.f);
  fillCells<float>(scene.distance, [](double x, double y, double z) { return x + 2 * y + 4 * z; });
  auto const accessor = scene.layout.tileAccessor();
  auto const parent = accessor.index({8, 0, 0}, 6);
  auto const before = scene.distance.tileData<float>(parent).data[0];
  Host::refreshCoarseValues(scene.distance);
  for (int c = 0; c < 125; ++c) {
    auto const child = accessor.tile(parent).child(c % 5, c / 5 % 5, c / 25);
    if (!child.valid()) continue;
    EXPECT_EQ(scene.distance.tileData<float>(parent).data[c],
              scene.distance.tileData<float>(child.index()).data[62]);
  }
  EXPECT_EQ(scene.distance.tileData<float>(parent).data[0], before);
  // From the leaves up: the centre of the root is the centre of the leaf there.
  auto const middle = accessor.addTile(0, 0, 0, 7);
  scene.distance.tileData<float>(middle).data[62] = 77.f;
  Host::refreshCoarseValues(scene.distance);
  EXPECT_EQ(scene.distance.tileData<float>(accessor.index({0, 0, 0}, 0)).data[62], 77.f);
}

TEST(ActiveMask, IsWhatDiffersFromTheBackgroundUntilOneIsStored) {
  auto const scene = emptyScene(1.f, 5.f);
  auto const leaf = scene.layout.tileAccessor().addTile(0, 0, 0, 7);
  auto const tile = scene.distance.tileData<float>(leaf);
  tile.data[3] = 1.f;
  tile.data[124] = -5.f;
  Host::CellMask expected;
  expected.set(3);
  expected.set(124);
  EXPECT_EQ(Host::activeMask(scene.distance, leaf), expected);
  Host::setFieldClass(scene.distance, Host::FieldClass::LevelSet);
  EXPECT_EQ(Host::fieldClass(scene.distance), Host::FieldClass::LevelSet);
  Host::CellMask levelSet;
  levelSet.set(3);
  EXPECT_EQ(Host::activeMask(scene.distance, leaf), levelSet);

  Host::CellMask stored;
  stored.set(0);
  stored.set(64);
  Host::setActiveMask(scene.distance, leaf, stored);
  EXPECT_EQ(Host::activeMask(scene.distance, leaf), stored);
  auto const copy = addChannel<float>(scene.server, scene.volume, "copy");
  EXPECT_EQ(Host::activeMask(copy, leaf), Host::CellMask());
  Host::copyActiveMasks(scene.distance, copy);
  EXPECT_EQ(Host::activeMask(copy, leaf), stored);
  Host::setActiveMask(copy, leaf, Host::CellMask());
  tile.data[5] = 3.f;
  EXPECT_EQ(Host::activeMask(copy, leaf), Host::CellMask());
}

TEST(ActiveMask, LeavesOutCellsWithAChild) {
  auto const scene = emptyScene(1.f, 5.f);
  auto const accessor = scene.layout.tileAccessor();
  accessor.addTile(0, 0, 0, 1);
  auto const root = accessor.index({0, 0, 0}, 0);
  Host::CellMask all;
  for (int c = 0; c < 125; ++c) all.set(c);
  Host::setActiveMask(scene.distance, root, all);
  auto const mask = Host::activeMask(scene.distance, root);
  for (int c = 0; c < 125; ++c) EXPECT_EQ(mask.test(c), c != 62);
}

TEST(ActiveMask, HoldsForABackgroundThatIsNoNumber) {
  auto const scene = emptyScene(1.f, std::numeric_limits<float>::quiet_NaN());
  auto const leaf = scene.layout.tileAccessor().addTile(0, 0, 0, 7);
  scene.distance.tileData<float>(leaf).data[1] = 0.f;
  Host::CellMask expected;
  expected.set(1);
  EXPECT_EQ(Host::activeMask(scene.distance, leaf), expected);
}

TEST(Memory, IsAtMostTenBytesPerActiveVoxelOfASphere) {
  auto const scene = sphereScene(60.f, {0.37f, -0.21f, 0.13f});
  std::size_t active = 0;
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    Host::CellMask mask;
    auto const tile = scene.distance.tileData<float>(index);
    for (int c = 0; c < 125; ++c) {
      if (std::abs(tile.data[c]) >= 3.f) continue;
      mask.set(c);
      ++active;
    }
    Host::setActiveMask(scene.distance, index, mask);
  });
  EXPECT_LE(Host::memoryUse(scene.layout) + Host::memoryUse(scene.distance), 10 * active);
}

}  // namespace
