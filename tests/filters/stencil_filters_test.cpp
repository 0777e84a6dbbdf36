#include "processing/stencil_filters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <type_traits>
#include <vector>

#include "support/bits.h"
#include "support/scene.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using namespace Test;
using Block = API::VoxelTile<float, 1, 5>;

template <class F, class = void>
struct IsDefined : std::false_type {};
template <class F>
struct IsDefined<F, std::void_t<decltype(sizeof(F))>> : std::true_type {};

TEST(StencilTypes, ExistForFloatAloneAndAreValues) {
  static_assert(IsDefined<MeanFilter<float>>::value && !IsDefined<MeanFilter<int>>::value);
  static_assert(!IsDefined<MedianFilter<orlen::Math::vec<2, float>>>::value);
  static_assert(!IsDefined<LaplacianFilter<double>>::value &&
                !IsDefined<CurvatureFilter<int>>::value);
  static_assert(std::is_base_of_v<HaloFilter<float>, MeanFilter<float>> &&
                std::is_base_of_v<HaloFilter<float>, MedianFilter<float>> &&
                std::is_base_of_v<HaloFilter<float>, LaplacianFilter<float>> &&
                std::is_base_of_v<HaloFilter<float>, CurvatureFilter<float>>);
  static_assert(std::is_nothrow_move_constructible_v<MedianFilter<float>> &&
                std::is_copy_assignable_v<CurvatureFilter<float>>);
  LaplacianFilter<float> filter;
  EXPECT_EQ(filter.traversalMode(), API::TraversalMode::Tiles);
  EXPECT_EQ(filter.depths()[0], -1);
  filter.setDepths(3, 4);
  auto const copy = filter;
  EXPECT_EQ(copy.depths()[1], 4);
}

/// A block that is a function of the offset from the tile's middle voxel.
Block blockOf(std::function<float(int, int, int)> const& value) {
  Block block;
  for (int k = -1; k <= 5; ++k)
    for (int j = -1; j <= 5; ++j)
      for (int i = -1; i <= 5; ++i)
        block.values[Block::offset(i, j, k)] = value(i - 2, j - 2, k - 2);
  return block;
}

TEST(MeanFilter, SumsXOutermostAndMultipliesByTheReciprocal) {
  auto const block = blockOf([](int x, int y, int z) {
    if (x == -1 && y == -1 && z == -1) return 1e8f;
    if (x == -1 && y == -1 && z == 1) return -1e8f;
    return 1.f;
  });
  // x innermost would give 0.296296299.
  EXPECT_EQ(MeanFilter<float>().compute(block, 2, 2, 2), 0.888888896f);
}

TEST(MeanFilter, OfAConstantIsNotQuiteTheConstant) {
  auto const block = blockOf([](int, int, int) { return 0.1f; });
  EXPECT_EQ(MeanFilter<float>().compute(block, 0, 4, 2), 0.0999999866f);
}

TEST(LaplacianFilter, AddsNeighboursInTheirOrder) {
  auto const block = blockOf([](int x, int y, int z) {
    if (x == 0 && y == 0 && z == 0) return 0.f;
    if (x == -1) return 1e8f;
    if (y == -1) return -1e8f;
    return 1.f;
  });
  EXPECT_EQ(LaplacianFilter<float>().compute(block, 2, 2, 2), 0.5f);
}

TEST(LaplacianFilter, OfASquareIsAThirdAndOfARampNothing) {
  auto const square = blockOf([](int x, int, int) { return static_cast<float>(x * x); });
  auto const ramp =
      blockOf([](int x, int y, int z) { return static_cast<float>(x + 2 * y - 3 * z); });
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(LaplacianFilter<float>().compute(square, i, 1, 3), 0.333333343f);
    EXPECT_EQ(LaplacianFilter<float>().compute(ramp, 2, i, 4 - i), 0.f);
  }
}

TEST(LaplacianFilter, OfASpikeIsMinusOneAndASixthBesideIt) {
  auto const spike =
      blockOf([](int x, int y, int z) { return x == 0 && y == 0 && z == 0 ? 1.f : 0.f; });
  LaplacianFilter<float> const filter;
  EXPECT_EQ(filter.compute(spike, 2, 2, 2), -1.f);
  EXPECT_EQ(filter.compute(spike, 1, 2, 2), 0.166666672f);
  EXPECT_EQ(filter.compute(spike, 2, 2, 3), 0.166666672f);
  EXPECT_EQ(filter.compute(spike, 1, 1, 2), 0.f);
}

/// The signed distance to a sphere around (0, 0, 0), computed in float, in a
/// block whose middle voxel is at the given place.
Block sphereBlock(float radius, int cx, int cy, int cz, float scale = 1.f) {
  return blockOf([=](int x, int y, int z) {
    float const px = static_cast<float>(cx + x), py = static_cast<float>(cy + y),
                pz = static_cast<float>(cz + z);
    return (std::sqrt(px * px + py * py + pz * pz) - radius) * scale;
  });
}

