#include "processing/smooth_filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

#include "processing/mixer.h"
#include "processing/stencil_filters.h"
#include "support/copies.h"
#include "support/scene.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using namespace Test;
using Smooth = SmoothFilter<float>;

std::vector<float> coarseValues(API::Channel const& channel) {
  auto all = allValues(channel);
  all.resize(all.size() - valuesOf<float>(channel).size());
  return all;
}

template <class F, class = void>
struct IsDefined : std::false_type {};
template <class F>
struct IsDefined<F, std::void_t<decltype(sizeof(F))>> : std::true_type {};

TEST(SmoothFilterTypes, ExistForFloatAloneAndAreValues) {
  static_assert(IsDefined<Smooth>::value && !IsDefined<SmoothFilter<int>>::value &&
                !IsDefined<SmoothFilter<orlen::Math::vec<3, float>>>::value);
  static_assert(std::is_base_of_v<Filter, Smooth> && !std::is_base_of_v<HaloFilter<float>, Smooth>);
  static_assert(Smooth::Laplacian == 0 && Smooth::Curvature == 1);
  static_assert(std::is_nothrow_move_constructible_v<Smooth> && std::is_copy_assignable_v<Smooth>);
}

TEST(SmoothFilter, WithoutIterationsCopiesEveryDepth) {
  auto const scene = sphereScene(8.f);
  auto const out = addChannel<float>(scene.server, scene.volume, "out", 77.f);
  Smooth(Smooth::Laplacian, 0, 0.1f).filter(scene.distance, out);
  EXPECT_EQ(allValues(out), allValues(scene.distance));
  EXPECT_FALSE(scene.volume.findChannel("tmp").valid());
}

TEST(SmoothFilter, RepeatsSpeedAndStepOnTheLeavesAlone) {
  for (auto const mode : {Smooth::Laplacian, Smooth::Curvature}) {
    auto const scene = sphereScene(8.f);
    auto const out = addChannel<float>(scene.server, scene.volume, "out", 77.f);
    auto const literal = addChannel<float>(scene.server, scene.volume, "literal", 77.f);
    Smooth filter(mode, 3, 0.4f);
    filter.setDepths(2, 2);  // means nothing here
    filter.setTraversalMode(API::TraversalMode::Serial);
    filter.filter(scene.distance, out);

    Smooth(mode, 0, 0.f).filter(scene.distance, literal);
    auto const speed = addChannel<float>(scene.server, scene.volume, "speed", 0.f);
    for (int i = 0; i < 3; ++i) {
      if (mode == Smooth::Laplacian) {
        LaplacianFilter<float>().filter(literal, speed);
      } else {
        CurvatureFilter<float>().filter(literal, speed);
      }
      forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
        auto const to = literal.tileData<float>(index), by = speed.tileData<float>(index);
        for (int e = 0; e < 125; ++e) {
          float volatile const step = 0.4f * by.data[e];
          to.data[e] = to.data[e] + step;
        }
      });
    }
    EXPECT_EQ(allValues(out), allValues(literal));
    EXPECT_EQ(coarseValues(out), coarseValues(scene.distance));
    EXPECT_FALSE(scene.volume.findChannel("tmp").valid());
  }
}

TEST(SmoothFilter, CopiesItsParameters) {
  auto const scene = sphereScene(6.f);
  auto const smoothed = [&](Smooth const& filter) {
    auto const out = addChannel<float>(scene.server, scene.volume, "out", 77.f);
    filter.filter(scene.distance, out);
    return allValues(out);
  };
  Smooth const original(Smooth::Curvature, 2, 0.3f);
  auto const expected = smoothed(original);
  for (auto const& filter : copiesOf(original, Smooth(Smooth::Laplacian, 0, 0.f))) {
    EXPECT_EQ(smoothed(filter), expected);
  }
}

