#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fakehost/scene.h"
#include "processing/extend_filter.h"
#include "support/copies.h"

namespace Velmor::Processing {
namespace {

using Calls = std::vector<std::string>;
using Test::copiesOf;
using Float2 = orlen::Math::vec<2, float>;

class ExtendCalls : public testing::Test {
 protected:
  void SetUp() override { FakeHost::reset(); }

  static std::string addTile(int x, int y, int z, int depth) {
    return "TileAccessor::addTile " + std::to_string(x) + ' ' + std::to_string(y) + ' ' +
           std::to_string(z) + ' ' + std::to_string(depth);
  }

  static void useTreesOfFour() {
    FakeHost::script().treeWidth = 4;
    FakeHost::script().reportedWidth = 4;
    FakeHost::script().maxDepth = 3;
  }
};

TEST_F(ExtendCalls, AddsTilesOverTheBoxByHeightThenXThenZAtEveryDepth) {
  FakeHost::Scene const scene;
  scene.layout.setVoxelScale(0.1f);
  auto const channel = scene.channel("distance", 1.f);
  FakeHost::clearCalls();
  ExtendFilter(0.03f, {0.f, 0.f}, {20.f, 20.f}, 0.f, "").filter(channel, channel);
  auto const calls = FakeHost::calls("TileAccessor::addTile");
  // x and z from -100 to 100, y from -5 to 6, in steps of 5.
  ASSERT_EQ(calls.size(), 41u * 3u * 41u * 8u);
  for (int depth = 0; depth <= 7; ++depth) {
    EXPECT_EQ(calls[static_cast<std::size_t>(depth)], addTile(-100, -5, -100, depth));
    EXPECT_EQ(calls[static_cast<std::size_t>(8 + depth)], addTile(-100, -5, -95, depth));
  }
  EXPECT_EQ(calls[41u * 8u], addTile(-95, -5, -100, 0));
  EXPECT_EQ(calls[41u * 41u * 8u], addTile(-100, 0, -100, 0));
  EXPECT_EQ(calls.back(), addTile(100, 5, 100, 7));
}

TEST_F(ExtendCalls, DoesNotAddALastStepBeyondTheBox) {
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  FakeHost::clearCalls();
  // x from -3 to 4, z from 8 to 17.
  ExtendFilter(0.5f, {0.5f, 12.5f}, {7.f, 8.5f}, 0.f, "").filter(channel, channel);
  auto const calls = FakeHost::calls("TileAccessor::addTile");
  // y from -5 to 6: -5, 0 and 5.
  ASSERT_EQ(calls.size(), 2u * 3u * 2u * 8u);
  EXPECT_EQ(calls[0], addTile(-3, -5, 8, 0));
  EXPECT_EQ(calls[8], addTile(-3, -5, 13, 0));
  EXPECT_EQ(calls[16], addTile(2, -5, 8, 0));
  EXPECT_EQ(calls.back(), addTile(2, 5, 13, 7));
}

TEST_F(ExtendCalls, ABoxThatIsNoBoxAddsNoTile) {
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  // Further from the layer of such a height than an int counts.
  for (int const y : {-5, 0, 5}) static_cast<void>(scene.leaf(0, y, 0));
  float const nan = std::nanf(""), infinity = HUGE_VALF;
  for (float const radius : {0.f, 1.f}) {
    for (float const bad : {nan, infinity, -infinity, 1e30f, -1e30f, -2147483648.f}) {
      ExtendFilter(bad, {0.f, 0.f}, {1.f, 1.f}, radius, "").filter(channel, channel);
      ExtendFilter(0.f, {bad, 0.f}, {1.f, 1.f}, radius, "").filter(channel, channel);
      ExtendFilter(0.f, {0.f, bad}, {1.f, 1.f}, radius, "").filter(channel, channel);
    }
    for (float const size : {nan, infinity, 1e30f, -1e9f}) {
      ExtendFilter(0.f, {0.f, 0.f}, {size, 1.f}, radius, "").filter(channel, channel);
      ExtendFilter(0.f, {0.f, 0.f}, {1.f, size}, radius, "").filter(channel, channel);
    }
  }
  EXPECT_EQ(FakeHost::calls("TileAccessor::addTile"), Calls());
}

TEST_F(ExtendCalls, ABoxAtTheEndOfAllVoxelsIsLeftThere) {
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  float const end = 2147483520.f;  // the last float that an int holds
  for (float const sign : {-1.f, 1.f}) {
    FakeHost::clearCalls();
    ExtendFilter(sign * end, {sign * end, sign * end}, {0.f, 0.f}, 0.f, "")
        .filter(channel, channel);
    auto const calls = FakeHost::calls("TileAccessor::addTile");
    ASSERT_EQ(calls.size(), 3u * 8u);
    int const at = sign < 0.f ? -2147483520 : 2147483520;
    EXPECT_EQ(calls.front(), addTile(at, at - 5, at, 0));
    EXPECT_EQ(calls.back(), addTile(at, at + 5, at, 7));
  }
}

TEST_F(ExtendCalls, ALongRowIsAddedInOneOrderToo) {
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  // z from 0 to 4996: a thousand tiles.
  ExtendFilter(0.5f, {0.5f, 2498.f}, {1.f, 4996.f}, 0.f, "").filter(channel, channel);
  auto const calls = FakeHost::calls("TileAccessor::addTile");
  ASSERT_EQ(calls.size(), 3u * 1000u * 8u);
  std::size_t at = 0;
  for (int const y : {-5, 0, 5}) {
    for (int z = 0; z <= 4996; z += 5) {
      for (int depth = 0; depth <= 7; ++depth) EXPECT_EQ(calls[at++], addTile(0, y, z, depth));
    }
  }
}

TEST_F(ExtendCalls, TraversesLeavesForTheMaskAndAllDepthsForTheSurface) {
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  for (float const radius : {0.f, -1.f, std::nanf("")}) {
    FakeHost::clearCalls();
    ExtendFilter(0.f, {0.f, 0.f}, {4.f, 4.f}, radius, "").filter(channel, channel);
    EXPECT_EQ(FakeHost::calls("Layout::traverse"),
              (Calls{"Layout::traverse 3 7 7", "Layout::traverse 3", "Layout::traverse 3"}));
    EXPECT_TRUE(FakeHost::calls("HaloedCache").empty());
  }
  FakeHost::clearCalls();
  ExtendFilter filter(0.f, {0.f, 0.f}, {4.f, 4.f}, 2.f, "");
  filter.setDepths(2, 2);
  filter.setTraversalMode(API::TraversalMode::Serial);
  filter.filter(channel, channel);
  auto const calls = FakeHost::calls("Layout::traverse");
  EXPECT_EQ(calls.front(), "Layout::traverse 3 7 7");
  EXPECT_EQ(calls[1], "Layout::traverse 3 7 7");
  EXPECT_EQ(calls[calls.size() - 2], "Layout::traverse 3");
  EXPECT_EQ(calls.back(), "Layout::traverse 3");
}

TEST_F(ExtendCalls, MakesAndRemovesItsChannels) {
  FakeHost::Scene const scene;
  auto const object = FakeHost::createObject(scene.server, "ocean");
  object.addComponent(scene.component);
  auto const src = scene.channel("distance", 1.f), dst = scene.channel("other", 1.f);

  FakeHost::clearCalls();
  ExtendFilter(0.f, {0.f, 0.f}, {4.f, 4.f}, 0.f, "").filter(src, src);
  auto calls = FakeHost::calls("StateServer::");
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls[0], "StateServer::createChannel 'volume' 1 'oceanTmp'");
  EXPECT_EQ(calls[1], "StateServer::createChannel 'volume' 1 'tmp'");
  EXPECT_EQ(calls[2].find("StateServer::removeChannel 'ocean/volume/tmp'"), 0u);
  EXPECT_EQ(calls[3].find("StateServer::removeChannel 'ocean/volume/oceanTmp'"), 0u);

