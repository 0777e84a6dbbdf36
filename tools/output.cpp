#include "output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "failure.h"

namespace Velmor::Tool {

namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 20;
// Looked up while the program is loaded: that is no work for a signal handler.
void (*const removeFiles)() noexcept = Host::removeUnfinishedFiles;

void removeAndEnd(int signal) {
  removeFiles();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// Paths that stand for one of our own open descriptors, whatever that is.
int descriptorOf(std::string const& path) {
  if (path == "-") return STDOUT_FILENO;
  return Host::standardStream(path);
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
  if (int const error = Host::UnfinishedFile::check(path)) failOutput(path, error);
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
  if (int const descriptor = descriptorOf(path_); descriptor >= 0) {
    special_ = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (special_ < 0) fail(errno);
  } else if (isSpecialOutput(path_)) {
    special_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    if (special_ < 0) fail(errno);
  } else if (int const error = file_.open(path_)) {
    fail(error);
  }
}

OutputFile::~OutputFile() {
  if (special_ >= 0) close(special_);
}

void OutputFile::write(void const* data, std::size_t size) {
  auto const* bytes = static_cast<char const*>(data);
  if (buffer_.size() + size > bufferSize) flush();
  buffer_.insert(buffer_.end(), bytes, bytes + size);
  if (buffer_.size() >= bufferSize) flush();
}

void OutputFile::flush() {
  int const descriptor = special_ >= 0 ? special_ : file_.descriptor();
  std::size_t done = 0;
  while (done < buffer_.size()) {
    auto const written = ::write(descriptor, buffer_.data() + done, buffer_.size() - done);
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
  int error = 0;
  if (special_ < 0) {
    error = file_.finish();
  } else if (close(std::exchange(special_, -1)) != 0) {
    error = errno;
  }
  if (error != 0) fail(error);
}

void OutputFile::fail(int error) const { failOutput(path_, error); }

}  // namespace Velmor::Tool
