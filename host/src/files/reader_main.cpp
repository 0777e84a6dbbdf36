// The helper program: decodes each `.vdb` file in a process of its own, where a crash
// hurts nobody.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <log4cplus/config.hxx>
#include <new>
#include <string>
#include <system_error>
#include <thread>

#include "files/helper_protocol.h"
#include "files/image.h"
#include "files/request.h"
#include "files/vdb_decode.h"
#include "files/worker_pool.h"

namespace {

using namespace Velmor::Host::Files;

// Sanitizers reserve far more address space than any limit.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool limited = false;
#else
constexpr bool limited = true;
#endif

void limit(int resource, rlim_t value) {
  rlimit const both{value, value};
  ::setrlimit(static_cast<__rlimit_resource>(resource), &both);
}

unsigned long addressLimit = 0;  // in bytes; 0: none

/// Pages of address space in use; safe in a signal handler.
unsigned long pagesInUse() {
  char text[32] = {};
  int const file = ::open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
  auto const got = ::read(file, text, sizeof text - 1);
  unsigned long pages = 0;
  for (int n = 0; n < got && text[n] >= '0' && text[n] <= '9'; ++n) {
    pages = pages * 10 + static_cast<unsigned long>(text[n] - '0');
  }
  return pages;
}

/// The decompressors that OpenVDB uses do not look at what `malloc` gives them:
/// a crash close to the limit is a lack of memory.
void onCrash(int signal) {
  constexpr unsigned long pageSize = 4096;
  if (addressLimit != 0 && pagesInUse() * pageSize > addressLimit / 10 * 9) {
    ::_exit(Helper::outOfMemory);
  }
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void watchCrashes() {
  static char stack[1 << 16];  // the usual one may be what overflowed
  stack_t const other{stack, 0, sizeof stack};
  ::sigaltstack(&other, nullptr);
  struct sigaction action {};
  action.sa_handler = &onCrash;
  action.sa_flags = SA_ONSTACK | SA_NODEFER;
  for (int const signal : {SIGSEGV, SIGBUS, SIGABRT}) ::sigaction(signal, &action, nullptr);
}

bool takeRequest(int memory, ReadRequest& request) {
  struct stat info {};
  if (::fstat(memory, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0) {
    return false;
  }
  std::string bytes(static_cast<std::size_t>(info.st_size), '\0');
  return ::pread(memory, bytes.data(), bytes.size(), 0) == info.st_size && unpack(bytes, request) &&
         ::ftruncate(memory, 0) == 0;
}

int decodeOne(int memory) {
  ReadRequest request;
  if (!takeRequest(memory, request)) return Helper::badRequest;
  limit(RLIMIT_CORE, 0);
  if (limited) {
    addressLimit = request.memoryLimit;
    limit(RLIMIT_AS, request.memoryLimit);
    watchCrashes();
  }
  try {
    ImageBuilder image(memory, request.memoryLimit / 2);
    decode(request, image);
    // The image is complete: taking down grids and libraries would only cost time.
    std::_Exit(Helper::done);
  } catch (ImageFull const&) {
    std::_Exit(Helper::outOfMemory);
  } catch (std::bad_alloc const&) {
    std::_Exit(Helper::outOfMemory);
  }
}

#ifdef __SANITIZE_THREAD__
constexpr int ownThreads = 2;  // the sanitizer has one
#else
constexpr int ownThreads = 1;
#endif

// A program that waits for all its children waits no longer for the idle helper.
constexpr int idleMilliseconds = 10'000;

// The log library starts threads as it is loaded. A worker that is forked in the
// middle of their start inherits locks that nobody opens any more.
void endThreadsOfTheLog() {
  log4cplus::deinitialize();
  auto const alone = [] {
    std::error_code error;
    std::filesystem::directory_iterator const tasks("/proc/self/task", error);
    return std::distance(begin(tasks), {}) <= ownThreads;
  };
  for (int n = 0; n < 1000 && !alone(); ++n) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace

// OpenVDB leaves its trees in no state to be destroyed when memory runs out
// while it reads. What asks for a little and does not get it is the end;
// sizes that only a damaged file can want are failures of their grid.
void* operator new(std::size_t size) {
  constexpr std::size_t absurd = std::size_t{64} << 20;
  if (void* const memory = std::malloc(size != 0 ? size : 1)) return memory;
  if (size < absurd) std::_Exit(Helper::outOfMemory);
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

int main(int count, char** arguments) {
  struct stat info {};
  if (count != 2 || ::getppid() != static_cast<pid_t>(std::strtol(arguments[1], nullptr, 10)) ||
      ::fstat(Helper::requests, &info) != 0 || !S_ISSOCK(info.st_mode)) {
    std::fputs("This program is started by libvelmorapi to read cache files.\n", stderr);
    return Helper::badRequest;
  }
  endThreadsOfTheLog();
  // A limit on the size of files is one on the shared memory too: what is too large
  // for it fails there.
  std::signal(SIGXFSZ, SIG_IGN);
  // Nothing keeps the file system busy that it was started on.
  if (::chdir("/") != 0) std::_Exit(1);
  serveRequests(Helper::requests, idleMilliseconds, &decodeOne);
  std::_Exit(Helper::done);
}