  FakeHost::clearCalls();
  ExtendFilter(0.f, {0.f, 0.f}, {4.f, 4.f}, 0.f, "mask").filter(src, dst);
  EXPECT_EQ(FakeHost::calls("StateServer::"),
            (Calls{"StateServer::createChannel 'volume' 1 'mask'"}));
  EXPECT_TRUE(scene.component.findChannel("mask").valid());
}

/// What the merge makes of one value each, at a tile of some depth.
float merged(float plane, float liquid, float mask, float background, int depth) {
  FakeHost::reset();
  FakeHost::Scene const scene;
  auto const index = FakeHost::addTile(scene.layout, depth, {0, 0, 0});
  auto const channel = scene.channel("distance", background);
  int traversal = 0;
  FakeHost::script().visit = [&](API::Visitor& visitor) {
    // Flood, plane, merge: the first two find their work done.
    if (++traversal != 3) return;
    auto const set = [&](char const* name, float value) {
      API::Channel const c(scene.component.findChannel(name));
      auto const data = c.tileData<float>(index);
      for (std::size_t e = 0; e < data.count; ++e) data.data[e] = value;
    };
    set("distance", liquid);
    set("tmp", plane);
    set("oceanTmp", mask);
    visitor.beginTile(scene.layout.tileAccessor(), index);
  };
  ExtendFilter(0.f, {0.f, 0.f}, {-100.f, 1.f}, 0.f, "").filter(channel, channel);
  EXPECT_EQ(traversal, 3);
  auto const values = FakeHost::elements<float>(channel, index);
  for (float const v : values) EXPECT_EQ(v, values[0]);
  return values[0];
}

/// The distances to the plane in a tile of some depth at voxel 0, before the merge.
std::vector<float> planeOf(float height, float voxelScale, int depth) {
  FakeHost::reset();
  FakeHost::Scene const scene;
  scene.layout.setVoxelScale(voxelScale);
  auto const index = FakeHost::addTile(scene.layout, depth, {0, 0, 0});
  auto const channel = scene.channel("distance", 9.f);
  std::vector<float> values;
  int traversal = 0;
  FakeHost::script().visit = [&](API::Visitor& visitor) {
    if (++traversal != 2) return;
    visitor.beginTile(scene.layout.tileAccessor(), index);
    values = FakeHost::elements<float>(scene.component.findChannel("tmp"), index);
  };
  ExtendFilter(height, {0.f, 0.f}, {-100.f, 1.f}, 0.f, "").filter(channel, channel);
  return values;
}

TEST_F(ExtendCalls, TakesThePlaneToBeZeroExactlyAtItsHeight) {
  for (float const voxelScale : {0.1f, 0.9f}) {
    int cell = 1;
    for (int depth = 7; depth >= 0; --depth, cell *= 5) {
      float const centre = 3.5f * static_cast<float>(cell);
      float const height = centre * voxelScale;
      ASSERT_EQ(height / voxelScale, centre);
      auto const plane = planeOf(height, voxelScale, depth);
      ASSERT_EQ(plane.size(), 125u);
      for (std::size_t e = 0; e < plane.size(); ++e) {
        int const above = static_cast<int>(e / 5 % 5) - 3;
        EXPECT_EQ(plane[e], static_cast<float>(above * cell) * voxelScale)
            << "depth " << depth << " element " << e;
      }
    }
  }
}

TEST_F(ExtendCalls, JoinsLiquidAndPlaneSmoothlyWhereTheOceanIs) {
  EXPECT_EQ(merged(1.f, 1.f, 1.f, 9.f, 7), 0.585786462f);
  EXPECT_EQ(merged(-1.f, -1.f, 1.f, 9.f, 7), -3.41421366f);
  EXPECT_EQ(merged(-3.f, 5.f, 1.f, 9.f, 7), -3.83095169f);
  EXPECT_EQ(merged(3.f, 5.f, 0.5f, 9.f, 7), 2.16904831f);
  EXPECT_EQ(merged(0.f, 5.f, 1.f, 9.f, 7), 0.f);
}

TEST_F(ExtendCalls, KeepsTheLiquidWhereTheMaskIsZero) {
  EXPECT_EQ(merged(-3.f, 5.f, 0.f, 9.f, 7), 2.92893219f);
  // Above 0 by as little as it takes, the plane counts.
  EXPECT_EQ(merged(-3.f, 5.f, 1e-30f, 9.f, 7), -3.83095169f);
}

TEST_F(ExtendCalls, TakesBackgroundAtDepthSixAndOnlyThereForOpenWater) {
  EXPECT_EQ(merged(-3.f, 5.f, 0.f, 5.f, 6), -10.2426405f);
  EXPECT_EQ(merged(-3.f, 5.f, 0.f, 5.f, 7), 2.92893219f);
  EXPECT_EQ(merged(-3.f, 5.f, 0.f, 5.f, 5), 2.92893219f);
  EXPECT_EQ(merged(-3.f, 5.f, 0.f, 9.f, 6), 2.92893219f);
  EXPECT_EQ(merged(-3.f, 5.f, 0.f, std::nanf(""), 6), 2.92893219f);
}

TEST_F(ExtendCalls, ReachVoxelsBehindAHaloAndOtherStrides) {
  auto const filtered = [](bool wide) {
    FakeHost::reset();
    if (wide) {
      FakeHost::script().nextChannel.halo = 1;
      FakeHost::script().nextChannel.strides[0] = 2;
      FakeHost::script().nextChannel.strides[1] = 16;
      FakeHost::script().nextChannel.strides[2] = 128;
    }
    FakeHost::Scene const scene;
    auto const channel = scene.channel("distance", 9.f);
    std::vector<API::TreeIndex> leaves;
    for (int x = -10; x < 10; x += 5)
      for (int y = -10; y < 10; y += 5)
        for (int z = -10; z < 10; z += 5) leaves.push_back(scene.leaf(x, y, z));
    auto const accessor = scene.layout.tileAccessor();
    auto const forVoxels = [&](API::Channel const& c, auto const& use) {
      for (auto const& leaf : leaves) {
        auto const o = accessor.tile(leaf).coord();
        auto const data = c.tileData<float>(leaf);
        for (int e = 0; e < 125; ++e) {
          int const i = e % 5, j = e / 5 % 5, k = e / 25;
          use(data.data[data.offset(i, j, k)], o.i + i, o.j + j, o.k + k);
        }
      }
    };
    forVoxels(channel, [](float& value, int x, int y, int z) {
      value = std::hypot(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)) - 4.f;
    });
    ExtendFilter(1.2f, {0.f, 0.f}, {12.f, 12.f}, 3.f, "mask").filter(channel, channel);
    std::vector<float> values;
    auto const add = [&](float& value, int, int, int) { values.push_back(value); };
    forVoxels(channel, add);
    forVoxels(API::Channel(scene.component.findChannel("mask")), add);
    return values;
  };
  auto const plain = filtered(false);
  EXPECT_GT(plain.size(), 1000u);
  EXPECT_EQ(filtered(true), plain);
}

