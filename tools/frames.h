#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Velmor::Tool {

/// The frames that a text such as "1-48", "1-48x2", "1,5,9-12" or "-3--1" means,
/// in its order, each once. A range may run downwards. Throws a `Failure` of code
/// `Usage` for any other text and for more than a million frames.
std::vector<int> parseFrames(std::string const& text);

/// A file name with a place for the frame number: "out.####.ply" (digits padded
/// with zeros to four) or "out.%04d.ply". Only the last place counts, and only in
/// the name itself, not in its folders.
class FramePattern {
 public:
  explicit FramePattern(std::string path);

  /// Whether there is a place for a number; else the path means one file.
  bool numbered() const noexcept { return digits_ > 0; }
  /// The path of a frame.
  std::string path(int frame) const;
  /// The existing files that the pattern fits, with their frames, in order of
  /// these. Throws a `Failure` of code `Input` if the folder cannot be read.
  std::vector<std::pair<int, std::string>> find() const;

 private:
  std::string before_, after_;
  std::size_t digits_ = 0;
};

}  // namespace Velmor::Tool
