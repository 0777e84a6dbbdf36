#include "filters/ocean_mask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "filters/literal_ocean.h"
#include "filters/tile_bits.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using namespace Test;

/// Liquid and mask over some leaf tiles.
struct Sea {
  explicit Sea(std::vector<API::TileCoord> const& tiles, float liquidValue = 1.f,
               float voxelScale = 1.f)
      : scene(emptyScene(voxelScale, liquidValue)) {
    Host::addLeafTiles(scene.layout, tiles);
    liquid = scene.distance;
    mask = addChannel<float>(scene.server, scene.volume, "mask", 0.f);
  }
  OceanScene at(float height) const {
    return {scene.layout, liquid, mask, height, scene.layout.voxelScale(), 5, 7};
  }
  float& value(API::Channel const& channel, int x, int y, int z) const {
    auto const tile = scene.layout.tileAccessor().tile(x, y, z, 7);
    EXPECT_EQ(tile.index().depth, 7);
    auto const data = channel.tileData<float>(tile.index());
    auto const& o = tile.coord();
    return data.data[data.offset(x - o.i, y - o.j, z - o.k)];
  }
  float& maskAt(int x, int y, int z) const { return value(mask, x, y, z); }
  float& liquidAt(int x, int y, int z) const { return value(liquid, x, y, z); }
  int marked() const {
    int count = 0;
    for (float const m : valuesOf<float>(mask)) count += m == 1.f ? 1 : 0;
    return count;
  }
  Scene scene;
  API::Channel liquid, mask;
};

// Tiles: [-2, 3) on all axes holds voxel 0, [3, 8) follows.

TEST(TileBits, FallIntoTheRunsOfMembersThatFollowOneAnother) {
  using Runs = std::vector<std::pair<int, int>>;
  auto const runsOf = [](TileBits bits) {
    Runs runs;
    forEachRun(bits, [&](int first, int count) { runs.emplace_back(first, count); });
    return runs;
  };
  EXPECT_EQ(runsOf(0), Runs());
  EXPECT_EQ(runsOf(wholeTile), (Runs{{0, 125}}));
  EXPECT_EQ(runsOf(tileBit(4, 4, 4)), (Runs{{124, 1}}));
  EXPECT_EQ(runsOf(tileBit(0, 0, 0) | tileBit(1, 0, 0) | tileBit(4, 2, 2)),
            (Runs{{0, 2}, {64, 1}}));
  // Across the middle of the 128 bits.
  EXPECT_EQ(runsOf(tileSlab(2, 2, 3)), (Runs{{50, 50}}));
  EXPECT_EQ(runsOf(tileSlab(1, 0, 3)), (Runs{{0, 20}, {25, 20}, {50, 20}, {75, 20}, {100, 20}}));
}

TEST(OceanFlood, FillsItsTileUpToThePlaneAndOpenColumnsAboveIt) {
  Sea const sea({{0, 0, 0}});
  sea.maskAt(0, 0, 0) = 1.f;
  floodOcean(sea.at(0.6f));
  EXPECT_EQ(sea.marked(), 125);
}

TEST(OceanFlood, SpreadsInTheRowWhoseCentresLieOnThePlane) {
  for (float const height : {0.4999f, 0.5f}) {
    Sea const sea({{0, 0, 0}});
    sea.liquidAt(1, -1, 0) = -2.f;  // nothing rises through it
    sea.maskAt(0, -1, 0) = 1.f;
    floodOcean(sea.at(height));
    EXPECT_EQ(sea.maskAt(0, 0, 0), 1.f);
    EXPECT_EQ(sea.maskAt(1, 0, 0), height == 0.5f ? 1.f : 0.f);
  }
}

TEST(OceanFlood, DoesNotSpreadAboveThePlane) {
  Sea const sea({{0, 0, 0}});
  sea.maskAt(0, 2, 0) = 1.f;
  floodOcean(sea.at(0.6f));
  EXPECT_EQ(sea.marked(), 1);
}

TEST(OceanFlood, PassesShallowLiquidInsideATileButNotAcrossAFace) {
  // Half a voxel deep everywhere but at the start: less than half a diagonal.
  Sea const sea({{0, 0, 0}, {5, 0, 0}}, -0.5f);
  sea.maskAt(0, 0, 0) = 1.f;
  floodOcean(sea.at(10.f));
  EXPECT_EQ(sea.maskAt(2, 0, 0), 1.f);
  EXPECT_EQ(sea.maskAt(3, 0, 0), 0.f);
  EXPECT_EQ(sea.marked(), 125);
  sea.liquidAt(3, 0, 0) = 0.f;
  floodOcean(sea.at(10.f));
  EXPECT_EQ(sea.marked(), 250);
}

