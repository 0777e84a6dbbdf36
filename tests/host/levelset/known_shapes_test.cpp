#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "host/levelset/particle_scene.h"
#include "support/mesh_checks.h"

namespace Velmor::Test {
namespace {

struct Filling {
  int perEdge;
  float jitter;
};

class KnownShape : public testing::TestWithParam<Filling> {
 protected:
  static constexpr float tolerance = 0.5f;  // voxels
  /// The error of the gradient's length that all voxels stay below but for a part of them,
  /// which lie in creases between bumps.
  static double slopeError(std::vector<double> const& slopes, std::size_t oneIn) {
    return slopes[slopes.size() - 1 - slopes.size() / oneIn];
  }
  /// From the shape that is filled to the particles that are outermost in it.
  float inset() const { return 0.5f / static_cast<float>(GetParam().perEdge); }
};

struct Errors {
  float surface = 0;           // of the places where the distance is 0
  float distance = 0;          // in the band, where the truth is smooth
  std::vector<double> slopes;  // of the gradient's length there, in order
};

/// Compares with a true distance in voxels. `isSmooth(centre)` says where the
/// truth has no edge within the band.
template <class Truth, class Smooth>
Errors errorsOf(ParticleScene const& scene, Truth const& truth, Smooth const& isSmooth) {
  Errors errors;
  scene.forCrossings(
      [&](Float3 const& p) { errors.surface = std::max(errors.surface, std::abs(truth(p))); });
  scene.forVoxels([&](Float3 const& c, float d) {
    if (std::abs(d) > 3.8f || !isSmooth(c)) return;
    double const gx = (scene.at(c.x + 1, c.y, c.z) - scene.at(c.x - 1, c.y, c.z)) / 2.0,
                 gy = (scene.at(c.x, c.y + 1, c.z) - scene.at(c.x, c.y - 1, c.z)) / 2.0,
                 gz = (scene.at(c.x, c.y, c.z + 1) - scene.at(c.x, c.y, c.z - 1)) / 2.0;
    errors.slopes.push_back(std::abs(std::hypot(gx, gy, gz) - 1));
    errors.distance = std::max(errors.distance, std::abs(d - truth(c)));
  });
  std::sort(errors.slopes.begin(), errors.slopes.end());
  return errors;
}

TEST_P(KnownShape, SphereKeepsItsSizeAndVolume) {
  float const radius = 21.3f;
  auto const& filling = GetParam();
  ParticleScene scene(jittered(filling.perEdge, filling.jitter, 23,
                               [&](Float3 const& p) { return lengthOf(p) <= radius; }));
  ASSERT_TRUE(scene.build().succeeded());
  // The outermost particles lie on steps, half a spacing in along the axes and farther
  // in across them.
  float const grown = radius + scene.options.surfaceRadius - 1.1f * inset();
  auto const errors = errorsOf(
      scene, [&](Float3 const& p) { return lengthOf(p) - grown; },
      [](Float3 const&) { return true; });
  EXPECT_LT(errors.surface, tolerance);
  EXPECT_LT(errors.distance, tolerance);
  EXPECT_LT(slopeError(errors.slopes, filling.perEdge > 1 ? 500 : 20), 0.05);
  auto const mesh = meshOf(scene.distance());
  double const volume = 4.0 / 3.0 * 3.14159265358979 * std::pow(double{grown}, 3);
  EXPECT_NEAR(volumeOf(mesh) / volume, 1.0, 0.03);
  EXPECT_EQ(unbalancedEdges(mesh), 0u);
}

TEST_P(KnownShape, BoxKeepsItsSizeAndVolume) {
  auto const& filling = GetParam();
  Float3 const filled(21.f, 20.f, 22.f);
  ParticleScene scene(jittered(filling.perEdge, filling.jitter, 23,
                               [&](Float3 const& p) { return boxDistance(p, filled) < 0.f; }));
  ASSERT_TRUE(scene.build().succeeded());
  Float3 const half = filled + Float3(-inset());
  float const r = scene.options.surfaceRadius;
  auto const truth = [&](Float3 const& p) { return boxDistance(p, half) - r; };
  // Away from edges the two largest of the coordinates' distances differ.
  auto const isSmooth = [&](Float3 const& p) {
    float q[3] = {std::abs(p.x) - half.x, std::abs(p.y) - half.y, std::abs(p.z) - half.z};
    std::sort(q, q + 3);
    return q[1] < -5.5f;
  };
  auto const errors = errorsOf(scene, truth, isSmooth);
  EXPECT_LT(errors.surface, tolerance);
  EXPECT_LT(slopeError(errors.slopes, 2000), 0.05);
  auto const mesh = meshOf(scene.distance());
  // A box with edges rounded by r.
  double const a = 2.0 * half.x, b = 2.0 * half.y, c = 2.0 * half.z, pi = 3.14159265358979;
  double const volume = a * b * c + 2 * r * (a * b + b * c + c * a) + pi * r * r * (a + b + c) +
                        4.0 / 3.0 * pi * r * r * r;
  EXPECT_NEAR(volumeOf(mesh) / volume, 1.0, 0.03);
  EXPECT_EQ(unbalancedEdges(mesh), 0u);
}

TEST_P(KnownShape, SheetOfOneLayerIsUnbroken) {
  auto const& filling = GetParam();
  float const half = inset();
  ParticleScene scene(jittered(filling.perEdge, filling.jitter, 20, [&](Float3 const& p) {
    return std::abs(p.y - half) < half && std::abs(p.x) < 18.f && std::abs(p.z) < 18.f;
  }));
  ASSERT_TRUE(scene.build().succeeded());
  for (float x = -17.5f; x < 18.f; x += 1.f) {
    for (float z = -17.5f; z < 18.f; z += 1.f) {
      EXPECT_LT(std::min(scene.at(x, 0.5f, z), scene.at(x, -0.5f, z)), 0.f) << x << ' ' << z;
    }
  }
  auto const mesh = meshOf(scene.distance());
  EXPECT_EQ(unbalancedEdges(mesh), 0u);
  float worst = 0;
  scene.forCrossings([&](Float3 const& p) {
    auto const grown = boxDistance(p - Float3(0.f, half, 0.f), {18.f - half, 0.f, 18.f - half});
    worst = std::max(worst, std::abs(grown - scene.options.surfaceRadius));
  });
  EXPECT_LT(worst, tolerance);
}

INSTANTIATE_TEST_SUITE_P(Fillings, KnownShape,
                         testing::Values(Filling{1, 0.f}, Filling{1, 0.25f}, Filling{2, 0.f},
                                         Filling{2, 0.3f}));

TEST(Droplet, IsRoundWhateverItsPlace) {
  for (Float3 const& centre :
       {Float3(0.5f, 0.5f, 0.5f), Float3(0.1f, -7.3f, 2.7f), Float3(3.f, 3.f, 3.f)}) {
    ParticleScene scene({centre});
    ASSERT_TRUE(scene.build().succeeded());
    int voxels = 0;
    scene.forVoxels([&](Float3 const& c, float d) {
      float const truth = lengthOf(c - centre) - scene.options.surfaceRadius;
      if (truth > 4.8f) return;
      ++voxels;
      EXPECT_NEAR(d, truth, 0.05f * (truth + scene.options.surfaceRadius) + 1e-5f)
          << c.x << ' ' << c.y << ' ' << c.z;
    });
    EXPECT_GT(voxels, 800);
  }
}

}  // namespace
}  // namespace Velmor::Test