TEST_F(ExtendCalls, WorkOnTilesOfFour) {
  useTreesOfFour();
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  FakeHost::clearCalls();
  ExtendFilter(1.5f, {8.f, 8.f}, {8.f, 8.f}, 0.f, "mask").filter(channel, channel);
  // x and z from 4 to 12, y from -3 to 6; four depths.
  EXPECT_EQ(FakeHost::calls("TileAccessor::addTile").size(), 3u * 3u * 3u * 4u);
  API::Channel const mask(scene.component.findChannel("mask"));
  auto const leaf = scene.leaf(4, 0, 4);
  auto const data = channel.tileData<float>(leaf);
  auto const ocean = mask.tileData<float>(leaf);
  ASSERT_EQ(data.count, 64u);
  for (int x = 0; x < 4; ++x) {
    for (int z = 0; z < 4; ++z) {
      for (int y = 0; y < 4; ++y) {
        EXPECT_EQ(ocean.data[ocean.offset(x, y, z)], 1.f);
        float const p = static_cast<float>(y) + 0.5f - 1.5f;
        EXPECT_EQ(data.data[data.offset(x, y, z)], (p + 1.f) - std::sqrt(p * p + 1.f)) << y;
      }
    }
  }
}

TEST_F(ExtendCalls, SeedTreesOfFourByColumnsOfFives) {
  useTreesOfFour();
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  auto const alone = [&](int x, int z) {
    for (int depth = 0; depth < 3; ++depth) FakeHost::addTile(scene.layout, depth, {x, 0, z});
    return scene.leaf(x, 0, z);
  };
  // In the root's cells (2, 3), (3, 0) and (3, 1): of sixteen columns, five to an x,
  // the last is (3, 0). Not in their first cells, which the fifth columns of the
  // cells before run into.
  auto const before = alone(150, 220), last = alone(220, 20), beyond = alone(220, 100);
  ExtendFilter(1.5f, {8.f, 8.f}, {8.f, 8.f}, 0.f, "mask").filter(channel, channel);
  API::Channel const mask(scene.component.findChannel("mask"));
  EXPECT_EQ(FakeHost::elements<float>(mask, before), std::vector<float>(64, 1.f));
  EXPECT_EQ(FakeHost::elements<float>(mask, last), std::vector<float>(64, 1.f));
  EXPECT_EQ(FakeHost::elements<float>(mask, beyond), std::vector<float>(64, 0.f));
}

