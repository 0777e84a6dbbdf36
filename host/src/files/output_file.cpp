#include "files/output_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>

#include "files/fd_stream.h"
#include "velmorhost/unfinished_file.h"

namespace Velmor::Host::Files {

namespace {

std::string words(int error) { return std::strerror(error); }

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }

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
  int const own = standardStream(path);
  Descriptor const out(own >= 0 ? ::fcntl(own, F_DUPFD_CLOEXEC, 3)
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

std::string replace(std::string const& path, std::function<void(std::ostream&)> const& write) {
  UnfinishedFile file;
  if (int const error = file.open(path)) return words(error);
  if (auto problem = fill(file.descriptor(), write); !problem.empty()) return problem;
  int const error = file.finish();
  return error == 0 ? std::string() : words(error);
}

}  // namespace

std::string writeFile(std::string const& path, std::function<void(std::ostream&)> const& write) {
  QuietSignals const quiet;
  if (standardStream(path) >= 0) return writeThrough(path, write);
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return replace(path, write);
  if (S_ISDIR(info.st_mode)) return "it is a folder";
  return S_ISREG(info.st_mode) ? replace(path, write) : writeThrough(path, write);
}

}  // namespace Velmor::Host::Files
