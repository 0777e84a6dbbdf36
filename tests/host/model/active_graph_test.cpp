#include <gtest/gtest.h>

#include "host/model/scanned_folder.h"
#include "velmorhost/settings.h"

namespace Velmor::Test {
namespace {

using API::Runtime::ActiveGraph;
using API::Runtime::CacheResource;

/// A graph that no search finds: the registry is not under test here.
ActiveGraph unlistedGraph() {
  ActiveGraph const graph(API::ObjectModel::createActiveGraph("unlisted"));
  API::ObjectModel::removeActiveGraph(graph.name());
  return graph;
}

std::string fileOf(ActiveGraph const& graph, int frame, char const* object,
                   char const* pattern = "") {
  auto const resource = CacheResource(graph.createCacheResource(frame, "/c", object, pattern, ""));
  auto const id = resource.resID();
  graph.removeResource(frame, id);
  return id.str();
}

TEST(CacheResources, AreNamedAfterObjectAndFrame) {
  auto const graph = unlistedGraph();
  EXPECT_EQ(fileOf(graph, 12, "liquid"), "/c/liquid.0012.vdb");
  EXPECT_EQ(fileOf(graph, 0, "liquid"), "/c/liquid.0000.vdb");
  EXPECT_EQ(fileOf(graph, -12, "liquid"), "/c/liquid.-0012.vdb");
  EXPECT_EQ(fileOf(graph, 123456, "liquid"), "/c/liquid.123456.vdb");
  EXPECT_EQ(fileOf(graph, -2147483647 - 1, "liquid"), "/c/liquid.-2147483648.vdb");
  EXPECT_EQ(fileOf(graph, 1, "two words"), "/c/two words.0001.vdb");
}

TEST(CacheResources, ObjectNamesCannotLeaveTheFolder) {
  auto const graph = unlistedGraph();
  EXPECT_EQ(fileOf(graph, 1, "../../etc/x"), "/c/_._.._etc_x.0001.vdb");
  EXPECT_EQ(fileOf(graph, 1, "a/b"), "/c/a_b.0001.vdb");
  EXPECT_EQ(fileOf(graph, 1, ".hidden"), "/c/_hidden.0001.vdb");
  EXPECT_EQ(fileOf(graph, 1, ""), "/c/_.0001.vdb");
}

TEST(CacheResources, PatternsPlaceTheFrame) {
  auto const graph = unlistedGraph();
  EXPECT_EQ(fileOf(graph, 12, "liquid", "shot_######.vdb"), "/c/shot_000012.vdb");
  EXPECT_EQ(fileOf(graph, -12, "liquid", "shot.##"), "/c/shot.-12.vdb");
  EXPECT_EQ(fileOf(graph, 12, "liquid", "whole"), "/c/whole.vdb");
  EXPECT_FALSE(graph.createCacheResource(12, "/c", "liquid", "a/b.####.vdb", "").valid());
}

TEST(CacheResources, HaveIdentifiersOfTheirOwn) {
  auto const graph = unlistedGraph();
  CacheResource const first(graph.createCacheResource(12, "/c", "liquid", "", ""));
  CacheResource const second(graph.createCacheResource(12, "/c", "liquid", "", ""));
  EXPECT_NE(first.resID(), second.resID());
  EXPECT_TRUE(graph.removeResource(12, first.resID()).succeeded());
  EXPECT_FALSE(graph.resource(12, first.resID()).valid());
  EXPECT_TRUE(graph.resource(12, second.resID()).valid());
  EXPECT_TRUE(first.valid());
}

TEST(CacheResources, AreFreshForEachCallAndOnlyAtTheirFrame) {
  auto const graph = unlistedGraph();
  CacheResource const made(graph.createCacheResource(12, "/c", "liquid", "", ""));
  CacheResource const again(graph.resource(12, made.resID()));
  ASSERT_TRUE(again.valid());
  EXPECT_NE(again, made);
  EXPECT_NE(again, CacheResource(graph.resource(12, made.resID())));
  EXPECT_EQ(again.resID(), made.resID());
  EXPECT_FALSE(graph.resource(13, made.resID()).valid());
  EXPECT_FALSE(graph.resource(12, "").valid());
  EXPECT_FALSE(graph.resource(12, "none").valid());
}

TEST(CacheResources, RemovalOfUnknownOnesFailsInWords) {
  auto const graph = unlistedGraph();
  CacheResource const made(graph.createCacheResource(12, "/c", "liquid", "", ""));
  EXPECT_EQ(graph.removeResource(12, "none").message(),
            "graph 'unlisted' has no resource 'none' of frame 12");
  EXPECT_FALSE(graph.removeResource(13, made.resID()).succeeded());
  EXPECT_TRUE(graph.removeResource(12, made.resID()).succeeded());
  EXPECT_FALSE(graph.removeResource(12, made.resID()).succeeded());
}

TEST(CacheResources, RemovalLeavesTheFile) {
  ScannedFolder const cache({"liquid.0012.vdb"});
  auto const graph = unlistedGraph();
  CacheResource const resource(graph.createCacheResource(12, cache.path(), "liquid", "", ""));
  EXPECT_TRUE(graph.removeResource(12, resource.resID()).succeeded());
  EXPECT_TRUE(std::filesystem::exists(cache.path("liquid.0012.vdb")));
}

TEST(CacheResources, OfImportersAndOfWritersDoNotMeet) {
  ScannedFolder const cache({"liquid.0012.vdb"});
  auto const graph = unlistedGraph();
  CacheResource const made(graph.createCacheResource(12, cache.path(), "liquid", "", ""));
  API::Runtime::CacheResourceImporter const importer(
      graph.createCacheResourceImporter(cache.path()));
  importer.readFiles(false, false, "liquid", "");
  API::Array<API::String> ids;
  importer.resIDs("liquid", 12, ids);
  ASSERT_EQ(ids.count(), 1u);
  EXPECT_NE(ids[0], made.resID());
  graph.removeResource(12, made.resID());
  EXPECT_TRUE(graph.resource(12, ids[0]).valid());
}

TEST(CacheResources, CanBeMadeToFail) {
  auto const graph = unlistedGraph();
  Host::failCalls(Host::Call::CreateCacheResource, 1, 1);
  EXPECT_TRUE(graph.createCacheResource(1, "/c", "liquid", "", "").valid());
  EXPECT_FALSE(graph.createCacheResource(1, "/c", "liquid", "", "").valid());
  EXPECT_TRUE(graph.createCacheResource(1, "/c", "liquid", "", "").valid());
  Host::clearFailures();
}

TEST(CacheResources, NeedAFolderAndAGraph) {
  EXPECT_FALSE(unlistedGraph().createCacheResource(1, "", "liquid", "", "").valid());
  ActiveGraph const none;
  EXPECT_FALSE(none.createCacheResource(1, "/c", "liquid", "", "").valid());
  EXPECT_FALSE(none.resource(1, "x").valid());
  EXPECT_FALSE(none.removeResource(1, "x").succeeded());
  EXPECT_TRUE(none.name().empty());
}

}  // namespace
}  // namespace Velmor::Test
