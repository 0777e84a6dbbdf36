#include "render/spheres.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "support/object_builder.h"
#include "support/seed.h"

namespace Velmor::Render {
namespace {

using Test::Float3;
constexpr double voxel = double{0.1f};  // as a layout holds it

struct Cloud {
  explicit Cloud(std::vector<Float3> const& positions) : points(builder.points(positions)) {}
  Test::ObjectBuilder builder{"cloud"};
  API::PointComponent points;
};

std::vector<Float3> randomPlaces(std::size_t count, std::mt19937& random) {
  std::uniform_real_distribution<float> at(-20.f, 20.f);
  std::vector<Float3> places;
  for (std::size_t n = 0; n < count; ++n) places.emplace_back(at(random), at(random), at(random));
  return places;
}

// The first root of |o + t d - c| = r over all spheres; below 0 without one.
double firstRoot(std::vector<Float3> const& places, double radius, Vec3d const& o, Vec3d const& d) {
  double first = -1.;
  for (auto const& place : places) {
    Vec3d const c = toDouble(place) * voxel;
    double const b = dot(o - c, d), inside = b * b - dot(o - c, o - c) + radius * radius;
    if (inside < 0.) continue;
    double const root = std::sqrt(inside);
    double const t = -b - root > 0. ? -b - root : -b + root;
    if (t > 0. && (first < 0. || t < first)) first = t;
  }
  return first;
}

TEST(SphereTracer, FindsTheFirstOfAllSpheres) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  auto const places = randomPlaces(400, random);
  Cloud const cloud(places);
  double const radius = 1.5;
  SphereTracer const tracer(cloud.points, radius);
  std::normal_distribution<double> normal;
  int hits = 0;
  for (int n = 0; n < 2000; ++n) {
    Vec3d const origin(normal(random), normal(random), normal(random));  // among the spheres
    auto const direction = normalized({normal(random), normal(random), normal(random)});
    auto const expected = firstRoot(places, radius * voxel, origin, direction);
    auto const hit = tracer.trace(origin, direction);
    ASSERT_EQ(hit.found, expected > 0.);
    if (!hit.found) continue;
    ++hits;
    ASSERT_NEAR(hit.t, expected, 1e-6);
    ASSERT_NEAR(length(toDouble(hit.normal)), 1., 1e-5);
  }
  EXPECT_GT(hits, 100);
}

TEST(SphereTracer, NormalsPointOutwards) {
  Cloud const cloud({{5.f, 0.f, 0.f}});
  SphereTracer const tracer(cloud.points, 2.);
  auto const outside = tracer.trace({0.5, 0., 3.}, {0., 0., -1.});
  EXPECT_NEAR(outside.t, 2.8, 1e-6);
  EXPECT_NEAR(outside.normal.z, 1.f, 1e-6f);
  auto const inside = tracer.trace({0.5, 0., 0.}, {0., 0., -1.});
  EXPECT_NEAR(inside.t, 0.2, 1e-6);
  EXPECT_NEAR(inside.normal.z, -1.f, 1e-6f);
}

TEST(SphereTracer, HitsNothingBehindOrBesideOrWithoutAPlace) {
  Cloud const cloud({{0.f, 0.f, 0.f}});
  SphereTracer const tracer(cloud.points, 1.);
  EXPECT_FALSE(tracer.trace({0., 0., 1.}, {0., 0., 1.}).found);
  EXPECT_FALSE(tracer.trace({0., 0.11, 1.}, {0., 0., -1.}).found);
  double const nan = std::nan("");
  EXPECT_FALSE(tracer.trace({nan, 0., 1.}, {0., 0., -1.}).found);
  EXPECT_FALSE(tracer.trace({0., 0., 1.}, {0., nan, -1.}).found);
  EXPECT_FALSE(SphereTracer(Cloud({}).points, 1.).trace({0., 0., 1.}, {0., 0., -1.}).found);
}

// Such a ray lies in the planes of faces of the boxes around the sphere.
TEST(SphereTracer, RaysThatTouchAlongAnAxisHitOnEitherSide) {
  Cloud const cloud({{0.f, 0.f, 0.f}});
  SphereTracer const tracer(cloud.points, 1.);
  double const r = API::Layout(cloud.points.layout()).voxelScale();
  for (int along = 0; along < 3; ++along) {
    for (int aside = 0; aside < 3; ++aside) {
      if (aside == along) continue;
      for (double const side : {-1., 1.}) {
        for (double const zero : {0., -0.}) {
          for (double const way : {-1., 1.}) {
            Vec3d origin(0., 0., 0.), direction(zero, zero, zero);
            origin[aside] = side * r;
            origin[along] = -3. * way;
            direction[along] = way;
            auto const hit = tracer.trace(origin, direction);
            ASSERT_TRUE(hit.found) << along << aside << side << zero << way;
            EXPECT_NEAR(hit.t, 3., 1e-12);
            origin[aside] *= 1.001;
            EXPECT_FALSE(tracer.trace(origin, direction).found);
          }
        }
      }
    }
  }
}

TEST(SphereCount, IsThatOfThePointsWithAPlace) {
  float const nan = std::nanf("");
  EXPECT_EQ(sphereCount(Cloud({{0.f, 0.f, 0.f}, {0.f, nan, 0.f}, {1.f, 2.f, 3.f}}).points), 2u);
  EXPECT_EQ(sphereCount(Cloud({}).points), 0u);
}

TEST(SphereTracer, ManyPointsMayShareAPlace) {
  Cloud const cloud(std::vector<Float3>(5000, Float3(1.f, 2.f, 3.f)));
  auto const hit = SphereTracer(cloud.points, 1.).trace({0.1, 0.2, 2.}, {0., 0., -1.});
  ASSERT_TRUE(hit.found);
  EXPECT_NEAR(hit.t, 1.6, 1e-6);
}

TEST(ReachOfPoints, IsTheirBoxWithTheRadius) {
  Cloud const cloud({{0.f, 1.f, -2.f}, {4.f, -1.f, 0.f}});
  auto const box = reachOf(cloud.points, 1.5);
  EXPECT_NEAR(length(box.min - Vec3d(-0.15, -0.25, -0.35)), 0., 1e-6);
  EXPECT_NEAR(length(box.max - Vec3d(0.55, 0.25, 0.15)), 0., 1e-6);
  auto const none = reachOf(Cloud({}).points, 1.5);
  EXPECT_GT(none.min.x, none.max.x);
}

TEST(RenderSpheres, ReportsProgressRowByRow) {
  Cloud const cloud({{0.f, 0.f, 0.f}, {3.f, 0.f, 0.f}});
  Settings settings;
  settings.width = 8;
  settings.height = 64;
  std::vector<double> shares;
  renderSpheres(cloud.points, 50., Camera({0., 0., 20.}, {0., 0., 0.}, 40.), settings,
                [&shares](double done) { shares.push_back(done); });
  ASSERT_EQ(shares.size(), 64u);
  std::sort(shares.begin(), shares.end());
  for (std::size_t row = 0; row < 64; ++row) {
    EXPECT_EQ(shares[row], static_cast<double>(row + 1) / 64.);
  }
}

TEST(RenderSpheres, CoversWhatOneSphereCovers) {
  Cloud const cloud({{0.f, 0.f, 0.f}});
  Settings settings;
  settings.width = settings.height = 101;
  // Two units away, seen under 60 degrees: the sphere's outline has tan(asin(1 / 4)) of
  // the half height tan(30 degrees).
  auto const image =
      renderSpheres(cloud.points, 5., Camera({0., 0., 2.}, {0., 0., 0.}, 60.), settings, {});
  double covered = 0.;
  for (std::size_t n = 3; n < image.rgba.size(); n += 4) covered += double{image.rgba[n]};
  double const radius = 50.5 * std::tan(std::asin(0.25)) / std::tan(std::acos(-1.) / 6.);
  EXPECT_NEAR(covered, std::acos(-1.) * radius * radius, 25.);
}

}  // namespace
}  // namespace Velmor::Render
