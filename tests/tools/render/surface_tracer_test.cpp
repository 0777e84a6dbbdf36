#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <string>

#include "processing/bounds.h"
#include "render/render.h"
#include "support/sanitized.h"
#include "support/scene.h"
#include "support/seed.h"

namespace Velmor::Render {
namespace {

using Field = std::function<double(Vec3d const&)>;  // signed distance, all in voxels

struct Subject {
  Test::Scene scene;
  API::Layout accel;
};

// The level set of a field within `bound` voxels of `centre`, half width 5 voxels.
Subject subjectOf(Field const& field, Vec3d const& centre, double bound, float voxelScale) {
  float const band = 5.f * voxelScale;
  Subject subject{Test::emptyScene(voxelScale, band), {}};
  auto const& scene = subject.scene;
  std::vector<API::TileCoord> leaves;
  auto const first = [&](double c) {
    return static_cast<int>(std::floor((c - bound + 2.) / 5.)) * 5 - 2;
  };
  for (int z = first(centre.z); z < centre.z + bound; z += 5) {
    for (int y = first(centre.y); y < centre.y + bound; y += 5) {
      for (int x = first(centre.x); x < centre.x + bound; x += 5) {
        if (std::abs(field({x + 2.5, y + 2.5, z + 2.5})) < 3. + 4.4) leaves.push_back({x, y, z});
      }
    }
  }
  Host::addLeafTiles(scene.layout, leaves);
  auto const leaf = scene.layout.maxDepth();
  Test::fillCells<float>(scene.distance, [&](double x, double y, double z) {
    return std::clamp(field({x, y, z}), -5., 5.) * voxelScale;
  });
  Test::forTiles(scene.layout, 0, leaf - 1, [&](API::TreeIndex const& index) {
    auto const cells = scene.distance.tileData<float>(index);
    for (int c = 0; c < 125; ++c) cells.data[c] = cells.data[c] < 0.f ? -band : band;
  });
  subject.accel = Processing::createAccelLayout(scene.distance);
  return subject;
}

struct Shape {
  char const* name;
  Field field;
  double bound;
};

std::vector<Shape> shapesAround(Vec3d const& c) {
  Vec3d const n = normalized({0.3, 1., -0.2});
  return {
      {"sphere", [c](Vec3d const& p) { return length(p - c) - 20.; }, 28.},
      {"torus",
       [c](Vec3d const& p) {
         Vec3d const q = p - c;
         return std::hypot(std::hypot(q.x, q.z) - 45., q.y) - 20.;
       },
       73.},
      {"plane", [c, n](Vec3d const& p) { return dot(p - c, n); }, 60.},
  };
}

// How deep below the surface the ray goes, and where it is first a tenth of a voxel
// deep: a ray that touches the surface may run along it for a while, and which side
// it is on there is not for the sampled field to know. By sphere tracing in double
// precision. All in voxels.
struct Truth {
  double deepest = 1e9;
  double first = -1.;
};

Truth truthOf(Field const& field, Vec3d const& origin, Vec3d const& direction, double far) {
  Truth truth;
  for (double t = 0.; t < far && truth.deepest >= -1.;) {
    double const d = field(origin + direction * t);
    truth.deepest = std::min(truth.deepest, d);
    if (truth.first < 0. && d <= -0.1) truth.first = t;
    t += std::max(std::abs(d) * 0.9, 0.01);
  }
  return truth;
}

bool isWithin(Vec3d const& p, double bound) {
  return std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}) <= bound;
}

struct Tally {
  long rays = 0, hits = 0, mustHit = 0, missed = 0;
  double worst = 0.;  // distance of a hit from the surface, in voxels
};

