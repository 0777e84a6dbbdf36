#pragma once

#include <string>
#include <vector>

namespace Velmor::Host {

/// What a folder holds that an importer may want.
struct FolderListing {
  std::vector<std::string> files;    ///< names of cache files, sorted
  std::vector<std::string> folders;  ///< names of folders, sorted
  std::vector<std::string> warnings;
  std::string failure;  ///< why the folder could not be read, or not to its end
};

/// Links count as what they lead to. Hidden entries (among them files that are
/// still being written) are left out; cache files that lead nowhere or are no
/// regular files are left out with a warning.
FolderListing listFolder(std::string const& path);

}  // namespace Velmor::Host
