#include "files/helper.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>

#include "core/number_text.h"
#include "files/fd_stream.h"
#include "files/helper_protocol.h"
#include "files/helper_server.h"

namespace Velmor::Host::Files {

namespace {

constexpr std::size_t mostOutput = 1 << 16;
using Clock = std::chrono::steady_clock;

std::string words(char const* what) { return std::string(what) + ": " + std::strerror(errno); }

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

HelperRun::~HelperRun() { close(); }

void HelperRun::close() {
  for (auto* const fd : {&report_, &pipe_, &memory_}) closeIfOpen(*fd);
}

std::string HelperRun::run(ReadRequest const& request, double seconds) {
  auto const packed = pack(request);
  if (auto problem = send(packed); !problem.empty()) return problem;
  auto end = wait(seconds);
  if (end == End::Lost) {
    // Somebody may have ended the helper while it was idle: that is not the file's fault.
    close();
    output_.clear();
    if (auto problem = send(packed); !problem.empty()) return problem;
    end = wait(seconds);
  }
  if (end == End::Lost) return HelperServer::instance().end();
  if (end == End::Late) {
    closeIfOpen(report_);  // which ends the worker
    return "the helper was still busy after the limit of " + numberText(seconds) + " seconds";
  }
  if (auto problem = outcome(request); !problem.empty()) return problem;
  // Whatever it may have started in turn cannot change the image any more.
  if (::fcntl(memory_, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) != 0) {
    return "the helper left its memory in use";
  }
  return {};
}

std::string HelperRun::send(std::string const& request) {
  memory_ = ::memfd_create("velmor-image", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (memory_ < 0) return words("no memory file");
  if (int const error = writeAll(memory_, request.data(), request.size())) {
    return std::string("no memory file: ") + std::strerror(error);
  }
  int output[2], report[2];
  if (::pipe2(output, O_CLOEXEC) != 0) return words("no pipe");
  pipe_ = output[0];
  ::fcntl(pipe_, F_SETFL, O_NONBLOCK);
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, report) != 0) {
    auto problem = words("no socket");
    ::close(output[1]);
    return problem;
  }
  report_ = report[0];
  int folder = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) folder = ::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
  Descriptors files;
  files[Helper::Memory] = memory_;
  files[Helper::Output] = output[1];
  files[Helper::Folder] = folder;
  files[Helper::Report] = report[1];
  auto problem = folder >= 0 ? HelperServer::instance().send(files) : words("no working folder");
  for (int const fd : {output[1], report[1]}) ::close(fd);
  if (folder >= 0) ::close(folder);
  return problem;
}

/// Collects what the worker prints until it ends.
HelperRun::End HelperRun::wait(double seconds) {
  constexpr double longest = 1e9;
  auto const end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(std::clamp(seconds, 0.0, longest)));
  std::array<char, 4096> chunk;
  for (;;) {
    std::array<pollfd, 2> events{pollfd{report_, POLLIN, 0}, pollfd{pipe_, POLLIN, 0}};
    auto const left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count() + 1;
    auto const timeout = std::clamp<long long>(left, 0, std::numeric_limits<int>::max());
    auto const ready = ::poll(events.data(), events.size(), static_cast<int>(timeout));
    if (ready < 0 && errno != EINTR) return End::Lost;
    for (;;) {
      auto const got = pipe_ >= 0 ? ::read(pipe_, chunk.data(), chunk.size()) : -1;
      if (got == 0) closeIfOpen(pipe_);
      if (got <= 0) break;
      auto const room = mostOutput - output_.size();
      output_.append(chunk.data(), std::min(static_cast<std::size_t>(got), room));
      if (Clock::now() >= end) break;
    }
    if (ready > 0 && events[0].revents != 0) {
      auto const got = ::recv(report_, &status_, sizeof status_, 0);
      return got == sizeof status_ ? End::Reported : End::Lost;
    }
    if (Clock::now() >= end) return End::Late;
  }
}

std::string HelperRun::outcome(ReadRequest const& request) const {
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
      return "the helper needs " + tooMuch(request);
    default:
      return "the helper failed with code " + std::to_string(WEXITSTATUS(status_));
  }
}

}  // namespace Velmor::Host::Files