TEST_F(ExtendCalls, SeedTreesOfFourToFiveAboveThePlane) {
  useTreesOfFour();
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  ExtendFilter(1.5f, {8.f, 8.f}, {8.f, 8.f}, 0.f, "mask").filter(channel, channel);
  API::Channel const mask(scene.component.findChannel("mask"));
  auto const ocean = mask.tileData<float>(scene.leaf(4, 4, 4));
  for (int y = 0; y < 4; ++y) {
    EXPECT_EQ(ocean.data[ocean.offset(0, y, 0)], 4 + y <= 6 ? 1.f : 0.f) << 4 + y;
  }
}

using Voxel = std::tuple<int, int, int>;

/// The values of the leaf tiles by voxel.
std::map<Voxel, float> voxelsOf(FakeHost::Scene const& scene, API::Channel const& channel,
                                int width) {
  std::map<Voxel, float> voxels;
  auto const accessor = scene.layout.tileAccessor();
  int const leaf = scene.layout.maxDepth();
  for (auto it = scene.layout.tileIterator(leaf, leaf, API::TraversalMode::Serial); it.valid();
       it.next()) {
    auto const o = accessor.tile(it.index()).coord();
    auto const data = channel.tileData<float>(it.index());
    for (int i = 0; i < width; ++i)
      for (int j = 0; j < width; ++j)
        for (int k = 0; k < width; ++k)
          voxels[{o.i + i, o.j + j, o.k + k}] = data.data[data.offset(i, j, k)];
  }
  return voxels;
}

