#pragma once

#include <string>

#include "session.h"

namespace Velmor::Tool {

/// A bar on standard error that says how far a work is, where that is a
/// terminal and --quiet was not given. It is wiped when the work ends. One
/// thread at a time.
class Progress {
 public:
  Progress(Session const& session, std::string label);
  ~Progress();
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

  /// `done` is a share from 0 to 1.
  void show(double done);
  /// Wipes the bar, to make room for a message; the next `show` draws it again.
  void clear();

 private:
  std::string label_;
  bool visible_;
  int shown_ = -1;
};

}  // namespace Velmor::Tool