TEST(CurvatureFilter, DividesByTwiceTheSquaredGradientAndByThree) {
  CurvatureFilter<float> const filter;
  EXPECT_EQ(filter.compute(sphereBlock(10.f, 10, 0, 0), 2, 2, 2), 0.0332501754f);
  EXPECT_EQ(filter.compute(sphereBlock(5.f, 3, 4, 0), 2, 2, 2), 0.0662405416f);
  // Twice the cube would leave 0.03325 here.
  EXPECT_EQ(filter.compute(sphereBlock(10.f, 10, 0, 0, 2.f), 2, 2, 2), 0.0665003508f);
}

TEST(CurvatureFilter, IsZeroWithoutGradientAndOnPlanes) {
  CurvatureFilter<float> const filter;
  auto const cross = blockOf([](int x, int y, int z) {
    return std::abs(x) + std::abs(y) + std::abs(z) == 1 ? 3.f : static_cast<float>(x * y + z);
  });
  EXPECT_EQ(filter.compute(cross, 2, 2, 2), 0.f);
  auto const flat = blockOf([](int x, int y, int z) {
    return std::abs(x) + std::abs(y) + std::abs(z) <= 1 ? 3.f : static_cast<float>(x * y * z);
  });
  EXPECT_EQ(filter.compute(flat, 2, 2, 2), 0.f);
  auto const plane = blockOf([](int x, int y, int z) { return static_cast<float>(x + 2 * y - z); });
  EXPECT_EQ(filter.compute(plane, 2, 2, 2), 0.f);
}

TEST(CurvatureFilter, OfANanGradientIsNan) {
  auto const block = blockOf([](int x, int, int) { return x == 1 ? std::nanf("") : 1.f; });
  EXPECT_TRUE(std::isnan(CurvatureFilter<float>().compute(block, 2, 2, 2)));
}

TEST(MedianFilter, IsTheFourteenthOfDistinctValues) {
  auto const block = blockOf(
      [](int x, int y, int z) { return static_cast<float>(((x + 1) * 3 + y + 1) * 3 + z + 1); });
  EXPECT_EQ(MedianFilter<float>().compute(block, 2, 2, 2), 13.f);
}

TEST(MedianFilter, ForgetsAnOutlier) {
  auto const block = blockOf([](int x, int y, int z) {
    return x == 0 && y == 0 && z == 0 ? 1e9f : 0.25f * static_cast<float>(x);
  });
  EXPECT_EQ(MedianFilter<float>().compute(block, 2, 2, 2), 0.f);
}

TEST(MedianFilter, PlacesNanLast) {
  auto const withNan = [](int count) {
    int left = count;
    return blockOf([left](int x, int y, int z) mutable {
      int const order = ((x + 1) * 3 + y + 1) * 3 + z + 1;
      return order < left ? std::nanf("") : static_cast<float>(order);
    });
  };
  EXPECT_EQ(MedianFilter<float>().compute(withNan(3), 2, 2, 2), 16.f);
  EXPECT_EQ(MedianFilter<float>().compute(withNan(13), 2, 2, 2), 26.f);
  EXPECT_TRUE(std::isnan(MedianFilter<float>().compute(withNan(14), 2, 2, 2)));
}

/// Ten random tiles around the origin, some side by side, some alone, on
/// negative coordinates too.
Scene patchyScene(unsigned seed) {
  auto const scene = emptyScene(1.f, 0.25f);
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> tile(-3, 2);
  std::vector<API::TileCoord> voxels;
  for (int t = 0; t < 40; ++t)
    voxels.push_back({tile(random) * 5, tile(random) * 5, tile(random) * 5});
  Host::addLeafTiles(scene.layout, voxels);
  std::uniform_real_distribution<float> unit(-1.f, 1.f);
  fillCells<float>(scene.distance, [&](double, double, double) { return unit(random); });
  return scene;
}

/// Bit for bit, but that one NaN is as good as another; and, if `anyZero`, one zero.
bool sameBits(float a, float b, bool anyZero) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) ||
         (std::isnan(a) && std::isnan(b)) || (anyZero && a == 0.f && b == 0.f);
}

template <class F>
std::unique_ptr<HaloFilter<float>> make() {
  return std::make_unique<F>();
}
using MakeFilter = std::unique_ptr<HaloFilter<float>> (*)();
class Stencils : public testing::TestWithParam<MakeFilter> {};