TEST_F(ExtendCalls, CopiesDoWhatTheOriginalDoes) {
  ExtendFilter const original(1.f, {2.f, 3.f}, {4.f, 6.f}, 1.5f, "mask");
  auto const maskOf = [](ExtendFilter const& filter) {
    FakeHost::reset();
    FakeHost::Scene const scene;
    auto const channel = scene.channel("distance", 1.f);
    channel.tileData<float>(scene.leaf(0, 0, 0)).data[62] = -2.f;
    filter.filter(channel, channel);
    API::Channel const mask(scene.component.findChannel("mask"));
    return mask.valid() ? voxelsOf(scene, mask, 5) : std::map<Voxel, float>();
  };
  auto const expected = maskOf(original);
  EXPECT_FALSE(expected.empty());
  for (auto const& filter : copiesOf(original, ExtendFilter(0.f, {}, {}, 0.f, ""))) {
    EXPECT_EQ(maskOf(filter), expected);
  }
}

TEST_F(ExtendCalls, WidenTheMaskOverTilesOfFourToo) {
  float const radius = 2.5f;
  auto const maskOf = [](float widening) {
    FakeHost::reset();
    useTreesOfFour();
    FakeHost::Scene const scene;
    auto const channel = scene.channel("distance", 1.f);
    // A pillar of liquid across a tile corner.
    for (int const x : {7, 8}) {
      for (int const z : {7, 8}) {
        for (int y = -4; y < 8; ++y) {
          auto const leaf = scene.leaf(x, y, z);
          auto const data = channel.tileData<float>(leaf);
          auto const o = scene.layout.tileAccessor().tile(leaf).coord();
          data.data[data.offset(x - o.i, y - o.j, z - o.k)] = -2.f;
        }
      }
    }
    ExtendFilter(1.5f, {8.f, 8.f}, {8.f, 8.f}, widening, "mask").filter(channel, channel);
    return voxelsOf(scene, API::Channel(scene.component.findChannel("mask")), 4);
  };
  auto const ocean = maskOf(0.f);
  ASSERT_EQ(ocean.size(), 27u * 64u);
  auto const at = [&](int x, int y, int z) {
    auto const found = ocean.find({x, y, z});
    return found == ocean.end() ? 0.f : found->second;
  };
  EXPECT_EQ(at(7, 2, 7), 0.f);
  EXPECT_EQ(at(6, 2, 7), 1.f);
  auto expected = ocean;
  int const layer = 2;  // one above the voxel that holds the plane
  for (auto const& [voxel, value] : ocean) {
    auto const [x, y, z] = voxel;
    if (y != layer || value != 1.f) continue;
    if (at(x - 1, y, z - 1) == 1.f && at(x - 1, y, z + 1) == 1.f && at(x + 1, y, z - 1) == 1.f &&
        at(x + 1, y, z + 1) == 1.f) {
      continue;
    }
    for (auto& [other, mask] : expected) {
      auto const [u, v, w] = other;
      int const square = (u - x) * (u - x) + (v - y) * (v - y) + (w - z) * (w - z);
      float const q = static_cast<float>(square) * (1.f / (radius * radius));
      if (q <= 1.f && mask != 1.f) mask = std::max(mask, 1.f - std::sqrt(q));
    }
  }
  EXPECT_GT(expected[Voxel(7, 2, 7)], 0.f);
  EXPECT_EQ(maskOf(radius), expected);
}