TEST(OceanFlood, EntersATileOnlyWhereItsMaskIsZero) {
  for (float const before : {0.f, 0.5f}) {
    Sea const sea({{0, 0, 0}, {5, 0, 0}});
    for (int x = 3; x < 8; ++x)
      for (int y = -2; y < 3; ++y)
        for (int z = -2; z < 3; ++z) sea.liquidAt(x, y, z) = -2.f;
    sea.liquidAt(3, 0, 0) = 1.f;
    sea.maskAt(3, 0, 0) = before;
    sea.maskAt(1, 1, 1) = 0.5f;  // inside a tile all but 1 is flooded
    sea.maskAt(0, 0, 0) = 1.f;
    floodOcean(sea.at(10.f));
    EXPECT_EQ(sea.maskAt(3, 0, 0), before == 0.f ? 1.f : 0.5f);
    EXPECT_EQ(sea.maskAt(1, 1, 1), 1.f);
  }
}

TEST(OceanFlood, StopsMoreThanHalfADiagonalInside) {
  Sea const sea({{0, 0, 0}});
  for (int y = -2; y < 3; ++y) {
    for (int z = -2; z < 3; ++z) {
      sea.liquidAt(0, y, z) = -0.8660254f;
      sea.liquidAt(1, y, z) = std::nextafter(-0.8660254f, -1.f);
    }
  }
  sea.maskAt(-2, -2, -2) = 1.f;
  floodOcean(sea.at(10.f));
  EXPECT_EQ(sea.maskAt(0, 0, 0), 1.f);
  EXPECT_EQ(sea.maskAt(1, 0, 0), 0.f);
  EXPECT_EQ(sea.maskAt(2, 0, 0), 0.f);
  EXPECT_EQ(sea.marked(), 75);
}

TEST(OceanFlood, EntersATileByItsOriginsHeightNotTheVoxels) {
  for (float const height : {2.9f, 3.f}) {
    Sea const sea({{0, 0, 0}, {0, 5, 0}});
    sea.maskAt(0, 0, 0) = 1.f;
    floodOcean(sea.at(height));
    EXPECT_EQ(sea.maskAt(0, 2, 0), 1.f);
    EXPECT_EQ(sea.maskAt(0, 3, 0), height == 3.f ? 1.f : 0.f) << height;
    EXPECT_EQ(sea.maskAt(0, 4, 0), 0.f) << height;
    EXPECT_EQ(sea.marked(), height == 3.f ? 150 : 125);
  }
}

TEST(OceanFlood, UpwardColumnsStopAtTheOceanAndAtTheSurface) {
  Sea const sea({{0, 0, 0}});
  sea.liquidAt(0, 1, 0) = 0.f;  // on the surface: neither seeded nor filled above the plane
  sea.maskAt(1, 1, 0) = 1.f;    // ocean already: the column ends below it
  sea.maskAt(-2, -2, -2) = 1.f;
  floodOcean(sea.at(0.6f));  // rows up to y = 0
  EXPECT_EQ(sea.maskAt(0, 0, 0), 1.f);
  EXPECT_EQ(sea.maskAt(0, 1, 0), 0.f);
  EXPECT_EQ(sea.maskAt(0, 2, 0), 0.f);
  EXPECT_EQ(sea.maskAt(1, 0, 0), 1.f);
  EXPECT_EQ(sea.maskAt(1, 2, 0), 0.f);
  EXPECT_EQ(sea.maskAt(2, 2, 0), 1.f);
}

TEST(OceanFlood, VisitsTilesInTreeOrderWhichShowsAboveThePlane) {
  Sea const sea({{0, 0, 0}, {5, 0, 0}});
  for (int z = -2; z < 3; ++z) sea.liquidAt(2, 2, z) = -1.f;
  sea.maskAt(0, 0, 0) = 1.f;
  sea.maskAt(5, 0, 0) = 1.f;
  floodOcean(sea.at(0.6f));
  // The second tile first would mark 245: its own columns would not be blocked.
  EXPECT_EQ(sea.marked(), 240);
  for (int z = -2; z < 3; ++z) EXPECT_EQ(sea.maskAt(3, 2, z), 0.f);
}

