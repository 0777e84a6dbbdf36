#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "files/vdb_grids.h"
#include "host/files/file_scenes.h"
#include "host/files/vdb_files.h"

namespace Velmor::Test {
namespace {

namespace fs = std::filesystem;

std::size_t entries(std::string const& folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

/// Files of this process cannot grow beyond some bytes while it lives.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    rlimit const small{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
  }
  FullDisk(FullDisk const&) = delete;
  FullDisk& operator=(FullDisk const&) = delete;
  ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

TEST(Writing, AFullDiskLeavesTheOldFileAndNothingElse) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  auto const scene = sphereScene(30.f);
  std::ofstream(file) << "old";
  API::Status status;
  {
    FullDisk const full(20000);
    status = Host::writeObject(scene.object, file);
  }
  EXPECT_FALSE(status.succeeded());
  EXPECT_NE(status.message().str().find("sphere.vdb': File too large"), std::string::npos)
      << status.message();
  EXPECT_EQ(entries(folder.path().str()), 1u);
  std::string text;
  std::ifstream(file) >> text;
  EXPECT_EQ(text, "old");
}

// Memory that looks like a disk is no device, though it lies among them.
TEST(Writing, AFileBelowDevIsReplacedWhole) {
  if (::access("/dev/shm", W_OK) != 0) GTEST_SKIP() << "there is no /dev/shm to write to";
  auto const file = "/dev/shm/velmor-test-" + std::to_string(::getpid()) + ".vdb";
  CacheFolder const folder;
  auto const plain = folder.path().str() + "/sphere.vdb";
  std::ofstream(file) << std::string(100000, 'x');
  auto const scene = sphereScene(5.f);
  EXPECT_EQ(Host::writeObject(scene.object, file).message(), "");
  ASSERT_EQ(Host::writeObject(scene.object, plain).message(), "");
  EXPECT_EQ(std::filesystem::file_size(file), std::filesystem::file_size(plain));
  EXPECT_EQ(load(file).message, "");
  std::filesystem::remove(file);
}

TEST(Writing, ImpossiblePlacesAreNamed) {
  CacheFolder const folder;
  auto const scene = sphereScene(3.f);
  auto const at = [&](std::string const& path) {
    return Host::writeObject(scene.object, path).message().str();
  };
  EXPECT_NE(at(folder.path().str() + "/none/x.vdb").find("No such file or directory"),
            std::string::npos);
  EXPECT_NE(at(folder.path().str()).find("it is a folder"), std::string::npos);
  EXPECT_NE(at("/dev/full").find("'/dev/full': No space left on device"), std::string::npos);
  EXPECT_FALSE(Host::writeObject(API::Object(), "x.vdb").succeeded());
}

TEST(Writing, AProtectedFileStays) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  std::ofstream(file) << "old";
  ::chmod(file.c_str(), 0444);
  ::chmod(folder.path().str().c_str(), 0777);
  auto const scene = sphereScene(3.f);
  // Nothing is protected from root, so it is somebody else who tries.
  auto const child = ::fork();
  if (child == 0) {
    constexpr uid_t nobody = 65534;
    if (::getuid() == 0 && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) ::_exit(99);
    auto const said = Host::writeObject(scene.object, file).message().str();
    ::_exit(said.find("Permission") != std::string::npos ? 0 : 1);
  }
  int state = 0;
  ASSERT_EQ(::waitpid(child, &state, 0), child);
  ASSERT_TRUE(WIFEXITED(state));
  EXPECT_EQ(WEXITSTATUS(state), 0);
  std::string text;
  std::ifstream(file) >> text;
  EXPECT_EQ(text, "old");
  EXPECT_EQ(entries(folder.path().str()), 1u);
}

TEST(Writing, GoesThroughLinksAndKeepsPermissions) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/real.vdb", link = folder.path().str() + "/link.vdb";
  std::ofstream(file) << "old";
  ::chmod(file.c_str(), 0640);
  fs::create_symlink("real.vdb", link);
  ASSERT_EQ(Host::writeObject(sphereScene(3.f).object, link).message(), "");
  EXPECT_TRUE(fs::is_symlink(link));
  struct stat info {};
  ASSERT_EQ(::stat(file.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);
  EXPECT_EQ(load(file).message, "");
}

