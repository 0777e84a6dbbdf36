#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/model/without_rights.h"
#include "support/message_log.h"
#include "velmorapi/file.h"

namespace Velmor::Test {
namespace {

namespace fs = std::filesystem;
using API::File;

/// Sets an environment variable while it lives.
class Variable {
 public:
  Variable(char const* name, std::string const& value) : name_(name) {
    if (char const* const old = ::getenv(name)) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  Variable(Variable const&) = delete;
  Variable& operator=(Variable const&) = delete;
  ~Variable() {
    if (old_) {
      ::setenv(name_, old_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  char const* name_;
  std::optional<std::string> old_;
};

class TempFolder : public testing::Test {
 protected:
  void TearDown() override { fs::remove_all(folder_); }
  fs::path const folder_ = File::createTempFolder().str();
  MessageLog log_;
};

TEST_F(TempFolder, IsEmptyAbsoluteAndOnlyForThisUser) {
  ASSERT_TRUE(fs::is_directory(folder_));
  EXPECT_TRUE(folder_.is_absolute());
  EXPECT_TRUE(fs::is_empty(folder_));
  struct stat status {};
  ASSERT_EQ(::stat(folder_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0700u);
  EXPECT_EQ(status.st_uid, ::getuid());
}

TEST_F(TempFolder, IsUniqueAlsoAmongThreads) {
  std::vector<std::vector<std::string>> made(4);
  std::vector<std::thread> workers;
  for (auto& mine : made)
    workers.emplace_back([&mine] {
      for (int i = 0; i < 20; ++i) mine.push_back(File::createTempFolder().str());
    });
  for (auto& worker : workers) worker.join();
  std::set<std::string> all;
  for (auto const& mine : made) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), 80u);
  for (auto const& path : all) EXPECT_TRUE(File::deleteFolder(path));
}

TEST_F(TempFolder, IsMadeInTMPDIR) {
  Variable const variable("TMPDIR", folder_.string());
  fs::path const inner = File::createTempFolder().str();
  EXPECT_EQ(inner.parent_path(), folder_);
  EXPECT_TRUE(fs::is_directory(inner));
}

TEST_F(TempFolder, OfARelativeTMPDIRIsFoundFromElsewhere) {
  auto const before = fs::current_path();
  fs::current_path(folder_);
  fs::path inner;
  {
    Variable const variable("TMPDIR", ".");
    inner = File::createTempFolder().str();
  }
  fs::current_path(before);
  EXPECT_TRUE(inner.is_absolute());
  EXPECT_TRUE(fs::is_directory(inner));
}

TEST_F(TempFolder, IsRefusedWhereTMPDIRIsOfNoUse) {
  std::ofstream(folder_ / "file");
  for (auto const& place : {folder_ / "file", folder_ / "none"}) {
    Variable const variable("TMPDIR", place.string());
    EXPECT_EQ(File::createTempFolder(), "");
  }
  ASSERT_EQ(log_.errors().size(), 2u);
  EXPECT_EQ(log_.errors()[1], (folder_ / "none").string().insert(0, 1, '\'') +
                                  "': cannot make a temporary folder: No such file or directory");
}

TEST_F(TempFolder, CanBeMadeToFail) {
  Host::failCalls(Host::Call::CreateTempFolder);
  EXPECT_EQ(File::createTempFolder(), "");
  auto const next = File::createTempFolder();
  EXPECT_NE(next, "");
  EXPECT_TRUE(File::deleteFolder(next));
  Host::clearFailures();
}

TEST_F(TempFolder, IsDeletedWithAllInIt) {
  fs::create_directories(folder_ / "a/b/c");
  std::ofstream(folder_ / "a/b/file") << "x";
  EXPECT_TRUE(File::deleteFolder((folder_ / "a").string() + "//"));
  EXPECT_FALSE(fs::exists(folder_ / "a"));
  EXPECT_TRUE(File::deleteFolder(folder_.string()));
  EXPECT_FALSE(fs::exists(folder_));
}

TEST_F(TempFolder, DeletingIsQuietWhenItIsGone) {
  EXPECT_TRUE(File::deleteFolder((folder_ / "none").string()));
  EXPECT_TRUE(File::deleteFolder((folder_ / "none/below").string()));
  EXPECT_TRUE(log_.warnings().empty() && log_.errors().empty());
}

TEST_F(TempFolder, DeletingDoesNotFollowLinks) {
  fs::create_directories(folder_ / "kept");
  std::ofstream(folder_ / "kept/file") << "x";
  fs::create_directories(folder_ / "a");
  fs::create_directory_symlink(folder_ / "kept", folder_ / "a/link");
  fs::create_directory_symlink(folder_ / "kept", folder_ / "link");
  EXPECT_TRUE(File::deleteFolder((folder_ / "a").string()));
  EXPECT_FALSE(fs::exists(folder_ / "a"));
  EXPECT_FALSE(File::deleteFolder((folder_ / "link").string()));
  EXPECT_FALSE(File::deleteFolder((folder_ / "link").string() + "/"));
  EXPECT_TRUE(fs::exists(folder_ / "kept/file"));
  EXPECT_TRUE(fs::is_symlink(folder_ / "link"));
}

TEST_F(TempFolder, DeletingRefusesFiles) {
  std::ofstream(folder_ / "file") << "x";
  EXPECT_FALSE(File::deleteFolder((folder_ / "file").string()));
  EXPECT_TRUE(fs::exists(folder_ / "file"));
  EXPECT_EQ(log_.warnings(), std::vector<std::string>{"'" + (folder_ / "file").string() +
                                                      "': not deleted: it is no folder"});
}

TEST_F(TempFolder, DeletingRefusesPathsWithANullByte) {
  auto path = (folder_ / "a").string();
  fs::create_directories(path);
  path += '\0';
  EXPECT_FALSE(File::deleteFolder(path + "b"));
  EXPECT_TRUE(fs::exists(folder_ / "a"));
  EXPECT_EQ(log_.warnings(),
            std::vector<std::string>{"'" + (folder_ / "a").string() +
                                     "': not deleted: the path holds a null byte"});
}

/// The check runs where a wrong answer can delete nothing: without rights, in a
/// child, with a home and a working folder of its own.
TEST_F(TempFolder, DeletingRefusesRootsHomesAndDots) {
  ASSERT_EQ(::chmod(folder_.c_str(), 0777), 0);
  auto const home = folder_ / "home";
  fs::create_directories(home / "work");
  fs::create_directory_symlink(folder_, folder_ / "round");
  std::string const dots = "the path ends in '.' or '..'",
                    isRoot = "it is the root of a file system",
                    isHome = "it is or holds the home folder";
  std::vector<std::pair<std::string, std::string>> const refusals{
      {"", ""},
      {"/", isRoot},
      {"//", isRoot},
      {"///", isRoot},
      {"/.", dots},
      {"/..", dots},
      {"/../..", dots},
      {".", dots},
      {"./", dots},
      {"..", dots},
      {"../", dots},
      {"../..", dots},
      {home.string(), isHome},
      {home.string() + "/", isHome},
      {(home / ".").string(), dots},
      {(home / "work/..").string(), dots},
      {folder_.string(), isHome},
      {(folder_ / "round/home").string(), isHome},
      {"/proc", isRoot},
      {"/tmp/..", dots}};
  auto const wrong = withoutRights([&] {
    ::setenv("HOME", home.c_str(), 1);
    fs::current_path(home / "work");
    std::string text;
    for (auto const& [path, reason] : refusals) {
      MessageLog const log;
      if (File::deleteFolder(path)) text += path + " is deleted; ";
      auto const warnings = log.warnings();
      // Who names nothing is told nothing.
      auto const expected = reason.empty() ? 0u : 1u;
      if (warnings.size() != expected) text += path + " has no warning of its own; ";
      for (auto const& warning : warnings) {
        if (warning.find("': not deleted: " + reason) == std::string::npos) text += warning + "; ";
      }
    }
    return text;
  });
  EXPECT_EQ(wrong, "");
  EXPECT_TRUE(fs::exists(home / "work"));
}

TEST_F(TempFolder, WithWhatCannotBeDeletedIsReported) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can become a user without rights";
  fs::create_directories(folder_ / "a/b");
  ASSERT_EQ(::chmod(folder_.c_str(), 0755), 0);
  auto const said = withoutRights([&] {
    MessageLog const log;
    std::string text = File::deleteFolder((folder_ / "a").string()) ? "deleted;" : "";
    for (auto const& warning : log.warnings()) text += warning + ';';
    return text;
  });
  EXPECT_EQ(said, "'" + (folder_ / "a").string() + "': not deleted: Permission denied;");
  EXPECT_TRUE(fs::exists(folder_ / "a/b"));
}

}  // namespace
}  // namespace Velmor::Test
