#include "support/scene.h"

#include <gtest/gtest.h>

#include "velmorapi/halo.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

TEST(Scene, ChannelOfGivesBackItsValues) {
  EXPECT_EQ(valuesOf<float>(channelOf<float>({-1.f, 0.f, 2.5f})), (std::vector{-1.f, 0.f, 2.5f}));
  std::vector<int> many(700);
  for (std::size_t n = 0; n < many.size(); ++n) many[n] = static_cast<int>(n);
  EXPECT_EQ(valuesOf<int>(channelOf<int>(many)), many);
}

TEST(Scene, SphereHoldsDistancesAndStaysInsideAndOutside) {
  auto const scene = sphereScene(12.f, {0.5f, 1.f, -3.f}, 0.5f);
  BruteForce<float> const values(scene.distance);
  EXPECT_EQ(values.at(0, 0, -3), -2.5f);
  EXPECT_EQ(values.at(1000, 0, 0), 2.5f);
  EXPECT_NEAR(values.at(12, 1, -3), 0.5f * (std::hypot(12.f, 0.5f, 0.5f) - 12.f), 1e-5);
}

TEST(Sampler, AgreesWithTheDefinitionOnASphere) {
  auto const scene = sphereScene(12.f, {0.5f, 1.f, -3.f});
  BruteForce<float> const values(scene.distance);
  API::VoxelSampler const sampler(
      scene.distance.createSampler(API::VoxelSamplerQBSplineType, API::SamplerSpace::Index));
  for (float x = -16; x < 16; x += 1.37f) {
    for (float y = -16; y < 16; y += 2.5f) {
      float const z = 0.3f * x - 3.f;
      double expected = 0;
      float const p[3] = {x, y, z};
      double w[3][3];
      int b[3];
      for (int a = 0; a < 3; ++a) {
        b[a] = static_cast<int>(std::floor(p[a]));
        double const r = p[a] - (b[a] + 0.5);
        w[a][0] = 0.5 * (0.5 - r) * (0.5 - r);
        w[a][1] = 0.75 - r * r;
        w[a][2] = 0.5 * (0.5 + r) * (0.5 + r);
      }
      for (int c = 0; c < 27; ++c) {
        expected += w[0][c % 3] * w[1][c / 3 % 3] * w[2][c / 9] *
                    static_cast<double>(
                        values.at(b[0] + c % 3 - 1, b[1] + c / 3 % 3 - 1, b[2] + c / 9 - 1));
      }
      EXPECT_NEAR(sampler.sample<float>({x, y, z}), expected, 1e-5) << x << ' ' << y;
    }
  }
}

TEST(Halo, AgreesWithBruteForceOnASphere) {
  auto const scene = sphereScene(12.f, {0.5f, 1.f, -3.f});
  BruteForce<float> const values(scene.distance);
  API::HaloedCache<float> cache;
  ASSERT_TRUE(cache.init(scene.distance).succeeded());
  auto const accessor = scene.layout.tileAccessor();
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    ASSERT_TRUE(cache.update(index).succeeded());
    auto const o = accessor.tile(index).coord();
    for (int z = -1; z < 6; ++z)
      for (int y = -1; y < 6; ++y)
        for (int x = -1; x < 6; ++x)
          ASSERT_EQ(cache.tile(index).at(x, y, z), values.at(o.i + x, o.j + y, o.k + z));
  });
}

}  // namespace