TEST(Writing, APipeGetsTheWholeFile) {
  CacheFolder const folder;
  auto const pipe = folder.path().str() + "/pipe", copy = folder.path().str() + "/copy.vdb";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  std::thread reader([&] {
    std::ifstream in(pipe, std::ios::binary);
    std::ofstream(copy, std::ios::binary) << in.rdbuf();
  });
  auto const scene = sphereScene(10.f);
  auto const status = Host::writeObject(scene.object, pipe);
  reader.join();
  ASSERT_EQ(status.message(), "");
  EXPECT_TRUE(contentOf<float>(load(copy).channel("distance")) == contentOf<float>(scene.distance));
}

TEST(Writing, AReaderThatGoesAwayIsAFailure) {
  CacheFolder const folder;
  auto const pipe = folder.path().str() + "/pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  std::thread reader([&] { std::ifstream(pipe, std::ios::binary).get(); });
  auto const status = Host::writeObject(sphereScene(40.f).object, pipe);
  reader.join();
  EXPECT_NE(status.message().str().find("Broken pipe"), std::string::npos) << status.message();
}

TEST(Writing, SweepsWhatAKilledProcessLeft) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer knows no threads in a forked process";
#endif
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  auto const scene = sphereScene(100.f);
  auto const child = ::fork();
  if (child == 0) {
    // Stops in the middle: the limit's signal is let through to a default that kills.
    Host::setThreadCount(1);
    std::thread([&] {
      for (;;) {
        for (auto const& entry : fs::directory_iterator(folder.path().str())) {
          std::error_code error;
          if (entry.file_size(error) > 100000) ::kill(::getpid(), SIGKILL);
        }
      }
    }).detach();
    for (;;) static_cast<void>(Host::writeObject(scene.object, file));
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_GE(entries(folder.path().str()), 1u);
  ASSERT_EQ(Host::writeObject(sphereScene(3.f).object, file).message(), "");
  EXPECT_EQ(entries(folder.path().str()), 1u);
  EXPECT_TRUE(fs::exists(file));
}

TEST(Writing, OtherProgramsSeeTheSameVoxelsAndClass) {
  CacheFolder const folder;
  auto const first = folder.path().str() + "/first.vdb",
             second = folder.path().str() + "/second.vdb";
  openvdb::initialize();
  auto fog = openvdb::FloatGrid::create(0.f);
  fog->setName("fog");
  fog->setGridClass(openvdb::GRID_FOG_VOLUME);
  fog->setTransform(openvdb::math::Transform::createLinearTransform(0.1));
  fog->tree().addTile(2, openvdb::Coord(0), 0.5f, true);
  fog->fill(openvdb::CoordBBox(openvdb::Coord(-17), openvdb::Coord(31)), 0.25f);
  auto const sphere = sphereGrid(30.f, 0.1, openvdb::Vec3d(0.1 / 3, 7, -1e-9));
  writeGrids(first, {sphere, fog});
  ASSERT_EQ(Host::writeObject(load(first).object, second).message(), "");
  auto const before = readGrids(first), after = readGrids(second);
  ASSERT_EQ(after.size(), 2u);
  for (auto const& one : before) {
    for (auto const& other : after) {
      if (one->getName() != other->getName()) continue;
      EXPECT_EQ(one->activeVoxelCount(), other->activeVoxelCount());
      EXPECT_EQ(one->evalActiveVoxelBoundingBox(), other->evalActiveVoxelBoundingBox());
      EXPECT_EQ(one->getGridClass(), other->getGridClass());
      EXPECT_EQ(one->transform(), other->transform());
      auto const a = openvdb::gridPtrCast<openvdb::FloatGrid>(one);
      auto const b = openvdb::gridPtrCast<openvdb::FloatGrid>(other);
      EXPECT_EQ(a->background(), b->background());
      auto const values = b->getConstAccessor();
      int wrong = 0;
      for (auto it = a->cbeginValueOn(); it; ++it) {
        wrong += values.getValue(it.getCoord()) != *it || !values.isValueOn(it.getCoord());
      }
      EXPECT_EQ(wrong, 0);
    }
  }
}

}  // namespace
}  // namespace Velmor::Test
