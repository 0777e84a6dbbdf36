#include "files/helper_server.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "files/helper_protocol.h"

namespace Velmor::Host::Files {

namespace {

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

}  // namespace

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

HelperServer& HelperServer::instance() {
  static HelperServer server;
  return server;
}

HelperServer::~HelperServer() { stop(); }

void HelperServer::stop() noexcept {
  if (requests_ >= 0) ::close(requests_);
  requests_ = -1;
  if (server_ < 0) return;
  // It holds nothing that an end in the middle could hurt.
  if (owner_ == ::getpid() && ::syscall(SYS_pidfd_send_signal, server_, SIGKILL, nullptr, 0) == 0) {
    siginfo_t info;
    while (::waitid(P_PIDFD, static_cast<id_t>(server_), &info, WEXITED) < 0 && errno == EINTR) {
    }
  }
  ::close(server_);
  server_ = -1;
}

std::string HelperServer::send(Descriptors const& request) {
  std::lock_guard const lock(mutex_);
  if (requests_ >= 0 && user_ == ::geteuid() && sendDescriptors(requests_, request)) return {};
  stop();
  if (auto problem = start(); !problem.empty()) return problem;
  return sendDescriptors(requests_, request) ? std::string() : words("the helper takes no request");
}

std::string HelperServer::end() {
  std::lock_guard const lock(mutex_);
  constexpr int untilItIsGone = 1000;  // milliseconds; its files close first
  pollfd process{server_, POLLIN, 0};
  siginfo_t info{};
  if (::poll(&process, 1, untilItIsGone) == 1 &&
      ::waitid(P_PIDFD, static_cast<id_t>(server_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
      info.si_code == CLD_EXITED) {
    return "the helper ended with code " + std::to_string(info.si_status);
  }
  return "the helper is gone";
}

std::string HelperServer::start() {
  auto const program = findHelper();
  if (program.empty()) {
    return std::string("the helper program '").append(Helper::program).append("' is not installed");
  }
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    return words("no socket");
  }
  // By way of a number that no file here has: the targets may be taken.
  int const far = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 10);
  ::close(ends[1]);
  if (far < 0) {
    auto problem = words("no socket");
    ::close(ends[0]);
    return problem;
  }
  SpawnPlan plan;
  posix_spawn_file_actions_addopen(&plan.files, 0, "/dev/null", O_RDWR, 0);
  posix_spawn_file_actions_adddup2(&plan.files, far, Helper::requests);
  posix_spawn_file_actions_adddup2(&plan.files, 0, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&plan.files, 0, STDERR_FILENO);
  posix_spawn_file_actions_addclosefrom_np(&plan.files, Helper::requests + 1);
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setflags(&plan.attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_setsigdefault(&plan.attributes, &all);
  posix_spawnattr_setsigmask(&plan.attributes, &none);

  auto parent = std::to_string(::getpid());
  std::string name = Helper::program;
  std::array<char*, 3> arguments{name.data(), parent.data(), nullptr};
  pid_t pid = 0;
  int const error = ::posix_spawn(&pid, program.c_str(), &plan.files, &plan.attributes,
                                  arguments.data(), environ);
  ::close(far);
  if (error != 0) {
    ::close(ends[0]);
    return "the helper '" + program + "' could not be started: " + std::strerror(error);
  }
  requests_ = ends[0];
  server_ = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  owner_ = ::getpid();
  user_ = ::geteuid();
  return {};
}

}  // namespace Velmor::Host::Files
