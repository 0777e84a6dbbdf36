#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Velmor::Host::Files {

/// The bytes of a memory file, mapped for reading.
class Mapping {
 public:
  Mapping() = default;
  /// Maps all of `fd`; empty if that fails.
  explicit Mapping(int fd);
  Mapping(Mapping const&) = delete;
  Mapping& operator=(Mapping const&) = delete;
  ~Mapping();
  std::byte const* data() const noexcept { return data_; }
  std::size_t size() const noexcept { return size_; }

 private:
  std::byte const* data_ = nullptr;
  std::size_t size_ = 0;
};

/// One run of the helper program. What it prints is collected, whatever it does
/// it is gone when the object is.
class HelperRun {
 public:
  HelperRun() = default;
  HelperRun(HelperRun const&) = delete;
  HelperRun& operator=(HelperRun const&) = delete;
  ~HelperRun();

  /// Starts the helper on a packed request and waits for its end, at most
  /// `seconds`. Empty if it ended well and `memory()` holds what it made, else
  /// what happened.
  std::string run(std::string const& request, double seconds);

  int memory() const noexcept { return memory_; }
  std::string const& output() const noexcept { return output_; }

 private:
  std::string start(std::string const& program);
  bool wait(double seconds);
  std::string outcome() const;

  int memory_ = -1;
  int pipe_ = -1;
  int process_ = -1;  // a descriptor that becomes readable when it ends
  pid_t pid_ = 0;     // 0 once it has been waited for
  int status_ = 0;
  std::string output_;
};

/// The helper program beside the library or where installations put it; empty
/// if it is nowhere.
std::string findHelper();

}  // namespace Velmor::Host::Files
