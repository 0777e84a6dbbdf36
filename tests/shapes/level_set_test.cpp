#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "processing/intersector.h"
#include "processing/sampler.h"
#include "processing/surface.h"
#include "shapes/shape_case.h"
#include "support/mesh_checks.h"

namespace Velmor::Processing {
namespace {

using Test::errorOf;
using Test::Float2;
using Test::Float3;
using Test::meshOf;
using Test::ObjectBuilder;
using Test::sameBytes;
using Test::unbalancedEdges;
using Test::voxelScaleOf;

class LevelSetOfParticles : public Test::ShapeCase {
 protected:
  /// Points with two channels to carry, and a voxel component to be replaced.
  SurfaceParameters parametersOfSpray() const {
    ObjectBuilder const builder("spray");
    auto const points = builder.points({{0.5f, 0.5f, 0.5f}, {2.5f, 0.5f, 0.5f}}, "particle", 0.2f);
    builder.pointChannel<Float3>(points, "velocity", Float3(24.f));
    builder.sphere(builder.voxels(), 3.f, "old");
    folder.write(builder.object(), 1);
    auto parameters = parametersFor<SurfaceParameters>("name=spray, frame=1");
    parameters.render_component = SurfaceParameters::Particle;
    return parameters;
  }
};

/// A ball of one particle to the voxel and nothing else, in frame 1 of "ball".
class SurfaceOfABall : public Test::ShapeCase {
 protected:
  static constexpr float kRadius = 7.f;

  explicit SurfaceOfABall(float voxelScale = 0.5f) : builder("ball") {
    std::vector<Float3> places;
    for (int k = -7; k < 7; ++k)
      for (int j = -7; j < 7; ++j)
        for (int i = -7; i < 7; ++i) {
          Float3 const p(static_cast<float>(i) + 0.5f, static_cast<float>(j) + 0.5f,
                         static_cast<float>(k) + 0.5f);
          if (std::hypot(p.x, p.y, p.z) < kRadius) places.push_back(p);
        }
    points = builder.points(places, "particle", voxelScale);
  }

  SurfaceParameters write() const {
    folder.write(builder.object(), 1);
    auto parameters = parametersFor<SurfaceParameters>("name=ball, frame=1");
    parameters.voxel_component = "";
    parameters.render_component = SurfaceParameters::Particle;
    return parameters;
  }

