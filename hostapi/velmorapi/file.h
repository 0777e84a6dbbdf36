#pragma once

#include "velmorapi/export.h"
#include "velmorapi/string.h"

namespace Velmor::API {

/// Folders for data that lives no longer than the process needs it.
class VELMOR_EXPORT File {
 public:
  /// A new, empty folder that only this user can read, in the folder that TMPDIR
  /// names or else in the system's; empty text if none can be made.
  static String createTempFolder();
  /// Deletes a folder and all in it; links in it go, what they lead to stays.
  /// Refuses an empty name, names that end in "." or "..", file system roots, the
  /// home folder and those above it, links and files. Quiet if the folder is
  /// gone. True if the name is free afterwards, false for an empty one.
  static bool deleteFolder(String const& path);
};

}  // namespace Velmor::API
