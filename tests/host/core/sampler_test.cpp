#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "random_tree.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

API::VoxelSampler samplerOf(API::VoxelChannel const& channel,
                            API::SamplerSpace space = API::SamplerSpace::Index) {
  return API::VoxelSampler(channel.createSampler(API::VoxelSamplerQBSplineType, space));
}

struct Expected {
  double value = 0;
  double gradient[3] = {0, 0, 0};
};

// The definition, tap by tap, in double.
Expected bspline(BruteForce<float> const& values, Vec3 const& position) {
  double w[3][3], s[3][3];
  int b[3];
  for (int a = 0; a < 3; ++a) {
    b[a] = static_cast<int>(std::floor(position[a]));
    double const r = static_cast<double>(position[a]) - (b[a] + 0.5);
    w[a][0] = 0.5 * (0.5 - r) * (0.5 - r);
    w[a][1] = 0.75 - r * r;
    w[a][2] = 0.5 * (0.5 + r) * (0.5 + r);
    s[a][0] = r - 0.5;
    s[a][1] = -2 * r;
    s[a][2] = r + 0.5;
  }
  Expected sum;
  for (int c = 0; c < 27; ++c) {
    int const x = c % 3, y = c / 3 % 3, z = c / 9;
    double const v = static_cast<double>(values.at(b[0] + x - 1, b[1] + y - 1, b[2] + z - 1));
    sum.value += w[0][x] * w[1][y] * w[2][z] * v;
    sum.gradient[0] += s[0][x] * w[1][y] * w[2][z] * v;
    sum.gradient[1] += w[0][x] * s[1][y] * w[2][z] * v;
    sum.gradient[2] += w[0][x] * w[1][y] * s[2][z] * v;
  }
  return sum;
}

void expectAsDefined(API::VoxelSampler const& sampler, BruteForce<float> const& values,
                     Vec3 const& position) {
  auto const expected = bspline(values, position);
  Vec3 gradient;
  float const value = sampler.sampleGradient<float>(position, gradient);
  EXPECT_EQ(value, sampler.sample<float>(position));
  EXPECT_NEAR(value, expected.value, 1e-4);
  for (int a = 0; a < 3; ++a) EXPECT_NEAR(gradient[a], expected.gradient[a], 1e-4);
}

TEST(Sampler, IsTheDefinitionInEveryShapeOfTree) {
  auto const seed = newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  for (auto const& shape : treeShapes()) {
    LayoutShape const settings(shape);
    auto const scene = randomScene(seed + static_cast<unsigned>(shape.depth));
    BruteForce<float> const values(scene.distance);
    auto const sampler = samplerOf(scene.distance);
    auto const accessor = scene.layout.tileAccessor();
    forTiles(scene.layout, 0, scene.layout.maxDepth(), [&](API::TreeIndex const& index) {
      auto const low = accessor.tile(index).coord();
      for (int n = 0; n < 20; ++n) {
        // Multiples of an eighth are exact that far out; many are whole numbers.
        auto const axis = [&](int first) {
          auto const eighths = random() % 3 == 0 ? random() % 8 * 8 : random() % 56;
          return static_cast<float>(first - 1) + 0.125f * static_cast<float>(eighths);
        };
        expectAsDefined(sampler, values, {axis(low.i), axis(low.j), axis(low.k)});
      }
    });
  }
}

TEST(Sampler, FollowsALinearFieldThroughVoxelCentres) {
  auto const scene = sphereScene(10.f);
  fillCells<float>(scene.distance, [](double x, double, double) { return 2 * x; });
  auto const sampler = samplerOf(scene.distance);
  for (float x = 8.f; x <= 11.f; x += 0.25f) {
    Vec3 gradient;
    EXPECT_FLOAT_EQ(sampler.sampleGradient<float>({x, 0.3f, -0.2f}, gradient), 2.f * x);
    EXPECT_NEAR(gradient.x, 2.f, 1e-5f);
  }
}

TEST(Sampler, TakesWorldPositionsDividedByTheVoxelScale) {
  auto const scene = sphereScene(10.f, Vec3(0.f), 0.25f);
  auto const index = samplerOf(scene.distance);
  auto const world = samplerOf(scene.distance, API::SamplerSpace::World);
  Vec3 const position(6.5f, 7.25f, -2.125f);
  Vec3 gradient, worldGradient;
  float const value = index.sampleGradient<float>(position, gradient);
  EXPECT_EQ(world.sampleGradient<float>(position * 0.25f, worldGradient), value);
  EXPECT_EQ(worldGradient, gradient * 4.f);
  scene.layout.setVoxelScale(0.5f);
  EXPECT_EQ(world.sample<float>(position * 0.5f), value);
}

