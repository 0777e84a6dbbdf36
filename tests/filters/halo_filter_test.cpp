#include <gtest/gtest.h>

#include <atomic>
#include <iostream>
#include <random>
#include <type_traits>
#include <vector>

#include "processing/stencil_filters.h"
#include "support/bits.h"
#include "support/scene.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using Test::addChannel;
using Test::emptyScene;
using Test::expectSameBits;
using Test::fillCells;
using Test::forTiles;
using Test::LayoutShape;
using Test::Scene;
using Test::sphereScene;
using Test::Threads;
using Test::valuesOf;

template <class T>
class Centre final : public HaloFilter<T> {
 public:
  T compute(API::VoxelTile<T, 1, 5> const& tile, int i, int j, int k) const override {
    return tile[(k * 7 + j) * 7 + i + 57];
  }
};

/// The 3 x 3 x 3 leaf tiles around voxel 0: voxels -7 to 7.
Scene cubeScene() {
  auto scene = emptyScene();
  std::vector<API::TileCoord> voxels;
  for (int k = -5; k <= 5; k += 5)
    for (int j = -5; j <= 5; j += 5)
      for (int i = -5; i <= 5; i += 5) voxels.push_back({i, j, k});
  Host::addLeafTiles(scene.layout, voxels);
  return scene;
}

TEST(HaloFilter, OfTheCentreCopiesTheChannel) {
  auto const scene = cubeScene();
  auto const dst = addChannel<float>(scene.server, scene.volume, "dst", 99.f);
  fillCells<float>(scene.distance,
                   [](double x, double y, double z) { return x + 100 * y + 10000 * z; });
  Centre<float>().filter(scene.distance, dst);
  EXPECT_EQ(valuesOf<float>(dst), valuesOf<float>(scene.distance));
}

TEST(HaloFilter, SeesTheSameAcrossTileBordersAsInTheMiddle) {
  auto const scene = cubeScene();
  auto const dst = addChannel<float>(scene.server, scene.volume, "dst", 99.f);
  fillCells<float>(scene.distance,
                   [](double x, double y, double z) { return x * x + 3 * y + z * x; });
  LaplacianFilter<float>().filter(scene.distance, dst);
  auto const accessor = scene.layout.tileAccessor();
  int compared = 0;
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    auto const coord = accessor.tile(index).coord();
    auto const tile = dst.tileData<float>(index);
    for (int c = 0; c < 125; ++c) {
      int const i = c % 5, j = c / 5 % 5, k = c / 25;
      auto const outermost = [](int v) { return v == -7 || v == 7; };
      if (outermost(coord.i + i) || outermost(coord.j + j) || outermost(coord.k + k)) continue;
      // The second derivative, 2, over 6.
      EXPECT_EQ(tile.data[tile.offset(i, j, k)], 2.f * 0.16666667f);
      ++compared;
    }
  });
  EXPECT_EQ(compared, 13 * 13 * 13);
}

TEST(HaloFilter, WritesNothingWhereTheLayoutReportsNoWidth) {
  LayoutShape const shape({.depth = 7, .reportedWidth = 0, .centred = true});
  auto const scene = cubeScene();
  auto const dst = addChannel<float>(scene.server, scene.volume, "dst", 99.f);
  Centre<float>().filter(scene.distance, dst);
  MeanFilter<float>().filter(scene.distance, dst);
  for (auto const value : valuesOf<float>(dst)) ASSERT_EQ(value, 99.f);
}

TEST(HaloFilter, WritesOnlyTheDepthsItIsToldTo) {
  auto const scene = cubeScene();
  auto const dst = addChannel<float>(scene.server, scene.volume, "dst", 99.f);
  MeanFilter<float> filter;
  filter.setDepths(2, 2);
  filter.filter(scene.distance, dst);
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    EXPECT_EQ(dst.tileData<float>(index).data[62], index.depth == 2 ? 0.f : 99.f);
  });
}

