#include "output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "failure.h"
#include "support/cache_folder.h"
#include "tools/run.h"

namespace Velmor::Tool {
namespace {

using ::Velmor::Test::namesIn;
using ::Velmor::Test::readFile;
using ::Velmor::Test::writeFile;
using Names = std::vector<std::string>;

class OutputFileTest : public testing::Test {
 protected:
  std::string path(std::string const& name) const { return folder_.path().str() + "/" + name; }
  Names names() const { return namesIn(folder_.path().str()); }

 private:
  ::Velmor::Test::CacheFolder folder_;
};

ExitCode codeOf(std::function<void()> const& work) {
  try {
    work();
  } catch (Failure const& failure) {
    return failure.code();
  }
  return ExitCode::Success;
}

TEST_F(OutputFileTest, AppearsWithCommitOnly) {
  OutputFile out(path("a"));
  out.write("text");
  EXPECT_FALSE(std::filesystem::exists(path("a")));
  out.commit();
  EXPECT_EQ(readFile(path("a")), "text");
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(OutputFileTest, LeavesTheOldFileWithoutCommit) {
  writeFile(path("a"), "old");
  {
    OutputFile out(path("a"));
    out.write("new");
  }
  EXPECT_EQ(readFile(path("a")), "old");
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(OutputFileTest, WritesMoreThanItBuffers) {
  std::string const part(700000, 'x');
  OutputFile out(path("a"));
  for (int i = 0; i < 5; ++i) out.write(part);
  out.commit();
  EXPECT_EQ(readFile(path("a")), part + part + part + part + part);
}

TEST_F(OutputFileTest, KeepsThePermissionsOfTheFileItReplaces) {
  writeFile(path("a"), "old");
  chmod(path("a").c_str(), 0640);
  OutputFile out(path("a"));
  out.commit();
  struct stat now {};
  ASSERT_EQ(stat(path("a").c_str(), &now), 0);
  EXPECT_EQ(now.st_mode & 0777, 0640u);
}

TEST_F(OutputFileTest, FollowsLinks) {
  writeFile(path("real"), "old");
  std::filesystem::create_symlink("real", path("link"));
  OutputFile out(path("link"));
  out.write("new");
  out.commit();
  EXPECT_EQ(readFile(path("real")), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
}

TEST_F(OutputFileTest, SweepsWhatAKilledProcessLeft) {
  writeFile(path(".b.ply.4711-0.velmor-tmp"), "half");
  writeFile(path("mine.velmor-tmp"), "not hidden: not ours");
  OutputFile out(path("a"));
  out.commit();
  EXPECT_EQ(names(), (Names{"a", "mine.velmor-tmp"}));
}

TEST_F(OutputFileTest, SparesTheTemporaryFileOfALivingWriter) {
  OutputFile first(path("a")), second(path("a"));
  second.write("second");
  second.commit();
  first.write("first");
  first.commit();
  EXPECT_EQ(readFile(path("a")), "first");
}

TEST_F(OutputFileTest, WritesDirectlyIntoAPipe) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0666), 0);
  std::string got;
  std::thread reader([&] { got = readFile(path("pipe")); });
  OutputFile out(path("pipe"));
  out.write("through");
  out.commit();
  reader.join();
  EXPECT_EQ(got, "through");
  EXPECT_EQ(names(), Names{"pipe"});
}

TEST_F(OutputFileTest, ReportsAFullDevice) {
  EXPECT_EQ(codeOf([] {
              OutputFile out("/dev/full");
              out.write("text");
              out.commit();
            }),
            ExitCode::Output);
}

TEST_F(OutputFileTest, RefusesFoldersAndMissingFolders) {
  EXPECT_EQ(codeOf([&] { checkOutput(path("")); }), ExitCode::Output);
  EXPECT_EQ(codeOf([&] { checkOutput(path("no/such/a")); }), ExitCode::Output);
  EXPECT_EQ(codeOf([&] { checkOutput(path("a")); }), ExitCode::Success);
}

TEST_F(OutputFileTest, KnowsStandardOutputByItsNames) {
  EXPECT_TRUE(isStandardOutput("-"));
  EXPECT_TRUE(isStandardOutput("/dev/stdout"));
  EXPECT_TRUE(isStandardOutput("/dev/fd/1"));
  EXPECT_FALSE(isStandardOutput(path("a")));
  EXPECT_FALSE(isStandardOutput("/dev/null"));
}

}  // namespace
}  // namespace Velmor::Tool