TEST(OceanFlood, WindsThroughAThousandTilesWithoutRecursion) {
  std::vector<API::TileCoord> tiles;
  for (int t = 0; t < 1000; ++t) tiles.push_back({5 * t, 0, 0});
  Sea const sea(tiles);
  sea.maskAt(4999 - 2, 0, 0) = 1.f;  // against the order of the tiles
  floodOcean(sea.at(10.f));
  EXPECT_EQ(sea.marked(), 125000);
}

TEST(OceanFlood, HasTheBitsOfItsDefinitionOnRandomLiquids) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 30; ++round) {
    std::vector<API::TileCoord> tiles;
    for (int x = -2; x <= 2; ++x)
      for (int y = -2; y <= 1; ++y)
        for (int z = -1; z <= 1; ++z)
          if (random() % 6 != 0) tiles.push_back({5 * x, 5 * y, 5 * z});
    float const vs = round % 2 == 0 ? 1.f : 0.1f;
    Sea const sea(tiles, 1.f, vs);
    auto const expected = addChannel<float>(sea.scene.server, sea.scene.volume, "expected", 0.f);
    float const solid = 0.2f + 0.1f * static_cast<float>(round % 5);
    std::uniform_real_distribution<float> unit(0.f, 1.f);
    forTiles(sea.scene.layout, 7, 7, [&](API::TreeIndex const& index) {
      auto const l = sea.liquid.tileData<float>(index), m = sea.mask.tileData<float>(index),
                 e = expected.tileData<float>(index);
      for (int i = 0; i < 125; ++i) {
        l.data[i] = unit(random) < solid ? (unit(random) < 0.5f ? -0.5f : -2.f) * vs
                                         : (unit(random) < 0.1f ? 0.f : 1.f);
        m.data[i] = e.data[i] = unit(random) < 0.02f ? 1.f : 0.f;
      }
    });
    float const height = (-6.f + 0.37f * static_cast<float>(random() % 30)) * vs;
    LiteralOcean(sea.liquid, expected, height).flood();
    Threads const limit(1 + round % 3);
    floodOcean(sea.at(height));
    ASSERT_EQ(valuesOf<float>(sea.mask), valuesOf<float>(expected)) << "round " << round;
  }
}

/// A mask that is 1 in the layer y = 1 of 5 x 5 tiles but for one voxel.
Sea layerWithAHole(int x, int z) {
  std::vector<API::TileCoord> tiles;
  for (int tx = -2; tx <= 2; ++tx)
    for (int tz = -2; tz <= 2; ++tz) tiles.push_back({5 * tx, 0, 5 * tz});
  Sea sea(tiles);
  for (int i = -12; i < 13; ++i)
    for (int k = -12; k < 13; ++k) sea.maskAt(i, 1, k) = i == x && k == z ? 0.f : 1.f;
  return sea;
}

TEST(OceanFalloff, StartsAtVoxelsWithAnOpenDiagonal) {
  auto const sea = layerWithAHole(0, 0);
  widenOcean(sea.at(0.5f), 2.f);
  // The face neighbours at distance 1 are no border.
  EXPECT_EQ(sea.maskAt(0, 1, 0), 0.29289323f);
}

TEST(OceanFalloff, FallsWithTheDistanceInAllDirections) {
  Sea const sea({{0, 0, 0}});
  sea.maskAt(0, 1, 0) = 1.f;
  widenOcean(sea.at(0.5f), 2.f);
  EXPECT_EQ(sea.maskAt(1, 1, 0), 0.5f);
  EXPECT_EQ(sea.maskAt(0, 2, 0), 0.5f);
  EXPECT_EQ(sea.maskAt(1, 1, 1), 0.29289323f);
  EXPECT_EQ(sea.maskAt(1, 2, -1), 0.13397461f);
  EXPECT_EQ(sea.maskAt(0, 1, 2), 0.f);
  EXPECT_EQ(sea.maskAt(0, -2, 0), 0.f);
}

