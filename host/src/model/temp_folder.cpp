#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "model/message.h"
#include "velmorapi/file.h"
#include "velmorhost/settings.h"

namespace Velmor::API {

namespace {

namespace fs = std::filesystem;

String failedToMake(fs::path const& parent, std::string const& reason) {
  Host::report(Host::Severity::Error,
               Host::about(parent.string(), "cannot make a temporary folder: " + reason));
  return {};
}

bool refuse(std::string const& path, std::string const& reason) {
  Host::report(Host::Severity::Warning, Host::about(path, "not deleted: " + reason));
  return false;
}

/// All folders that hold the user's home folder, and itself.
bool holdsHome(struct stat const& folder) {
  std::vector<std::string> homes;
  if (char const* const home = std::getenv("HOME"); home != nullptr) homes.emplace_back(home);
  // The environment may name another folder than the account does.
  passwd entry{};
  passwd* user = nullptr;
  char buffer[4096];
  if (::getpwuid_r(::getuid(), &entry, buffer, sizeof(buffer), &user) == 0 && user != nullptr)
    homes.emplace_back(user->pw_dir);
  for (auto const& home : homes) {
    std::error_code error;
    fs::path above = fs::canonical(home, error);
    if (error) continue;
    for (;; above = above.parent_path()) {
      struct stat status {};
      if (::stat(above.c_str(), &status) == 0 && status.st_dev == folder.st_dev &&
          status.st_ino == folder.st_ino)
        return true;
      if (above == above.root_path()) break;
    }
  }
  return false;
}

/// Whether the folder is where a file system starts, "/" among them.
bool isRoot(std::string const& path, struct stat const& folder) {
  struct stat above {};
  if (::stat((path + "/..").c_str(), &above) != 0) return true;
  return above.st_dev != folder.st_dev || above.st_ino == folder.st_ino;
}

}  // namespace

String File::createTempFolder() {
  std::error_code error;
  char const* const variable = std::getenv("TMPDIR");
  fs::path parent = variable != nullptr && *variable != '\0' ? variable : "/tmp";
  if (Host::mustFail(Host::Call::CreateTempFolder)) return failedToMake(parent, "made to fail");
  // The folder must be found again after a change of the working folder.
  parent = fs::absolute(parent, error);
  if (error) return failedToMake(parent, error.message());
  std::string path = (parent / "velmor-XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr)
    return failedToMake(parent, std::generic_category().message(errno));
  return path;
}

bool File::deleteFolder(String const& path) {
  std::string name = path.str();
  // A separator at the end would make a link pass for the folder it leads to.
  while (name.size() > 1 && name.back() == '/') name.pop_back();
  if (name.empty()) return false;
  // What the system would take for the path is what comes before it.
  auto const end = name.find('\0');
  if (end != name.npos) return refuse(name.substr(0, end), "the path holds a null byte");
  auto const last = fs::path(name).filename();
  if (last == "." || last == "..") return refuse(name, "the path ends in '.' or '..'");

  struct stat folder {};
  if (::lstat(name.c_str(), &folder) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return true;
    return refuse(name, std::generic_category().message(errno));
  }
  if (!S_ISDIR(folder.st_mode)) return refuse(name, "it is no folder");
  if (isRoot(name, folder)) return refuse(name, "it is the root of a file system");
  if (holdsHome(folder)) return refuse(name, "it is or holds the home folder");

  std::error_code error;
  fs::remove_all(name, error);  // removes links themselves, never what they lead to
  return error ? refuse(name, error.message()) : true;
}

}  // namespace Velmor::API
