#include <gtest/gtest.h>

#include <algorithm>

#include "host/model/scanned_folder.h"
#include "support/message_log.h"

namespace Velmor::Test {
namespace {

TEST(ImporterPlaces, FindsTheCanonicalFolderFromTheCacheAndFromItself) {
  ScannedFolder const cache(
      {"liquid/liquid.0001.vdb", "liquid/liquid.0002.vdb", "smoke/smoke.0001.vdb"});
  for (char const* const end : {"", "/", "//"}) {
    EXPECT_EQ(framesIn(cache.path() + end), (Names{"liquid 1", "liquid 2", "smoke 1"})) << end;
    EXPECT_EQ(framesIn(cache.path("liquid") + end), (Names{"liquid 1", "liquid 2"})) << end;
  }
  EXPECT_EQ(objectsIn(cache.path("liquid"), "liquid"), Names{"liquid"});
  EXPECT_EQ(objectsIn(cache.path(), "liquid"), Names{"liquid"});
  EXPECT_EQ(filesFor(cache.path() + "/", "smoke", 1, cache.path()), Names{"smoke/smoke.0001.vdb"});
}

TEST(ImporterPlaces, FindsFlatFilesFromTheCacheAndBehindTheObjectsName) {
  ScannedFolder const cache({"liquid.0001.vdb", "liquid.0002.vdb", "smoke.0001.vdb"});
  EXPECT_EQ(framesIn(cache.path()), (Names{"liquid 1", "liquid 2", "smoke 1"}));
  EXPECT_EQ(framesIn(cache.path("liquid"), "liquid"), (Names{"liquid 1", "liquid 2"}));
  EXPECT_EQ(framesIn(cache.path("liquid")), (Names{"liquid 1", "liquid 2"}))
      << "the path itself names the object";
  EXPECT_EQ(filesFor(cache.path("liquid"), "liquid", 2, cache.path()), Names{"liquid.0002.vdb"});
}

TEST(ImporterPlaces, TakesASingleFileAsALoaderWritesItsPath) {
  ScannedFolder const cache({"liquid.0012.vdb", "liquid.0013.vdb", "mist.vdb"});
  auto const file = cache.path("liquid.0012.vdb");
  for (char const* const end : {"", "/", "//", "/liquid", "//liquid"})
    EXPECT_EQ(framesIn(file + end), Names{"liquid 12"}) << end;
  EXPECT_EQ(objectsIn(file + "/liquid", "liquid"), Names{"liquid"});
  EXPECT_EQ(objectsIn(file + "/", ""), Names{"liquid"});
  EXPECT_EQ(filesFor(file + "/liquid", "liquid", 12, cache.path()), Names{"liquid.0012.vdb"});
  EXPECT_EQ(filesFor(file + "/liquid", "liquid", 13, cache.path()), Names{});
  EXPECT_EQ(filesFor(cache.path("mist.vdb/mist"), "mist", 99, cache.path()), Names{"mist.vdb"});
}

TEST(ImporterPlaces, OtherNamesBehindAFileOrFolderFindNothing) {
  ScannedFolder const cache({"liquid.0012.vdb", "notes.txt"});
  MessageLog const log;
  EXPECT_EQ(objectsIn(cache.path("liquid.0012.vdb/smoke"), "smoke"), Names{});
  EXPECT_EQ(objectsIn(cache.path("smoke"), "smoke"), Names{});
  EXPECT_TRUE(log.errors().empty());
  EXPECT_EQ(objectsIn(cache.path("smoke"), "liquid"), Names{});
  EXPECT_EQ(objectsIn(cache.path("liquid.0012.vdb/a/liquid"), "liquid"), Names{});
  EXPECT_EQ(objectsIn(cache.path("liquid") + "/"), Names{}) << "a separator says folder";
  EXPECT_EQ(log.errors(),
            (Names{about(cache.path("smoke"), "there is no such folder or file"),
                   about(cache.path("liquid.0012.vdb/a/liquid"), "there is no such folder or file"),
                   about(cache.path("liquid"), "there is no such folder or file")}));
}

TEST(ImporterPlaces, FilesThatAreNoCacheFilesAreRefused) {
  ScannedFolder const cache({"notes.txt"});
  MessageLog const log;
  auto const importer = importerOf(cache.path("notes.txt"));
  auto const status = importer.readFiles(false, false, "", "");
  EXPECT_EQ(status.message(), about(cache.path("notes.txt"), "it is no .vdb file"));
  EXPECT_EQ(log.errors(), Names{status.message().str()});
}

TEST(ImporterPlaces, RelativePathsWork) {
  ScannedFolder const cache({"liquid/liquid.0001.vdb", "smoke.0001.vdb"});
  auto const before = std::filesystem::current_path();
  std::filesystem::current_path(cache.path());
  EXPECT_EQ(objectsIn("."), (Names{"liquid", "smoke"}));
  EXPECT_EQ(objectsIn("./"), (Names{"liquid", "smoke"}));
  EXPECT_EQ(objectsIn("liquid"), Names{"liquid"});
  EXPECT_EQ(objectsIn("smoke", "smoke"), Names{"smoke"});
  EXPECT_EQ(objectsIn("smoke.0001.vdb"), Names{"smoke"});
  EXPECT_EQ(objectsIn("smoke.0001.vdb/smoke", "smoke"), Names{"smoke"});
  std::filesystem::current_path(before);
}

TEST(ImporterPlaces, AnObjectHasOnePlaceItsOwnFolder) {
  ScannedFolder const cache({"liquid/liquid.0001.vdb", "liquid.0001.vdb", "liquid.0002.vdb"});
  EXPECT_EQ(framesIn(cache.path()), Names{"liquid 1"});
  EXPECT_EQ(filesFor(cache.path(), "liquid", 1, cache.path()), Names{"liquid/liquid.0001.vdb"});
  EXPECT_EQ(framesIn(cache.path("liquid"), "liquid"), Names{"liquid 1"})
      << "a listing of the cache and a load from it agree";
}

TEST(ImporterPlaces, OldCopiesBelowTheObjectsFolderDoNotCount) {
  ScannedFolder const cache(
      {"liquid/liquid.0001.vdb", "liquid/liquid/liquid.0001.vdb", "liquid/old/liquid.0001.vdb"});
  EXPECT_EQ(filesFor(cache.path("liquid"), "liquid", 1, cache.path()),
            Names{"liquid/liquid.0001.vdb"});
  EXPECT_EQ(framesIn(cache.path("liquid") + "/"), Names{"liquid 1"});
}

TEST(ImporterPlaces, OnlyFoldersNamedLikeTheirObjectAreLookedInto) {
  ScannedFolder const cache({"liquid/liquid.0001.vdb", "liquid/foam.0001.vdb",
                             "renders/liquid.0001.vdb", "a/b/b.0001.vdb"});
  EXPECT_EQ(framesIn(cache.path()), Names{"liquid 1"});
  EXPECT_EQ(framesIn(cache.path("liquid")), (Names{"foam 1", "liquid 1"}));
}

TEST(ImporterPlaces, FlatFilesAreFoundBesideAFolderOfThatNameThatHoldsOtherThings) {
  ScannedFolder const cache({"liquid/textures.txt", "liquid/foam.0001.vdb", "liquid.0001.vdb"});
  EXPECT_EQ(framesIn(cache.path()), Names{"liquid 1"});
  EXPECT_EQ(filesFor(cache.path("liquid"), "liquid", 1, cache.path()), Names{"liquid.0001.vdb"});
}

TEST(ImporterPlaces, ObjectsInFoldersOfUnqueryableNamesAreReachable) {
  ScannedFolder const cache({"a,b/a,b.0001.vdb"});
  MessageLog const log;
  EXPECT_EQ(objectsIn(cache.path()), Names{"a_b"});
  EXPECT_EQ(filesFor(cache.path("a_b"), "a_b", 1, cache.path()), Names{"a,b/a,b.0001.vdb"});
}

TEST(ImporterPlaces, AFolderMayBeNamedLikeAFile) {
  ScannedFolder const cache({"x.vdb/liquid.0001.vdb", "x.vdb/x.vdb.0001.vdb", "y.0001.vdb"});
  EXPECT_EQ(objectsIn(cache.path()), (Names{"x.vdb", "y"}));
  EXPECT_EQ(objectsIn(cache.path("x.vdb")), (Names{"liquid", "x.vdb"}));
  EXPECT_EQ(filesFor(cache.path("x.vdb/liquid"), "liquid", 1, cache.path()),
            Names{"x.vdb/liquid.0001.vdb"});
}

TEST(ImporterPlaces, RecursionTakesEveryFolderBelow) {
  ScannedFolder const cache({"a.0001.vdb", "x/b.0001.vdb", "x/y/c.0001.vdb", "x/y/a.0001.vdb"});
  EXPECT_EQ(objectsIn(cache.path(), "", "", true), (Names{"a", "b", "c"}));
  EXPECT_EQ(framesIn(cache.path(), "a", true), (Names{"a 1", "a 1"}));
  EXPECT_EQ(objectsIn(cache.path()), Names{"a"});
}

TEST(ImporterPlaces, APatternRestrictsToFileNamesThatHoldIt) {
  ScannedFolder const cache({"a.0001.vdb", "a.0002.vdb", "b.0001.vdb", "c/c.0002.vdb"});
  EXPECT_EQ(objectsIn(cache.path(), "", ".0002."), (Names{"a", "c"}));
  EXPECT_EQ(objectsIn(cache.path(), "a", "b."), Names{});
  EXPECT_EQ(objectsIn(cache.path("a.0001.vdb"), "", "0002"), Names{});
  EXPECT_EQ(objectsIn(cache.path("a.0001.vdb"), "", "0001"), Names{"a"});
}

TEST(ImporterPlaces, ReadsAnewForOtherArgumentsOrWhenToldTo) {
  ScannedFolder const cache({"a.0001.vdb"});
  auto const importer = importerOf(cache.path());
  importer.readFiles(false, false, "", "");
  cache.touch("b.0001.vdb");
  importer.readFiles(false, false, "", "");
  EXPECT_EQ(namesOf(importer), Names{"a"}) << "nothing asks for a second look";
  importer.readFiles(false, true, "", "");
  EXPECT_EQ(namesOf(importer), (Names{"a", "b"}));
  cache.touch("c.0001.vdb");
  importer.readFiles(false, false, "c", "");
  EXPECT_EQ(namesOf(importer), Names{"c"});
}

TEST(ImporterPlaces, AnEmptyFolderIsReadButHoldsNothing) {
  ScannedFolder const cache;
  MessageLog const log;
  auto const importer = importerOf(cache.path());
  EXPECT_TRUE(importer.readFiles(false, false, "", "").succeeded());
  EXPECT_TRUE(importer.objectNames().empty());
  EXPECT_TRUE(Host::cacheFiles(importer).empty());
  EXPECT_TRUE(log.errors().empty() && log.warnings().empty());
}

TEST(ImporterPlaces, CacheFilesNameThePathsFound) {
  ScannedFolder const cache({"liquid/liquid.0001.vdb", "smoke.vdb"});
  auto const importer = importerOf(cache.path());
  importer.readFiles(false, false, "", "");
  auto const files = Host::cacheFiles(importer);
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[0].path, cache.path("liquid/liquid.0001.vdb"));
  EXPECT_TRUE(files[0].numbered);
  EXPECT_EQ(files[1].path, cache.path("smoke.vdb"));
  EXPECT_FALSE(files[1].numbered);
}

TEST(ImporterPlaces, InvalidHandlesDoNothing) {
  API::Runtime::CacheResourceImporter const importer;
  API::Array<API::String> ids;
  EXPECT_FALSE(importer.readFiles(false, false, "", "").succeeded());
  EXPECT_FALSE(importer.resIDs("liquid", 1, ids).succeeded());
  EXPECT_TRUE(importer.objectNames().empty());
  EXPECT_TRUE(Host::cacheFiles(importer).empty());
  EXPECT_FALSE(API::Runtime::ActiveGraph().createCacheResourceImporter("x").valid());
}

}  // namespace
}  // namespace Velmor::Test
