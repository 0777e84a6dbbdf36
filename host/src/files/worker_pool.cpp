#include "files/worker_pool.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "files/descriptor_message.h"
#include "files/helper_protocol.h"

namespace Velmor::Host::Files {

namespace {

struct Worker {
  pid_t pid;
  int process;  // a descriptor that becomes readable when it ends
  int report;   // -1 once nobody waits for it
};

void closeIfOpen(int fd) {
  if (fd >= 0) ::close(fd);
}

[[noreturn]] void becomeWorker(Descriptors const& files, pid_t parent, int (*work)(int)) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) std::_Exit(1);  // it died before it could be watched
  if (files[Helper::Folder] >= 0 && ::fchdir(files[Helper::Folder]) != 0) std::_Exit(1);
  // The socket for requests has this number, and all that arrived has higher ones.
  constexpr int memory = Helper::requests;
  ::dup2(files[Helper::Memory], memory);
  ::dup2(files[Helper::Output], STDOUT_FILENO);
  ::dup2(files[Helper::Output], STDERR_FILENO);
  ::syscall(SYS_close_range, memory + 1, ~0u, 0u);
  std::_Exit(work(memory));
}

void start(Descriptors const& files, int (*work)(int), std::vector<Worker>& workers) {
  auto const parent = ::getpid();
  auto const pid = files[Helper::Report] >= 0 ? ::fork() : -1;
  if (pid == 0) becomeWorker(files, parent, work);
  for (auto const part : {Helper::Memory, Helper::Output, Helper::Folder}) closeIfOpen(files[part]);
  auto const process = pid > 0 ? static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)) : -1;
  if (process >= 0) {
    workers.push_back({pid, process, files[Helper::Report]});
    return;
  }
  closeIfOpen(files[Helper::Report]);  // tells that there is no worker
  if (pid > 0) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
  }
}

// Whether the worker is gone.
bool look(Worker& worker, pollfd const& process, pollfd const& report) {
  if (process.revents == 0) {
    if (report.revents != 0) {
      ::kill(worker.pid, SIGKILL);
      ::close(worker.report);
      worker.report = -1;
    }
    return false;
  }
  int status = 0;
  while (::waitpid(worker.pid, &status, 0) < 0 && errno == EINTR) {
  }
  ::close(worker.process);
  if (worker.report >= 0) {
    ::send(worker.report, &status, sizeof status, MSG_NOSIGNAL);
    ::close(worker.report);
  }
  return true;
}

}  // namespace

void serveRequests(int requests, int idleMilliseconds, int (*work)(int memory)) {
  std::vector<Worker> workers;
  std::vector<pollfd> events;
  for (;;) {
    events.assign(1, {requests, POLLIN, 0});
    for (auto const& worker : workers) {
      events.push_back({worker.process, POLLIN, 0});
      events.push_back({worker.report, 0, 0});
    }
    auto const ready =
        ::poll(events.data(), events.size(), workers.empty() ? idleMilliseconds : -1);
    if (ready < 0) continue;
    if (ready == 0) return;
    for (auto w = workers.size(); w-- > 0;) {
      if (look(workers[w], events[2 * w + 1], events[2 * w + 2])) {
        workers.erase(workers.begin() + static_cast<std::ptrdiff_t>(w));
      }
    }
    if (events[0].revents == 0) continue;
    Descriptors files;
    if (!receiveDescriptors(requests, files)) return;  // its workers go with it
    start(files, work, workers);
  }
}

}  // namespace Velmor::Host::Files
