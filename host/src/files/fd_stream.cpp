#include "files/fd_stream.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Velmor::Host::Files {

FdBuffer::FdBuffer(int fd) : fd_(fd), buffer_(new char[capacity]) {
  setp(buffer_.get(), buffer_.get() + capacity);
}

bool FdBuffer::flush() {
  auto const size = static_cast<std::size_t>(pptr() - pbase());
  setp(buffer_.get(), buffer_.get() + capacity);
  if (error_ == 0) error_ = writeAll(fd_, buffer_.get(), size);
  return error_ == 0;
}

FdBuffer::int_type FdBuffer::overflow(int_type c) {
  if (!flush()) return traits_type::eof();
  if (!traits_type::eq_int_type(c, traits_type::eof())) {
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
  }
  return traits_type::not_eof(c);
}

std::streamsize FdBuffer::xsputn(char const* data, std::streamsize count) {
  auto const size = static_cast<std::size_t>(count);
  if (size > static_cast<std::size_t>(epptr() - pptr())) {
    if (!flush()) return 0;
    if (size > capacity / 2) {
      error_ = writeAll(fd_, data, size);
      return error_ == 0 ? count : 0;
    }
  }
  std::memcpy(pptr(), data, size);
  pbump(static_cast<int>(size));
  return count;
}

int FdBuffer::sync() { return flush() ? 0 : -1; }

FdBuffer::pos_type FdBuffer::seekoff(off_type offset, std::ios_base::seekdir way,
                                     std::ios_base::openmode) {
  if (way == std::ios_base::cur && offset == 0) {  // asked often, moves nothing
    auto const at = ::lseek(fd_, 0, SEEK_CUR);
    return at < 0 ? pos_type(off_type(-1)) : pos_type(at + (pptr() - pbase()));
  }
  if (!flush()) return pos_type(off_type(-1));
  auto const whence = way == std::ios_base::beg   ? SEEK_SET
                      : way == std::ios_base::cur ? SEEK_CUR
                                                  : SEEK_END;
  return pos_type(::lseek(fd_, offset, whence));
}

FdBuffer::pos_type FdBuffer::seekpos(pos_type position, std::ios_base::openmode mode) {
  return seekoff(off_type(position), std::ios_base::beg, mode);
}

int writeAll(int fd, char const* data, std::size_t size) {
  while (size > 0) {
    auto const written = ::write(fd, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return 0;
}

struct QuietSignals::Saved {
  sigset_t before, blocked;
};

QuietSignals::QuietSignals() : saved_(new Saved) {
  // Both signals go to the thread that writes, so blocking them here is enough.
  sigset_t quiet;
  sigemptyset(&quiet);
  sigaddset(&quiet, SIGXFSZ);
  sigaddset(&quiet, SIGPIPE);
  sigset_t pending;
  sigpending(&pending);
  sigemptyset(&saved_->blocked);
  for (int signal : {SIGXFSZ, SIGPIPE}) {
    if (sigismember(&pending, signal) == 0) sigaddset(&saved_->blocked, signal);
  }
  pthread_sigmask(SIG_BLOCK, &quiet, &saved_->before);
}

QuietSignals::~QuietSignals() {
  // What arrived meanwhile is ours; what was pending before stays.
  timespec const now{};
  while (sigtimedwait(&saved_->blocked, nullptr, &now) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &saved_->before, nullptr);
}

}  // namespace Velmor::Host::Files
