#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/levelset/particle_scene.h"
#include "support/mesh_checks.h"
#include "support/message_log.h"

namespace Velmor::Test {
namespace {

std::vector<Float3> ball(float radius, float hollow = 0.f) {
  return jittered(2, 0.2f, static_cast<int>(radius) + 1,
                  [=](Float3 const& p) { return lengthOf(p) <= radius && lengthOf(p) >= hollow; });
}

TEST(LevelSetOptions, HolesUpToAVolumeAreClosed) {
  ParticleScene scene(ball(14.f, 6.f), 0.5f);
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_GT(scene.at(0.5f, 0.5f, 0.5f), 0.f);
  // The pocket has a radius of about 5 voxels of 0.5.
  scene.options.maxVolumeOfHolesToClose = 20.f;
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_GT(scene.at(0.5f, 0.5f, 0.5f), 0.f);
  ParticleScene closed(ball(14.f, 6.f), 0.5f);
  closed.options.maxVolumeOfHolesToClose = 120.f;
  ASSERT_TRUE(closed.build().succeeded());
  EXPECT_EQ(closed.at(0.5f, 0.5f, 0.5f), -5.f);
  EXPECT_GT(closed.at(18.f, 0.5f, 0.5f), 0.f);
}

TEST(LevelSetOptions, ResolutionFactorSetsTheVoxelSize) {
  ParticleScene scene(ball(6.f), 0.5f);
  scene.options.resolutionFactor = 2.f;
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_EQ(scene.layout().voxelScale(), 0.25f);
  EXPECT_EQ(scene.distance().backgroundValue<float>(), 1.25f);
  EXPECT_EQ(Host::fieldClass(scene.distance()), Host::FieldClass::LevelSet);
  scene.forCrossings([](Float3 const& p) { EXPECT_NEAR(lengthOf(p) / 2.f, 7.2f, 0.4f); });
}

TEST(LevelSetOptions, DropletsGrowWithTheirDistance) {
  ParticleScene scene({{0.5f, 0.5f, 0.5f}, {3.5f, 0.5f, 0.5f}, {40.5f, 0.5f, 0.5f}});
  scene.droplets([](Float3 const& p) { return p.x > 1.f ? 1.f : 0.f; });
  scene.options.dropletRadius = 1.5f;
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_NEAR(scene.at(40.5f, 0.5f, 0.5f), -1.5f, 0.01f);
  EXPECT_NEAR(scene.at(3.5f, 0.5f, 0.5f), -(3.f - 1.4f) / 3.f, 0.01f);
  scene.options.dropletThreshold = 2.f;
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_NEAR(scene.at(40.5f, 0.5f, 0.5f), -1.4f, 0.01f);
}

TEST(LevelSetOptions, AdaptiveRadiiGrowWhereParticlesAreSparse) {
  ParticleScene scene({{0.5f, 0.5f, 0.5f}});
  scene.options.enableSpatialAdapt = true;
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_NEAR(scene.at(0.5f, 0.5f, 0.5f), -2.8f, 0.01f);
}

TEST(LevelSet, CoarseCellsInsideAreInside) {
  ParticleScene scene(jittered(1, 0.f, 40, [](Float3 const&) { return true; }));
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_EQ(scene.at(0.5f, 0.5f, 0.5f), -5.f);
  EXPECT_EQ(scene.at(20.5f, 20.5f, -20.5f), -5.f);
  EXPECT_EQ(scene.at(5000.f, 0.5f, 0.5f), 5.f);
  EXPECT_LT(scene.layout().tileAccessor().index({0, 0, 0}, 7).depth, 7);
}

TEST(LevelSet, DoesNotDependOnThreads) {
  std::vector<float> first;
  std::vector<Float3> firstVelocities;
  for (int const threads : {1, 2, 3, 8, 64}) {
    Threads const workers(threads);
    ParticleScene scene(ball(9.f));
    scene.options.enableSpatialAdapt = true;
    auto const velocity =
        scene.carry<Float3>("velocity", [](Float3 const& p) { return Float3(p.y, p.z, p.x); });
    scene.droplets([](Float3 const& p) { return p.x > 7.f ? 1.f : 0.f; });
    ASSERT_TRUE(scene.build().succeeded());
    auto const values = valuesOf<float>(scene.distance());
    auto const velocities = valuesOf<Float3>(velocity);
    if (first.empty()) {
      first = values;
      firstVelocities = velocities;
    }
    EXPECT_EQ(values, first) << threads;
    EXPECT_EQ(velocities, firstVelocities) << threads;
  }
}

TEST(LevelSet, CarriesChannelsWithTheWeightsOfTheSurface) {
  ParticleScene scene(ball(8.f));
  auto const density = scene.carry<float>("density", [](Float3 const&) { return 3.f; });
  auto const uv = scene.carry<Float2>("uv", [](Float3 const& p) { return Float2(p.x, 2.f * p.y); });
  ASSERT_TRUE(scene.build().succeeded());
  auto const distances = valuesOf<float>(scene.distance());
  auto const densities = valuesOf<float>(density);
  ASSERT_EQ(distances.size(), densities.size());
  for (std::size_t v = 0; v < distances.size(); ++v) {
    if (std::abs(distances[v]) < 1.f) {
      EXPECT_NEAR(densities[v], 3.f, 1e-4f);
    }
  }
  auto const accessor = scene.layout().tileAccessor();
  auto const index = accessor.index({0, 0, 6}, 7);
  ASSERT_EQ(index.depth, 7);
  auto const tile = uv.tileData<Float2>(index);
  auto const origin = accessor.tile(index).coord();
  auto const value = tile.data[tile.offset(-origin.i, -origin.j, 6 - origin.k)];
  EXPECT_NEAR(value.x, 0.5f, 0.2f);
  EXPECT_NEAR(value.y, 1.f, 0.4f);
}

TEST(LevelSet, TakesEdgeInputs) {
  ParticleScene none({});
  EXPECT_TRUE(none.build().succeeded());
  EXPECT_EQ(Host::tileCount(none.layout(), 7), 0u);

  ParticleScene one(std::vector<Float3>(1000, Float3(2.5f, 2.5f, 2.5f)));
  ASSERT_TRUE(one.build().succeeded());
  EXPECT_NEAR(one.at(2.5f, 2.5f, 2.5f), -1.4f, 0.01f);

  ParticleScene far({{-150000.f, 0.f, 0.f}, {150000.f, 150000.f, 0.f}});
  far.options.maxVolumeOfHolesToClose = 1e30f;
  ASSERT_TRUE(far.build().succeeded());
  EXPECT_LT(Host::tileCount(far.layout(), 7), 60u);
  EXPECT_EQ(far.at(0.f, 0.f, 0.f), 5.f);
  EXPECT_GT(far.at(-149996.f, 0.f, 0.f), 0.f);
}

// The same number of voxels, but smaller ones.
TEST(LevelSet, LeavesOutWhatAFineOutputDoesNotReach) {
  auto const build = [](std::vector<Float3> positions) {
    auto const middle = 32.5f / 64.f;  // of an output voxel
    positions.push_back({middle, middle, middle});
    ParticleScene scene(positions);
    scene.options.resolutionFactor = 64.f;
    scene.options.surfaceRadius = 0.05f;
    EXPECT_TRUE(scene.build().succeeded());
    EXPECT_NEAR(scene.at(0.5f, 0.5f, 0.5f), -3.2f, 0.05f);
    return valuesOf<float>(scene.distance());
  };
  MessageLog const log;
  auto const alone = build({});
  EXPECT_TRUE(log.warnings().empty());
  // Two places beyond, one of which once had the key of a tile around the first particle.
  EXPECT_EQ(
      build({{-190000.f, 0.f, 0.f}, {0.5f + 2097152.f * 5.f / 64.f, 0.5f - 5.f / 64.f, 0.5f}}),
      alone);
  ASSERT_EQ(log.warnings().size(), 1u);
  EXPECT_NE(log.warnings()[0].find("left out 2 particles of 'particle/position'"),
            std::string::npos);
}

TEST(LevelSet, LeavesOutWhatIsNoPosition) {
  ParticleScene scene({{0.5f, 0.5f, 0.5f}, {1.5f, 0.5f, 0.5f}, {60.5f, 0.5f, 0.5f}});
  auto* const at =
      Host::pointData<Float3>(API::PointChannel(scene.points().findChannel("position")));
  at[0].x = std::numeric_limits<float>::quiet_NaN();
  at[2].y = std::numeric_limits<float>::infinity();
  MessageLog const log;
  ASSERT_TRUE(scene.build().succeeded());
  ASSERT_EQ(log.warnings().size(), 1u);
  EXPECT_NE(log.warnings()[0].find("left out 2 particles of 'particle/position'"),
            std::string::npos);
}

TEST(LevelSet, FollowsPositionsThatLeftTheirTiles) {
  ParticleScene scene({{0.5f, 0.5f, 0.5f}, {1.5f, 0.5f, 0.5f}});
  auto* const at =
      Host::pointData<Float3>(API::PointChannel(scene.points().findChannel("position")));
  at[0] = {50.5f, 0.5f, 0.5f};
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_NEAR(scene.at(50.5f, 0.5f, 0.5f), -1.4f, 0.01f);
}

TEST(LevelSet, WritesNothingWhereAChannelIsWrong) {
  for (int wrong = 0; wrong < 5; ++wrong) {
    ParticleScene scene({{0.5f, 0.5f, 0.5f}});
    scene.carry<float>("density", [](Float3 const&) { return 1.f; });
    if (wrong == 0) scene.inputs[0] = "particle/nothing";
    if (wrong == 1) scene.outputs[0] = "volume/nothing";
    if (wrong == 2) scene.inputs[2] = "particle/position";
    if (wrong == 3) scene.outputs.add("volume/distance");
    if (wrong == 4) scene.options.resolutionFactor = std::numeric_limits<float>::quiet_NaN();
    auto const status = scene.build();
    EXPECT_FALSE(status.succeeded()) << wrong;
    EXPECT_FALSE(status.message().empty());
    EXPECT_EQ(Host::tileCount(scene.layout(), 7), 0u);
    EXPECT_EQ(scene.layout().voxelScale(), 123.f);
  }
}

TEST(LevelSet, SaysWhatItCannotTake) {
  constexpr auto nan = std::numeric_limits<float>::quiet_NaN();
  using Change = void (*)(ParticleScene&);
  std::pair<char const*, Change> const cases[] = {
      {"surface radius 16.5 is not in [-1e+30, 16]",
       [](ParticleScene& s) { s.options.surfaceRadius = 16.5f; }},
      {"droplet radius 17 is not in [-1e+30, 16]",
       [](ParticleScene& s) { s.options.dropletRadius = 17.f; }},
      {"resolution factor 65 is not in [0.0625, 64]",
       [](ParticleScene& s) { s.options.resolutionFactor = 65.f; }},
      {"droplet reveal factor is not a number",
       [](ParticleScene& s) { s.options.dropletRevealFactor = nan; }},
      {"droplet threshold is not a number",
       [](ParticleScene& s) { s.options.dropletThreshold = nan; }},
      {"volume of holes is not a number",
       [](ParticleScene& s) { s.options.maxVolumeOfHolesToClose = nan; }},
      {"droplet values 'particle/position' are neither floats nor integers",
       [](ParticleScene& s) { s.inputs[1] = "particle/position"; }},
      {"channel 'particle/id' holds no floats",
       [](ParticleScene& s) { s.carry<int>("id", [](Float3 const&) { return 1; }); }},
  };
  for (auto const& [text, change] : cases) {
    ParticleScene scene({{0.5f, 0.5f, 0.5f}});
    change(scene);
    MessageLog const log;
    EXPECT_EQ(scene.build().message().str(), std::string("cannot create a level set: ") + text);
    EXPECT_EQ(log.errors().size(), 1u);
    EXPECT_EQ(Host::tileCount(scene.layout(), 7), 0u);
  }
}

TEST(LevelSet, TakesNoMask) {
  ParticleScene const scene({{0.5f, 0.5f, 0.5f}});
  MessageLog const log;
  for (auto const& [mask, channel] :
       {std::pair(scene.volume(), ""), std::pair(API::VoxelComponent(), "volume/mask")}) {
    EXPECT_EQ(API::createLevelSet(scene.options, scene.points(), scene.inputs, mask, channel,
                                  scene.volume(), scene.outputs)
                  .message(),
              "cannot create a level set: masks are not supported");
  }
  EXPECT_EQ(Host::tileCount(scene.layout(), 7), 0u);
}

TEST(LevelSetOptions, WholeNumbersMarkDropletsToo) {
  ParticleScene scene({{0.5f, 0.5f, 0.5f}, {3.5f, 0.5f, 0.5f}});
  API::PointChannel const droplet(
      scene.builder().server().createChannel(scene.points(), API::DataType::Int, "droplet"));
  Host::pointData<int>(droplet)[1] = 1;
  scene.inputs[1] = "particle/droplet";
  scene.options.dropletRadius = 1.5f;
  scene.options.dropletRevealFactor = 0.f;
  ASSERT_TRUE(scene.build().succeeded());
  EXPECT_NEAR(scene.at(3.5f, 0.5f, 0.5f), -1.5f, 0.01f) << "at its full size, near as it is";
}

}  // namespace
}  // namespace Velmor::Test