template <class T>
class HaloFilters : public testing::Test {};
using ValueTypes = testing::Types<int, float, orlen::Math::vec<2, int>, orlen::Math::vec<2, float>,
                                  orlen::Math::vec<3, int>, orlen::Math::vec<3, float>>;
TYPED_TEST_SUITE(HaloFilters, ValueTypes);

/// The voxel before in x, across the tile border too.
template <class T>
class BeforeInX final : public HaloFilter<T> {
 public:
  T compute(API::VoxelTile<T, 1, 5> const& tile, int i, int j, int k) const override {
    return tile.at(i - 1, j, k);
  }
};

TYPED_TEST(HaloFilters, SeeWholeValuesOfNeighboursInOtherTiles) {
  using T = TypeParam;
  auto const scene = cubeScene();
  auto const src = addChannel<T>(scene.server, scene.volume, "src");
  auto const dst = addChannel<T>(scene.server, scene.volume, "dst");
  auto const at = [&](API::Channel const& channel, int x, int y, int z) -> T& {
    auto const tile = scene.layout.tileAccessor().tile(x, y, z, 7);
    auto const data = channel.template tileData<T>(tile.index());
    auto const& o = tile.coord();
    return data.data[data.offset(x - o.i, y - o.j, z - o.k)];
  };
  T value(7);
  if constexpr (!std::is_arithmetic_v<T>) value.y = -3;
  // On the two sides of a tile border.
  at(src, 2, 1, -1) = value;
  BeforeInX<T>().filter(src, dst);
  EXPECT_EQ(at(dst, 3, 1, -1), value);
  EXPECT_EQ(at(dst, 2, 1, -1), T(0));
}

/// A client's filter that asks one of the library voxel by voxel.
template <class F>
class ByVoxel final : public HaloFilter<float> {
 public:
  float compute(API::VoxelTile<float, 1, 5> const& tile, int i, int j, int k) const override {
    ++calls;
    return filter_.compute(tile, i, j, k);
  }
  mutable std::atomic<int> calls{0};

 private:
  F filter_;
};

template <class F>
class Kernels : public testing::Test {};
using Stencils = testing::Types<MeanFilter<float>, MedianFilter<float>, LaplacianFilter<float>,
                                CurvatureFilter<float>>;
TYPED_TEST_SUITE(Kernels, Stencils);

TYPED_TEST(Kernels, GiveTheValuesOfComputeVoxelByVoxel) {
  auto const seed = Velmor::Test::newSeed();
  std::cout << "seed " << seed << '\n';
  std::mt19937 random(seed);
  auto const scene = cubeScene();
  fillCells<float>(scene.distance, [&](double, double, double) {
    return std::uniform_real_distribution<double>(-1, 1)(random);
  });
  auto const dst = addChannel<float>(scene.server, scene.volume, "dst");
  auto const reference = addChannel<float>(scene.server, scene.volume, "reference");
  TypeParam().filter(scene.distance, dst);
  ByVoxel<TypeParam> const client;
  client.filter(scene.distance, reference);
  EXPECT_EQ(valuesOf<float>(dst), valuesOf<float>(reference));
  std::size_t tiles = 0;
  for (int d = 0; d <= 7; ++d) tiles += Host::tileCount(scene.layout, d);
  EXPECT_EQ(static_cast<std::size_t>(client.calls), tiles * 125);
}

TYPED_TEST(Kernels, GiveTheSameBitsOnAnyNumberOfThreads) {
  auto const scene = sphereScene(12.f);
  auto const serial = addChannel<float>(scene.server, scene.volume, "serial");
  TypeParam filter;
  filter.setTraversalMode(API::TraversalMode::Serial);
  filter.filter(scene.distance, serial);
  for (int const count : {1, 2, 8}) {
    Threads const threads(count);
    auto const parallel = addChannel<float>(scene.server, scene.volume, "parallel");
    TypeParam().filter(scene.distance, parallel);
    SCOPED_TRACE(count);
    expectSameBits(valuesOf<float>(parallel), valuesOf<float>(serial));
  }
}

}  // namespace
}  // namespace Velmor::Processing
