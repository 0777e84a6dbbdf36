#include "output.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "failure.h"

namespace Velmor::Tool {

namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 20;
constexpr char const* temporarySuffix = ".velmor-tmp";

// What the signal handler removes, one place for each file that is being
// written; a handler may not touch a string that moves.
struct Temporary {
  std::atomic<bool> taken{false}, whole{false};
  char path[PATH_MAX] = "";
};
std::array<Temporary, 64> temporaries;

void removeAndEnd(int signal) {
  for (auto const& temporary : temporaries) {
    if (temporary.whole.load(std::memory_order_acquire)) unlink(temporary.path);
  }
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// The place that remembers the path; none where all are taken, which leaves the
// file to the next sweep.
int rememberTemporary(std::string const& path) {
  if (path.size() >= PATH_MAX) return -1;
  for (std::size_t t = 0; t < temporaries.size(); ++t) {
    if (temporaries[t].taken.exchange(true)) continue;
    std::memcpy(temporaries[t].path, path.c_str(), path.size() + 1);
    temporaries[t].whole.store(true, std::memory_order_release);
    return static_cast<int>(t);
  }
  return -1;
}

void forgetTemporary(int place) {
  if (place < 0) return;
  auto& temporary = temporaries[static_cast<std::size_t>(place)];
  temporary.whole.store(false);
  temporary.taken.store(false, std::memory_order_release);
}

std::string folderOf(std::string const& path) {
  auto const slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(std::string const& path) { return path.substr(path.rfind('/') + 1); }

// The file that a path of links ends at, so that links stay links. Where
// nothing exists yet the path itself.
std::string followLinks(std::string const& path) {
  std::unique_ptr<char, decltype(&std::free)> const real(realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real ? std::string(real.get()) : path;
}

// Paths that stand for one of our own open descriptors, whatever that is.
int descriptorOf(std::string const& path) {
  if (path == "-") return STDOUT_FILENO;
  for (std::string const prefix : {"/dev/std", "/dev/fd/", "/proc/self/fd/"}) {
    if (path.compare(0, prefix.size(), prefix) != 0) continue;
    auto const rest = path.substr(prefix.size());
    if (rest == "out" || rest == "1") return STDOUT_FILENO;
    if (rest == "err" || rest == "2") return STDERR_FILENO;
  }
  return -1;
}

[[noreturn]] void failOutput(std::string const& path, int error) {
  throw Failure(ExitCode::Output, path, std::string("cannot write: ") + std::strerror(error));
}

}  // namespace

bool isStandardOutput(std::string const& path) {
  if (descriptorOf(path) == STDOUT_FILENO) return true;
  struct stat there {
  }, out{};
  // Devices (terminals, the null device) can take the report too.
  return stat(path.c_str(), &there) == 0 && !S_ISCHR(there.st_mode) &&
         fstat(STDOUT_FILENO, &out) == 0 && there.st_dev == out.st_dev &&
         there.st_ino == out.st_ino;
}

bool isSpecialOutput(std::string const& path) {
  struct stat there {};
  return descriptorOf(path) >= 0 ||
         (stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode) && !S_ISDIR(there.st_mode));
}

void checkOutput(std::string const& path) {
  if (isSpecialOutput(path)) return;
  struct stat there {};
  if (stat(path.c_str(), &there) == 0) {
    if (S_ISDIR(there.st_mode)) failOutput(path, EISDIR);
    // The rename would replace a file that its owner has made read-only.
    if (access(path.c_str(), W_OK) != 0) failOutput(path, errno);
  } else if (errno != ENOENT) {
    failOutput(path, errno);
  }
  if (access(folderOf(followLinks(path)).c_str(), W_OK | X_OK) != 0) failOutput(path, errno);
}

void sweepTemporaries(std::string const& folder) {
  auto* const entries = opendir(folder.c_str());
  if (entries == nullptr) return;
  auto const suffix = std::string(temporarySuffix);
  while (auto const* entry = readdir(entries)) {
    std::string const name = entry->d_name;
    if (name.size() <= suffix.size() || name[0] != '.' ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
      continue;
    }
    auto const path = folder + "/" + name;
    int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0) continue;
    if (flock(file, LOCK_EX | LOCK_NB) == 0) unlink(path.c_str());
    close(file);
  }
  closedir(entries);
}

void handleSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
    // Who started us with a signal ignored (nohup) wants it ignored.
    if (std::signal(signal, removeAndEnd) == SIG_IGN) std::signal(signal, SIG_IGN);
  }
}

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  buffer_.reserve(bufferSize);
  checkOutput(path_);
  if (int const descriptor = descriptorOf(path_); descriptor >= 0) {
    file_ = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (file_ < 0) fail(errno);
    return;
  }
  if (isSpecialOutput(path_)) {
    file_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    if (file_ < 0) fail(errno);
    return;
  }
  target_ = followLinks(path_);
  auto const folder = folderOf(target_);
  sweepTemporaries(folder);
  // Another process's sweep may take the file between its making and its
  // locking; then it has no name any more and we try again.
  for (int attempt = 0; file_ < 0; ++attempt) {
    auto const name = folder + "/." + nameOf(target_).substr(0, 200) + "." +
                      std::to_string(getpid()) + "-" + std::to_string(attempt) + temporarySuffix;
    int const file = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0) {
      if (errno == EEXIST && attempt < 1000) continue;
      fail(errno);
    }
    struct stat made {};
    if (flock(file, LOCK_EX) == 0 && fstat(file, &made) == 0 && made.st_nlink == 0 &&
        attempt < 1000) {
      close(file);
      continue;
    }
    file_ = file;
    temporary_ = name;
  }
  remembered_ = rememberTemporary(temporary_);
  struct stat there {};
  if (stat(target_.c_str(), &there) == 0) fchmod(file_, there.st_mode & 07777);
}

OutputFile::~OutputFile() {
  if (file_ >= 0) close(file_);
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
    forgetTemporary(remembered_);
  }
}

void OutputFile::write(void const* data, std::size_t size) {
  auto const* bytes = static_cast<char const*>(data);
  if (buffer_.size() + size > bufferSize) flush();
  buffer_.insert(buffer_.end(), bytes, bytes + size);
  if (buffer_.size() >= bufferSize) flush();
}

void OutputFile::flush() {
  std::size_t done = 0;
  while (done < buffer_.size()) {
    auto const written = ::write(file_, buffer_.data() + done, buffer_.size() - done);
    if (written < 0) {
      if (errno == EINTR) continue;
      fail(errno);
    }
    done += static_cast<std::size_t>(written);
  }
  buffer_.clear();
}

void OutputFile::commit() {
  flush();
  // Some file systems report a full disk only when the file is closed. The copy
  // of the descriptor keeps the lock until the rename, so that nobody takes the
  // file for one left behind.
  int const lock = temporary_.empty() ? -1 : fcntl(file_, F_DUPFD_CLOEXEC, 0);
  int error = close(std::exchange(file_, -1)) == 0 ? 0 : errno;
  if (error == 0 && !temporary_.empty() && rename(temporary_.c_str(), target_.c_str()) != 0) {
    error = errno;
  }
  if (lock >= 0) close(lock);
  if (error != 0) fail(error);
  temporary_.clear();
  forgetTemporary(std::exchange(remembered_, -1));
}

void OutputFile::fail(int error) const { failOutput(path_, error); }

}  // namespace Velmor::Tool
