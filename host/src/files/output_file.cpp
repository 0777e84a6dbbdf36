#include "files/output_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

#include "files/fd_stream.h"
#include "files/temp_name.h"

namespace Velmor::Host::Files {

namespace {

std::string words(int error) { return std::strerror(error); }

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor() { close(); }
  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }
  /// Some file systems report a failed write only here.
  int close() {
    if (fd_ < 0) return 0;
    auto const result = ::close(fd_);
    fd_ = -1;
    return result == 0 ? 0 : errno;
  }

 private:
  int fd_;
};

std::string fill(int fd, std::function<void(std::ostream&)> const& write) {
  FdBuffer buffer(fd);
  std::ostream stream(&buffer);
  try {
    stream.exceptions(std::ios::badbit | std::ios::failbit);
    write(stream);
    stream.flush();
  } catch (std::exception const& error) {
    return buffer.error() != 0 ? words(buffer.error()) : std::string(error.what());
  }
  return buffer.error() != 0 ? words(buffer.error()) : std::string();
}

std::string writeThrough(std::string const& path, std::function<void(std::ostream&)> const& write) {
  Descriptor const memory(::memfd_create("velmor-output", MFD_CLOEXEC));
  if (!memory.valid()) return words(errno);
  if (auto problem = fill(memory.get(), write); !problem.empty()) return problem;
  // The process's own output may be a file that a shell appends to; opening it
  // by name would start at its beginning.
  Descriptor const out(path == "/dev/stdout" ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)
                                             : ::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!out.valid()) return words(errno);
  ::lseek(memory.get(), 0, SEEK_SET);
  std::unique_ptr<char[]> const chunk(new char[1 << 16]);
  for (;;) {
    auto const got = ::read(memory.get(), chunk.get(), 1 << 16);
    if (got == 0) return {};
    if (got < 0) return words(errno);
    if (int const error = writeAll(out.get(), chunk.get(), static_cast<std::size_t>(got))) {
      return words(error);
    }
  }
}

std::string replace(std::string const& target, mode_t const* mode,
                    std::function<void(std::ostream&)> const& write) {
  sweepTempFiles(target);
  auto const temporary = tempNameBeside(target);
  Descriptor out(::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!out.valid()) return words(errno);
  auto problem = fill(out.get(), write);
  if (problem.empty() && mode != nullptr) ::fchmod(out.get(), *mode & 07777);
  if (int const error = out.close(); problem.empty() && error != 0) problem = words(error);
  if (problem.empty() && ::rename(temporary.c_str(), target.c_str()) != 0) problem = words(errno);
  if (!problem.empty()) ::unlink(temporary.c_str());
  return problem;
}

}  // namespace

std::string writeFile(std::string const& path, std::function<void(std::ostream&)> const& write) {
  QuietSignals const quiet;
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    return errno == ENOENT ? replace(path, nullptr, write) : words(errno);
  }
  if (S_ISDIR(info.st_mode)) return "it is a folder";
  if (!S_ISREG(info.st_mode) || path.starts_with("/dev/") || path.starts_with("/proc/")) {
    return writeThrough(path, write);
  }
  if (::access(path.c_str(), W_OK) != 0) return words(errno);
  std::unique_ptr<char, void (*)(void*)> const real(::realpath(path.c_str(), nullptr), &std::free);
  return replace(real ? real.get() : path, &info.st_mode, write);
}

}  // namespace Velmor::Host::Files
