#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "velmorhost/unfinished_file.h"

namespace Velmor::Tool {

/// A file that appears whole, with `commit`, or not at all: see
/// `Host::UnfinishedFile`. Outputs that are not regular files (a pipe, a device,
/// standard output as "-" or "/dev/stdout") are written directly. Every problem
/// is thrown as a `Failure` of code `Output`.
class OutputFile {
 public:
  explicit OutputFile(std::string path);
  ~OutputFile();
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;

  void write(void const* data, std::size_t size);
  void write(std::string const& text) { write(text.data(), text.size()); }
  /// The bytes of a value, in the order of this machine.
  template <class T>
  void writeValue(T const& value) {
    write(&value, sizeof(T));
  }
  /// Writes what is buffered and puts the file into its place.
  void commit();

 private:
  void flush();
  [[noreturn]] void fail(int error) const;

  std::string path_;
  Host::UnfinishedFile file_;
  int special_ = -1;  // what is written directly
  std::vector<char> buffer_;
};

/// Whether data written to `path` come out of this process's standard output.
bool isStandardOutput(std::string const& path);
/// Whether the path names something that exists and is no regular file, or
/// standard output.
bool isSpecialOutput(std::string const& path);
/// Throws the `Failure` that opening the path for output would meet, where that
/// can be known beforehand: before minutes of work.
void checkOutput(std::string const& path);
/// Makes an interrupted process (Ctrl-C, hang-up, termination) remove its
/// unfinished files, and a closed pipe or a full disk an error of the write.
void handleSignals();

}  // namespace Velmor::Tool