Tally shoot(Shape const& shape, Vec3d const& centre, float voxelScale, int rays,
            std::mt19937& random) {
  auto const subject = subjectOf(shape.field, centre, shape.bound, voxelScale);
  SurfaceTracer tracer(subject.scene.distance, subject.accel);
  std::uniform_real_distribution<double> unit(-1., 1.);
  auto const anyDirection = [&] {
    for (;;) {
      Vec3d const v(unit(random), unit(random), unit(random));
      if (double const l = length(v); l > 0.1 && l <= 1.) return v * (1. / l);
    }
  };
  bool const endless = std::string(shape.name) == "plane";
  Tally tally;
  for (int r = 0; r < rays; ++r) {
    Vec3d eye = centre + anyDirection() * (100. + 60. * (unit(random) + 1.));
    // A plane ends at the border of its tiles: only its middle counts.
    Vec3d const target = centre + Vec3d(unit(random), unit(random), unit(random)) *
                                      (endless ? 20. : 0.8 * shape.bound);
    if (endless && shape.field(eye) < 5.) eye = centre + (centre - eye);
    Vec3d const direction = normalized(target - eye);
    if (endless && std::abs(dot(direction, normalized({0.3, 1., -0.2}))) < 0.5) continue;
    auto const truth = truthOf(shape.field, eye, direction, 400.);
    if (endless && truth.first >= 0. &&
        !isWithin(eye + direction * truth.first - centre, shape.bound - 4.)) {
      continue;  // near the border the sampler mixes in what is behind it
    }
    Hit const hit = tracer.trace(eye * double{voxelScale}, direction);
    ++tally.rays;
    if (truth.deepest < -1.) ++tally.mustHit;
    if (!hit.found) {
      if (truth.deepest < -1.) ++tally.missed;
      continue;
    }
    ++tally.hits;
    double const t = hit.t / double{voxelScale};
    double const off = std::abs(shape.field(eye + direction * t));
    tally.worst = std::max(tally.worst, off);
    if (truth.deepest < -1. && t > truth.first + 0.5) ++tally.missed;  // the first hit was passed
  }
  return tally;
}

constexpr int kRays = Velmor::Test::sanitized ? 1000 : 90000;

TEST(SurfaceTracer, FindsTheFirstHitWithinATenthOfAVoxel) {
  unsigned const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Vec3d const centre(0.37, -0.21, 0.13);
  for (auto const& shape : shapesAround(centre)) {
    for (float const voxelScale : {0.001f, 0.1f, 1.f, 1000.f}) {
      auto const tally = shoot(shape, centre, voxelScale, kRays, random);
      EXPECT_GT(tally.mustHit, tally.rays / 4) << shape.name;
      EXPECT_EQ(tally.missed, 0) << shape.name << " at " << voxelScale;
      EXPECT_LT(tally.worst, 0.1) << shape.name << " at " << voxelScale;
    }
  }
}

// Found among millions: the walk of the first passes over the cells before 98
// voxels, that of the second over everything.
TEST(SurfaceTracer, FindsASurfaceThatTheWalkPassesOver) {
  Vec3d const centre(0.37, -0.21, 0.13);
  struct Ray {
    char const* shape;
    float voxelScale;
    Vec3d eye, direction;
    double first;
  };
  Ray const rays[] = {{"torus",
                       0.1f,
                       {-49.972068407316272, 39.136376336291363, 111.07638855694459},
                       {0.36132682370101515, -0.33302914586226445, -0.87093886954274002},
                       69.2502},
                      {"plane",
                       1000.f,
                       {49.176748271786288, 138.23527916778986, -27.218394720009339},
                       {-0.27849369669985991, -0.95658127503972845, 0.085985610085722308},
                       149.96}};
  for (auto const& ray : rays) {
    for (auto const& shape : shapesAround(centre)) {
      if (std::string(shape.name) != ray.shape) continue;
      auto const subject = subjectOf(shape.field, centre, shape.bound, ray.voxelScale);
      SurfaceTracer tracer(subject.scene.distance, subject.accel);
      Hit const hit = tracer.trace(ray.eye * double{ray.voxelScale}, ray.direction);
      ASSERT_TRUE(hit.found) << shape.name;
      EXPECT_NEAR(hit.t / double{ray.voxelScale}, ray.first, 0.1) << shape.name;
    }
  }
}

// Where a level set ends, the inside meets the outside of coarse cells: a step of
// several voxels. These rays come in there, the walk passes over the step, and
// they meet the surface later.
TEST(SurfaceTracer, TakesNoStepAtTheEndOfTheDataForASurface) {
  auto const shape = shapesAround({0.37, -0.21, 0.13}).back();
  ASSERT_STREQ(shape.name, "plane");
  auto const subject = subjectOf(shape.field, {0.37, -0.21, 0.13}, shape.bound, 1.f);
  SurfaceTracer tracer(subject.scene.distance, subject.accel);
  struct Ray {
    Vec3d eye, direction;
    double first;
  };
  Ray const rays[] = {// The sign changes within half a voxel, ...
                      {{-39.303820906518048, -73.266325928174282, -121.86552593020441},
                       {0.36680677293174063, 0.65103869811538262, 0.66453096608632933},
                       96.4053},
                      // ... but the step can be wider than that, ...
                      {{41.417889008013219, -159.66156973501054, -123.6790810664142},
                       {-0.37947277963791937, 0.84207673280170059, 0.38328473174375771},
                       187.814},
                      // ... begin in front of the data, so that only its end is seen, ...
                      {{7.957300530794214, 56.726601909758784, 111.13225720918317},
                       {-0.22394458896987887, -0.62132784327100421, -0.75086652092586637},
                       68.753},
                      // ... or rise gently along a ray that runs beside it.
                      {{-85.91411290329367, 90.57825691268124, -130.34684336502141},
                       {0.18590421417560968, -0.46502356734352535, 0.8655591862875992},
                       156.257}};
  for (auto const& ray : rays) {
    Hit const hit = tracer.trace(ray.eye, ray.direction);
    ASSERT_TRUE(hit.found);
    EXPECT_NEAR(hit.t, ray.first, 0.1);
  }
}

