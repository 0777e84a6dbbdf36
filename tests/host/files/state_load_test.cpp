#include <gtest/gtest.h>

#include "host/files/file_scenes.h"
#include "host/files/vdb_files.h"

namespace Velmor::Test {
namespace {

// Layouts are made as the settings say, tiles as they said when the load began.
TEST(StateLoad, TilesOfAnotherLayoutAreRefused) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/two.vdb";
  auto const flags = openvdb::BoolGrid::create(false);
  flags->setName("flags");
  flags->tree().setValue(openvdb::Coord(0), true);
  writeGrids(file, {sphereGrid(5.f, 0.1), flags});
  for (auto const& other : {Host::LayoutSettings{6, 5, true}, Host::LayoutSettings{7, 5, false}}) {
    for (bool const isolate : {false, true}) {
      LayoutShape const restore(Host::layoutSettings());
      Host::setMessageHandler(
          [&](Host::Severity, std::string const&) { Host::setLayoutSettings(other); });
      Host::ReadOptions how;
      how.isolate = isolate;
      API::Ref server;
      auto const status = Host::readObject(file, "object", {}, how, server);
      Host::setMessageHandler(nullptr);
      EXPECT_FALSE(status.succeeded());
      EXPECT_EQ(status.message().str(),
                "Could not load '" + file + "': its tiles are those of another layout");
    }
  }
}

}  // namespace
}  // namespace Velmor::Test
