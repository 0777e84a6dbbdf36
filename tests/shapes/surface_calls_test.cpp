#include "processing/surface.h"
#include "shapes/recorded_scene.h"

namespace Velmor::Processing {
namespace {

using Test::Calls;

class SurfaceCalls : public Test::RecordedScene {
 protected:
  void addDistance() {
    distance_ = server.createChannel(voxels, API::DataType::Float, "distance");
    FakeHost::addTile(API::Layout(voxels.layout()), 7, {0, 0, 0});
    FakeHost::clearCalls();
  }
  /// The calls that change a layout's scale, walk tiles or make items.
  static Calls work() {
    Calls found;
    for (auto const& call : FakeHost::calls()) {
      for (char const* prefix : {"Layout::", "StateServer::create", "StateServer::remove",
                                 "Channel::", "Object::", "createLevelSet"}) {
        if (call.rfind(prefix, 0) == 0) found.push_back(call);
      }
    }
    return found;
  }

  API::VoxelChannel distance_;
};

TEST_F(SurfaceCalls, OnTheDefaultRoad) {
  addDistance();
  Surface const surface(parametersFor<SurfaceParameters>());
  EXPECT_EQ(surface.status().error(), "");
  EXPECT_EQ(work(), (Calls{"Layout::setVoxelScale 0.1", "Layout::setVoxelScale 0.1",
                           "StateServer::createLayout 'accel'", "Layout::setVoxelScale 0.02",
                           "Layout::traverse 0 7 7"}));
}

TEST_F(SurfaceCalls, UndoTheSpaceScaleForTheFilters) {
  addDistance();
  auto parameters = parametersFor<SurfaceParameters>();
  parameters.space_scale = 2.f;
  parameters.velocity_scale = 12.f;
  parameters.dilate = 0.5f;
  parameters.erode = 0.25f;
  Surface const surface(parameters);
  EXPECT_EQ(work(), (Calls{"Layout::setVoxelScale 0.2", "Layout::setVoxelScale 0.1",
                           "Layout::traverse 3", "Layout::traverse 3", "Layout::setVoxelScale 0.2",
                           "Layout::traverse 3", "StateServer::createLayout 'accel'",
                           "Layout::setVoxelScale 0.04", "Layout::traverse 0 7 7"}));
}

TEST_F(SurfaceCalls, LeaveTheScaleAloneAfterAFailedLoad) {
  addDistance();
  FakeHost::script().failing = {"StateServer::findObject"};
  Surface const surface(parametersFor<SurfaceParameters>());
  EXPECT_EQ(work(), Calls{});
}

TEST_F(SurfaceCalls, EndAtAnInvalidDistanceWithTheScaleOfTheCache) {
  auto parameters = parametersFor<SurfaceParameters>();
  parameters.space_scale = 2.f;
  server.createChannel(voxels, API::DataType::Float3, "velocity2");
  server.createChannel(voxels, API::DataType::Float, "zeta");
  server.createChannel(voxels, API::DataType::Int, "id");
  server.createChannel(voxels, API::DataType::Float, "alpha");
  FakeHost::clearCalls();
  Surface const surface(parameters);
  EXPECT_EQ(surface.status().error(),
            "Invalid distance channel 'distance'. Available channels are:\n    zeta\n    alpha\n");
  EXPECT_EQ(work(), (Calls{"Layout::setVoxelScale 0.2", "Layout::setVoxelScale 0.1"}));
}

TEST_F(SurfaceCalls, SmoothOnlyWithAStepAndPasses) {
  addDistance();
  auto parameters = parametersFor<SurfaceParameters>();
  struct Case {
    float smooth;
    int iterations;
  };
  for (auto const& c : {Case{0.3f, 0}, Case{0.3f, -1}, Case{0.f, 3}, Case{-0.3f, 3}}) {
    FakeHost::clearCalls();
    parameters.smooth = c.smooth;
    parameters.smooth_iterations = c.iterations;
    Surface const surface(parameters);
    EXPECT_EQ(FakeHost::calls("StateServer::createChannel"), Calls{});
  }
  FakeHost::clearCalls();
  parameters.smooth = 0.3f;
  parameters.smooth_iterations = 2;
  Surface const surface(parameters);
  EXPECT_EQ(FakeHost::calls("StateServer::createChannel"),
            (Calls{"StateServer::createChannel 'volume' 1 'tmp'"}));
  EXPECT_EQ(FakeHost::calls("Layout::traverse"),
            (Calls{"Layout::traverse 3", "Layout::traverse 3 7 7", "Layout::traverse 3",
                   "Layout::traverse 3 7 7", "Layout::traverse 0 7 7"}));
}

TEST_F(SurfaceCalls, GoThroughAllStepsInTheirOrder) {
  addDistance();
  auto parameters = parametersFor<SurfaceParameters>();
  parameters.space_scale = 2.f;
  parameters.dilate = 0.5f;
  parameters.smooth = 0.3f;
  parameters.erode = 0.5f;
  parameters.enable_ocean_blending = true;
  parameters.ocean_blending_dimension = {0.1f, 0.1f};
  parameters.ocean_blending_radius = 0.f;
  parameters.compute_laplacian = true;
  Surface const surface(parameters);
  EXPECT_EQ(surface.status().warnings().count(), 1u);  // no texture coordinates
  Calls steps;
  for (auto const& call : work()) {
    for (char const* prefix : {"Layout::setVoxelScale", "StateServer::create"}) {
      if (call.rfind(prefix, 0) == 0) steps.push_back(call);
    }
  }
  EXPECT_EQ(steps,
            (Calls{"Layout::setVoxelScale 0.2", "Layout::setVoxelScale 0.1",
                   "StateServer::createChannel 'volume' 1 'tmp'",  // to smooth with
                   "StateServer::createChannel 'volume' 1 'oceanTmp'",
                   "StateServer::createChannel 'volume' 1 'tmp'",
                   "StateServer::createChannel 'volume' 1 'laplacian'", "Layout::setVoxelScale 0.2",
                   "StateServer::createLayout 'accel'", "Layout::setVoxelScale 0.04"}));
}

TEST_F(SurfaceCalls, DeriveChannelsInCacheUnits) {
  addDistance();
  auto parameters = parametersFor<SurfaceParameters>();
  parameters.space_scale = 2.f;
  parameters.compute_laplacian = true;
  parameters.compute_curvature = true;
  Surface const surface(parameters);
  EXPECT_EQ(work(), (Calls{"Layout::setVoxelScale 0.2", "Layout::setVoxelScale 0.1",
                           "StateServer::createChannel 'volume' 1 'laplacian'",
                           "Channel::setBackgroundValue 'laplacian'", "Layout::traverse 3",
                           "StateServer::createChannel 'volume' 1 'curvature'",
                           "Channel::setBackgroundValue 'curvature'", "Layout::traverse 3",
                           "Layout::setVoxelScale 0.2", "Layout::traverse 3",
                           "StateServer::createLayout 'accel'", "Layout::setVoxelScale 0.04",
                           "Layout::traverse 0 7 7"}));
}

class LevelSetCalls : public SurfaceCalls {
 protected:
  LevelSetCalls() {
    FakeHost::script().query.frame = 1;
    parameters.render_component = SurfaceParameters::Particle;
    parameters.velocity_channel = "";
    for (char const* name : {"position", "velocity", "density"}) {
      server.createChannel(
          points, name == std::string("density") ? API::DataType::Float : API::DataType::Float3,
          name);
    }
    FakeHost::clearCalls();
  }