TEST(Sampler, HasTwoTapsAtWholeNumbersSoThatInfinityBehindDoesNotMatter) {
  auto const scene = emptyScene(1.f, 1.f);
  auto const accessor = scene.layout.tileAccessor();
  auto const tile = scene.distance.tileData<float>(accessor.addTile(0, 0, 0, 7));
  constexpr float infinity = std::numeric_limits<float>::infinity();
  // Voxel (1, 0, 0) is one above a sample at x = 1 and belongs to one at x = 1.25.
  tile.data[tile.offset(1 + 2, 2, 2)] = infinity;
  auto const sampler = samplerOf(scene.distance);
  Vec3 gradient;
  EXPECT_EQ(sampler.sample<float>({1.f, 1.f, 1.f}), infinity);
  EXPECT_EQ(sampler.sampleGradient<float>({0.f, 0.f, 0.f}, gradient), 1.f);
  EXPECT_EQ(gradient, Vec3(0.f));
  EXPECT_EQ(sampler.sample<float>({0.f, 0.25f, 0.25f}), 1.f);
  EXPECT_EQ(sampler.sample<float>({0.f, 0.25f, 0.f}), 1.f);
  EXPECT_EQ(sampler.sample<float>({0.25f, 0.25f, 0.25f}), infinity);
}

TEST(Sampler, GivesNoNumberWhereThePositionIsNone) {
  auto const scene = sphereScene(4.f);
  auto const sampler = samplerOf(scene.distance);
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  constexpr float infinity = std::numeric_limits<float>::infinity();
  Vec3 gradient;
  EXPECT_TRUE(std::isnan(sampler.sample<float>({nan, 0.f, 0.f})));
  EXPECT_TRUE(std::isnan(sampler.sampleGradient<float>({0.f, -infinity, 0.f}, gradient)));
  EXPECT_TRUE(std::isnan(gradient.x) && std::isnan(gradient.y) && std::isnan(gradient.z));
}

TEST(Sampler, ReadsTheBackgroundOutsideTheRootHoweverFar) {
  auto const scene = sphereScene(4.f);
  auto const sampler = samplerOf(scene.distance);
  for (float const x : {3e5f, 4.2e6f, 1e9f, 3e38f}) {
    for (float const sign : {1.f, -1.f}) {
      Vec3 gradient(1.f);
      EXPECT_EQ(sampler.sampleGradient<float>({sign * x, 0.f, 0.f}, gradient), 5.f);
      EXPECT_EQ(gradient, Vec3(0.f));
    }
  }
  scene.distance.setBackgroundValue(6.f);
  EXPECT_EQ(sampler.sample<float>({3e5f, 0.f, 0.f}), 6.f);
}

TEST(Sampler, SeesNewTilesAndNewValues) {
  auto const scene = emptyScene(1.f, 2.f);
  auto const sampler = samplerOf(scene.distance);
  EXPECT_EQ(sampler.sample<float>({0.5f, 0.5f, 0.5f}), 2.f);
  auto const accessor = scene.layout.tileAccessor();
  auto const tile = scene.distance.tileData<float>(accessor.addTile(0, 0, 0, 7));
  std::fill_n(tile.data, tile.count, 8.f);
  EXPECT_EQ(sampler.sample<float>({0.5f, 0.5f, 0.5f}), 8.f);
  std::fill_n(tile.data, tile.count, 16.f);
  EXPECT_EQ(sampler.sample<float>({0.5f, 0.5f, 0.5f}), 16.f);
}

TEST(Sampler, GivesVectorsTheirComponentsValues) {
  auto const scene = randomScene(5);
  auto const vectors = addChannel<Vec3>(scene.server, scene.volume, "v");
  auto const pairs = addChannel<orlen::Math::vec<2, float>>(scene.server, scene.volume, "uv");
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const scalar = scene.distance.tileData<float>(index);
    auto const vector = vectors.tileData<Vec3>(index);
    auto const pair = pairs.tileData<orlen::Math::vec<2, float>>(index);
    for (std::size_t c = 0; c < 125; ++c) {
      vector.data[c] = Vec3(scalar.data[c], 2.f * scalar.data[c], 0.f);
      pair.data[c] = {scalar.data[c], -scalar.data[c]};
    }
  });
  auto const scalarSampler = samplerOf(scene.distance);
  auto const vectorSampler = samplerOf(vectors), pairSampler = samplerOf(pairs);
  for (float x = -7.f; x < 7.f; x += 0.25f) {
    Vec3 const position(x, x, 0.5f * x);
    float const value = scalarSampler.sample<float>(position);
    EXPECT_EQ(vectorSampler.sample<Vec3>(position), Vec3(value, 2.f * value, 0.f));
    EXPECT_EQ((pairSampler.sample<orlen::Math::vec<2, float>>(position)),
              (orlen::Math::vec<2, float>(value, -value)));
  }
}

TEST(Sampler, IsInvalidForUnknownTypesAndEmptyForOtherValueTypes) {
  auto const scene = sphereScene(4.f);
  EXPECT_FALSE(scene.distance.createSampler("Cubic", API::SamplerSpace::Index).valid());
  EXPECT_FALSE(
      scene.distance.createSampler(API::VoxelSamplerQBSplineType, static_cast<API::SamplerSpace>(7))
          .valid());
  EXPECT_EQ(samplerOf(scene.distance).sample<Vec3>({0.f, 0.f, 0.f}), Vec3(0.f));
  EXPECT_EQ(API::VoxelSampler().sample<float>({0.f, 0.f, 0.f}), 0.f);
}

}  // namespace
