#include "files/file_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Velmor::Host::Files {

FileReader::FileReader(std::string const& path)
    : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), buffer_(new char[capacity]) {
  setg(buffer_.get(), buffer_.get(), buffer_.get());
}

FileReader::~FileReader() {
  if (fd_ >= 0) ::close(fd_);
}

std::size_t FileReader::readSome(char* data, std::size_t size) {
  for (;;) {
    auto const got = ::pread(fd_, data, size, end_);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return 0;
    end_ += got;
    return static_cast<std::size_t>(got);
  }
}

FileReader::int_type FileReader::underflow() {
  if (gptr() == egptr()) {
    auto const got = readSome(buffer_.get(), capacity);
    setg(buffer_.get(), buffer_.get(), buffer_.get() + got);
    if (got == 0) return traits_type::eof();
  }
  return traits_type::to_int_type(*gptr());
}

std::streamsize FileReader::xsgetn(char* data, std::streamsize count) {
  std::streamsize done = 0;
  while (done < count) {
    if (gptr() == egptr()) {
      auto const left = static_cast<std::size_t>(count - done);
      if (left >= capacity) {
        auto const got = readSome(data + done, left);
        setg(buffer_.get(), buffer_.get(), buffer_.get());
        if (got == 0) break;
        done += static_cast<std::streamsize>(got);
        continue;
      }
      if (traits_type::eq_int_type(underflow(), traits_type::eof())) break;
    }
    auto const part = std::min<std::streamsize>(count - done, egptr() - gptr());
    std::memcpy(data + done, gptr(), static_cast<std::size_t>(part));
    setg(eback(), gptr() + part, egptr());
    done += part;
  }
  return done;
}

FileReader::pos_type FileReader::seekoff(off_type offset, std::ios_base::seekdir way,
                                         std::ios_base::openmode) {
  off_type base = 0;
  if (way == std::ios_base::cur) base = position();
  if (way == std::ios_base::end) {
    struct stat info {};
    if (::fstat(fd_, &info) != 0) return pos_type(off_type(-1));
    base = info.st_size;
  }
  // Offsets come out of files: any number may.
  off_type target = 0;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) return pos_type(off_type(-1));
  auto const start = end_ - (egptr() - eback());
  if (target >= start && target <= end_) {
    setg(eback(), eback() + (target - start), egptr());
  } else {
    end_ = target;
    setg(buffer_.get(), buffer_.get(), buffer_.get());
  }
  return pos_type(target);
}

FileReader::pos_type FileReader::seekpos(pos_type position, std::ios_base::openmode mode) {
  return seekoff(off_type(position), std::ios_base::beg, mode);
}

}  // namespace Velmor::Host::Files
