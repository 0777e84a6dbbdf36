#include "processing/points.h"
#include "shapes/recorded_scene.h"

namespace Velmor::Processing {
namespace {

using Test::Calls;
using Test::Float3;

class AnyShape : public Shape {
 public:
  explicit AnyShape(ShapeParameters const& parameters) : Shape(parameters) {}
};

class LoadingCalls : public Test::RecordedScene {
 protected:
  static std::string errorOf(ShapeParameters const& parameters) {
    return AnyShape(parameters).status().error().str();
  }
};

TEST_F(LoadingCalls, OfAnObjectInFiles) {
  {
    AnyShape const shape(parametersFor());
    EXPECT_TRUE(shape.status());
    EXPECT_EQ(shape.voxels(), voxels);
    EXPECT_EQ(shape.points(), points);
    EXPECT_EQ(FakeHost::calls(),
              (Calls{"ObjectModel::createQuery", "Query::load 'any'", "Query::run",
                     "ObjectModel::activeGraph 'cache/liquid'",
                     "ObjectModel::createActiveGraph 'cache/liquid'",
                     "ActiveGraph::createCacheResourceImporter 'cache/liquid'",
                     "CacheResourceImporter::readFiles 0 0 'liquid' ''",
                     "CacheResourceImporter::resIDs 'liquid' 12", "ActiveGraph::resource 12 'id'",
                     "CacheResource::load", "StateServer::findObject 'liquid'",
                     "Layout::setVoxelScale 0.1"}));
    FakeHost::clearCalls();
  }
  EXPECT_EQ(FakeHost::calls(), (Calls{"ObjectModel::activeGraph 'cache/liquid'",
                                      "ObjectModel::removeActiveGraph 'cache/liquid'"}));
}

TEST_F(LoadingCalls, OfAnObjectInMemory) {
  publish();
  {
    AnyShape const shape(parametersFor());
    EXPECT_TRUE(shape.status());
    // The resource is free of handles when it is removed, and the importer gets the folder itself.
    EXPECT_EQ(
        FakeHost::calls(),
        (Calls{"ObjectModel::createQuery", "Query::load 'any'", "Query::run",
               "File::createTempFolder", "ObjectModel::activeGraph 'scene'",
               "ActiveGraph::createCacheResource 12 'fake-temp' 'liquid' '' ''",
               "CacheResource::save 'liquid' 0",
               "ActiveGraph::removeResource 12 'created' handles=0",
               "ObjectModel::activeGraph 'fake-temp'", "ObjectModel::createActiveGraph 'fake-temp'",
               "ActiveGraph::createCacheResourceImporter 'fake-temp'",
               "CacheResourceImporter::readFiles 0 0 'liquid' ''",
               "CacheResourceImporter::resIDs 'liquid' 12", "ActiveGraph::resource 12 'id'",
               "CacheResource::load", "StateServer::findObject 'liquid'",
               "Layout::setVoxelScale 0.1"}));
    FakeHost::clearCalls();
  }
  EXPECT_EQ(FakeHost::calls(), (Calls{"ObjectModel::activeGraph 'fake-temp'",
                                      "ObjectModel::removeActiveGraph 'fake-temp'",
                                      "File::deleteFolder 'fake-temp'"}));
}

TEST_F(LoadingCalls, RemoveTheResourceOfAFailedSave) {
  publish();
  FakeHost::script().failing = {"CacheResource::save"};
  EXPECT_EQ(errorOf(parametersFor()), "Failed to write to temporary cache folder.");
  EXPECT_EQ(FakeHost::calls("ActiveGraph::removeResource"),
            (Calls{"ActiveGraph::removeResource 12 'created' handles=0"}));
  EXPECT_EQ(FakeHost::calls("File::deleteFolder"), (Calls{"File::deleteFolder 'fake-temp'"}));
  EXPECT_EQ(FakeHost::calls("ObjectModel::removeActiveGraph"), Calls{});
}

TEST_F(LoadingCalls, WriteNowhereWithoutATemporaryFolder) {
  publish();
  FakeHost::script().failing = {"File::createTempFolder"};
  EXPECT_EQ(errorOf(parametersFor()), "Failed to write to temporary cache folder.");
  EXPECT_EQ(FakeHost::calls("ActiveGraph::"), Calls{});
  EXPECT_EQ(FakeHost::calls("File::deleteFolder"), Calls{});
}

TEST_F(LoadingCalls, EndWithAnInvalidQuery) {
  FakeHost::script().query.valid = false;
  EXPECT_EQ(errorOf(parametersFor("rubbish")), "Invalid object query: 'rubbish'.");
  EXPECT_EQ(FakeHost::calls(), (Calls{"ObjectModel::createQuery", "Query::load 'rubbish'"}));
}

TEST_F(LoadingCalls, TakeAGraphThatIsThereWithoutMakingOne) {
  API::ObjectModel::createActiveGraph("cache/liquid");
  FakeHost::clearCalls();
  EXPECT_EQ(errorOf(parametersFor()), "");
  EXPECT_EQ(FakeHost::calls("ObjectModel::createActiveGraph"), Calls{});
}

TEST_F(LoadingCalls, RemoveNoGraphThatTheHostNoLongerKnows) {
  {
    AnyShape const shape(parametersFor());
    API::ObjectModel::removeActiveGraph("cache/liquid");
    FakeHost::clearCalls();
  }
  EXPECT_EQ(FakeHost::calls(), (Calls{"ObjectModel::activeGraph 'cache/liquid'"}));
}

TEST_F(LoadingCalls, EndWithoutAGraph) {
  FakeHost::script().failing = {"ObjectModel::createActiveGraph"};
  EXPECT_EQ(errorOf(parametersFor()), "Could not create active graph for path: 'cache/liquid'");
  EXPECT_EQ(FakeHost::calls("ActiveGraph::"), Calls{});
  EXPECT_EQ(FakeHost::calls("ObjectModel::removeActiveGraph"), Calls{});
}

TEST_F(LoadingCalls, SearchTheWholeFolderForAnUnnamedObject) {
  FakeHost::script().query.name = "";
  EXPECT_EQ(errorOf(parametersFor()), "");
  EXPECT_EQ(FakeHost::calls("ActiveGraph::createCacheResourceImporter"),
            (Calls{"ActiveGraph::createCacheResourceImporter 'cache/'"}));
  EXPECT_EQ(FakeHost::calls("CacheResourceImporter::"),
            (Calls{"CacheResourceImporter::readFiles 0 0 '' ''",
                   "CacheResourceImporter::resIDs 'liquid' 12"}));
}

TEST_F(LoadingCalls, TakeTheNameOutOfTheDescription) {
  struct Case {
    char const* info;
    char const* name;
  };
  for (auto const& c :
       {Case{"Query Filters: name=a b,type=object; Binding: name=x", "a b"},
        Case{"name=x Filters name=,", ""}, Case{"Filters: name=last", "last"},
        Case{"Filters: type=object", ""}, Case{"nothing to go by", ""}, Case{"Filters", ""}}) {
    FakeHost::script().query.info = c.info;
    FakeHost::clearCalls();
    AnyShape const shape(parametersFor());
    EXPECT_EQ(FakeHost::calls("CacheResourceImporter::readFiles"),
              (Calls{"CacheResourceImporter::readFiles 0 0 '" + std::string(c.name) + "' ''"}))
        << c.info;
  }
}

TEST_F(LoadingCalls, NeedANamedObjectExactlyOnce) {
  FakeHost::script().objectNames = {"liquid", "liquid2"};
  EXPECT_EQ(errorOf(parametersFor()), "Could not find object 'liquid' in path 'cache/liquid'");
  FakeHost::script().objectNames = {};
  EXPECT_EQ(errorOf(parametersFor()), "Could not find object 'liquid' in path 'cache/liquid'");
}

TEST_F(LoadingCalls, TakeTheFirstOfSeveralUnnamedObjects) {
  FakeHost::script().query.name = "";
  FakeHost::script().objectNames = {"liquid", "spray", "zinc"};
  AnyShape const shape(parametersFor());
  EXPECT_TRUE(shape.status());
  auto const warnings = shape.status().warnings();
  ASSERT_EQ(warnings.count(), 1u);
  EXPECT_EQ(warnings[0], "Found multiple objects in path 'cache/'. Using object 'liquid'.");
}

TEST_F(LoadingCalls, NeedOneResourceExactly) {
  FakeHost::script().resourceIDs = {};
  EXPECT_EQ(errorOf(parametersFor()), "Could not figure what resource ID to use: 0 found.");
  FakeHost::script().resourceIDs = {"a", "b", "c"};
  EXPECT_EQ(errorOf(parametersFor()), "Could not figure what resource ID to use: 3 found.");
  EXPECT_EQ(FakeHost::calls("ActiveGraph::resource"), Calls{});
}

TEST_F(LoadingCalls, NameANegativeFrameThatDoesNotLoad) {
  FakeHost::script().query.frame = -12;
  FakeHost::script().failing = {"CacheResource::load"};
  EXPECT_EQ(errorOf(parametersFor()), "Failed to load frame '-12'.");
}

TEST_F(LoadingCalls, LoadEverythingUnlessClipped) {
  auto parameters = parametersFor();
  parameters.channels = {"distance"};
  parameters.clip_bbox = {{1.f, 2.f, 3.f}, {4.f, 5.f, 6.f}};
  EXPECT_EQ(errorOf(parameters), "");
  auto const whole = FakeHost::script().loadedWith;
  EXPECT_TRUE(whole.channels.empty());
  EXPECT_EQ(whole.bounds.min, Float3(3.4028235e38f));
  EXPECT_EQ(whole.bounds.max, Float3(-3.4028235e38f));
  EXPECT_FALSE(whole.keepLoaded);
  EXPECT_TRUE(whole.points);
  EXPECT_TRUE(whole.voxels);

  parameters.clip = true;
  EXPECT_EQ(errorOf(parameters), "");
  EXPECT_EQ(FakeHost::script().loadedWith.bounds, parameters.clip_bbox);
}

TEST_F(LoadingCalls, GoOnWhereOnlyCountsDecide) {
  publish();
  FakeHost::script().failing = {"CacheResourceImporter::readFiles", "CacheResourceImporter::resIDs",
                                "ActiveGraph::removeResource"};
  EXPECT_EQ(errorOf(parametersFor()), "");
}

TEST_F(LoadingCalls, NameTheStateThatLacksTheObject) {
  FakeHost::script().failing = {"StateServer::findObject"};
  EXPECT_EQ(errorOf(parametersFor()), "Could not find object in state server 'state'");
}

TEST_F(LoadingCalls, RemoveGraphAndFolderAfterEveryError) {
  struct Case {
    char const* failing;
    std::vector<std::string> names;
    std::vector<std::string> ids;
    char const* error;
  };
  for (auto const& c :
       {Case{"", {}, {"id"}, "Could not find object 'liquid' in path 'fake-temp'"},
        Case{"", {"liquid"}, {}, "Could not figure what resource ID to use: 0 found."},
        Case{"CacheResource::load", {"liquid"}, {"id"}, "Failed to load frame '12'."},
        Case{"ActiveGraph::resource", {"liquid"}, {"id"}, "Invalid state server."},
        Case{"Resource::dataSource", {"liquid"}, {"id"}, "Invalid state server."},
        Case{"StateServer::findObject",
             {"liquid"},
             {"id"},
             "Could not find object in state server 'state'"}}) {
    SCOPED_TRACE(c.error);
    publish();
    FakeHost::script().failing = {c.failing};
    FakeHost::script().objectNames = c.names;
    FakeHost::script().resourceIDs = c.ids;
    EXPECT_EQ(errorOf(parametersFor()), c.error);
    EXPECT_EQ(FakeHost::calls("ObjectModel::removeActiveGraph"),
              (Calls{"ObjectModel::removeActiveGraph 'fake-temp'"}));
    EXPECT_EQ(FakeHost::calls("File::deleteFolder"), (Calls{"File::deleteFolder 'fake-temp'"}));
    EXPECT_EQ(FakeHost::calls("Layout::"), Calls{});
  }
}

TEST_F(LoadingCalls, TakeComponentsUnderTheObjectsName) {
  auto const named =
      API::PointComponent(server.createComponent(API::PointComponentType, "liquid-foam", 1.f));
  object.addComponent(named);
  auto parameters = parametersFor();
  parameters.point_component = "foam";
  AnyShape const shape(parameters);
  EXPECT_EQ(shape.points(), named);
  EXPECT_TRUE(shape.status().warnings().empty());
}

TEST_F(LoadingCalls, PreferTheComponentOfTheVeryName) {
  object.addComponent(
      API::VoxelComponent(server.createComponent(API::VoxelComponentType, "liquid-volume", 1.f)));
  EXPECT_EQ(AnyShape(parametersFor()).voxels(), voxels);
}

TEST_F(LoadingCalls, RefuseAComponentOfTheOtherKindWithoutAWord) {
  // Nor is one tried that has the object's name before it.
  object.addComponent(
      API::PointComponent(server.createComponent(API::PointComponentType, "liquid-volume", 1.f)));
  object.addComponent(
      API::VoxelComponent(server.createComponent(API::VoxelComponentType, "liquid-particle", 1.f)));
  auto parameters = parametersFor();
  parameters.point_component = "volume";
  parameters.voxel_component = "particle";
  AnyShape const shape(parameters);
  EXPECT_TRUE(shape.status());
  EXPECT_TRUE(shape.status().warnings().empty());
  EXPECT_FALSE(shape.points().valid());
  EXPECT_FALSE(shape.voxels().valid());
}

TEST_F(LoadingCalls, ScaleVelocitiesOnlyWhereTheyExist) {
  EXPECT_EQ(errorOf(parametersFor()), "");
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), Calls{});
  for (char const* name : {"velocity_u", "velocity_v", "velocity_w"}) {
    server.createChannel(voxels, API::DataType::Float, name);
  }
  server.createChannel(voxels, API::DataType::Float3, "velocity");
  server.createChannel(points, API::DataType::Float3, "velocity");
  FakeHost::clearCalls();
  EXPECT_EQ(errorOf(parametersFor()), "");
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), Calls(5, "Layout::traverse 3"));
}

