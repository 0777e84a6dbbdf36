#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "host/levelset/particle_scene.h"
#include "support/mesh_checks.h"

namespace Velmor::Test {
namespace {

// Particles so far from each other that each is alone, anywhere in its voxel.
std::vector<Float3> scattered(int perEdge, float spacing, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> place(0.f, 1.f);
  std::vector<Float3> positions;
  for (int n = 0; n < perEdge * perEdge * perEdge; ++n) {
    auto const at = [&](int a) { return spacing * static_cast<float>(a) + place(random); };
    float const x = at(n % perEdge), y = at(n / perEdge % perEdge), z = at(n / perEdge / perEdge);
    positions.push_back({x, y, z});
  }
  return positions;
}

class SmallThings : public testing::TestWithParam<float> {};

TEST_P(SmallThings, AreClosedWhereverTheyLie) {
  SCOPED_TRACE("seed 11");
  ParticleScene scene(scattered(5, 9.f, 11));
  scene.options.surfaceRadius = GetParam();
  ASSERT_TRUE(scene.build().succeeded());
  auto const mesh = meshOf(scene.distance());
  EXPECT_GT(mesh.triangles.count(), 500u);
  EXPECT_EQ(unbalancedEdges(mesh), 0u);
}

TEST_P(SmallThings, AreRoundWithinATwentiethOfTheirRadius) {
  SCOPED_TRACE("seed 12");
  auto const centres = scattered(3, 16.f, 12);
  ParticleScene scene(centres);
  float const radius = scene.options.surfaceRadius = GetParam();
  ASSERT_TRUE(scene.build().succeeded());
  scene.forVoxels([&](Float3 const& c, float d) {
    float way = 1e9f;
    for (auto const& centre : centres) way = std::min(way, lengthOf(c - centre));
    if (way - radius > 4.8f) return;
    // The voxel in the middle is the one that may be brought nearer to the surface.
    float const tolerance = way < 0.5f ? 0.12f : 0.05f * radius;
    EXPECT_NEAR(d, way - radius, tolerance) << c.x << ' ' << c.y << ' ' << c.z;
  });
}

INSTANTIATE_TEST_SUITE_P(Radii, SmallThings, testing::Values(1.15f, 1.2f, 1.25f, 1.3f, 1.4f, 1.5f));

TEST(CrossedCells, AreKeptInTwoDropletsThatTouch) {
  SCOPED_TRACE("seeds 13 and 14");
  auto positions = scattered(6, 12.f, 13);
  auto const partners = scattered(6, 12.f, 14);
  for (std::size_t p = 0; p < partners.size(); ++p) {
    positions.push_back(positions[p] + (partners[p] - positions[p]) * 3.f);
  }
  for (float const radius : {0.8f, 1.f, 1.2f, 1.4f}) {
    ParticleScene scene(positions);
    scene.options.surfaceRadius = radius;
    ASSERT_TRUE(scene.build().succeeded());
    EXPECT_EQ(unbalancedEdges(meshOf(scene.distance())), 0u) << radius;
  }
}

}  // namespace
}  // namespace Velmor::Test
