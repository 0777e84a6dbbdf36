#include <cmath>
#include <limits>
#include <memory>
#include <optional>

#include "processing/shape.h"
#include "shapes/shape_case.h"

namespace Velmor::Processing {
namespace {

using Test::errorOf;
using Test::Float3;
using Test::folderExists;
using Test::graphExists;
using Test::ObjectBuilder;
using Test::OpenShape;
using Test::valuesOf;
using Test::voxelScaleOf;
using Test::warningsOf;
using Warnings = std::vector<std::string>;

class Loading : public Test::ShapeCase {
 protected:
  /// An object with a small sphere in "volume" and a point in "particle".
  static ObjectBuilder liquid(API::String const& name = "liquid") {
    ObjectBuilder builder(name);
    builder.sphere(builder.voxels(), 3.f);
    builder.points({{0.5f, 0.5f, 0.5f}});
    return builder;
  }

  void writeLiquid(int frame = 12) const { folder.write(liquid().object(), frame); }

  OpenShape load(API::String const& query) const {
    return OpenShape(parametersFor<ShapeParameters>(query));
  }

  /// What every shape must hold whose loading was stopped by an error.
  static void expectNothingLoaded(Shape const& shape) {
    EXPECT_FALSE(shape.status());
    EXPECT_FALSE(shape.points().valid());
    EXPECT_FALSE(shape.voxels().valid());
  }
};

TEST_F(Loading, TakesTheComponentsOfANamedObject) {
  writeLiquid();
  auto const shape = load("name=liquid, frame=12");
  EXPECT_TRUE(shape.status()) << errorOf(shape);
  EXPECT_EQ(warningsOf(shape), Warnings{});
  EXPECT_EQ(shape.points().name(), "particle");
  EXPECT_EQ(shape.voxels().name(), "volume");
  EXPECT_EQ(shape.points().elementCount(), 1u);
  EXPECT_TRUE(shape.voxels().findChannel("distance").valid());
  EXPECT_TRUE(shape.tempFolder().empty());
  EXPECT_TRUE(graphExists(shape.activeGraphName()));
  EXPECT_TRUE(graphExists(folder.path() + "/liquid"));
}

TEST_F(Loading, RefusesATextThatIsNoQueryAndDoesNothingElse) {
  for (char const* text : {"", "liquid", "name=\"open"}) {
    auto const shape = load(text);
    EXPECT_EQ(errorOf(shape), "Invalid object query: '" + std::string(text) + "'.");
    EXPECT_EQ(warningsOf(shape), Warnings{});
    EXPECT_TRUE(shape.activeGraphName().empty());
    EXPECT_TRUE(shape.tempFolder().empty());
    expectNothingLoaded(shape);
  }
}

TEST_F(Loading, SaysWhichPathHasNoGraph) {
  writeLiquid();
  Host::failCalls(Host::Call::CreateActiveGraph);
  auto const shape = load("name=liquid, frame=12");
  EXPECT_EQ(errorOf(shape),
            "Could not create active graph for path: '" + folder.path().str() + "/liquid'");
  EXPECT_TRUE(shape.activeGraphName().empty());
  expectNothingLoaded(shape);
}

TEST_F(Loading, SaysWhichObjectIsMissing) {
  writeLiquid();
  auto const shape = load("name=smoke, frame=12");
  EXPECT_EQ(errorOf(shape),
            "Could not find object 'smoke' in path '" + folder.path().str() + "/smoke'");
  EXPECT_FALSE(shape.activeGraphName().empty());
  expectNothingLoaded(shape);
}

TEST_F(Loading, SaysThatAFolderHoldsNoObjects) {
  auto const shape = load("frame=12");
  EXPECT_EQ(errorOf(shape), "Could not find objects in path '" + folder.path().str() + "/'");
  expectNothingLoaded(shape);
}

TEST_F(Loading, TakesTheOnlyObjectWithoutAWarning) {
  writeLiquid();
  auto const shape = load("frame=12");
  EXPECT_TRUE(shape.status()) << errorOf(shape);
  EXPECT_EQ(warningsOf(shape), Warnings{});
  EXPECT_TRUE(shape.voxels().valid());
}

TEST_F(Loading, TakesTheFirstOfSeveralObjectsAndWarnsOnce) {
  for (char const* name : {"spray", "foam", "liquid"}) folder.write(liquid(name).object(), 12);
  auto const shape = load("frame=12");
  EXPECT_TRUE(shape.status()) << errorOf(shape);
  EXPECT_EQ(warningsOf(shape), Warnings{"Found multiple objects in path '" + folder.path().str() +
                                        "/'. Using object 'foam'."});
  EXPECT_EQ(API::Object(shape.voxels().object()).name(), "foam");
}

TEST_F(Loading, CountsTheResourcesOfAMissingFrame) {
  writeLiquid();
  auto const shape = load("name=liquid, frame=13");
  EXPECT_EQ(errorOf(shape), "Could not figure what resource ID to use: 0 found.");
  expectNothingLoaded(shape);
}

TEST_F(Loading, CountsTheResourcesOfAFrameThatIsThereTwice) {
  auto const object = liquid().object();
  folder.write(object, 12);
  auto const canonical = folder.fileOf("liquid", 12);
  folder.writeTo(object, canonical.parent_path() / "liquid_0012.vdb");
  auto const shape = load("name=liquid, frame=12");
  EXPECT_EQ(errorOf(shape), "Could not figure what resource ID to use: 2 found.");
}

TEST_F(Loading, SaysWhichFrameDoesNotLoad) {
  writeLiquid();
  Host::failCalls(Host::Call::LoadResource);
  auto const shape = load("name=liquid, frame=12");
  EXPECT_EQ(errorOf(shape), "Failed to load frame '12'.");
  expectNothingLoaded(shape);
}

TEST_F(Loading, FailsOnAFileThatIsNoCache) {
  folder.writeRubbish("liquid", 7);
  auto const shape = load("name=liquid, frame=7");
  EXPECT_EQ(errorOf(shape), "Failed to load frame '7'.");
  expectNothingLoaded(shape);
}

TEST_F(Loading, SaysThatThereIsNoState) {
  writeLiquid();
  Host::failCalls(Host::Call::DataSource);
  auto const shape = load("name=liquid, frame=12");
  EXPECT_EQ(errorOf(shape), "Invalid state server.");
  expectNothingLoaded(shape);
}

TEST_F(Loading, SaysWhichStateLacksTheObject) {
  writeLiquid();
  API::String stateName;
  {
    auto const loaded = load("name=liquid, frame=12");
    stateName = API::StateServer(API::ObjectModel::stateServer(loaded.voxels().stateID())).name();
  }
  Host::failCalls(Host::Call::FindObject);
  auto const shape = load("name=liquid, frame=12");
  EXPECT_EQ(errorOf(shape), "Could not find object in state server '" + stateName.str() + "'");
  expectNothingLoaded(shape);
}

TEST_F(Loading, WarnsOfEachMissingComponentAndGoesOn) {
  writeLiquid();
  auto parameters = parametersFor("name=liquid, frame=12");
  parameters.point_component = "sand";
  parameters.voxel_component = "smoke";
  parameters.space_scale = 2.f;
  OpenShape const shape(parameters);
  EXPECT_TRUE(shape.status());
  EXPECT_EQ(warningsOf(shape), (Warnings{"Could not find component named 'sand'.",
                                         "Could not find component named 'smoke'."}));
  EXPECT_FALSE(shape.points().valid());
  EXPECT_FALSE(shape.voxels().valid());
}

TEST_F(Loading, LooksUpNoComponentUnderAnEmptyName) {
  writeLiquid();
  auto parameters = parametersFor("name=liquid, frame=12");
  parameters.point_component = "";
  parameters.voxel_component = "";
  OpenShape const shape(parameters);
  EXPECT_TRUE(shape.status());
  EXPECT_EQ(warningsOf(shape), Warnings{});
  EXPECT_FALSE(shape.points().valid());
  EXPECT_FALSE(shape.voxels().valid());
}

TEST_F(Loading, ErrorsStillLeaveTheGraphToBeRemoved) {
  writeLiquid();
  struct Case {
    std::optional<Host::Call> call;
    char const* query;
  };
  // One for each step after the graph was opened: object, frame, load, state, object in it.
  Case const cases[] = {{std::nullopt, "name=smoke, frame=12"},
                        {std::nullopt, "name=liquid, frame=99"},
                        {Host::Call::LoadResource, "name=liquid, frame=12"},
                        {Host::Call::DataSource, "name=liquid, frame=12"},
                        {Host::Call::FindObject, "name=liquid, frame=12"}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.query);
    if (c.call) Host::failCalls(*c.call);
    API::String graph;
    {
      auto const shape = load(c.query);
      EXPECT_FALSE(shape.status());
      graph = shape.activeGraphName();
      EXPECT_TRUE(graphExists(graph));
    }
    EXPECT_FALSE(graphExists(graph));
  }
}

TEST_F(Loading, RemovesItsGraphAndKeepsTheFiles) {
  writeLiquid();
  API::String graph;
  {
    auto const shape = load("name=liquid, frame=12");
    graph = shape.activeGraphName();
    EXPECT_TRUE(graphExists(graph));
  }
  EXPECT_FALSE(graphExists(graph));
  EXPECT_TRUE(std::filesystem::exists(folder.fileOf("liquid", 12)));
}

TEST_F(Loading, UsesAndLaterRemovesAGraphThatIsAlreadyOpen) {
  writeLiquid();
  auto const path = folder.path() + "/liquid";
  API::Runtime::ActiveGraph const own(API::ObjectModel::createActiveGraph(path));
  {
    auto const shape = load("name=liquid, frame=12");
    EXPECT_EQ(shape.activeGraphName(), own.name());
  }
  EXPECT_FALSE(graphExists(path));
}

TEST_F(Loading, KeepsTheNameOfItsGraphWhereThePathIsAnother) {
  writeLiquid();
  // The path of an object without a name ends in a separator; the graph's name does not.
  auto const shape = load("frame=12");
  EXPECT_EQ(shape.activeGraphName(), folder.path());
}

TEST_F(Loading, GivesEachShapeDataOfItsOwn) {
  ObjectBuilder builder("liquid");
  auto const voxels = builder.voxels();
  builder.sphere(voxels, 3.f);
  builder.channel<float>(voxels, "velocity_u", 24.f);
  folder.write(builder.object(), 12);

  auto const query = "name=liquid, frame=12";
  auto first = std::make_unique<OpenShape>(parametersFor(query));
  auto const second = std::make_unique<OpenShape>(parametersFor(query));
  for (auto const* shape : {first.get(), second.get()}) {
    auto const values = valuesOf<float>(shape->voxels().findChannel("velocity_u"));
    ASSERT_FALSE(values.empty());
    for (float value : values) ASSERT_EQ(value, 1.f);
  }
  first.reset();
  EXPECT_EQ(valuesOf<float>(second->voxels().findChannel("velocity_u"))[0], 1.f);
  EXPECT_TRUE(second->status());
}

// Objects in memory.

class LoadingFromMemory : public Loading {
 protected:
  API::String const graphName = "scene";
  ~LoadingFromMemory() override { API::ObjectModel::removeActiveGraph(graphName); }

