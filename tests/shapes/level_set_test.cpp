#include <set>

#include "processing/surface.h"
#include "shapes/shape_case.h"

namespace Velmor::Processing {
namespace {

using Test::errorOf;
using Test::Float3;
using Test::ObjectBuilder;
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