TEST_F(LoadingCalls, LeaveNoHandleBehindButTheComponents) {
  int const serverHandles = FakeHost::handleCount(server);
  int const objectHandles = FakeHost::handleCount(object);
  int const voxelHandles = FakeHost::handleCount(voxels);
  AnyShape const shape(parametersFor());
  EXPECT_EQ(FakeHost::handleCount(server), serverHandles);
  EXPECT_EQ(FakeHost::handleCount(object), objectHandles);
  EXPECT_EQ(FakeHost::handleCount(voxels), voxelHandles + 1);
  EXPECT_EQ(FakeHost::handleCount(API::ObjectModel::activeGraph("cache/liquid")), 1);
}

TEST_F(LoadingCalls, ScaleTheVoxelsLayoutElseThePoints) {
  auto parameters = parametersFor();
  parameters.space_scale = 2.f;
  { AnyShape const shape(parameters); }
  EXPECT_EQ(FakeHost::calls("Layout::setVoxelScale"), (Calls{"Layout::setVoxelScale 0.2"}));
  FakeHost::clearCalls();
  parameters.voxel_component = "";
  { AnyShape const shape(parameters); }
  EXPECT_EQ(FakeHost::calls("Layout::setVoxelScale"), (Calls{"Layout::setVoxelScale 0.4"}));
}

TEST_F(LoadingCalls, PositionsNeverExceedTheElementCount) {
  FakeHost::script().nextChannel.count = 4;
  server.createChannel(points, API::DataType::Float3, "position");
  FakeHost::addTile(API::Layout(points.layout()), 7, {0, 0, 0});
  FakeHost::addTile(API::Layout(points.layout()), 7, {5, 0, 0});
  FakeHost::setElementCount(points, 6);
  Points const shape(parametersFor<PointsParameters>());
  FakeHost::clearCalls();
  API::Array<Float3> world;
  EXPECT_TRUE(shape.positions(world));
  EXPECT_EQ(world.count(), 6u);
  EXPECT_EQ(FakeHost::calls("Layout::tileIterator"), (Calls{"Layout::tileIterator 7 7 0"}));
}

}  // namespace
}  // namespace Velmor::Processing
