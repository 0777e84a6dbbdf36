#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "files/request.h"

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

/// One request to the helper program. What its worker prints is collected, whatever
/// that does it is gone soon after the object is.
class HelperRun {
 public:
  HelperRun() = default;
  HelperRun(HelperRun const&) = delete;
  HelperRun& operator=(HelperRun const&) = delete;
  ~HelperRun();

  /// Hands a request to a worker and waits for its end, at most `seconds`.
  /// Empty if it ended well and `memory()` holds what it made, else what happened.
  std::string run(ReadRequest const& request, double seconds);

  int memory() const noexcept { return memory_; }
  std::string const& output() const noexcept { return output_; }

 private:
  enum class End { Reported, Lost, Late };

  void close();
  std::string send(std::string const& request);
  End wait(double seconds);
  std::string outcome(ReadRequest const& request) const;

  int memory_ = -1;
  int pipe_ = -1;
  int report_ = -1;
  int status_ = 0;
  std::string output_;
};

}  // namespace Velmor::Host::Files
