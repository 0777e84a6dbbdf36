#include "processing/shape.h"

#include <memory>
#include <type_traits>

#include "processing/bounds.h"
#include "shapes/shape_case.h"

namespace Velmor::Processing {
namespace {

using Test::errorOf;
using Test::Float3;
using Test::folderExists;
using Test::graphExists;
using Test::ObjectBuilder;
using Test::OpenShape;
using Test::voxelScaleOf;
using Test::warningsOf;

static_assert(std::is_copy_constructible_v<Shape> && std::is_copy_assignable_v<Shape>);
static_assert(std::has_virtual_destructor_v<Shape>);
static_assert(!std::is_constructible_v<Shape, ShapeParameters const&>);

class ShapeTest : public Test::ShapeCase {
 protected:
  enum Parts { PointsOnly = 1, VoxelsOnly = 2, Both = 3 };

  OpenShape loadWith(Parts parts, float spaceScale = 1.f) const {
    ObjectBuilder const builder("liquid");
    if ((parts & VoxelsOnly) != 0) builder.sphere(builder.voxels(), 3.f);
    if ((parts & PointsOnly) != 0) builder.points({{0.5f, 0.5f, 0.5f}}, "particle", 0.2f);
    folder.write(builder.object(), 1);
    auto parameters = parametersFor("name=liquid, frame=1");
    parameters.space_scale = spaceScale;
    if (parts == PointsOnly) parameters.voxel_component = "";
    if (parts == VoxelsOnly) parameters.point_component = "";
    return OpenShape(parameters);
  }
};

TEST_F(ShapeTest, ScalesTheVoxelsAloneWhereThereAreVoxels) {
  auto shape = loadWith(Both);
  ASSERT_TRUE(shape.status()) << errorOf(shape);
  shape.scale(2.f);
  EXPECT_EQ(voxelScaleOf(shape.voxels()), 0.2f);
  EXPECT_EQ(voxelScaleOf(shape.points()), 0.2f);
}

TEST_F(ShapeTest, ScalesThePointsWhereThereAreNoVoxels) {
  auto shape = loadWith(PointsOnly);
  ASSERT_TRUE(shape.status()) << errorOf(shape);
  shape.scale(2.f);
  EXPECT_EQ(voxelScaleOf(shape.points()), 0.4f);
  EXPECT_FALSE(shape.voxels().valid());
}

TEST_F(ShapeTest, AppliesTheSpaceScaleByTheSameRule) {
  auto const both = loadWith(Both, 3.f);
  EXPECT_EQ(voxelScaleOf(both.voxels()), 0.1f * 3.f);
  EXPECT_EQ(voxelScaleOf(both.points()), 0.2f);
  EXPECT_EQ(voxelScaleOf(loadWith(PointsOnly, 3.f).points()), 0.2f * 3.f);
}

TEST_F(ShapeTest, BoundsAreThoseOfTheVoxelsLeafTiles) {
  auto const shape = loadWith(Both);
  auto const box = shape.bbox();
  EXPECT_EQ(box, computeBBox(shape.voxels().layout()));
  // Cells from -6 to 6 lie in the leaf tiles from -7 to 8.
  EXPECT_EQ(box.min, Float3(-7.f, -7.f, -7.f) * 0.1f);
  EXPECT_EQ(box.max, Float3(8.f, 8.f, 8.f) * 0.1f);
}

TEST_F(ShapeTest, BoundsWithoutVoxelsAreInverted) {
  auto const box = loadWith(PointsOnly).bbox();
  EXPECT_EQ(box.min, Float3(2147483648.f));
  EXPECT_EQ(box.max, Float3(-2147483648.f));
}

TEST_F(ShapeTest, CopiesShareDataGraphAndFolder) {
  auto const shape = loadWith(Both);
  auto const copy = shape;
  EXPECT_EQ(copy.voxels(), shape.voxels());
  EXPECT_EQ(copy.points(), shape.points());
  EXPECT_EQ(copy.activeGraphName(), shape.activeGraphName());
  EXPECT_EQ(copy.tempFolder(), shape.tempFolder());
}

TEST_F(ShapeTest, CopiesShareTheMessagesAlsoThoseYetToCome) {
  OpenShape shape{ShapeParameters()};
  auto copy = shape;
  auto assigned = loadWith(Both);
  assigned = shape;
  shape.messages().fail() << "a";
  copy.messages().fail() << "b";
  assigned.messages().fail() << "c";
  assigned.messages().warn() << "w";
  for (auto const* each : {&shape, &copy, &assigned}) {
    EXPECT_EQ(errorOf(*each), "Invalid object query: ''.abc");
    EXPECT_EQ(warningsOf(*each), std::vector<std::string>{"w"});
  }
}

TEST_F(ShapeTest, TheFirstCopyDestroyedRemovesTheGraphAndTheOthersStayUsable) {
  auto first = std::make_unique<OpenShape>(loadWith(Both));
  auto second = std::make_unique<OpenShape>(*first);
  auto const graph = first->activeGraphName();
  EXPECT_FALSE(graphExists(graph)) << "the shape that the first was copied from is gone";
  API::ObjectModel::createActiveGraph(graph);
  first.reset();
  EXPECT_FALSE(graphExists(graph));
  EXPECT_TRUE(second->status());
  EXPECT_TRUE(second->voxels().findChannel("distance").valid());
  second.reset();
}

TEST_F(ShapeTest, CopiesGoInAnyOrder) {
  for (bool originalFirst : {true, false}) {
    ObjectBuilder const builder("liquid");
    builder.sphere(builder.voxels(), 3.f);
    Host::publish(builder.object(), "scene", 1);
    auto parameters = parametersFor("name=liquid, frame=1, graph=scene");
    parameters.point_component = "";
    auto original = std::make_unique<OpenShape>(parameters);
    auto copy = std::make_unique<OpenShape>(*original);
    auto assigned = std::make_unique<OpenShape>(ShapeParameters());
    *assigned = *copy;
    auto const& self = *assigned;
    *assigned = self;
    API::ObjectModel::removeActiveGraph("scene");
    auto const temp = original->tempFolder();
    EXPECT_TRUE(folderExists(temp));
    (originalFirst ? original : copy).reset();
    EXPECT_FALSE(folderExists(temp));
    EXPECT_TRUE(assigned->status()) << errorOf(*assigned);
    (originalFirst ? copy : original).reset();
    EXPECT_TRUE(assigned->voxels().valid());
    EXPECT_TRUE(assigned->status());
  }
}

TEST_F(ShapeTest, WithoutGraphAndFolderRemovesNothing) {
  API::ObjectModel::createActiveGraph("bystander");
  { OpenShape const shape{ShapeParameters()}; }
  EXPECT_TRUE(graphExists("bystander"));
  API::ObjectModel::removeActiveGraph("bystander");
  EXPECT_TRUE(folderExists(folder.path()));
}

}  // namespace
}  // namespace Velmor::Processing
