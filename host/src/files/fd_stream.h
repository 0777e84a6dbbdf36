#pragma once

#include <cstddef>
#include <memory>
#include <streambuf>

namespace Velmor::Host::Files {

/// An output buffer over a file descriptor that remembers why a write failed.
/// Can seek where the descriptor can. Does not own the descriptor.
class FdBuffer final : public std::streambuf {
 public:
  explicit FdBuffer(int fd);
  /// The `errno` of the first failed write; 0 if there was none.
  int error() const noexcept { return error_; }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(char const* data, std::streamsize count) override;
  int sync() override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode mode) override;

 private:
  bool flush();
  static constexpr std::size_t capacity = std::size_t{1} << 20;

  int fd_;
  int error_ = 0;
  std::unique_ptr<char[]> buffer_;
};

/// Writes all of `data`, interrupted or not; 0, or the `errno` of the failure.
int writeAll(int fd, char const* data, std::size_t size);

/// Keeps a full file system limit or a reader that went away from killing the
/// process while it lives: writes of this thread fail instead.
class QuietSignals {
 public:
  QuietSignals();
  QuietSignals(QuietSignals const&) = delete;
  QuietSignals& operator=(QuietSignals const&) = delete;
  ~QuietSignals();

 private:
  struct Saved;
  std::unique_ptr<Saved> saved_;
};

}  // namespace Velmor::Host::Files