TEST_P(Stencils, AgreeWithADenseEvaluationAcrossTilesThatAreThereOrNot) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  auto const scene = patchyScene(seed);
  auto const filter = GetParam()();
  bool const isMedian = dynamic_cast<MedianFilter<float> const*>(filter.get()) != nullptr;
  BruteForce<float> const dense(scene.distance);
  auto const accessor = scene.layout.tileAccessor();
  for (int const threads : {1, 8}) {
    Threads const limit(threads);
    auto const out = addChannel<float>(scene.server, scene.volume, "out", 9.f);
    filter->filter(scene.distance, out);
    forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
      auto const tile = accessor.tile(index);
      int const edge = tile.info().extent / 5;
      Block block;
      for (int k = -1; k <= 5; ++k)
        for (int j = -1; j <= 5; ++j)
          for (int i = -1; i <= 5; ++i)
            block.values[Block::offset(i, j, k)] =
                dense.at(tile.coord().i + i * edge, tile.coord().j + j * edge,
                         tile.coord().k + k * edge, index.depth);
      auto const data = out.tileData<float>(index);
      for (int e = 0; e < 125; ++e) {
        ASSERT_TRUE(
            sameBits(data.data[e], filter->compute(block, e % 5, e / 5 % 5, e / 25), isMedian))
            << "depth " << index.depth << " element " << e;
      }
    });
  }
}

TEST_P(Stencils, GiveTheSameBitsForAnyNumberOfThreads) {
  auto const scene = sphereScene(25.f, {3.3f, -1.2f, 0.4f});
  auto const bits = [&](int threads) {
    Threads const limit(threads);
    auto const out = addChannel<float>(scene.server, scene.volume, "out", 0.f);
    GetParam()()->filter(scene.distance, out);
    return valuesOf<float>(out);
  };
  auto const one = bits(1);
  for (int const threads : {2, 3, 8, 64}) {
    SCOPED_TRACE(threads);
    expectSameBits(bits(threads), one);
  }
}

TEST_P(Stencils, WriteOnlyTheDepthsTheyAreRestrictedTo) {
  auto const scene = patchyScene(1);
  auto const out = addChannel<float>(scene.server, scene.volume, "out", 9.f);
  auto const filter = GetParam()();
  filter->setDepths(2, 2);
  filter->filter(scene.distance, out);
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const data = out.tileData<float>(index);
    bool const untouched =
        std::all_of(data.data, data.data + 125, [](float v) { return v == 9.f; });
    EXPECT_EQ(untouched, index.depth != 2) << index.depth;
  });
}

TEST_P(Stencils, SurviveChannelsOfOtherTypesAndEmptyHandles) {
  auto const scene = patchyScene(2);
  auto const ints = addChannel<int>(scene.server, scene.volume, "ints", 3);
  auto const filter = GetParam()();
  filter->filter(scene.distance, ints);
  filter->filter(API::Channel(), scene.distance);
  filter->filter(scene.distance, API::Channel());
  for (int const v : valuesOf<int>(ints)) ASSERT_EQ(v, 3);
}

INSTANTIATE_TEST_SUITE_P(All, Stencils,
                         testing::Values(&make<MeanFilter<float>>, &make<MedianFilter<float>>,
                                         &make<LaplacianFilter<float>>,
                                         &make<CurvatureFilter<float>>));

TEST(CurvatureOfSpheres, IsAThirdOfTheInverseRadiusWithinTwoPercent) {
  for (float const radius : {8.f, 20.f, 60.f, 200.f}) {
    // The whole sphere where it is small, else a patch off the axes.
    auto const scene = emptyScene();
    std::vector<API::TileCoord> voxels;
    for (auto const& at : sphereTiles(radius, Vec3(0.f), 3.f)) {
      if (radius < 30.f || (std::abs(at.i * 2 - at.k) < 12 && at.j > 0)) voxels.push_back(at);
    }
    Host::addLeafTiles(scene.layout, voxels);
    fillCells<float>(scene.distance, [&](double x, double y, double z) {
      auto const px = static_cast<float>(x), py = static_cast<float>(y), pz = static_cast<float>(z);
      return std::sqrt(px * px + py * py + pz * pz) - radius;
    });
    auto const out = addChannel<float>(scene.server, scene.volume, "out", 0.f);
    CurvatureFilter<float>().filter(scene.distance, out);
    auto const accessor = scene.layout.tileAccessor();
    std::size_t checked = 0;
    double worst = 0;
    forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
      auto const at = accessor.tile(index).coord();
      auto const data = out.tileData<float>(index);
      for (int e = 0; e < 125; ++e) {
        int const i = e % 5, j = e / 5 % 5, k = e / 25;
        // Inside a tile no coarse value is in the stencil.
        if (i == 0 || j == 0 || k == 0 || i == 4 || j == 4 || k == 4) continue;
        double const r = std::hypot(at.i + i + 0.5, at.j + j + 0.5, at.k + k + 0.5);
        if (std::abs(r - radius) > 3.) continue;
        worst = std::max(worst, std::abs(data.data[e] * 3. * r - 1.));
        ++checked;
      }
    });
    EXPECT_GT(checked, 100u) << radius;
    EXPECT_LT(worst, 0.02) << radius;
  }
}

}  // namespace
}  // namespace Velmor::Processing
