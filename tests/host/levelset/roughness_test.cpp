#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "host/levelset/particle_scene.h"
#include "processing/smooth_filter.h"

namespace Velmor::Test {
namespace {

/// Heights of a surface that should be a plane, in voxels: how far they are from their mean.
struct Roughness {
  double rms = 0, worst = 0;
};

Roughness roughnessOf(ParticleScene const& scene) {
  std::vector<double> heights;
  scene.forCrossings([&](Float3 const& p) {
    // Away from the rim and the bottom.
    if (std::abs(p.x) < 12.f && std::abs(p.z) < 12.f && p.y > 0.f) heights.push_back(p.y);
  });
  double mean = 0;
  for (auto const h : heights) mean += h;
  mean /= static_cast<double>(heights.size());
  Roughness roughness;
  for (auto const h : heights) {
    roughness.rms += (h - mean) * (h - mean);
    roughness.worst = std::max(roughness.worst, std::abs(h - mean));
  }
  roughness.rms = std::sqrt(roughness.rms / static_cast<double>(heights.size()));
  return roughness;
}

/// Calm water, and the most that its surface may deviate from a plane.
struct Water {
  char const* name;
  int perEdge;   // particles to the voxel
  float jitter;  // of their spacing; 0: anywhere
  double rms, smoothed;
};

class CalmSurface : public testing::TestWithParam<Water> {};

TEST_P(CalmSurface, HasNoBumpsOfTheSizeOfParticles) {
  auto const& water = GetParam();
  auto positions = jittered(water.perEdge, water.jitter, 17,
                            [](Float3 const& p) { return p.y < 5.f && p.y > -6.f; });
  if (water.jitter == 0.f) {
    SCOPED_TRACE("seed 3");
    std::mt19937 random(3);
    std::uniform_real_distribution<float> across(-17.f, 17.f), up(-6.f, 5.f);
    for (auto& p : positions) {
      p.x = across(random);
      p.y = up(random);
      p.z = across(random);
    }
  }
  ParticleScene scene(positions);
  ASSERT_TRUE(scene.build().succeeded());
  auto const before = roughnessOf(scene);
  Processing::SmoothFilter<float>(Processing::SmoothFilter<float>::Laplacian, 2, 0.5f)
      .filter(scene.distance(), scene.distance());
  auto const after = roughnessOf(scene);
  std::printf("%s: rms %.3f, worst %.3f voxels; smoothed: rms %.3f, worst %.3f\n", water.name,
              before.rms, before.worst, after.rms, after.worst);
  EXPECT_LT(before.rms, water.rms);
  EXPECT_LT(after.rms, water.smoothed);
}

INSTANTIATE_TEST_SUITE_P(
    Fillings, CalmSurface,
    testing::Values(Water{"8 to the voxel, jittered by 0.3", 2, 0.3f, 0.03, 0.02},
                    Water{"8 to the voxel, jittered by 0.5", 2, 0.5f, 0.045, 0.035},
                    Water{"8 to the voxel, anywhere", 2, 0.f, 0.07, 0.05},
                    Water{"1 to the voxel, jittered by 0.25", 1, 0.25f, 0.1, 0.08},
                    Water{"1 to the voxel, jittered by 0.5", 1, 0.5f, 0.18, 0.15}));

}  // namespace
}  // namespace Velmor::Test
