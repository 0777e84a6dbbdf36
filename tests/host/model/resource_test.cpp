#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "host/model/scanned_folder.h"
#include "support/message_log.h"
#include "support/object_builder.h"
#include "velmorhost/settings.h"

namespace Velmor::Test {
namespace {

using API::Runtime::ActiveGraph;
using API::Runtime::CacheResource;
using API::Runtime::CacheResourceImporter;
using API::VRC::Compression;

/// A folder with a graph open on it, and an object to write there.
class Resources : public testing::Test {
 protected:
  ~Resources() override { Host::clearFailures(); }

  static API::Object sphere(std::string const& name) {
    ObjectBuilder const builder(name);
    auto const volume = builder.voxels();
    builder.sphere(volume, 4.f);
    return builder.object();
  }

  CacheResource resourceOf(int frame, std::string const& object, std::string const& path) const {
    return graph.createCacheResource(frame, path, object, "", "");
  }
  CacheResource written(int frame, std::string const& object) const {
    auto const resource = resourceOf(frame, object, cache.path(object));
    auto const status = resource.save(sphere(object), Compression::Default);
    EXPECT_TRUE(status.succeeded()) << status.message();
    return resource;
  }
  /// As clients that only know a path find it.
  CacheResource found(std::string const& path, std::string const& object, int frame) const {
    CacheResourceImporter const importer(graph.createCacheResourceImporter(path));
    importer.readFiles(false, false, object, "");
    API::Array<API::String> ids;
    importer.resIDs(object, frame, ids);
    return ids.count() == 1 ? CacheResource(graph.resource(frame, ids[0])) : CacheResource();
  }

  static API::VoxelChannel distanceOf(CacheResource const& resource, std::string const& object) {
    API::Object const loaded(API::StateServer(resource.dataSource()).findObject(object));
    return API::VoxelChannel(
        API::Component(loaded.findComponent("volume")).findChannel("distance"));
  }

  static std::vector<float> leafValues(API::VoxelChannel const& channel) {
    std::vector<float> values;
    API::Layout const layout(channel.layout());
    forTiles(layout, layout.maxDepth(), layout.maxDepth(), [&](API::TreeIndex const& index) {
      auto const cells = channel.tileData<float>(index);
      values.insert(values.end(), cells.data, cells.data + cells.count);
    });
    return values;
  }

