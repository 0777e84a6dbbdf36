#include "processing/points.h"

#include <algorithm>
#include <tuple>
#include <type_traits>

#include "shapes/shape_case.h"

namespace Velmor::Processing {
namespace {

using Test::errorOf;
using Test::Float3;
using Test::ObjectBuilder;
using Test::warningsOf;

static_assert(std::is_base_of_v<Shape, Points> && std::is_copy_constructible_v<Points>);

class PointsTest : public Test::ShapeCase {
 protected:
  Points load(std::vector<Float3> const& positions, PointsParameters parameters = {},
              bool withVoxels = false) const {
    ObjectBuilder const builder("spray");
    builder.points(positions, "particle", 0.5f);
    if (withVoxels) builder.sphere(builder.voxels(), 3.f);
    folder.write(builder.object(), 1);
    parameters.cache_folder = folder.path();
    parameters.object = "name=spray, frame=1";
    if (!withVoxels) parameters.voxel_component = "";
    return Points(parameters);
  }

  static bool inOrder(Float3 const& a, Float3 const& b) {
    return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
  }
};

TEST_F(PointsTest, PositionsAreWorldUnitsOfAllPointsAcrossTiles) {
  std::vector<Float3> const places = {
      {0.5f, 0.25f, 0.5f}, {100.5f, 0.5f, 0.5f}, {-7.5f, 2.5f, 40.5f}, {0.5f, 0.75f, 0.5f}};
  auto const points = load(places);
  ASSERT_TRUE(points.status()) << errorOf(points);
  API::Array<Float3> world = {Float3(9.f)};
  ASSERT_TRUE(points.positions(world));
  ASSERT_EQ(world.count(), places.size());
  auto expected = places;
  for (auto& place : expected) place = place * 0.5f;
  std::sort(expected.begin(), expected.end(), inOrder);
  std::sort(world.begin(), world.end(), inOrder);
  for (std::size_t p = 0; p < expected.size(); ++p) {
    EXPECT_NEAR(world[p].x, expected[p].x, 1e-6f);
    EXPECT_NEAR(world[p].y, expected[p].y, 1e-6f);
    EXPECT_NEAR(world[p].z, expected[p].z, 1e-6f);
  }
}

TEST_F(PointsTest, PositionsKeepTheOrderOfTheChannel) {
  auto const points = load({{0.5f, 0.5f, 0.5f}, {100.5f, 0.5f, 0.5f}, {-7.5f, 2.5f, 40.5f}});
  API::Array<Float3> world;
  ASSERT_TRUE(points.positions(world));
  auto const* const stored = Host::pointData<Float3>(points.positionChannel());
  for (std::size_t p = 0; p < world.count(); ++p) EXPECT_EQ(world[p], stored[p] * 0.5f);
}

TEST_F(PointsTest, PositionsFollowTheSpaceScaleOnlyWithoutVoxels) {
  PointsParameters parameters;
  parameters.space_scale = 4.f;
  API::Array<Float3> world;
  ASSERT_TRUE(load({{0.5f, 0.5f, 0.5f}}, parameters).positions(world));
  EXPECT_NEAR(world[0].x, 1.f, 1e-6f);
  ASSERT_TRUE(load({{0.5f, 0.5f, 0.5f}}, parameters, true).positions(world));
  EXPECT_NEAR(world[0].x, 0.25f, 1e-6f);
}

TEST_F(PointsTest, PositionsOfNoPointsAreEmptyAndThere) {
  ObjectBuilder const builder("spray");
  builder.points({}, "particle", 0.5f);
  Host::publish(builder.object(), "scene", 1);
  auto parameters = parametersFor<PointsParameters>("name=spray, frame=1, graph=scene");
  parameters.voxel_component = "";
  Points const points(parameters);
  API::ObjectModel::removeActiveGraph("scene");
  ASSERT_TRUE(points.status()) << errorOf(points);
  API::Array<Float3> world = {Float3(9.f)};
  EXPECT_TRUE(points.positions(world));
  EXPECT_TRUE(world.empty());
}

TEST_F(PointsTest, AMissingPositionChannelIsSilent) {
  PointsParameters parameters;
  parameters.position_channel = "rest";
  auto const points = load({{0.5f, 0.5f, 0.5f}}, parameters);
  EXPECT_TRUE(points.status());
  EXPECT_EQ(warningsOf(points), std::vector<std::string>{});
  EXPECT_FALSE(points.positionChannel().valid());
  API::Array<Float3> world = {Float3(9.f)};
  EXPECT_FALSE(points.positions(world));
  ASSERT_EQ(world.count(), 1u);
  EXPECT_EQ(world[0], Float3(9.f));
}

TEST_F(PointsTest, WithoutPointsLeavesTheArrayUntouched) {
  Points const points{PointsParameters()};
  EXPECT_FALSE(points.status());
  API::Array<Float3> world = {Float3(9.f)};
  EXPECT_FALSE(points.positions(world));
  EXPECT_EQ(world.count(), 1u);
}

TEST_F(PointsTest, APositionChannelOfAnotherTypeGivesZeros) {
  ObjectBuilder const builder("spray");
  auto const component = builder.points({{3.5f, 0.5f, 0.5f}});
  builder.pointChannel<float>(component, "density", 2.f);
  folder.write(builder.object(), 1);
  auto parameters = parametersFor<PointsParameters>("name=spray, frame=1");
  parameters.voxel_component = "";
  parameters.position_channel = "density";
  API::Array<Float3> world;
  ASSERT_TRUE(Points(parameters).positions(world));
  ASSERT_EQ(world.count(), 1u);
  EXPECT_EQ(world[0], Float3(0.f));
}

TEST_F(PointsTest, CopiesShareTheChannel) {
  auto const points = load({{0.5f, 0.5f, 0.5f}});
  Points const copy(points);
  EXPECT_EQ(copy.positionChannel(), points.positionChannel());
  Points assigned{PointsParameters()};
  assigned = points;
  EXPECT_EQ(assigned.positionChannel(), points.positionChannel());
  EXPECT_TRUE(assigned.status());
}

}  // namespace
}  // namespace Velmor::Processing