  ObjectBuilder builder;
  API::PointComponent points;
};

TEST_F(SurfaceOfABall, IsClosedAndMeetsRays) {
  Surface const surface(write());
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_TRUE(surface.status().warnings().empty());
  auto const mesh = meshOf(surface.distance());
  EXPECT_FALSE(mesh.triangles.empty());
  EXPECT_EQ(unbalancedEdges(mesh), 0u);
  for (auto const& p : mesh.points) {
    // The surface radius is 1.4 voxels, of 0.5; the outermost particles lie within the ball.
    EXPECT_NEAR(std::hypot(p.x, p.y, p.z), (kRadius + 0.9f) * 0.5f, 0.5f);
  }
  Intersector tiles(surface.accel());
  tiles.init({-10.f, 0.1f, 0.1f}, {1.f, 0.f, 0.f}, 0.f, 100.f);
  auto const front = tiles.next();
  ASSERT_TRUE(front.valid());
  EXPECT_LT(front.t0, 10.f - 3.5f);
  EXPECT_GT(front.t1, 10.f - 4.5f);
  Sample out;
  Sampler(surface.distance()).sample({0.f, 0.f, 0.f}, out);
  EXPECT_LT(out.as<float>(), -2.f);
}

TEST_F(SurfaceOfABall, CarriesFloatChannelsOntoItsVoxels) {
  builder.pointChannel<Float3>(points, "velocity", Float3(24.f, 48.f, -24.f));
  builder.pointChannel<Float2>(points, "uv", Float2(0.25f, 0.5f));
  builder.pointChannel<float>(points, "heat", 300.f);
  builder.pointChannel<int>(points, "id", 7);
  Surface const surface(write());
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_FALSE(surface.voxels().findChannel("id").valid());
  auto const mesh = meshOf(surface.distance());
  Sampler const velocity(surface.voxels(), "velocity"), uv(surface.voxels(), "uv"),
      heat(surface.voxels(), "heat");
  ASSERT_TRUE(velocity.valid() && uv.valid() && heat.valid());
  for (auto const& p : mesh.points) {
    Sample out;
    velocity.sample(p, out);
    // World units per frame: the points' velocities were scaled before they were carried.
    EXPECT_NEAR(out.as<Float3>().x, 1.f, 1e-4f);
    EXPECT_NEAR(out.as<Float3>().y, 2.f, 1e-4f);
    EXPECT_NEAR(out.as<Float3>().z, -1.f, 1e-4f);
    uv.sample(p, out);
    EXPECT_NEAR(out.as<Float2>().y, 0.5f, 1e-4f);
    heat.sample(p, out);
    EXPECT_NEAR(out.as<float>(), 300.f, 0.05f);
  }
}

TEST_F(SurfaceOfABall, ReplacesAnOlderSurfaceOfItsName) {
  builder.sphere(builder.voxels("ball-volume", 0.5f), 3.f, "old");
  auto parameters = write();
  parameters.voxel_component = "volume";
  Surface const surface(parameters);
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_TRUE(surface.status().warnings().empty());
  EXPECT_EQ(surface.voxels().name(), "ball-volume");
  EXPECT_FALSE(surface.voxels().findChannel("old").valid());
  API::Object const object(surface.points().object());
  EXPECT_EQ(object.components().count(), 2u);
  EXPECT_EQ(object.findComponent("ball-volume"), surface.voxels());
  EXPECT_EQ(unbalancedEdges(meshOf(surface.distance())), 0u);
}

TEST_F(SurfaceOfABall, IsNotSpoiltByAPointChannelOfTheDistancesName) {
  auto const expected = meshOf(Surface(write()).distance());
  std::vector<std::string> reports;
  Host::setMessageHandler(
      [&](Host::Severity, std::string const& text) { reports.push_back(text); });
  builder.pointChannel<float>(points, "distance", 0.125f);
  Surface const surface(write());
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_TRUE(sameBytes(meshOf(surface.distance()), expected));
  EXPECT_EQ(reports,
            std::vector<std::string>{"point channel 'particle/distance' is not carried: it would "
                                     "replace 'ball-volume/distance'"});
  builder.pointChannel<Float3>(points, "distance", Float3(1.f));
  Surface const other(write());
  ASSERT_TRUE(other.status()) << errorOf(other);
  EXPECT_TRUE(sameBytes(meshOf(other.distance()), expected));
}

class SurfaceOfABallOfUnits : public SurfaceOfABall {
 protected:
  SurfaceOfABallOfUnits() : SurfaceOfABall(1.f) {}
};

TEST_F(SurfaceOfABallOfUnits, SpaceScaleEndsOnTheVoxelsAlone) {
  auto parameters = write();
  Surface const plain(parameters);
  parameters.space_scale = 2.f;
  Surface const surface(parameters);
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  // Loading scaled the points, as there were no voxels; the level set was made in cache units.
  EXPECT_EQ(voxelScaleOf(surface.points()), 1.f);
  EXPECT_EQ(voxelScaleOf(surface.voxels()), 2.f);
  EXPECT_EQ(surface.accel().voxelScale(), 0.4f);
  EXPECT_EQ(surface.distance().backgroundValue<float>(), plain.distance().backgroundValue<float>());
  auto const before = meshOf(plain.distance()), after = meshOf(surface.distance());
  ASSERT_EQ(before.points.count(), after.points.count());
  for (std::size_t v = 0; v < before.points.count(); ++v) {
    EXPECT_EQ(after.points[v], before.points[v] * 2.f);
  }
}

TEST_F(SurfaceOfABall, OfNoParticlesIsEmptyAndNoError) {
  ObjectBuilder const nothing("ball");
  nothing.points({}, "particle", 0.5f);
  Host::publish(nothing.object(), "scene", 1);
  auto parameters = parametersFor<SurfaceParameters>("name=ball, frame=1, graph=scene");
  parameters.voxel_component = "";
  parameters.render_component = SurfaceParameters::Particle;
  Surface const surface(parameters);
  API::ObjectModel::removeActiveGraph("scene");
  EXPECT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_TRUE(surface.accel().valid());
  EXPECT_EQ(Host::tileCount(surface.accel(), 7), 0u);
  EXPECT_TRUE(meshOf(surface.distance()).triangles.empty());
}

TEST_F(SurfaceOfABall, LeavesOutPositionsThatAreNoPlaces) {
  auto* const positions =
      Host::pointData<Float3>(API::PointChannel(points.findChannel("position")));
  Surface const whole(write());
  auto const expected = meshOf(whole.distance());
  // Deep inside, where nothing else changes.
  std::size_t middle = 0;
  while (std::hypot(positions[middle].x, positions[middle].y, positions[middle].z) > 1.f) ++middle;
  positions[middle].y = std::numeric_limits<float>::quiet_NaN();
  Host::publish(builder.object(), "scene", 2);
  auto parameters = parametersFor<SurfaceParameters>("name=ball, frame=2, graph=scene");
  parameters.voxel_component = "";
  parameters.render_component = SurfaceParameters::Particle;
  Surface const surface(parameters);
  API::ObjectModel::removeActiveGraph("scene");
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  auto const mesh = meshOf(surface.distance());
  EXPECT_EQ(mesh.triangles.count(), expected.triangles.count());
  for (auto const& p : mesh.points) EXPECT_TRUE(std::isfinite(p.x + p.y + p.z));
}

TEST_F(LevelSetOfParticles, ErrorsLeaveTheVoxelSizeOfTheCache) {
  auto parameters = parametersOfSpray();
  parameters.space_scale = 3.f;
  std::set<std::string> errors;
  for (int skip = 0; skip < 12; ++skip) {
    Host::clearFailures();
    Host::failCalls(Host::Call::CreateChannel, 1, skip);
    Surface const surface(parameters);
    auto const error = errorOf(surface);
    if (error.rfind("Failed to create voxel channel '", 0) != 0) continue;
    errors.insert(error);
    EXPECT_EQ(voxelScaleOf(surface.points()), 0.2f) << error;
    EXPECT_EQ(voxelScaleOf(surface.voxels()), 0.2f) << error;
  }
  EXPECT_EQ(errors.size(), 2u);
}

TEST_F(LevelSetOfParticles, HasNoSurfaceAtASpaceScaleOfZero) {
  auto parameters = parametersOfSpray();
  parameters.space_scale = 0.f;
  for (bool const withVoxels : {true, false}) {
    if (!withVoxels) parameters.voxel_component = "";
    Surface const surface(parameters);
    EXPECT_TRUE(surface.status()) << errorOf(surface);
    // Without voxels it is the points' size, which the new voxels take, that is divided by 0.
    auto const voxelScale = voxelScaleOf(surface.voxels());
    EXPECT_TRUE(withVoxels ? voxelScale == 0.f : std::isnan(voxelScale)) << voxelScale;
    EXPECT_EQ(Host::tileCount(surface.accel(), 7), 0u);
    EXPECT_TRUE(meshOf(surface.distance()).triangles.empty());
  }
}

TEST_F(LevelSetOfParticles, SaysThatTheHostFailed) {
  auto const parameters = parametersOfSpray();
  Host::failCalls(Host::Call::CreateLevelSet);
  Surface const surface(parameters);
  EXPECT_EQ(errorOf(surface), "Velmor::API::createLevelSet call failed...");
  EXPECT_FALSE(surface.distance().valid());
  EXPECT_FALSE(surface.accel().valid());
}

TEST_F(LevelSetOfParticles, ReplacesTheLoadedVoxels) {
  auto parameters = parametersOfSpray();
  parameters.space_scale = 3.f;
  Host::failCalls(Host::Call::CreateLevelSet);
  Surface const surface(parameters);
  EXPECT_EQ(surface.voxels().name(), "spray-volume");
  EXPECT_EQ(voxelScaleOf(surface.voxels()), 0.2f);
  EXPECT_TRUE(surface.voxels().findChannel("distance").valid());
  EXPECT_EQ(API::Channel(surface.voxels().findChannel("velocity")).dataType(),
            API::DataType::Float3);
  EXPECT_FALSE(surface.voxels().findChannel("position").valid());
  EXPECT_FALSE(surface.voxels().findChannel("old").valid());
  API::Object const object(surface.points().object());
  EXPECT_FALSE(object.findComponent("volume").valid());
  EXPECT_EQ(object.findComponent("spray-volume"), surface.voxels());
}

TEST_F(LevelSetOfParticles, SaysWhichChannelCannotBeMade) {
  auto const parameters = parametersOfSpray();
  // Reading a file makes channels too, how many is the host's affair.
  std::set<std::string> errors;
  for (int skip = 0; skip < 12; ++skip) {
    Host::clearFailures();
    Host::failCalls(Host::Call::CreateChannel, 1, skip);
    Surface const surface(parameters);
    errors.insert(errorOf(surface));
    EXPECT_EQ(surface.accel().valid(), bool(surface.status())) << skip;
  }
  EXPECT_EQ(errors.count("Failed to create voxel channel 'distance'."), 1u);
  EXPECT_EQ(errors.count("Failed to create voxel channel 'velocity'."), 1u);
}

TEST_F(LevelSetOfParticles, NeedsPoints) {
  auto parameters = parametersOfSpray();
  parameters.point_component = "";
  Surface const surface(parameters);
  EXPECT_EQ(errorOf(surface), "Failed to create voxel channel 'distance'.");
}

}  // namespace
}  // namespace Velmor::Processing
