#include "files/helper.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <limits>

#include "files/fd_stream.h"
#include "files/helper_protocol.h"

extern char** environ;

namespace Velmor::Host::Files {

namespace {

constexpr std::size_t mostOutput = 1 << 16;
using Clock = std::chrono::steady_clock;

std::string words(char const* what) { return std::string(what) + ": " + std::strerror(errno); }

/// Owns what `posix_spawn` is told.
struct SpawnPlan {
  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
  SpawnPlan() {
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
  }
  SpawnPlan(SpawnPlan const&) = delete;
  SpawnPlan& operator=(SpawnPlan const&) = delete;
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
  }
};

void closeIfOpen(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

}  // namespace

Mapping::Mapping(int fd) {
  struct stat info {};
  if (::fstat(fd, &info) != 0 || info.st_size <= 0) return;
  auto const size = static_cast<std::size_t>(info.st_size);
  void* const at = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  if (at == MAP_FAILED) return;
  data_ = static_cast<std::byte const*>(at);
  size_ = size;
}

Mapping::~Mapping() {
  if (data_ != nullptr) ::munmap(const_cast<std::byte*>(data_), size_);
}

std::string findHelper() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void*>(&findHelper), &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  std::error_code error;
  auto const library = std::filesystem::canonical(info.dli_fname, error);
  if (error) return {};
  auto const folder = library.parent_path();
  for (auto const& place : {folder, folder / ".." / "bin", folder / ".." / "libexec",
                            folder / ".." / ".." / "bin", folder / ".." / ".." / "libexec"}) {
    auto const candidate = (place / Helper::program).string();
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return {};
}

HelperRun::~HelperRun() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
    }
  }
  closeIfOpen(process_);
  closeIfOpen(pipe_);
  closeIfOpen(memory_);
}

std::string HelperRun::run(std::string const& request, double seconds) {
  auto const program = findHelper();
  if (program.empty()) {
    return std::string("the helper program '") + Helper::program + "' is not installed";
  }
  memory_ = ::memfd_create("velmor-image", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (memory_ < 0) return words("no memory file");
  if (int const error = writeAll(memory_, request.data(), request.size())) {
    return std::string("no memory file: ") + std::strerror(error);
  }
  if (auto problem = start(program); !problem.empty()) return problem;
  if (!wait(seconds)) {
    ::kill(pid_, SIGKILL);
    while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
    }
    pid_ = 0;
    auto limit = std::to_string(seconds);
    limit.erase(std::min(limit.size(), limit.find_last_not_of('0') + 1));
    if (limit.ends_with('.')) limit.pop_back();
    return "the helper was still busy after the limit of " + limit + " seconds";
  }
  while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
  }
  pid_ = 0;
  if (auto problem = outcome(); !problem.empty()) return problem;
  // Whatever it may have started in turn cannot change the image any more.
  if (::fcntl(memory_, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) != 0) {
    return "the helper left its memory in use";
  }
  return {};
}

std::string HelperRun::start(std::string const& program) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return words("no pipe");
  pipe_ = ends[0];
  ::fcntl(pipe_, F_SETFL, O_NONBLOCK);

  SpawnPlan plan;
  posix_spawn_file_actions_addopen(&plan.files, 0, "/dev/null", O_RDONLY, 0);
  // By way of numbers that no file here has: the targets may be taken.
  int const memory = ::fcntl(memory_, F_DUPFD_CLOEXEC, 10);
  int const out = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 10);
  posix_spawn_file_actions_adddup2(&plan.files, memory, Helper::memory);
  posix_spawn_file_actions_adddup2(&plan.files, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&plan.files, out, STDERR_FILENO);
  posix_spawn_file_actions_addclosefrom_np(&plan.files, Helper::memory + 1);
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setflags(&plan.attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_setsigdefault(&plan.attributes, &all);
  posix_spawnattr_setsigmask(&plan.attributes, &none);

  auto parent = std::to_string(::getpid());
  std::string name = Helper::program;
  std::array<char*, 3> arguments{name.data(), parent.data(), nullptr};
  int const error = ::posix_spawn(&pid_, program.c_str(), &plan.files, &plan.attributes,
                                  arguments.data(), environ);
  ::close(ends[1]);
  ::close(out);
  ::close(memory);
  if (error != 0) {
    pid_ = 0;
    return "the helper '" + program + "' could not be started: " + std::strerror(error);
  }
  process_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
  return process_ >= 0 ? std::string() : words("the helper cannot be watched");
}

/// Collects its output until it ends; false if the time is up before.
bool HelperRun::wait(double seconds) {
  constexpr double longest = 1e9;
  auto const end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(std::clamp(seconds, 0.0, longest)));
  std::array<char, 4096> chunk;
  for (;;) {
    std::array<pollfd, 2> events{pollfd{process_, POLLIN, 0}, pollfd{pipe_, POLLIN, 0}};
    auto const left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count() + 1;
    auto const timeout = std::clamp<long long>(left, 0, std::numeric_limits<int>::max());
    auto const ready = ::poll(events.data(), events.size(), static_cast<int>(timeout));
    if (ready < 0 && errno != EINTR) return false;
    for (;;) {
      auto const got = pipe_ >= 0 ? ::read(pipe_, chunk.data(), chunk.size()) : -1;
      if (got == 0) closeIfOpen(pipe_);
      if (got <= 0) break;
      auto const room = mostOutput - output_.size();
      output_.append(chunk.data(), std::min(static_cast<std::size_t>(got), room));
      if (Clock::now() >= end) break;
    }
    if (ready > 0 && events[0].revents != 0) return true;
    if (Clock::now() >= end) return false;
  }
}

std::string HelperRun::outcome() const {
  if (WIFSIGNALED(status_)) {
    auto const signal = WTERMSIG(status_);
    auto const* const name = ::sigdescr_np(signal);
    return "the helper crashed: " +
           (name != nullptr ? std::string(name) : "signal " + std::to_string(signal));
  }
  switch (WEXITSTATUS(status_)) {
    case Helper::done:
      return {};
    case Helper::badRequest:
      return "the helper is of another version";
    case Helper::outOfMemory:
      return "the helper needs more memory than its limit";
    default:
      return "the helper failed with code " + std::to_string(WEXITSTATUS(status_));
  }
}

}  // namespace Velmor::Host::Files