TEST(SurfaceTracer, MissesHardlyAnyFarFromTheOrigin) {
  unsigned const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (double const far : {1000., 20000.}) {
    Vec3d const centre(far, 0.7 * far, -0.4 * far);
    auto const tally = shoot(shapesAround(centre).front(), centre, 0.1f, kRays, random);
    EXPECT_LT(static_cast<double>(tally.missed), 5e-4 * static_cast<double>(tally.mustHit) + 1.)
        << far;
    EXPECT_LT(tally.worst, 0.1) << far;
  }
}

TEST(SurfaceTracer, NormalsPointAlongTheRadius) {
  Vec3d const centre(0.37, -0.21, 0.13);
  auto const shape = shapesAround(centre).front();
  auto const subject = subjectOf(shape.field, centre, shape.bound, 0.1f);
  SurfaceTracer tracer(subject.scene.distance, subject.accel);
  std::mt19937 random(7);
  std::uniform_real_distribution<double> unit(-1., 1.);
  for (int r = 0; r < 2000; ++r) {
    Vec3d const eye = normalized({unit(random), unit(random), unit(random)}) * 100. + centre;
    Vec3d const target = centre + Vec3d(unit(random), unit(random), unit(random)) * 10.;
    Hit const hit = tracer.trace(eye * 0.1, normalized(target - eye));
    ASSERT_TRUE(hit.found);
    Vec3d const radius = normalized(eye * 0.1 + normalized(target - eye) * hit.t - centre * 0.1);
    EXPECT_GT(dot(radius, toDouble(hit.normal)), std::cos(std::numbers::pi / 180.));
  }
}

TEST(SurfaceTracer, SeesTheSurfaceFromInside) {
  Vec3d const centre(0., 0., 0.);
  auto const shape = shapesAround(centre).front();
  auto const subject = subjectOf(shape.field, centre, shape.bound, 1.f);
  SurfaceTracer tracer(subject.scene.distance, subject.accel);
  Hit const hit = tracer.trace(centre, {1., 0., 0.});
  ASSERT_TRUE(hit.found);
  EXPECT_NEAR(hit.t, 20., 0.1);
}

TEST(SurfaceTracer, BoundsItsWorkOnImpossibleRays) {
  auto const shape = shapesAround({0., 0., 0.}).front();
  auto const subject = subjectOf(shape.field, {0., 0., 0.}, shape.bound, 1.f);
  SurfaceTracer tracer(subject.scene.distance, subject.accel);
  double const nan = std::nan(""), inf = HUGE_VAL;
  for (double bad : {nan, inf, -inf, 1e300, -1e300}) {
    EXPECT_FALSE(tracer.trace({bad, 0., 0.}, {0., 1., 0.}).found) << bad;
    tracer.trace({-50., 0., 0.}, {1., bad, 0.});
  }
  EXPECT_FALSE(tracer.trace({0., 0., 0.}, {0., 0., 0.}).found);
  EXPECT_FALSE(tracer.trace({21., 0., 0.}, {nan, nan, nan}).found);
}

TEST(SurfaceTracer, CopiesAreIndependent) {
  auto const shape = shapesAround({0., 0., 0.}).front();
  auto const subject = subjectOf(shape.field, {0., 0., 0.}, shape.bound, 1.f);
  SurfaceTracer one(subject.scene.distance, subject.accel);
  SurfaceTracer two(one);
  EXPECT_EQ(one.trace({-50., 0., 0.}, {1., 0., 0.}).t, two.trace({-50., 0., 0.}, {1., 0., 0.}).t);
}

}  // namespace
}  // namespace Velmor::Render