TEST_F(ExtendCalls, AWidthThatIsNoTilesDoesNothing) {
  for (int const width : {0, -1, 6, 1000}) {
    FakeHost::reset();
    FakeHost::script().reportedWidth = width;
    FakeHost::Scene const scene;
    auto const leaf = scene.leaf(0, 0, 0);
    auto const channel = scene.channel("distance", 1.f);
    auto const uv = scene.channel("uv", Float2(7.f, 7.f));
    FakeHost::clearCalls();
    ExtendFilter const filter(0.f, {0.f, 0.f}, {4.f, 4.f}, 1.f, "");
    filter.filter(channel, channel);
    filter.uvs(uv);
    EXPECT_TRUE(FakeHost::calls("TileAccessor::addTile").empty());
    EXPECT_EQ(FakeHost::elements<Float2>(uv, leaf), std::vector<Float2>(125, Float2(7.f, 7.f)));
  }
}

TEST_F(ExtendCalls, MarkNothingInTilesThatStoreFewerVoxelsThanReported) {
  FakeHost::script().treeWidth = 4;
  FakeHost::script().reportedWidth = 5;
  FakeHost::script().maxDepth = 3;
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f);
  ExtendFilter const filter(1.5f, {8.f, 8.f}, {8.f, 8.f}, 2.5f, "mask");
  filter.filter(channel, channel);
  auto const mask = voxelsOf(scene, API::Channel(scene.component.findChannel("mask")), 4);
  ASSERT_FALSE(mask.empty());
  for (auto const& [voxel, value] : mask) EXPECT_EQ(value, 0.f);
}

