#pragma once

#include <string>

#include "velmorapi/export.h"

namespace Velmor::Host {

/// A file that appears whole or not at all: hidden beside its place while it is
/// being written, renamed when it is complete.
///
/// Links are followed, and the permissions of a file that is replaced are kept.
/// A hidden file belongs to a living writer exactly while that holds a lock on
/// it; `open` removes the others of its folder, which killed processes left. A
/// process that ends by a signal can call `removeUnfinishedFiles` before. Each
/// object is for one thread at a time. Nothing is thrown: what goes wrong is
/// returned as an `errno`.
class VELMOR_EXPORT UnfinishedFile {
 public:
  UnfinishedFile() = default;
  /// Removes the hidden file unless it was finished.
  ~UnfinishedFile();
  UnfinishedFile(UnfinishedFile const&) = delete;
  UnfinishedFile& operator=(UnfinishedFile const&) = delete;

  /// What `open` would return for `path`, as far as that can be known beforehand.
  static int check(std::string const& path) noexcept;

  /// Makes the hidden file beside `path`, where there is a regular file or none.
  /// Returns 0, or the `errno` of what went wrong. To be called once.
  int open(std::string const& path) noexcept;
  /// For reading, writing and seeking; -1 where nothing is open.
  int descriptor() const noexcept { return file_; }
  /// Closes the file and puts it into its place. Returns 0, or the `errno` of what
  /// went wrong; there is no hidden file any more in either case.
  int finish() noexcept;

 private:
  void remove() noexcept;

  std::string target_;  // where the rename goes
  std::string hidden_;  // empty where there is none
  int file_ = -1;
  int remembered_ = -1;  // where `removeUnfinishedFiles` finds it
};

/// The descriptor behind a path that names this process's own standard output or
/// error stream (/dev/stdout, /dev/fd/1, /proc/self/fd/1 and so on), else -1. It is
/// to be written to as it is: opened by name, a file that a shell appends to would
/// start at its beginning.
VELMOR_EXPORT int standardStream(std::string const& path) noexcept;

/// Removes the hidden files of all unfinished files of this process. A signal
/// handler may call it, and end the process then.
VELMOR_EXPORT void removeUnfinishedFiles() noexcept;

}  // namespace Velmor::Host
