// The helper program: decodes one `.vdb` file where a crash hurts nobody.

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "files/helper_protocol.h"
#include "files/image.h"
#include "files/request.h"
#include "files/vdb_decode.h"

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

bool takeRequest(ReadRequest& request) {
  struct stat info {};
  if (::fstat(Helper::memory, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0) {
    return false;
  }
  std::string bytes(static_cast<std::size_t>(info.st_size), '\0');
  return ::pread(Helper::memory, bytes.data(), bytes.size(), 0) == info.st_size &&
         unpack(bytes, request) && ::ftruncate(Helper::memory, 0) == 0;
}

}  // namespace

int main(int count, char** arguments) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ReadRequest request;
  if (count != 2 || !takeRequest(request)) {
    std::fputs("This program is started by libvelmorapi to read cache files.\n", stderr);
    return Helper::badRequest;
  }
  // The parent may have died before it could be watched.
  if (::getppid() != static_cast<pid_t>(std::strtol(arguments[1], nullptr, 10))) return 1;
  limit(RLIMIT_CORE, 0);
  if (limited && request.memoryLimit != 0) limit(RLIMIT_AS, request.memoryLimit);
  try {
    ImageBuilder image(Helper::memory, request.memoryLimit / 2);
    decode(request, image);
  } catch (ImageFull const&) {
    std::_Exit(Helper::outOfMemory);
  } catch (std::bad_alloc const&) {
    std::_Exit(Helper::outOfMemory);
  }
  // The image is complete: taking down grids and libraries would only cost time.
  std::_Exit(Helper::done);
}
