#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "files/vdb_grids.h"
#include "files/worker_pool.h"
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

/// The helper program of a process and its workers.
std::vector<pid_t> helpersOf(pid_t process) {
  auto const wanted = std::string("velmor-vdb-reader") + '\0' + std::to_string(process) + '\0';
  std::vector<pid_t> found;
  for (auto const& entry : std::filesystem::directory_iterator("/proc")) {
    auto const name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    // A process may end while it is read, which streams take for a failure of the disk.
    std::string line(wanted.size() + 1, '\0');
    int const file = ::open((entry.path() / "cmdline").c_str(), O_RDONLY | O_CLOEXEC);
    auto const got = ::read(file, line.data(), line.size());
    if (file >= 0) ::close(file);
    if (got >= 0 && line.compare(0, static_cast<std::size_t>(got), wanted) == 0) {
      found.push_back(std::stoi(name));
    }
  }
  return found;
}

/// Whether soon no more than `count` of them are there.
bool becomeFew(pid_t process, std::size_t count) {
  for (int n = 0; n < 3000; ++n) {
    if (helpersOf(process).size() <= count) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
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

TEST(Helper, IsStartedOnce) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(5.f, 0.1)});
  ASSERT_EQ(load(file, Host::ReadOptions{}).message, "");
  ASSERT_TRUE(becomeFew(::getpid(), 1));
  auto const before = helpersOf(::getpid());
  ASSERT_EQ(before.size(), 1u);
  for (int n = 0; n < 3; ++n) ASSERT_EQ(load(file, Host::ReadOptions{}).message, "");
  ASSERT_TRUE(becomeFew(::getpid(), 1));
  EXPECT_EQ(helpersOf(::getpid()), before);
}

TEST(Helper, IsStartedAgainWhereItHasBeenEnded) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(5.f, 0.1)});
  for (int n = 0; n < 3; ++n) {
    ASSERT_EQ(load(file, Host::ReadOptions{}).message, "");
    auto const helpers = helpersOf(::getpid());
    ASSERT_FALSE(helpers.empty());
    for (auto const helper : helpers) ::kill(helper, SIGKILL);
  }
}

int neverCalled(int) { return 1; }

TEST(Helper, EndsWhenNoRequestComes) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  Host::Files::serveRequests(ends[1], 1, &neverCalled);
  for (int const end : ends) ::close(end);
}

TEST(Helper, EndsWithTheProcessThatStartedItAndIsWaitedFor) {
  // A load takes in this process's own helper if an earlier test has ended it.
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(5.f, 0.1)});
  ASSERT_EQ(load(file, Host::ReadOptions{}).message, "");
  // Whom the other would leave behind becomes a child of this process.
  ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  auto const program = std::filesystem::read_symlink("/proc/self/exe").string();
  auto const command =
      "echo $$; exec '" + program + "' --gtest_filter=Helper.ReadsWhatThisProcessReads 2>&1";
  auto* const pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string said;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) said += static_cast<char>(c);
  ASSERT_EQ(::pclose(pipe), 0) << said;
  EXPECT_EQ(helpersOf(std::stoi(said)), std::vector<pid_t>());
  EXPECT_LE(::waitpid(-1, nullptr, WNOHANG), 0);
}

TEST(Helper, FindsAFileFromTheFolderThatIsCurrentNow) {
  CacheFolder const folder;
  writeGrids(folder.path().str() + "/sphere.vdb", {sphereGrid(5.f, 0.1)});
  ASSERT_EQ(load(folder.path().str() + "/sphere.vdb", Host::ReadOptions{}).message, "");
  auto const before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path().str());
  auto const loaded = load("sphere.vdb", Host::ReadOptions{});
  std::filesystem::current_path(before);
  EXPECT_EQ(loaded.message, "");
}