TEST_F(ExtendCalls, UvsReachVoxelsOfAnyTileAndLeaveTheHaloAlone) {
  for (int const width : {4, 5}) {
    FakeHost::reset();
    FakeHost::script().treeWidth = width;
    FakeHost::script().reportedWidth = width;
    FakeHost::script().nextChannel.halo = 1;
    FakeHost::script().nextChannel.strides[0] = 2;
    FakeHost::script().nextChannel.strides[1] = 16;
    FakeHost::script().nextChannel.strides[2] = 128;
    FakeHost::Scene const scene;
    auto const leaf = scene.leaf(-1, 0, 2);
    auto const uv = scene.channel("uv", Float2(7.f, 7.f));
    // From (-8, -4) to (8, 28): all numbers are exact.
    ExtendFilter(0.f, {0.f, 12.f}, {16.f, 32.f}, 0.f, "").uvs(uv);
    auto const data = uv.tileData<Float2>(leaf);
    for (int i = 0; i < width; ++i) {
      for (int j = 0; j < width; ++j) {
        for (int k = 0; k < width; ++k) {
          EXPECT_EQ(
              data.data[data.offset(i, j, k)],
              Float2(static_cast<float>(i - width + 8) / 16.f, static_cast<float>(k + 4) / 32.f));
        }
      }
    }
    auto const all = FakeHost::elements<Float2>(uv, leaf);
    EXPECT_EQ(std::count(all.begin(), all.end(), Float2(7.f, 7.f)),
              static_cast<std::ptrdiff_t>(all.size()) - std::ptrdiff_t{width} * width * width);
  }
}

TEST_F(ExtendCalls, SurviveAHostThatMakesNoChannel) {
  FakeHost::Scene const scene;
  auto const channel = scene.channel("distance", 1.f), other = scene.channel("other", 1.f);
  auto const leaf = scene.leaf(0, 0, 0);
  FakeHost::script().failing.insert("StateServer::createChannel");
  ExtendFilter const filter(0.f, {0.f, 0.f}, {4.f, 4.f}, 2.f, "mask");
  filter.filter(channel, channel);
  for (float const v : FakeHost::elements<float>(channel, leaf)) EXPECT_EQ(v, 1.f);
  filter.filter(channel, other);
  filter.filter(API::Channel(), API::Channel());
  filter.uvs(API::Channel());
}

TEST_F(ExtendCalls, UvsVisitsTheLeavesAndLeavesOtherTypesAlone) {
  FakeHost::Scene const scene;
  auto const leaf = scene.leaf(0, 0, 0);
  auto const uv = scene.channel("uv", Float2(7.f, 7.f));
  auto const wrong = scene.channel("wrong", 7.f);
  FakeHost::clearCalls();
  ExtendFilter const filter(0.f, {0.f, 0.f}, {4.f, 4.f}, 2.f, "");
  filter.uvs(uv);
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), (Calls{"Layout::traverse 3 7 7"}));
  filter.uvs(wrong);
  for (float const v : FakeHost::elements<float>(wrong, leaf)) EXPECT_EQ(v, 7.f);
  EXPECT_NE(uv.tileData<Float2>(leaf).data[0], Float2(7.f, 7.f));
}

}  // namespace
}  // namespace Velmor::Processing