TEST(OceanFalloff, LeavesOutBorderVoxelsInsideTheLiquid) {
  for (float const liquid : {-1e-30f, 0.f}) {
    Sea const sea({{0, 0, 0}});
    sea.maskAt(0, 1, 0) = 1.f;
    sea.liquidAt(0, 1, 0) = liquid;
    widenOcean(sea.at(0.5f), 2.f);
    EXPECT_EQ(sea.maskAt(1, 1, 0), liquid < 0.f ? 0.f : 0.5f);
  }
}

TEST(OceanFalloff, OfAHeightThatIsNoNumberIsNowhere) {
  for (float const height : {std::nanf(""), HUGE_VALF, -HUGE_VALF, 1e30f, -1e30f}) {
    Sea const sea({{0, -5, 0}, {0, 0, 0}, {0, 5, 0}});
    sea.maskAt(0, 0, 0) = 1.f;
    widenOcean(sea.at(height), 2.f);
    auto const mask = valuesOf<float>(sea.mask);
    EXPECT_EQ(std::count(mask.begin(), mask.end(), 0.f), 3 * 125 - 1) << height;
  }
}

TEST(OceanFalloff, ReadsTheRowBeyondATileFromTheTileAbove) {
  // Height 2.5: the layer y = 3 is row 5 of [-2, 3) and row 0 of [3, 8).
  Sea const both({{0, 0, 0}, {0, 5, 0}}), upper({{0, 5, 0}});
  both.maskAt(0, 3, 0) = 1.f;
  upper.maskAt(0, 3, 0) = 1.f;
  widenOcean(both.at(2.5f), 3.f);
  widenOcean(upper.at(2.5f), 3.f);
  for (int y = 3; y < 8; ++y) {
    for (int x = -2; x < 3; ++x) EXPECT_EQ(both.maskAt(x, y, 1), upper.maskAt(x, y, 1));
  }
  EXPECT_EQ(both.maskAt(0, 2, 0), 1.f - std::sqrt(1.f * (1.f / 9.f)));
  // Without a tile above there is nothing open in that row.
  Sea const lower({{0, 0, 0}});
  widenOcean(lower.at(2.5f), 3.f);
  EXPECT_EQ(lower.marked(), 0);
}

TEST(OceanFalloff, HasTheBitsOfDirectLoopsForAnyRadius) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  int round = 0;
  for (float const radius : {0.4f, 1.f, 2.f, 3.3f, 7.7f, 11.f}) {
    for (float const height : {0.5f, 2.5f, -1.2f}) {
      std::vector<API::TileCoord> tiles;
      for (int x = -3; x <= 3; ++x)
        for (int y = -2; y <= 2; ++y)
          for (int z = -2; z <= 2; ++z)
            if (random() % 5 != 0) tiles.push_back({5 * x, 5 * y, 5 * z});
      float const vs = round % 2 == 0 ? 1.f : 0.1f;
      Sea const sea(tiles, 1.f, vs);
      auto const expected = addChannel<float>(sea.scene.server, sea.scene.volume, "expected", 0.f);
      forTiles(sea.scene.layout, 7, 7, [&](API::TreeIndex const& index) {
        auto const l = sea.liquid.tileData<float>(index), m = sea.mask.tileData<float>(index),
                   e = expected.tileData<float>(index);
        for (int i = 0; i < 125; ++i) {
          l.data[i] = random() % 10 == 0 ? -1.f : 1.f;
          m.data[i] = e.data[i] = random() % 12 == 0 ? 1.f : 0.f;
        }
      });
      LiteralOcean(sea.liquid, expected, height * vs).widen(radius * vs);
      Threads const limit(1 + ++round % 4);
      widenOcean(sea.at(height * vs), radius * vs);
      ASSERT_EQ(valuesOf<float>(sea.mask), valuesOf<float>(expected)) << radius << ", " << height;
    }
  }
}

TEST(OceanSeeding, MarksOpenColumnsUpToFiveAboveThePlaneAndNoFurtherThanLiquid) {
  std::vector<API::TileCoord> tiles;
  for (int y = -10; y <= 10; y += 5) tiles.push_back({0, y, 0});
  Sea const sea(tiles);
  for (int z = -2; z < 3; ++z) sea.liquidAt(1, -4, z) = -0.001f;
  for (int z = -2; z < 3; ++z) sea.liquidAt(2, -4, z) = 0.f;
  seedOcean(sea.at(0.7f));
  for (int y = -12; y < 13; ++y) {
    EXPECT_EQ(sea.maskAt(0, y, 0), y <= 5 ? 1.f : 0.f) << y;
    EXPECT_EQ(sea.maskAt(1, y, 0), y < -4 ? 1.f : 0.f) << y;
    EXPECT_EQ(sea.maskAt(2, y, 0), y <= 5 ? 1.f : 0.f) << y;
  }
}

