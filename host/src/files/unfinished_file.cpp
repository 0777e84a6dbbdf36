#include "velmorhost/unfinished_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace Velmor::Host {

namespace {

constexpr std::string_view suffix = ".velmor-tmp";

// What a signal handler removes, one place for each file that is being written;
// a handler may not touch a string that moves.
struct Place {
  std::atomic<bool> taken{false}, whole{false};
  char path[PATH_MAX] = "";
};
std::array<Place, 64> places;

// The place that remembers the path; none where all are taken, which leaves the
// file to the next sweep.
int remember(std::string const& path) {
  if (path.size() >= PATH_MAX) return -1;
  for (std::size_t p = 0; p < places.size(); ++p) {
    if (places[p].taken.exchange(true)) continue;
    std::memcpy(places[p].path, path.c_str(), path.size() + 1);
    places[p].whole.store(true, std::memory_order_release);
    return static_cast<int>(p);
  }
  return -1;
}

void forget(int number) {
  if (number < 0) return;
  auto& place = places[static_cast<std::size_t>(number)];
  place.whole.store(false);
  place.taken.store(false, std::memory_order_release);
}

std::string folderOf(std::string const& path) {
  auto const slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(std::string const& path) { return path.substr(path.rfind('/') + 1); }

// The file that a path of links ends at, so that links stay links: also where
// nothing exists yet at their end.
std::string followLinks(std::string path) {
  for (int n = 0; n < 40; ++n) {  // as many as the system follows
    std::unique_ptr<char, decltype(&std::free)> const real(::realpath(path.c_str(), nullptr),
                                                           &std::free);
    if (real) return real.get();
    std::array<char, PATH_MAX> target;
    auto const length = ::readlink(path.c_str(), target.data(), target.size());
    if (length <= 0 || static_cast<std::size_t>(length) == target.size()) break;
    std::string next(target.data(), static_cast<std::size_t>(length));
    path = next[0] == '/' ? std::move(next) : folderOf(path) + "/" + next;
  }
  return path;
}

void sweep(std::string const& folder) {
  std::unique_ptr<DIR, int (*)(DIR*)> const entries(::opendir(folder.c_str()), ::closedir);
  if (!entries) return;
  while (auto const* entry = ::readdir(entries.get())) {
    std::string_view const name = entry->d_name;
    if (name.size() <= suffix.size() || name[0] != '.' || !name.ends_with(suffix)) continue;
    auto const path = folder + "/" + entry->d_name;
    int const file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0) continue;
    // Shared: some network file systems lock nothing else for a reader.
    if (::flock(file, LOCK_SH | LOCK_NB) == 0) ::unlink(path.c_str());
    ::close(file);
  }
}

// Takes the writer's lock; false where another process's sweep was quicker, and
// the file has no name any more. A file system without locks has no sweeps.
bool lock(int file) {
  while (::flock(file, LOCK_EX) != 0 && errno == EINTR) {
  }
  struct stat made {};
  return ::fstat(file, &made) != 0 || made.st_nlink > 0;
}

}  // namespace

int standardStream(std::string const& path) noexcept {
  for (std::string_view const prefix : {"/dev/std", "/dev/fd/", "/proc/self/fd/"}) {
    if (!path.starts_with(prefix)) continue;
    auto const rest = std::string_view(path).substr(prefix.size());
    if (rest == "out" || rest == "1") return STDOUT_FILENO;
    if (rest == "err" || rest == "2") return STDERR_FILENO;
  }
  return -1;
}

UnfinishedFile::~UnfinishedFile() { remove(); }

int UnfinishedFile::check(std::string const& path) noexcept try {
  if (path.empty()) return ENOENT;
  struct stat there {};
  if (::stat(path.c_str(), &there) == 0) {
    if (S_ISDIR(there.st_mode)) return EISDIR;
    // The rename would replace a file that its owner has made read-only.
    if (::access(path.c_str(), W_OK) != 0) return errno;
  } else if (errno != ENOENT) {
    return errno;
  }
  return ::access(folderOf(followLinks(path)).c_str(), W_OK | X_OK) == 0 ? 0 : errno;
} catch (std::bad_alloc const&) {
  return ENOMEM;
}

int UnfinishedFile::open(std::string const& path) noexcept try {
  if (int const error = check(path)) return error;
  target_ = followLinks(path);
  auto const folder = folderOf(target_);
  sweep(folder);
  auto const start = folder + "/." + nameOf(target_).substr(0, 200) + ".";
  while (file_ < 0) {
    // A name that nobody else has: it can be remembered before the file exists, so
    // that no signal comes between.
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, 0) < 0) return errno;
    hidden_ = start + std::to_string(number) + std::string(suffix);
    remembered_ = remember(hidden_);
    file_ = ::open(hidden_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file_ >= 0 && lock(file_)) break;
    int const error = file_ < 0 ? errno : 0;
    remove();
    if (error != 0) return error;
  }
  struct stat there {};
  if (::stat(target_.c_str(), &there) == 0) ::fchmod(file_, there.st_mode & 07777);
  return 0;
} catch (std::bad_alloc const&) {
  return ENOMEM;
}

int UnfinishedFile::finish() noexcept {
  // Some file systems report a full disk only when the file is closed. The copy
  // of the descriptor keeps the lock until the rename, so that nobody takes the
  // file for one left behind.
  int const lock = ::fcntl(file_, F_DUPFD_CLOEXEC, 0);
  int error = ::close(std::exchange(file_, -1)) == 0 ? 0 : errno;
  if (error == 0 && ::rename(hidden_.c_str(), target_.c_str()) != 0) error = errno;
  if (lock >= 0) ::close(lock);
  if (error == 0) {
    hidden_.clear();
    forget(std::exchange(remembered_, -1));
  }
  remove();
  return error;
}

void UnfinishedFile::remove() noexcept {
  if (file_ >= 0) ::close(std::exchange(file_, -1));
  if (hidden_.empty()) return;
  ::unlink(hidden_.c_str());
  hidden_.clear();
  forget(std::exchange(remembered_, -1));
}

void removeUnfinishedFiles() noexcept {
  for (auto const& place : places) {
    if (place.whole.load(std::memory_order_acquire)) ::unlink(place.path);
  }
}

}  // namespace Velmor::Host