TEST(SmoothFilter, InPlaceIsTheSameAsIntoAnotherChannelAndWhateverTheThreads) {
  auto const smoothed = [](int threads, bool inPlace) {
    Threads const limit(threads);
    auto const scene = sphereScene(12.f, {0.3f, 1.f, -2.f});
    auto const out =
        inPlace ? scene.distance : addChannel<float>(scene.server, scene.volume, "out", 77.f);
    // Another handle to the same channel is the same channel.
    API::Channel const source(scene.volume.findChannel("distance"));
    Smooth(Smooth::Curvature, 4, 0.5f).filter(source, out);
    return allValues(out);
  };
  auto const expected = smoothed(1, false);
  for (int const threads : {1, 2, 3, 8, 64}) EXPECT_EQ(smoothed(threads, true), expected);
}

TEST(SmoothFilter, DoesNotSmoothWhereItsSpeedChannelCannotBeMade) {
  auto const scene = sphereScene(8.f);
  auto const out = addChannel<float>(scene.server, scene.volume, "out", 77.f);
  Host::failCalls(Host::Call::CreateChannel);
  Smooth(Smooth::Laplacian, 2, 0.5f).filter(scene.distance, out);
  Host::clearFailures();
  EXPECT_EQ(allValues(out), allValues(scene.distance));
}

/// The distances above a plane with noisy heights, over 40 x 40 voxels.
Scene noisyPlane(float noise, unsigned seed) {
  auto scene = emptyScene(1.f, 5.f);
  std::vector<API::TileCoord> voxels;
  for (int x = -20; x < 20; x += 5)
    for (int y = -10; y <= 10; y += 5)
      for (int z = -20; z < 20; z += 5) voxels.push_back({x, y, z});
  Host::addLeafTiles(scene.layout, voxels);
  std::mt19937 random(seed);
  std::normal_distribution<float> normal(0.f, noise);
  std::vector<float> heights(64 * 64);
  for (float& h : heights) h = normal(random);
  fillCells<float>(scene.distance, [&](double x, double y, double z) {
    auto const column = [](double v) {
      return static_cast<std::size_t>(std::lround(v - 0.5) & 63);
    };
    return static_cast<float>(y) - heights[column(x) * 64 + column(z)];
  });
  return scene;
}

/// Heights of the zero crossings of the columns inside: their mean, and the
/// root mean square of what each is off its neighbours.
std::pair<double, double> heightAndRoughness(Scene const& scene) {
  BruteForce<float> const values(scene.distance);
  std::vector<double> heights;
  int const n = 26;
  for (int x = -n / 2; x < n / 2; ++x) {
    for (int z = -n / 2; z < n / 2; ++z) {
      for (int y = -8; y < 8; ++y) {
        double const low = values.at(x, y, z), high = values.at(x, y + 1, z);
        if (low < 0 && high >= 0) {
          heights.push_back(y + 0.5 + low / (low - high));
          break;
        }
      }
    }
  }
  EXPECT_EQ(heights.size(), static_cast<std::size_t>(n * n));
  double mean = 0, square = 0;
  for (double const h : heights) mean += h / static_cast<double>(heights.size());
  for (std::size_t i = 1; i < heights.size(); ++i) {
    square += (heights[i] - heights[i - 1]) * (heights[i] - heights[i - 1]);
  }
  return {mean, std::sqrt(square / static_cast<double>(heights.size()))};
}

TEST(SmoothFilter, TakesTheRoughnessOfAPlaneAwayAndLeavesItsHeight) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  for (float const step : {0.1f, 0.5f, 1.f}) {
    auto const scene = noisyPlane(0.3f, seed);
    auto [height, roughness] = heightAndRoughness(scene);
    for (int i = 0; i < 4; ++i) {
      Smooth(Smooth::Laplacian, 1, step).filter(scene.distance, scene.distance);
      auto const [newHeight, newRoughness] = heightAndRoughness(scene);
      EXPECT_LT(newRoughness, roughness) << "step " << step << " pass " << i;
      EXPECT_NEAR(newHeight, height, 0.03);
      roughness = newRoughness;
    }
  }
}

}  // namespace
}  // namespace Velmor::Processing
