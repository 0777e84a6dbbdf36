#pragma once

#include "velmorapi/export.h"
#include "velmorapi/string.h"

namespace Velmor::API {

/// Folders for data that lives no longer than the process needs it.
class VELMOR_EXPORT File {
 public:
  /// A new, empty folder that only this user can read; empty text if none can be made.
  static String createTempFolder();
  /// Deletes a folder and all in it. Refuses an empty name and file system
  /// roots; quiet if the folder is gone. True if the folder is not there afterwards.
  static bool deleteFolder(String const& path);
};

}  // namespace Velmor::API