  OpenShape loadPublished() const { return load("name=liquid, frame=3, graph=scene"); }
};

TEST_F(LoadingFromMemory, GoesThroughATemporaryFolderThatGoesWithTheShape) {
  Host::publish(liquid().object(), graphName, 3);
  API::String temp;
  {
    auto const shape = loadPublished();
    temp = shape.tempFolder();
    EXPECT_TRUE(shape.status()) << errorOf(shape);
    EXPECT_TRUE(shape.voxels().valid());
    EXPECT_TRUE(shape.points().valid());
    ASSERT_FALSE(temp.empty());
    EXPECT_TRUE(folderExists(temp));
    EXPECT_TRUE(graphExists(temp));
  }
  EXPECT_FALSE(folderExists(temp));
  EXPECT_FALSE(graphExists(temp));
  EXPECT_TRUE(graphExists(graphName));
}

TEST_F(LoadingFromMemory, LeavesTheObjectOfTheOwnerUnscaled) {
  auto const builder = liquid();
  API::VoxelComponent const voxels(builder.object().findComponent("volume"));
  auto const velocity = builder.channel<Float3>(voxels, "velocity", {24.f, 0.f, -24.f});
  Host::publish(builder.object(), graphName, 3);
  auto const shape = loadPublished();
  EXPECT_EQ(valuesOf<Float3>(velocity)[0], Float3(24.f, 0.f, -24.f));
  EXPECT_EQ(valuesOf<Float3>(shape.voxels().findChannel("velocity"))[0], Float3(1.f, 0.f, -1.f));
}

TEST_F(LoadingFromMemory, TakesTheFirstOfSeveralWithoutAWarning) {
  // Their names would have another order.
  for (char const* name : {"liquid", "spray", "foam"}) {
    Host::publish(liquid(name).object(), graphName, 3);
  }
  auto const shape = load("frame=3, graph=scene");
  EXPECT_TRUE(shape.status()) << errorOf(shape);
  EXPECT_EQ(warningsOf(shape), Warnings{});
  EXPECT_EQ(API::Object(shape.voxels().object()).name(), "liquid");
}

TEST_F(LoadingFromMemory, SaysThatItCouldNotBeWritten) {
  Host::publish(liquid().object(), graphName, 3);
  API::String temp;
  {
    Host::failCalls(Host::Call::SaveResource);
    auto const shape = loadPublished();
    temp = shape.tempFolder();
    EXPECT_EQ(errorOf(shape), "Failed to write to temporary cache folder.");
    EXPECT_TRUE(folderExists(temp));
    EXPECT_TRUE(shape.activeGraphName().empty());
    expectNothingLoaded(shape);
  }
  EXPECT_FALSE(folderExists(temp));
}

TEST_F(LoadingFromMemory, SaysTheSameWithoutAFolderOrAResource) {
  Host::publish(liquid().object(), graphName, 3);
  for (auto call : {Host::Call::CreateTempFolder, Host::Call::CreateCacheResource}) {
    Host::failCalls(call);
    auto const shape = loadPublished();
    EXPECT_EQ(errorOf(shape), "Failed to write to temporary cache folder.");
    expectNothingLoaded(shape);
  }
}

TEST_F(LoadingFromMemory, ErrorsRemoveGraphAndFolderAllTheSame) {
  Host::publish(liquid().object(), graphName, 3);
  struct Case {
    Host::Call call;
    char const* error;
  };
  Case const cases[] = {{Host::Call::LoadResource, "Failed to load frame '3'."},
                        {Host::Call::DataSource, "Invalid state server."},
                        {Host::Call::FindObject, "Could not find object in state server '"}};
  for (auto const& c : cases) {
    Host::failCalls(c.call);
    API::String temp;
    {
      auto const shape = loadPublished();
      EXPECT_EQ(errorOf(shape).rfind(c.error, 0), 0u) << errorOf(shape);
      temp = shape.tempFolder();
      EXPECT_TRUE(folderExists(temp));
      EXPECT_TRUE(graphExists(shape.activeGraphName()));
    }
    EXPECT_FALSE(folderExists(temp));
    EXPECT_FALSE(graphExists(temp));
  }
}

// Components and clipping.

TEST_F(Loading, TakesAComponentUnderTheObjectsNameWithoutAWarning) {
  ObjectBuilder builder("ocean");
  builder.sphere(builder.voxels("ocean-volume"), 3.f);
  builder.points({{0.5f, 0.5f, 0.5f}}, "ocean-particle");
  Host::publish(builder.object(), "scene", 1);
  auto const shape = load("name=ocean, frame=1, graph=scene");
  API::ObjectModel::removeActiveGraph("scene");
  EXPECT_TRUE(shape.status()) << errorOf(shape);
  EXPECT_EQ(warningsOf(shape), Warnings{});
  EXPECT_EQ(shape.voxels().name(), "ocean-volume");
  EXPECT_EQ(shape.points().name(), "ocean-particle");
}

TEST_F(Loading, ClipsToTheBoxOnlyWhenAsked) {
  ObjectBuilder builder("liquid");
  builder.sphere(builder.voxels("volume", 0.1f), 20.f);
  folder.write(builder.object(), 12);
  auto parameters = parametersFor("name=liquid, frame=12");
  parameters.point_component = "";
  parameters.clip_bbox = {{0.f, 0.f, 0.f}, {1.f, 1.f, 1.f}};
  auto const leaves = [](Shape const& shape) {
    return Host::tileCount(shape.voxels().layout(), 7);
  };
  OpenShape const whole(parameters);
  parameters.clip = true;
  OpenShape const clipped(parameters);
  EXPECT_TRUE(clipped.status()) << errorOf(clipped);
  EXPECT_GT(leaves(clipped), 0u);
  EXPECT_LT(leaves(clipped), leaves(whole) / 4);
}

// Velocities.

class Velocities : public Loading {
 protected:
  Velocities() : voxels_(builder_.voxels()) {
    builder_.sphere(voxels_, 3.f);
    points_ = builder_.points({{0.5f, 0.5f, 0.5f}, {1.5f, 0.5f, 0.5f}});
  }

