#pragma once

#include <string>
#include <vector>

#include "velmorhost/files.h"

namespace Velmor::Host {

struct ScanRequest {
  std::string path;
  bool recursive = false;
  std::string object;   ///< empty: all
  std::string pattern;  ///< empty: all
  bool operator==(ScanRequest const&) const = default;
};

struct ScanResult {
  std::string failure;  ///< empty if the path could be read
  std::vector<std::string> warnings;
  std::vector<CacheFile> files;  ///< sorted by object, files without a number first, frame, path
};

/// Looks for cache files. The path is
/// - a folder: its own files, and those of folders `<object>` in it that are
///   named like their object. Of an object that is in both places only one
///   place counts: its own folder, be it the path itself or the one below;
/// - `<folder>/<object>`, where no such folder is or it does not hold the
///   object: the object in `<folder>`;
/// - a `.vdb` file, or such a file, a separator and its object's name.
/// A recursive scan takes the files of all folders below instead.
/// The order never depends on the order in which folders list their files.
ScanResult scanCache(ScanRequest const& request);

}  // namespace Velmor::Host
