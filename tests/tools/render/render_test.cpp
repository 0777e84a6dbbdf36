#include "render/render.h"

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>

#include <cmath>
#include <limits>
#include <random>

#include "processing/bounds.h"
#include "render/fog_tracer.h"
#include "support/scene.h"

namespace Velmor::Render {
namespace {

Settings small(Shading shading) {
  Settings settings;
  settings.width = 64;
  settings.height = 48;
  settings.shading = shading;
  return settings;
}

float alphaAt(Image const& image, int x, int y) {
  return image.rgba[4 * static_cast<std::size_t>(y * image.width + x) + 3];
}

struct Sphere {
  Test::Scene scene = Test::sphereScene(20.f, Test::Vec3(0.f), 0.1f);
  API::Layout accel = Processing::createAccelLayout(scene.distance);
  Camera camera{{0., 0., 10.}, {0., 0., 0.}, 40.};
  Image picture(Settings const& settings) const {
    return renderSurface(scene.distance, accel, camera, settings, {});
  }
};

TEST(Camera, LooksThroughTheMiddleAtTheTarget) {
  Camera const camera({1., 2., 3.}, {4., -2., 3.}, 30.);
  Vec3d const d = camera.direction(0.5, 0.5, 1.5);
  Vec3d const expected = normalized({3., -4., 0.});
  EXPECT_NEAR(length(d - expected), 0., 1e-12);
}

TEST(Camera, FieldOfViewIsVertical) {
  Camera const camera({0., 0., 10.}, {0., 0., 0.}, 60.);
  Vec3d const top = camera.direction(0.5, 0., 2.);
  EXPECT_NEAR(std::atan2(top.y, -top.z) * 180. / std::acos(-1.), 30., 1e-9);
  Vec3d const right = camera.direction(1., 0.5, 2.);
  EXPECT_NEAR(right.x / -right.z, 2. * std::tan(std::acos(-1.) / 6.), 1e-9);
  EXPECT_GT(right.x, 0.);
}

TEST(Camera, FramingKeepsTheBoxInThePicture) {
  Box const box{{-3., 0., 5.}, {9., 1., 6.}};
  double const aspect = 16. / 9.;
  auto const camera = Camera::framing(box, 40., aspect);
  for (int corner = 0; corner < 8; ++corner) {
    Vec3d const p((corner & 1) != 0 ? box.max.x : box.min.x,
                  (corner & 2) != 0 ? box.max.y : box.min.y,
                  (corner & 4) != 0 ? box.max.z : box.min.z);
    Vec3d const q = p - camera.eye();
    double const depth = -dot(q, camera.backward());
    ASSERT_GT(depth, 0.);
    double const half = depth * std::tan(20. * std::acos(-1.) / 180.);
    EXPECT_LE(std::abs(dot(q, camera.up())), half);
    EXPECT_LE(std::abs(dot(q, camera.right())), half * aspect);
  }
}

TEST(Camera, MayLookStraightDown) {
  Camera const camera({0., 10., 0.}, {0., 0., 0.}, 40.);
  EXPECT_NEAR(length(camera.direction(0.5, 0.5, 1.) - Vec3d(0., -1., 0.)), 0., 1e-12);
  EXPECT_NEAR(length(camera.right()), 1., 1e-12);
}

TEST(RenderSurface, CoversTheSphereAndNothingElse) {
  Sphere const sphere;
  auto const image = sphere.picture(small(Shading::Matte));
  EXPECT_EQ(alphaAt(image, 32, 24), 1.f);
  EXPECT_EQ(alphaAt(image, 0, 0), 0.f);
  long covered = 0;
  for (int y = 0; y < 48; ++y) {
    for (int x = 0; x < 64; ++x) covered += alphaAt(image, x, y) > 0.f ? 1 : 0;
  }
  // The disc of a sphere of radius 2 at distance 10: tan of its half angle.
  double const radius = std::tan(std::asin(0.2)) / std::tan(20. * std::acos(-1.) / 180.) * 24.;
  EXPECT_NEAR(static_cast<double>(covered), std::acos(-1.) * radius * radius, 20.);
}

TEST(RenderSurface, NormalsOfTheMiddlePointAtTheCamera) {
  Sphere const sphere;
  auto const image = sphere.picture(small(Shading::Normal));
  std::size_t const middle = 4 * (24 * 64 + 32);
  EXPECT_NEAR(image.rgba[middle + 2], 1.f, 0.02f);
}

TEST(RenderSurface, DepthIsTheDistanceAlongTheRay) {
  Sphere const sphere;
  auto settings = small(Shading::Depth);
  settings.width = settings.height = 33;  // one ray runs through the very middle
  auto const image = sphere.picture(settings);
  EXPECT_TRUE(image.rgba.empty());
  EXPECT_NEAR(image.depth[16 * 33 + 16], 8.f, 0.01f);
  EXPECT_EQ(image.depth[0], 0.f);
}

TEST(RenderSurface, MoreSamplesSoftenTheEdge) {
  Sphere const sphere;
  auto settings = small(Shading::Matte);
  settings.samples = 16;
  auto const image = sphere.picture(settings);
  long partial = 0;
  for (int y = 0; y < 48; ++y) {
    for (int x = 0; x < 64; ++x) {
      float const a = alphaAt(image, x, y);
      partial += a > 0.f && a < 1.f ? 1 : 0;
    }
  }
  EXPECT_GT(partial, 20);
}

TEST(RenderSurface, PixelsDoNotDependOnTheNumberOfThreads) {
  Sphere const sphere;
  auto settings = small(Shading::Matte);
  settings.samples = 3;
  std::vector<std::vector<float>> pictures;
  for (std::size_t threads : {1u, 2u, 3u, 8u, 64u}) {
    tbb::global_control const limit(tbb::global_control::max_allowed_parallelism, threads);
    pictures.push_back(sphere.picture(settings).rgba);
  }
  for (auto const& picture : pictures) EXPECT_EQ(picture, pictures.front());
}

TEST(RenderSurface, ReportsProgressUpToTheEnd) {
  Sphere const sphere;
  double last = 0.;
  renderSurface(sphere.scene.distance, sphere.accel, sphere.camera, small(Shading::Matte),
                [&last](double done) { last = std::max(last, done); });
  EXPECT_EQ(last, 1.);
}

// A block of constant density, 10 voxels on an edge.
API::VoxelChannel block(Test::Scene& scene, float density) {
  scene = Test::emptyScene(0.1f);
  std::vector<API::TileCoord> leaves;
  for (int z = -7; z <= 3; z += 5) {
    for (int y = -7; y <= 3; y += 5) {
      for (int x = -7; x <= 3; x += 5) leaves.push_back({x, y, z});
    }
  }
  Host::addLeafTiles(scene.layout, leaves);
  Test::fillCells<float>(scene.distance, [density](double x, double y, double z) {
    return std::max({std::abs(x), std::abs(y), std::abs(z)}) < 5. ? density : 0.f;
  });
  return scene.distance;
}

TEST(FogTracer, AbsorbsAsTheLawSays) {
  Velmor::Test::Scene scene;
  FogTracer tracer(block(scene, 3.f), {0., 1., 0.});
  auto const fog = tracer.trace({0., 0., 10.}, {0., 0., -1.});
  // 10 voxels at 0.15 per voxel, whatever the density's size; the spline blurs the ends.
  EXPECT_NEAR(fog.alpha, 1. - std::exp(-1.5), 0.01);
  EXPECT_GT(fog.light, 0.);
  EXPECT_LE(fog.light, fog.alpha);
  EXPECT_NEAR(fog.where, 10., 0.5);
}

TEST(FogTracer, LosesNoTileWhateverTheDirection) {
  Velmor::Test::Scene scene;
  FogTracer tracer(block(scene, 1.f), {0., 1., 0.});
  std::mt19937 random(11);
  std::uniform_real_distribution<double> unit(-1., 1.);
  for (int r = 0; r < 3000; ++r) {
    Vec3d const d = normalized({unit(random), unit(random), unit(random)});
    auto const fog = tracer.trace(d * -20., d);
    double const span = 10. / std::max({std::abs(d.x), std::abs(d.y), std::abs(d.z)});
    EXPECT_NEAR(fog.alpha, 1. - std::exp(-0.15 * span), 0.03);
  }
}

TEST(FogTracer, MeetsNothingBesideTheFog) {
  Velmor::Test::Scene scene;
  FogTracer tracer(block(scene, 1.f), {0., 1., 0.});
  EXPECT_EQ(tracer.trace({0., 3., 10.}, {0., 0., -1.}).alpha, 0.);
  EXPECT_LT(tracer.trace({0., 3., 10.}, {0., 0., -1.}).where, 0.);
  EXPECT_EQ(tracer.trace({std::nan(""), 0., 0.}, {0., 0., -1.}).alpha, 0.);
}

TEST(ReachOfFog, IsThatOfTheValuesAboveZero) {
  Velmor::Test::Scene scene;
  auto const density = block(scene, 1.f);
  // A solver writes its whole domain, most of it empty.
  API::TileCoord const far{100, 100, 100};
  Host::addLeafTiles(scene.layout, {far});
  auto const tile = scene.layout.tileAccessor().index(far, 7);
  auto const data = density.tileData<float>(tile);
  data.data[0] = -1.f;
  data.data[1] = std::nanf("");
  data.data[2] = std::numeric_limits<float>::infinity();
  auto const box = reachOfFog(density);
  for (int a = 0; a < 3; ++a) {
    EXPECT_NEAR(box.min[a], -0.6, 1e-6);
    EXPECT_NEAR(box.max[a], 0.6, 1e-6);
  }
}

TEST(ReachOfFog, IsEmptyWithoutFog) {
  Velmor::Test::Scene scene;
  auto const box = reachOfFog(block(scene, 0.f));
  EXPECT_GT(box.min.x, box.max.x);
}

TEST(RenderFog, FillsThePictureWhereTheFogIs) {
  Velmor::Test::Scene scene;
  auto const density = block(scene, 1.f);
  Camera const camera({0., 0., 3.}, {0., 0., 0.}, 40.);
  auto const image = renderFog(density, camera, small(Shading::Density), {});
  EXPECT_GT(alphaAt(image, 32, 24), 0.7f);
  EXPECT_EQ(alphaAt(image, 0, 0), 0.f);
}

}  // namespace
}  // namespace Velmor::Render
