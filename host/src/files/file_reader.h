#pragma once

#include <memory>
#include <streambuf>
#include <string>

namespace Velmor::Host::Files {

/// Reads a file through a large buffer. Knows where it is without asking the
/// system, and moves within the buffer where it can: OpenVDB asks for the
/// position at each leaf, which costs a `std::filebuf` a system call.
class FileReader : public std::streambuf {
 public:
  explicit FileReader(std::string const& path);
  FileReader(FileReader const&) = delete;
  FileReader& operator=(FileReader const&) = delete;
  ~FileReader() override;

  bool isOpen() const noexcept { return fd_ >= 0; }

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* data, std::streamsize count) override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir way,
                   std::ios_base::openmode mode) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode mode) override;

 private:
  static constexpr std::size_t capacity = std::size_t{1} << 18;
  /// The file position of the next byte to be given out.
  off_type position() const noexcept { return end_ - (egptr() - gptr()); }
  std::size_t readSome(char* data, std::size_t size);

  int fd_;
  off_type end_ = 0;  // file position behind the buffer's content
  std::unique_ptr<char[]> buffer_;
};

}  // namespace Velmor::Host::Files