  SurfaceParameters parameters = parametersFor<SurfaceParameters>();
};

TEST_F(LevelSetCalls, ReplaceTheVoxelsAndCarryTheFloatChannels) {
  addDistance();
  server.createChannel(points, API::DataType::Float, "droplet");
  server.createChannel(points, API::DataType::Int, "id");
  server.createChannel(points, API::DataType::Float2, "uv");
  FakeHost::clearCalls();
  parameters.distance_channel = "phi";
  Surface const surface(parameters);
  EXPECT_EQ(surface.status().error(), "");
  EXPECT_EQ(surface.distance().fullPathName(), "liquid/liquid-volume/distance");
  EXPECT_EQ(work(),
            (Calls{"Layout::setVoxelScale 0.1", "Layout::setVoxelScale 0.1",
                   "StateServer::removeChannel 'liquid/volume/distance' handles=2",
                   "Object::removeComponent 'volume'", "StateServer::removeComponent 'volume'",
                   "StateServer::createComponent 'VoxelComponent' 'liquid-volume' 0.2",
                   "Object::addComponent 'liquid-volume'",
                   "StateServer::createChannel 'liquid-volume' 1 'distance'",
                   "StateServer::createChannel 'liquid-volume' 3 'velocity'",
                   "StateServer::createChannel 'liquid-volume' 1 'density'",
                   "StateServer::createChannel 'liquid-volume' 2 'uv'",
                   "createLevelSet 'particle/position' 'particle/droplet' 'particle/velocity' "
                   "'particle/density' 'particle/uv' -> 'liquid-volume/distance' "
                   "'liquid-volume/velocity' 'liquid-volume/density' 'liquid-volume/uv'",
                   "StateServer::createLayout 'accel'", "Layout::setVoxelScale 0.04",
                   "Layout::traverse 0 7 7"}));
}

TEST_F(LevelSetCalls, PassAnEmptyPathForMissingDroplets) {
  Surface const surface(parameters);
  EXPECT_EQ(FakeHost::calls("createLevelSet"),
            (Calls{"createLevelSet 'particle/position' '' 'particle/velocity' 'particle/density' "
                   "-> 'liquid-volume/distance' 'liquid-volume/velocity' "
                   "'liquid-volume/density'"}));
}

TEST_F(LevelSetCalls, ShareTheOutputOfInputsOfOneName) {
  server.createChannel(points, API::DataType::Float, "density");
  FakeHost::clearCalls();
  Surface const surface(parameters);
  EXPECT_EQ(FakeHost::calls("StateServer::createChannel 'liquid-volume' 1 'density'").size(), 1u);
  EXPECT_EQ(FakeHost::calls("createLevelSet"),
            (Calls{"createLevelSet 'particle/position' '' 'particle/velocity' 'particle/density' "
                   "'particle/density' -> 'liquid-volume/distance' 'liquid-volume/velocity' "
                   "'liquid-volume/density' 'liquid-volume/density'"}));
}

TEST_F(LevelSetCalls, FillTheOptionsFromParametersAndObject) {
  { Surface const surface(parameters); }
  auto const defaults = FakeHost::script().levelSetOptions;
  EXPECT_EQ(defaults.dropletRevealFactor, 3.f);
  EXPECT_EQ(defaults.surfaceRadius, 1.4f);
  EXPECT_EQ(defaults.dropletRadius, 1.2f);
  EXPECT_EQ(defaults.dropletThreshold, 1.f);
  EXPECT_EQ(defaults.resolutionFactor, 1.f);
  EXPECT_FALSE(defaults.enableSpatialAdapt);
  EXPECT_EQ(defaults.maxVolumeOfHolesToClose, 0.f);
  EXPECT_FALSE(defaults.keepParticleIds);
  EXPECT_FALSE(defaults.verbose);

  object.dictionary().set("enableSpatialAdapt", true);
  object.dictionary().set("dropletThreshold", 0.25f);
  parameters.levelset_droplet_reveal_factor = 2.f;
  parameters.levelset_surface_radius = 4.f;
  parameters.levelset_droplet_radius = 5.f;
  parameters.levelset_resolution_factor = 6.f;
  parameters.levelset_max_volume_of_holes_to_close = 7.f;
  { Surface const surface(parameters); }
  auto const set = FakeHost::script().levelSetOptions;
  EXPECT_EQ(set.dropletRevealFactor, 2.f);
  EXPECT_EQ(set.surfaceRadius, 4.f);
  EXPECT_EQ(set.dropletRadius, 5.f);
  EXPECT_EQ(set.dropletThreshold, 0.25f);
  EXPECT_EQ(set.resolutionFactor, 6.f);
  EXPECT_TRUE(set.enableSpatialAdapt);
  EXPECT_EQ(set.maxVolumeOfHolesToClose, 7.f);
  EXPECT_FALSE(set.keepParticleIds);
  EXPECT_FALSE(set.verbose);
}

TEST_F(LevelSetCalls, EndWithoutAComponentOrAChannel) {
  for (char const* failing : {"StateServer::createComponent", "StateServer::createChannel"}) {
    FakeHost::script().failing = {failing};
    Surface const surface(parameters);
    EXPECT_EQ(surface.status().error(), "Failed to create voxel channel 'distance'.");
    EXPECT_EQ(FakeHost::calls("createLevelSet"), Calls{});
    EXPECT_FALSE(surface.accel().valid());
  }
}

TEST_F(LevelSetCalls, ScaleTheNewVoxelsAndLeaveThePointsInCacheUnits) {
  parameters.voxel_component = "";
  parameters.space_scale = 2.f;
  Surface const surface(parameters);
  EXPECT_EQ(surface.status().error(), "");
  // The points of 0.2 grow and shrink again; the voxels made from them grow.
  EXPECT_EQ(FakeHost::calls("Layout::setVoxelScale"),
            (Calls{"Layout::setVoxelScale 0.4", "Layout::setVoxelScale 0.2",
                   "Layout::setVoxelScale 0.4", "Layout::setVoxelScale 0.08"}));
  EXPECT_EQ(API::Layout(surface.points().layout()).voxelScale(), 0.2f);
  EXPECT_EQ(API::Layout(surface.voxels().layout()).voxelScale(), 0.4f);
}

TEST_F(LevelSetCalls, EndWhereTheHostFails) {
  FakeHost::script().failing = {"createLevelSet"};
  Surface const surface(parameters);
  EXPECT_EQ(surface.status().error(), "Velmor::API::createLevelSet call failed...");
  EXPECT_FALSE(surface.distance().valid());
  EXPECT_FALSE(surface.accel().valid());
}

}  // namespace
}  // namespace Velmor::Processing
