#include <gtest/gtest.h>
#include <openvdb/openvdb.h>

#include <cstdlib>
#include <filesystem>

#include "host/files/file_scenes.h"
#include "host/files/vdb_files.h"
#include "support/sanitized.h"

namespace Velmor::Test {
namespace {

std::size_t openDescriptors() {
  std::size_t count = 0;
  for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return count;
}

TEST(Helper, ReadsWhatThisProcessReads) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(20.f, 0.1)});
  auto const here = load(file);
  auto const apart = load(file, Host::ReadOptions{});
  ASSERT_EQ(apart.message, "");
  EXPECT_TRUE(contentOf<float>(here.channel("distance")) ==
              contentOf<float>(apart.channel("distance")));
}

TEST(Helper, LeavesNoDescriptorAndNoChild) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(5.f, 0.1)});
  load(file, Host::ReadOptions{});
  auto const before = openDescriptors();
  for (int n = 0; n < 3; ++n) load(file, Host::ReadOptions{});
  load(folder.path().str() + "/none.vdb", Host::ReadOptions{});
  EXPECT_EQ(openDescriptors(), before);
}

TEST(Helper, ATimeLimitEndsTheLoadWithAMessage) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(60.f, 0.1)});
  Host::ReadOptions how;
  how.timeLimit = 0;
  auto const loaded = load(file, how);
  EXPECT_FALSE(loaded.object.valid());
  EXPECT_NE(
      loaded.message.find("sphere.vdb': the helper was still busy after the limit of 0 seconds"),
      std::string::npos)
      << loaded.message;
}

TEST(Helper, AMemoryLimitEndsTheLoadWithAMessage) {
  if (sanitized) GTEST_SKIP() << "sanitizers need more address space than any limit";
  CacheFolder const folder;
  auto const file = folder.path().str() + "/big.vdb";
  openvdb::initialize();
  auto grid = openvdb::FloatGrid::create(0.f);
  grid->setName("density");
  grid->denseFill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(447)), 1.f);
  grid->tree().setValue(openvdb::Coord(0), 2.f);
  writeGrids(file, {grid});
  Host::ReadOptions how;
  how.memoryLimit = std::size_t{256} << 20;
  auto const loaded = load(file, how);
  EXPECT_FALSE(loaded.object.valid());
  EXPECT_NE(loaded.message.find("big.vdb'"), std::string::npos) << loaded.message;
  EXPECT_NE(loaded.message.find("memory"), std::string::npos) << loaded.message;
}

TEST(Helper, RefusesToBeStartedByHand) {
  EXPECT_NE(std::system(VELMOR_VDB_READER " 1 > /dev/null 2>&1"), 0);
}

}  // namespace
}  // namespace Velmor::Test
