#pragma once

#include <chrono>

namespace Velmor::Tool {

class Stopwatch {
 public:
  /// Seconds since the last lap, or since the start.
  double lap() {
    auto const now = std::chrono::steady_clock::now();
    auto const seconds = std::chrono::duration<double>(now - last_).count();
    last_ = now;
    return seconds;
  }

 private:
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

}  // namespace Velmor::Tool