  ScannedFolder const cache{};
  ActiveGraph const graph{[] {
    ActiveGraph const made(API::ObjectModel::createActiveGraph("resource tests"));
    API::ObjectModel::removeActiveGraph(made.name());
    return made;
  }()};
};

TEST_F(Resources, SaveMakesTheCanonicalFileAndItsFolder) {
  written(12, "liquid");
  written(-12, "liquid");
  EXPECT_EQ(framesIn(cache.path()), (Names{"liquid -12", "liquid 12"}));
  EXPECT_TRUE(std::filesystem::is_regular_file(cache.path("liquid/liquid.0012.vdb")));
  EXPECT_TRUE(std::filesystem::is_regular_file(cache.path("liquid/liquid.-0012.vdb")));
}

TEST_F(Resources, WhatIsSavedIsLoadedFromTheImportersResource) {
  written(12, "liquid");
  auto const resource = found(cache.path("liquid"), "liquid", 12);
  ASSERT_TRUE(resource.valid());
  EXPECT_FALSE(resource.dataSource().valid()) << "nothing is loaded before it is asked for";
  ASSERT_TRUE(resource.load({}).succeeded());
  auto const before = API::Component(sphere("liquid").findComponent("volume"));
  EXPECT_EQ(leafValues(distanceOf(resource, "liquid")),
            leafValues(API::VoxelChannel(before.findChannel("distance"))));
}

TEST_F(Resources, TwoLoadsOfOneFileShareNothing) {
  written(12, "liquid");
  auto const one = found(cache.path("liquid"), "liquid", 12);
  auto const two = found(cache.path("liquid"), "liquid", 12);
  ASSERT_TRUE(one.load({}).succeeded());
  ASSERT_TRUE(two.load({}).succeeded());
  EXPECT_NE(one.dataSource(), two.dataSource());
  auto const untouched = leafValues(distanceOf(two, "liquid"));
  ASSERT_FALSE(untouched.empty());
  auto const changed = distanceOf(one, "liquid");
  API::Layout const layout(changed.layout());
  forTiles(layout, 0, layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const cells = changed.tileData<float>(index);
    std::fill_n(cells.data, cells.count, 9.f);
  });
  EXPECT_EQ(leafValues(distanceOf(two, "liquid")), untouched);
}

TEST_F(Resources, AnotherLoadBringsAFreshStateUnlessToldToKeepIt) {
  written(12, "liquid");
  auto const resource = found(cache.path("liquid"), "liquid", 12);
  CacheResource::LoadOptions options;
  options.keepLoaded = true;
  ASSERT_TRUE(resource.load(options).succeeded()) << "there is nothing to keep yet";
  auto const first = resource.dataSource();
  ASSERT_TRUE(first.valid());
  ASSERT_TRUE(resource.load(options).succeeded());
  EXPECT_EQ(resource.dataSource(), first);
  options.keepLoaded = false;
  ASSERT_TRUE(resource.load(options).succeeded());
  EXPECT_TRUE(resource.dataSource().valid());
  EXPECT_NE(resource.dataSource(), first);
  EXPECT_TRUE(API::StateServer(first).findObject("liquid").valid()) << "handles stay good";
}

TEST_F(Resources, AFailedLoadLeavesNothingLoadedAndSaysWhy) {
  written(12, "liquid");
  auto const resource = found(cache.path("liquid"), "liquid", 12);
  ASSERT_TRUE(resource.load({}).succeeded());
  std::ofstream(cache.path("liquid/liquid.0012.vdb")) << "not a cache";
  MessageLog const log;
  auto const status = resource.load({});
  EXPECT_FALSE(status.succeeded());
  EXPECT_NE(status.message().str().find("liquid.0012.vdb"), std::string::npos) << status.message();
  EXPECT_EQ(log.errors(), Names{status.message().str()});
  EXPECT_FALSE(resource.dataSource().valid());
}

TEST_F(Resources, EmptyAndVanishedFilesFailToLoad) {
  cache.touch("a.0001.vdb");
  std::ofstream(cache.path("b.0001.vdb"));
  for (char const* const name : {"a", "b"}) {
    MessageLog const log;
    auto const resource = found(cache.path(name), name, 1);
    ASSERT_TRUE(resource.valid());
    if (name[0] == 'a') std::filesystem::remove(cache.path("a.0001.vdb"));
    EXPECT_FALSE(resource.load({}).succeeded());
    EXPECT_EQ(log.errors().size(), 1u);
  }
}

TEST_F(Resources, TheGraphMayGoBeforeItsResources) {
  written(12, "liquid");
  CacheResource resource;
  {
    ActiveGraph const other(API::ObjectModel::createActiveGraph(cache.path("liquid")));
    CacheResourceImporter const importer(other.createCacheResourceImporter(cache.path("liquid")));
    API::ObjectModel::removeActiveGraph(other.name());
    importer.readFiles(false, false, "liquid", "");
    API::Array<API::String> ids;
    importer.resIDs("liquid", 12, ids);
    ASSERT_EQ(ids.count(), 1u);
    resource = CacheResource(other.resource(12, ids[0]));
  }
  EXPECT_TRUE(resource.load({}).succeeded());
}

TEST_F(Resources, ObjectsWithNamesNoFileCanHoldComeBackUnderTheirName) {
  for (std::string const name :
       {"a/b", "my,liquid", ".hidden", "q\"uote", "line\nbreak", "v1.0", "take.0007", "Filters"}) {
    ScannedFolder const folder;  // one object alone, as in a temporary folder
    MessageLog const log;
    auto const resource = resourceOf(3, name, folder.path());
    ASSERT_TRUE(resource.save(sphere(name), Compression::Default).succeeded()) << name;
    CacheResourceImporter const importer(graph.createCacheResourceImporter(folder.path()));
    importer.readFiles(false, false, name, "");
    EXPECT_EQ(importer.objectNames().count(), 1u) << name;
    auto const loaded = found(folder.path(), name, 3);
    ASSERT_TRUE(loaded.load({}).succeeded()) << name;
    EXPECT_TRUE(API::StateServer(loaded.dataSource()).findObject(name).valid()) << name;
  }
}

TEST_F(Resources, ReplacedNamesAreThoseOfTheLoadedObjects) {
  auto const resource = resourceOf(3, "a,b", cache.path());
  ASSERT_TRUE(resource.save(sphere("a,b"), Compression::Default).succeeded());
  MessageLog const log;
  auto const loaded = found(cache.path("a_b"), "a_b", 3);
  ASSERT_TRUE(loaded.load({}).succeeded());
  EXPECT_TRUE(API::StateServer(loaded.dataSource()).findObject("a_b").valid());
}

TEST_F(Resources, FilesWithoutANumberLoadAtAnyFrame) {
  auto const resource =
      CacheResource(graph.createCacheResource(3, cache.path(), "liquid", "liquid", ""));
  ASSERT_TRUE(resource.save(sphere("liquid"), Compression::None).succeeded());
  for (int const frame : {-7, 0, 99})
    EXPECT_TRUE(found(cache.path("liquid"), "liquid", frame).load({}).succeeded()) << frame;
}

TEST_F(Resources, CallsCanBeMadeToFail) {
  MessageLog const log;
  auto const resource = resourceOf(12, "liquid", cache.path("liquid"));
  Host::failCalls(Host::Call::SaveResource);
  EXPECT_FALSE(resource.save(sphere("liquid"), Compression::Default).succeeded());
  EXPECT_FALSE(std::filesystem::exists(cache.path("liquid"))) << "nothing is left behind";
  EXPECT_TRUE(resource.save(sphere("liquid"), Compression::Default).succeeded());
  Host::failCalls(Host::Call::LoadResource);
  EXPECT_FALSE(resource.load({}).succeeded());
  EXPECT_FALSE(resource.dataSource().valid());
  EXPECT_TRUE(resource.load({}).succeeded());
  Host::failCalls(Host::Call::DataSource);
  EXPECT_FALSE(resource.dataSource().valid());
  EXPECT_TRUE(resource.dataSource().valid());
  EXPECT_EQ(log.errors().size(), 2u);
}

TEST_F(Resources, SavingNeedsAnObjectAFolderAndAKnownCompression) {
  MessageLog const log;
  auto const resource = resourceOf(12, "liquid", cache.path("liquid"));
  EXPECT_EQ(resource.save(API::Object(), Compression::Default).message(),
            about(cache.path("liquid/liquid.0012.vdb"), "no object to write"));
  EXPECT_EQ(resource.save(sphere("liquid"), static_cast<Compression>(7)).message(),
            about(cache.path("liquid/liquid.0012.vdb"), "unknown compression 7"));
  EXPECT_FALSE(std::filesystem::exists(cache.path("liquid")));
  cache.touch("file");
  auto const blocked = resourceOf(12, "liquid", cache.path("file/liquid"));
  EXPECT_EQ(blocked.save(sphere("liquid"), Compression::Default).message(),
            about(cache.path("file/liquid"), "cannot make the folder: Not a directory"));
  EXPECT_EQ(log.errors().size(), 3u);
}

TEST_F(Resources, InvalidHandlesDoNothing) {
  CacheResource const none;
  EXPECT_FALSE(none.load({}).succeeded());
  EXPECT_FALSE(none.save(sphere("liquid"), Compression::Default).succeeded());
  EXPECT_FALSE(none.dataSource().valid());
  EXPECT_TRUE(none.resID().empty());
  EXPECT_FALSE(CacheResource(graph).valid());
}

TEST_F(Resources, MayBeLoadedOnSeveralThreads) {
  written(12, "liquid");
  std::vector<std::thread> workers;
  for (int worker = 0; worker < 3; ++worker)
    workers.emplace_back([this] {
      auto const resource = found(cache.path("liquid"), "liquid", 12);
      EXPECT_TRUE(resource.load({}).succeeded());
      EXPECT_TRUE(distanceOf(resource, "liquid").valid());
    });
  for (auto& worker : workers) worker.join();
}

}  // namespace
}  // namespace Velmor::Test
