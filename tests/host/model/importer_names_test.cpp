#include <gtest/gtest.h>

#include "host/model/scanned_folder.h"
#include "support/message_log.h"

namespace Velmor::Test {
namespace {

struct NameCase {
  char const* file;
  char const* found;  // object and frame
};

class FileNaming : public testing::TestWithParam<NameCase> {};

TEST_P(FileNaming, GivesObjectAndFrame) {
  ScannedFolder const folder({GetParam().file});
  EXPECT_EQ(framesIn(folder.path()), Names{GetParam().found});
  // A file that is named itself says the same.
  EXPECT_EQ(framesIn(folder.path(GetParam().file)), Names{GetParam().found});
}

INSTANTIATE_TEST_SUITE_P(
    , FileNaming,
    testing::Values(
        NameCase{"liquid.0012.vdb", "liquid 12"}, NameCase{"liquid_0012.vdb", "liquid 12"},
        NameCase{"liquid0012.vdb", "liquid 12"}, NameCase{"liquid-0012.vdb", "liquid 12"},
        NameCase{"liquid 12.vdb", "liquid 12"}, NameCase{"liquid.12.vdb", "liquid 12"},
        NameCase{"liquid_12.vdb", "liquid 12"}, NameCase{"liquid12.vdb", "liquid 12"},
        NameCase{"liquid-12.vdb", "liquid 12"}, NameCase{"liquid.-0012.vdb", "liquid -12"},
        NameCase{"liquid_-12.vdb", "liquid -12"}, NameCase{"liquid--12.vdb", "liquid -12"},
        NameCase{"liquid.0.vdb", "liquid 0"}, NameCase{"liquid.-0.vdb", "liquid 0"},
        NameCase{"liquid.000000000000012.vdb", "liquid 12"},
        NameCase{"liquid.123456.vdb", "liquid 123456"},
        NameCase{"liquid.2147483647.vdb", "liquid 2147483647"},
        NameCase{"liquid.-2147483648.vdb", "liquid -2147483648"},
        NameCase{"liquid.vdb", "liquid *"}, NameCase{"liquid.VDB", "liquid *"},
        NameCase{"liquid.0012.Vdb", "liquid 12"}, NameCase{"two words.0012.vdb", "two words 12"},
        NameCase{"v2.liquid.0012.vdb", "v2.liquid 12"}, NameCase{"take3.0012.vdb", "take3 12"},
        NameCase{"take.3.0012.vdb", "take.3 12"}, NameCase{"liquid_.0012.vdb", "liquid_ 12"},
        NameCase{"liquid-.-0012.vdb", "liquid- -12"}, NameCase{"12monkeys.vdb", "12monkeys *"},
        NameCase{"\xc3\xa9t\xc3\xa9.0012.vdb", "\xc3\xa9t\xc3\xa9 12"},
        // Beyond the range of frames: a date, not a frame.
        NameCase{"liquid.2147483648.vdb", "liquid.2147483648 *"},
        NameCase{"liquid_20260101123456.vdb", "liquid_20260101123456 *"}));

TEST(ImporterNames, CanonicalFilesGiveBackTheirObjectAndFrame) {
  API::Runtime::ActiveGraph const graph(API::ObjectModel::createActiveGraph("canonical"));
  API::ObjectModel::removeActiveGraph(graph.name());
  for (char const* const object :
       {"liquid", "liquid2", "take.3", "take-", "take_", "take.", "-", "a.-", "two words", "12"}) {
    for (int const frame : {0, 7, 12, 12345, -1, -12345}) {
      ScannedFolder const folder;
      API::Runtime::CacheResource const resource(
          graph.createCacheResource(frame, folder.path(), object, "", ""));
      auto const file = std::filesystem::path(resource.resID().str()).filename().string();
      folder.touch(file);
      EXPECT_EQ(framesIn(folder.path()), Names{object + (' ' + std::to_string(frame))}) << file;
    }
  }
}

TEST(ImporterNames, ANumberAloneIsAFrameOfTheFoldersObject) {
  ScannedFolder const folder({"liquid/0001.vdb", "liquid/2.vdb", "liquid/-3.vdb"});
  EXPECT_EQ(framesIn(folder.path("liquid")), (Names{"liquid -3", "liquid 1", "liquid 2"}));
  EXPECT_EQ(framesIn(folder.path()), (Names{"liquid -3", "liquid 1", "liquid 2"}));
  EXPECT_EQ(framesIn(folder.path("liquid/0001.vdb")), Names{"liquid 1"});
}

TEST(ImporterNames, OtherFilesAreNotListed) {
  ScannedFolder const folder({"liquid.0001.vdb", "liquid.0001.vdb.bak", "liquid.0001.vd", "vdb",
                              ".vdb", "liquid.0001vdb", "notes.txt", "liquid.0001.nvdb"});
  EXPECT_EQ(framesIn(folder.path()), Names{"liquid 1"});
}

TEST(ImporterNames, UnfinishedAndHiddenFilesAreNotListed) {
  ScannedFolder const folder({"liquid.0001.vdb", ".liquid.0001.vdb.12-0.velmor-tmp",
                              "._liquid.0002.vdb", ".liquid.0003.vdb", ".hidden/.hidden.0001.vdb"});
  EXPECT_EQ(framesIn(folder.path()), Names{"liquid 1"});
  EXPECT_EQ(framesIn(folder.path(), "", true), Names{"liquid 1"});
}

TEST(ImporterNames, ObjectsAreSortedAndUniqueFilesSortedByFrame) {
  ScannedFolder const folder({"b.0002.vdb", "a.0010.vdb", "b.0001.vdb", "c.vdb", "a.0009.vdb",
                              "a.-0001.vdb", "a_0100.vdb"});
  EXPECT_EQ(objectsIn(folder.path()), (Names{"a", "b", "c"}));
  EXPECT_EQ(framesIn(folder.path()), (Names{"a -1", "a 9", "a 10", "a 100", "b 1", "b 2", "c *"}));
}

TEST(ImporterNames, AFileWithoutANumberStandsForEveryFrame) {
  ScannedFolder const folder({"liquid.vdb"});
  for (int const frame : {-5, 0, 1, 2147483647})
    EXPECT_EQ(filesFor(folder.path(), "liquid", frame, folder.path()), Names{"liquid.vdb"});
}

TEST(ImporterNames, ANumberedFileBeatsTheOneWithoutForItsFrame) {
  ScannedFolder const folder({"liquid.vdb", "liquid.0012.vdb"});
  EXPECT_EQ(filesFor(folder.path(), "liquid", 12, folder.path()), Names{"liquid.0012.vdb"});
  EXPECT_EQ(filesFor(folder.path(), "liquid", 13, folder.path()), Names{"liquid.vdb"});
}

TEST(ImporterNames, SeveralFilesOfOneFrameAreAllGiven) {
  ScannedFolder const folder({"liquid_0012.vdb", "liquid.12.vdb", "liquid.0012.vdb"});
  EXPECT_EQ(filesFor(folder.path(), "liquid", 12, folder.path()),
            (Names{"liquid.0012.vdb", "liquid.12.vdb", "liquid_0012.vdb"}));
  EXPECT_EQ(objectsIn(folder.path(), "liquid"), Names{"liquid"});
}

TEST(ImporterNames, UnknownObjectsAndFramesSayWhy) {
  ScannedFolder const folder({"liquid.0012.vdb"});
  auto const importer = importerOf(folder.path());
  API::Array<API::String> ids;
  EXPECT_FALSE(importer.resIDs("liquid", 12, ids).succeeded()) << "before anything was read";
  importer.readFiles(false, false, "", "");
  EXPECT_EQ(importer.resIDs("smoke", 12, ids).message(), about(folder.path(), "no object 'smoke'"));
  EXPECT_EQ(importer.resIDs("liquid", 13, ids).message(),
            about(folder.path(), "object 'liquid' has no frame 13"));
  EXPECT_EQ(ids.count(), 0u);
  EXPECT_TRUE(importer.resIDs("liquid", 12, ids).succeeded());
  EXPECT_TRUE(importer.resIDs("liquid", 12, ids).succeeded());
  ASSERT_EQ(ids.count(), 2u) << "identifiers are appended";
  EXPECT_EQ(ids[0], ids[1]) << "one file has one identifier";
}

TEST(ImporterNames, NamesThatAQueryCannotHoldAreShownWithUnderscoresAndAWarning) {
  ScannedFolder const folder({"a,b.0001.vdb", "a..c.0001.vdb", "myname=x.0001.vdb",
                              "no Filters.0001.vdb", "q\"u.0001.vdb", "back\\slash.0001.vdb",
                              "line\nbreak.0001.vdb", "plain.0001.vdb"});
  MessageLog const log;
  EXPECT_EQ(objectsIn(folder.path()),
            (Names{"a_b", "a_c", "back_slash", "line_break", "my_x", "no _", "plain", "q_u"}));
  EXPECT_EQ(log.warnings().size(), 7u);
  EXPECT_EQ(log.warnings()[0], "'a,b': shown as 'a_b': a query cannot hold the object's name");
  EXPECT_EQ(filesFor(folder.path(), "a_b", 1, folder.path()), Names{"a,b.0001.vdb"});
  for (auto const& name : objectsIn(folder.path())) {
    API::Query const query(API::ObjectModel::createQuery());
    query.load("name=\"" + name + "\"");
    EXPECT_TRUE(query.valid()) << name;
    EXPECT_EQ(objectsIn(folder.path(name), name), Names{name}) << "as a loader asks";
  }
}

TEST(ImporterNames, AReplacedNameNeverTakesThatOfAnotherObject) {
  ScannedFolder const folder({"a,b.0001.vdb", "a_b.0001.vdb", "a..b.0001.vdb"});
  MessageLog const log;
  EXPECT_EQ(objectsIn(folder.path()), (Names{"a_b", "a_b_", "a_b__"}));
  EXPECT_EQ(filesFor(folder.path(), "a_b", 1, folder.path()), Names{"a_b.0001.vdb"});
  EXPECT_EQ(filesFor(folder.path(), "a_b__", 1, folder.path()), Names{"a..b.0001.vdb"});
}

TEST(ImporterNames, OnlyRequestedObjectsAreWarnedAbout) {
  ScannedFolder const folder({"a,b.0001.vdb", "liquid.0001.vdb"});
  MessageLog const log;
  EXPECT_EQ(objectsIn(folder.path(), "liquid"), Names{"liquid"});
  EXPECT_TRUE(log.warnings().empty());
}

}  // namespace
}  // namespace Velmor::Test