TEST(OceanSeeding, HasTheBitsOfItsDefinitionOnRandomTiles) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::size_t marked = 0;
  for (int round = 0; round < 60; ++round) {
    std::vector<API::TileCoord> tiles;
    // Over several tiles of the two depths above the leaves, some of them empty.
    unsigned const thinning = 2 + static_cast<unsigned>(round) % 5;
    for (int x = -20; x <= 20; x += 5)
      for (int y = -90; y <= 40; y += 5)
        for (int z = -10; z <= 10; z += 5)
          if (random() % thinning == 0) tiles.push_back({x, y, z});
    float const vs = round % 2 == 0 ? 1.f : 0.1f;
    Sea const sea(tiles, 1.f, vs);
    auto const expected = addChannel<float>(sea.scene.server, sea.scene.volume, "expected", 0.f);
    forTiles(sea.scene.layout, 7, 7, [&](API::TreeIndex const& index) {
      auto const l = sea.liquid.tileData<float>(index);
      for (int i = 0; i < 125; ++i) {
        auto const kind = random() % 40;
        l.data[i] = kind == 0 ? -1e-30f : kind == 1 ? -0.f : kind == 2 ? 0.f : 1.f;
      }
    });
    float const height = (-80.f + 0.37f * static_cast<float>(random() % 300)) * vs;
    LiteralOcean(sea.liquid, expected, height).seed();
    Threads const limit(1 + round % 3);
    seedOcean(sea.at(height));
    ASSERT_EQ(allValues(sea.mask), allValues(expected)) << "round " << round;
    marked += static_cast<std::size_t>(sea.marked());
  }
  EXPECT_GT(marked, 10000u);
}

TEST(OceanSeeding, TakesTheVoxelBelowAPlaneAtANegativeHeight) {
  Sea const sea({{0, 0, 0}, {0, 5, 0}}, 1.f, 0.1f);
  seedOcean(sea.at(-0.03f));  // in voxel -1: up to y = 4
  EXPECT_EQ(sea.maskAt(0, 4, 0), 1.f);
  EXPECT_EQ(sea.maskAt(0, 5, 0), 0.f);
}

TEST(OceanSeeding, EndsAtAGapInAColumnOfLeaves) {
  Sea const sea({{0, -10, 0}, {0, 0, 0}});
  seedOcean(sea.at(5.f));
  EXPECT_EQ(sea.maskAt(0, -12, 0), 1.f);
  EXPECT_EQ(sea.maskAt(0, -8, 0), 1.f);
  EXPECT_EQ(sea.maskAt(0, 0, 0), 0.f);
  // Nor does the coarser tile that covers the gap take part.
  auto const mask = allValues(sea.mask);
  EXPECT_EQ(std::count(mask.begin(), mask.end(), 1.f), sea.marked());
}

TEST(OceanSeeding, WalksOnOnlyIntoATileOfTheSameDepth) {
  // The middle column of the depth-6 tile [-12, 13) holds no leaf, and nothing
  // of that depth follows above it: the column ends there.
  Sea const sea({{5, 0, 0}});
  seedOcean(sea.at(30.f));
  EXPECT_EQ(sea.marked(), 125);
}

TEST(OceanSeeding, EntersOnlyTheLowestChildOfAColumnOfCells) {
  // Two tiles of depth 6 above each other, [-12, 13) and [13, 38): the walk of
  // their parent's column ends with the first one.
  Sea const sea({{0, -10, 0}, {0, 20, 0}});
  seedOcean(sea.at(30.f));
  EXPECT_EQ(sea.maskAt(0, -10, 0), 1.f);
  EXPECT_EQ(sea.maskAt(0, 20, 0), 0.f);
}

TEST(OceanSeeding, OfAHighTileStartsNothing) {
  Sea const sea({{0, 10, 0}});
  seedOcean(sea.at(2.f));  // up to y = 7; the tile begins at 8
  EXPECT_EQ(sea.marked(), 0);
  seedOcean(sea.at(3.f));
  EXPECT_EQ(sea.marked(), 25);
}

}  // namespace
}  // namespace Velmor::Processing