TEST(Helper, ServesManyThreads) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(20.f, 0.1)});
  auto const here = contentOf<float>(load(file).channel("distance"));
  std::vector<int> same(6);
  std::vector<std::thread> threads;
  for (auto& result : same) {
    threads.emplace_back([&] {
      for (int n = 0; n < 3; ++n) {
        API::Ref server;
        if (!Host::readObject(file, "object", {}, {}, server).succeeded()) continue;
        auto const object = API::Object(API::StateServer(server).findObject("object"));
        auto const volume = API::Component(object.findComponent("volume"));
        if (contentOf<float>(volume.findChannel("distance")) == here) ++result;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(same, std::vector<int>(6, 3));
}

TEST(Helper, AWorkerThatASignalEndsIsACrash) {
  CacheFolder const folder;
  auto const small = folder.path().str() + "/small.vdb", file = folder.path().str() + "/big.vdb";
  writeGrids(small, {sphereGrid(5.f, 0.1)});
  writeGrids(file, {sphereGrid(100.f, 0.1)});
  // The helper that waits for requests stays; whoever comes beside it is a worker.
  ASSERT_EQ(load(small, Host::ReadOptions{}).message, "");
  ASSERT_TRUE(becomeFew(::getpid(), 1));
  auto const idle = helpersOf(::getpid());
  ASSERT_EQ(idle.size(), 1u);
  Host::ReadOptions how;
  how.distance = Host::DistanceMode::Rebuild;
  std::atomic<bool> done = false;
  Loaded loaded;
  std::thread reader([&] {
    loaded = load(file, how);
    done = true;
  });
  // Sanitizers make an exit of most signals.
  int const signal = sanitized ? SIGSYS : SIGSEGV;
  int killed = 0;
  while (!done) {
    for (auto const helper : helpersOf(::getpid())) {
      if (helper != idle[0] && ::kill(helper, signal) == 0) ++killed;
    }
  }
  reader.join();
  EXPECT_GT(killed, 0);
  EXPECT_FALSE(loaded.object.valid());
  EXPECT_EQ(loaded.message,
            "Could not read '" + file + "': the helper crashed: " + ::sigdescr_np(signal));
  EXPECT_EQ(helpersOf(::getpid()), idle);
  EXPECT_EQ(load(file, Host::ReadOptions{}).message, "");
}

TEST(Helper, AWorkerThatIsTooSlowIsEnded) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(60.f, 0.1)});
  Host::ReadOptions how;
  how.timeLimit = 0;
  for (int n = 0; n < 4; ++n) EXPECT_FALSE(load(file, how).object.valid());
  EXPECT_TRUE(becomeFew(::getpid(), 1));
  EXPECT_EQ(load(file, Host::ReadOptions{}).message, "");
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
  EXPECT_EQ(loaded.message.find("as it is"), std::string::npos) << loaded.message;
  how.distance = Host::DistanceMode::Auto;
  auto const treated = load(file, how).message;
  EXPECT_NE(treated.find("keeping the distance as it is may need less"), std::string::npos)
      << treated;
}

TEST(Helper, ReadsUnderALimitOnTheSizeOfFiles) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(60.f, 0.1)});
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  // A helper is started with the limits of the moment.
  auto const loadWithin = [&](rlim_t bytes) {
    for (auto const helper : helpersOf(::getpid())) ::kill(helper, SIGKILL);
    rlimit const small{bytes, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    auto loaded = load(file, {});
    ::setrlimit(RLIMIT_FSIZE, &before);
    for (auto const helper : helpersOf(::getpid())) ::kill(helper, SIGKILL);
    return loaded;
  };
  EXPECT_EQ(loadWithin(16 << 20).message, "");
  auto const tooSmall = loadWithin(1 << 20).message;
  EXPECT_NE(tooSmall.find("memory"), std::string::npos) << tooSmall;
}

TEST(Helper, RefusesToBeStartedByHand) {
  EXPECT_NE(std::system(VELMOR_VDB_READER " 1 > /dev/null 2>&1"), 0);
}

}  // namespace
}  // namespace Velmor::Test
