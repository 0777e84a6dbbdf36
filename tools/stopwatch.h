#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "session.h"

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

/// The seconds of a verb and of its parts, as its report gives them.
class Times {
 public:
  /// Ends a part, which began where the last one ended; returns its seconds.
  double end(char const* part) { return parts_.emplace_back(part, watch_.lap()).second; }

  double total() const;
  /// The parts by their names, and "total".
  Json json() const;
  /// Such as "0.31 (load 0.20, mesh 0.11)".
  std::string text() const;

 private:
  Stopwatch watch_;
  std::vector<std::pair<char const*, double>> parts_;
};

}  // namespace Velmor::Tool
