#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/model/scanned_folder.h"
#include "host/model/without_rights.h"
#include "support/message_log.h"

namespace Velmor::Test {
namespace {

namespace fs = std::filesystem;

TEST(HostileFolders, UnreadableOnesAreReported) {
  ScannedFolder const cache({"liquid/liquid.0001.vdb", "smoke.0001.vdb", "shut/shut.0001.vdb"});
  ASSERT_EQ(::chmod(cache.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(cache.path("shut").c_str(), 0), 0);
  auto const found = withoutRights([&] {
    MessageLog const log;
    std::string text;
    for (auto const& name : objectsIn(cache.path())) text += name + ';';
    for (auto const& warning : log.warnings()) text += "warning " + warning + ';';
    auto const importer = importerOf(cache.path("shut"));
    text += importer.readFiles(false, false, "shut", "").message().str() + ';';
    for (auto const& error : log.errors()) text += "error " + error + ';';
    auto const below = importerOf(cache.path("shut/shut.0001.vdb"));
    text += below.readFiles(false, false, "", "").message().str();
    return text;
  });
  ::chmod(cache.path("shut").c_str(), 0700);
  auto const message = about(cache.path("shut"), "cannot read the folder: Permission denied;");
  EXPECT_EQ(found, "liquid;smoke;warning " + message + message + "error " + message +
                       about(cache.path("shut/shut.0001.vdb"), "Permission denied"));
}

TEST(HostileFolders, LinksCountAsWhatTheyLeadTo) {
  ScannedFolder const cache({"elsewhere/disk/liquid.0001.vdb", "elsewhere/real.vdb"});
  fs::create_directory_symlink(cache.path("elsewhere/disk"), cache.path("liquid"));
  fs::create_symlink(cache.path("elsewhere/real.vdb"), cache.path("smoke.0007.vdb"));
  fs::create_symlink(cache.path("nowhere"), cache.path("dangling.0001.vdb"));
  fs::create_symlink(cache.path("loop.0001.vdb"), cache.path("loop.0001.vdb"));
  MessageLog const log;
  EXPECT_EQ(framesIn(cache.path()), (Names{"liquid 1", "smoke 7"}));
  ASSERT_EQ(log.warnings().size(), 2u);
  EXPECT_EQ(log.warnings()[0],
            about(cache.path("dangling.0001.vdb"), "left out: it is a link to nothing"));
  EXPECT_EQ(log.warnings()[1].find(about(cache.path("loop.0001.vdb"), "left out: ")), 0u);
}

TEST(HostileFolders, ALinkBackUpDoesNotTrapRecursion) {
  ScannedFolder const cache({"a/b/liquid.0001.vdb"});
  fs::create_directory_symlink(cache.path(), cache.path("a/b/up"));
  EXPECT_EQ(framesIn(cache.path(), "", true), Names{"liquid 1"});
}

TEST(HostileFolders, WhatWouldBlockAReaderIsLeftOut) {
  ScannedFolder const cache({"liquid.0001.vdb"});
  ASSERT_EQ(::mkfifo(cache.path("pipe.0001.vdb").c_str(), 0600), 0);
  MessageLog const log;
  EXPECT_EQ(framesIn(cache.path()), Names{"liquid 1"});
  EXPECT_EQ(log.warnings(),
            Names{about(cache.path("pipe.0001.vdb"), "left out: it is no regular file")});
  auto const importer = importerOf(cache.path("pipe.0001.vdb"));
  EXPECT_EQ(importer.readFiles(false, false, "", "").message(),
            about(cache.path("pipe.0001.vdb"), "it is neither a folder nor a file"));
}

TEST(HostileFolders, EmptyFilesAreListedForTheirLoadToFail) {
  ScannedFolder const cache;
  std::ofstream(cache.path("liquid.0001.vdb"));
  EXPECT_EQ(framesIn(cache.path()), Names{"liquid 1"});
}

TEST(HostileFolders, ThousandsOfFilesAreSorted) {
  ScannedFolder const cache;
  int constexpr count = 3000;
  for (int i = 0; i < count; ++i) {
    int const frame = (i * 7919) % count;  // no order that a folder might keep
    std::ofstream(cache.path("liquid_" + std::to_string(frame) + ".vdb"));
  }
  auto const importer = importerOf(cache.path());
  importer.readFiles(false, false, "", "");
  EXPECT_EQ(namesOf(importer), Names{"liquid"});
  auto const files = Host::cacheFiles(importer);
  ASSERT_EQ(files.size(), static_cast<std::size_t>(count));
  for (int frame = 0; frame < count; ++frame)
    ASSERT_EQ(files[static_cast<std::size_t>(frame)].frame, frame);
}

TEST(HostileFolders, AnyBytesMayStandInNames) {
  ScannedFolder const cache({"\xff\xfe.0001.vdb", "tab\there.0001.vdb", "%s%n.0001.vdb",
                             "\xe2\x98\x83.0001.vdb", "new\nline.0001.vdb"});
  MessageLog const log;
  EXPECT_EQ(objectsIn(cache.path()),
            (Names{"%s%n", "new_line", "tab_here", "\xe2\x98\x83", "\xff\xfe"}));
  EXPECT_EQ(log.warnings().size(), 2u);
}

TEST(HostileFolders, ImpossiblePathsFailWithAMessage) {
  MessageLog const log;
  for (auto const& path : {std::string(), std::string(5000, 'x'), "/" + std::string(300, 'x'),
                           std::string("/no/such/folder"), std::string("/dev/null")}) {
    auto const status = importerOf(path).readFiles(false, false, "", "");
    EXPECT_FALSE(status.succeeded()) << path;
    EXPECT_FALSE(status.message().empty()) << path;
  }
  EXPECT_NE(log.errors().at(0).find("there is no path to read from"), std::string::npos)
      << log.errors()[0];
  EXPECT_EQ(log.errors().size(), 5u);
}

}  // namespace
}  // namespace Velmor::Test
