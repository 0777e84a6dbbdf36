#include "velmorhost/unfinished_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/cache_folder.h"

namespace Velmor::Test {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class UnfinishedFileTest : public testing::Test {
 protected:
  std::string at(std::string const& name) const { return folder_.path().str() + "/" + name; }
  Names names() const {
    Names all;
    for (auto const& entry : fs::directory_iterator(folder_.path().str())) {
      all.push_back(entry.path().filename().string());
    }
    std::sort(all.begin(), all.end());
    return all;
  }

 private:
  CacheFolder folder_;
};

TEST_F(UnfinishedFileTest, IsHiddenUntilItIsFinishedAndGoneIfItNeverIs) {
  {
    Host::UnfinishedFile file, other;
    ASSERT_EQ(file.open(at("a.vdb")), 0);
    ASSERT_EQ(other.open(at("a.vdb")), 0);
    ASSERT_EQ(names().size(), 2u);
    for (auto const& name : names()) EXPECT_EQ(name.rfind(".a.vdb.", 0), 0u) << name;
    EXPECT_EQ(file.finish(), 0);
  }
  EXPECT_EQ(names(), Names{"a.vdb"});
}

TEST_F(UnfinishedFileTest, SweepsWhatNobodyHoldsWhoeverWroteIt) {
  // The numbers of processes say nothing: those of other machines and containers
  // are unknown here, and others have got the same since.
  auto const alive = ".x.vdb.999999-0.velmor-tmp";
  std::ofstream(at(alive)) << "of a writer elsewhere";
  std::ofstream(at(".y.vdb." + std::to_string(::getpid()) + "-0.velmor-tmp")) << "of a dead one";
  int const held = ::open(at(alive).c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  Host::UnfinishedFile file;
  ASSERT_EQ(file.open(at("a.vdb")), 0);
  ASSERT_EQ(file.finish(), 0);
  EXPECT_EQ(names(), (Names{alive, "a.vdb"}));
  ::close(held);
}

TEST_F(UnfinishedFileTest, AllAreRemovedAtOnceBeforeAProcessEnds) {
  std::vector<Host::UnfinishedFile> files(70);  // more than are remembered
  for (auto& file : files) ASSERT_EQ(file.open(at("a.vdb")), 0);
  ASSERT_EQ(names().size(), 70u);
  Host::removeUnfinishedFiles();
  EXPECT_EQ(names().size(), 6u);
  EXPECT_EQ(files.front().finish(), ENOENT);
  EXPECT_EQ(files.back().finish(), 0);
  files.clear();
  EXPECT_EQ(names(), Names{"a.vdb"});
}

TEST_F(UnfinishedFileTest, FollowsLinksToWhatIsNotThereYet) {
  fs::create_directory(at("deep"));
  fs::create_symlink("deep/next", at("link"));
  fs::create_symlink(at("a.vdb"), at("deep/next"));
  Host::UnfinishedFile file;
  EXPECT_EQ(Host::UnfinishedFile::check(at("link")), 0);
  ASSERT_EQ(file.open(at("link")), 0);
  ASSERT_EQ(file.finish(), 0);
  EXPECT_EQ(names(), (Names{"a.vdb", "deep", "link"}));
  EXPECT_TRUE(fs::is_symlink(at("link")));
  EXPECT_TRUE(fs::is_symlink(at("deep/next")));
  // Nowhere, and round in a circle.
  fs::create_symlink("none/b.vdb", at("astray"));
  EXPECT_EQ(Host::UnfinishedFile().open(at("astray")), ENOENT);
  fs::create_symlink("circle", at("circle"));
  EXPECT_EQ(Host::UnfinishedFile().open(at("circle")), ELOOP);
}

TEST_F(UnfinishedFileTest, KnowsBeforehandWhereNoFileCanBe) {
  EXPECT_EQ(Host::UnfinishedFile::check(at("a.vdb")), 0);
  for (auto const& [path, error] : std::vector<std::pair<std::string, int>>{
           {at(""), EISDIR}, {at("none/a.vdb"), ENOENT}, {"", ENOENT}}) {
    EXPECT_EQ(Host::UnfinishedFile::check(path), error) << path;
    EXPECT_EQ(Host::UnfinishedFile().open(path), error) << path;
  }
}

}  // namespace
}  // namespace Velmor::Test