  OpenShape loadWith(float velocityScale, float spaceScale, float fps) const {
    folder.write(builder_.object(), 1);
    auto parameters = parametersFor("name=liquid, frame=1");
    parameters.velocity_scale = velocityScale;
    parameters.space_scale = spaceScale;
    parameters.fps = fps;
    return OpenShape(parameters);
  }

  static float firstFloat(Shape const& shape, char const* name) {
    return valuesOf<float>(shape.voxels().findChannel(name)).at(0);
  }
  static Float3 firstVector(Shape const& shape, char const* name) {
    return valuesOf<Float3>(shape.voxels().findChannel(name)).at(0);
  }

  ObjectBuilder builder_{"liquid"};
  API::VoxelComponent voxels_;
  API::PointComponent points_;
};

TEST_F(Velocities, OfAllKindsBecomeWorldUnitsPerFrame) {
  builder_.channel<float>(voxels_, "velocity_u", 1.f);
  builder_.channel<float>(voxels_, "velocity_v", 24.f);
  builder_.channel<float>(voxels_, "velocity_w", -12.f);
  builder_.channel<Float3>(voxels_, "velocity", {24.f, 0.f, -24.f});
  builder_.pointChannel<Float3>(points_, "velocity", {48.f, 24.f, -24.f});
  auto const shape = loadWith(1.f, 1.f, 24.f);
  ASSERT_TRUE(shape.status()) << errorOf(shape);
  EXPECT_EQ(firstFloat(shape, "velocity_u"), 0.0416666679f);
  EXPECT_EQ(firstFloat(shape, "velocity_v"), 1.f);
  EXPECT_EQ(firstFloat(shape, "velocity_w"), -0.5f);
  EXPECT_EQ(firstVector(shape, "velocity"), Float3(1.f, 0.f, -1.f));
  auto const* const points =
      Host::pointData<Float3>(API::PointChannel(shape.points().findChannel("velocity")));
  for (int p = 0; p < 2; ++p) EXPECT_EQ(points[p], Float3(2.f, 1.f, -1.f));
  EXPECT_EQ(voxelScaleOf(shape.voxels()), 0.1f);
}

TEST_F(Velocities, StayWhereTheFactorIsOneButTheVoxelsGrow) {
  builder_.channel<Float3>(voxels_, "velocity", {0.3f, 0.f, -24.f});
  auto const shape = loadWith(1.f, 24.f, 24.f);
  EXPECT_EQ(firstVector(shape, "velocity"), Float3(0.3f, 0.f, -24.f));
  EXPECT_EQ(voxelScaleOf(shape.voxels()), 0.1f * 24.f);
  EXPECT_EQ(voxelScaleOf(shape.points()), 0.1f);
}

TEST_F(Velocities, MultiplySpaceAndVelocityScaleBeforeTheyDivide) {
  builder_.channel<float>(voxels_, "velocity_u", 1.f);
  auto const shape = loadWith(0.3f, 0.7f, 25.f);
  EXPECT_EQ(firstFloat(shape, "velocity_u"), (0.7f * 0.3f) / 25.f);
}

TEST_F(Velocities, OfPointsGrowWithTheSpaceScaleAlsoWhereTheirPlacesDoNot) {
  builder_.pointChannel<Float3>(points_, "velocity", {3.f, 0.f, -1.f});
  auto const shape = loadWith(1.f, 2.f, 1.f);
  EXPECT_EQ(Host::pointData<Float3>(API::PointChannel(shape.points().findChannel("velocity")))[0],
            Float3(6.f, 0.f, -2.f));
  EXPECT_EQ(voxelScaleOf(shape.points()), 0.1f);
  EXPECT_EQ(voxelScaleOf(shape.voxels()), 0.2f);
}

TEST_F(Velocities, AreScaledFromTheFirstFloatBeyondTheEpsilon) {
  builder_.channel<float>(voxels_, "velocity_u", 1.f);
  float const epsilon = std::numeric_limits<float>::epsilon();
  EXPECT_EQ(firstFloat(loadWith(1.f + epsilon, 1.f, 1.f), "velocity_u"), 1.f);
  EXPECT_EQ(firstFloat(loadWith(1.f + 2.f * epsilon, 1.f, 1.f), "velocity_u"), 1.f + 2.f * epsilon);
}

TEST_F(Velocities, OfWrongTypesStayAsTheyAre) {
  builder_.channel<int>(voxels_, "velocity_u", 24);
  builder_.channel<Float3>(voxels_, "velocity_v", {24.f, 24.f, 24.f});
  builder_.channel<float>(voxels_, "velocity_w", 24.f);
  builder_.channel<float>(voxels_, "velocity", 24.f);
  builder_.pointChannel<float>(points_, "velocity", 24.f);
  auto const shape = loadWith(1.f, 1.f, 24.f);
  ASSERT_TRUE(shape.status()) << errorOf(shape);
  EXPECT_EQ(valuesOf<int>(shape.voxels().findChannel("velocity_u")).at(0), 24);
  EXPECT_EQ(firstVector(shape, "velocity_v"), Float3(24.f, 24.f, 24.f));
  EXPECT_EQ(firstFloat(shape, "velocity_w"), 1.f);
  EXPECT_EQ(firstFloat(shape, "velocity"), 24.f);
  auto const* const points =
      Host::pointData<float>(API::PointChannel(shape.points().findChannel("velocity")));
  EXPECT_EQ(points[0], 24.f);
}

TEST_F(Velocities, OfAnotherNameAreFoundByIt) {
  builder_.channel<float>(voxels_, "v_u", 24.f);
  builder_.channel<float>(voxels_, "velocity_u", 24.f);
  folder.write(builder_.object(), 1);
  auto parameters = parametersFor("name=liquid, frame=1");
  parameters.velocity_channel = "v";
  OpenShape const shape(parameters);
  EXPECT_EQ(firstFloat(shape, "v_u"), 1.f);
  EXPECT_EQ(firstFloat(shape, "velocity_u"), 24.f);
}

TEST_F(Velocities, WithoutFramesPerSecondAreInfinite) {
  builder_.channel<float>(voxels_, "velocity_u", 24.f);
  auto const shape = loadWith(1.f, 1.f, 0.f);
  EXPECT_TRUE(shape.status());
  EXPECT_EQ(firstFloat(shape, "velocity_u"), std::numeric_limits<float>::infinity());
}

TEST_F(Velocities, WithoutFramesPerSecondAreNoNumbersWhereTheyAreZero) {
  builder_.channel<float>(voxels_, "velocity_u", 0.f);
  builder_.channel<Float3>(voxels_, "velocity", {24.f, 0.f, -24.f});
  auto const shape = loadWith(1.f, 1.f, 0.f);
  EXPECT_TRUE(std::isnan(firstFloat(shape, "velocity_u")));
  auto const velocity = firstVector(shape, "velocity");
  EXPECT_EQ(velocity.x, std::numeric_limits<float>::infinity());
  EXPECT_TRUE(std::isnan(velocity.y));
  EXPECT_EQ(velocity.z, -std::numeric_limits<float>::infinity());
}

}  // namespace
}  // namespace Velmor::Processing
