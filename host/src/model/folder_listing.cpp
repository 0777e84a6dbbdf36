#include "model/folder_listing.h"

#include <algorithm>
#include <filesystem>

#include "model/file_name.h"
#include "model/message.h"

namespace Velmor::Host {

namespace fs = std::filesystem;

FolderListing listFolder(std::string const& path) {
  FolderListing listing;
  std::error_code error;
  fs::directory_iterator it(path, error);
  for (; !error && it != fs::directory_iterator(); it.increment(error)) {
    auto name = it->path().filename().string();
    // Files are hidden until they are whole, and what file servers keep beside files is.
    if (name.starts_with('.')) continue;
    std::error_code entryError;
    auto const type = it->status(entryError).type();
    if (type == fs::file_type::directory) {
      listing.folders.push_back(std::move(name));
    } else if (isCacheFileName(name)) {
      if (type == fs::file_type::regular) {
        listing.files.push_back(std::move(name));
      } else {
        std::string const reason = type == fs::file_type::not_found ? "it is a link to nothing"
                                   : entryError                     ? entryError.message()
                                                                    : "it is no regular file";
        listing.warnings.push_back(about(it->path().string(), "left out: " + reason));
      }
    }
  }
  if (error) listing.failure = error.message();
  std::sort(listing.files.begin(), listing.files.end());
  std::sort(listing.folders.begin(), listing.folders.end());
  std::sort(listing.warnings.begin(), listing.warnings.end());
  return listing;
}

}  // namespace Velmor::Host
