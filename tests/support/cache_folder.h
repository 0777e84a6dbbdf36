#pragma once

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "velmorhost/files.h"

namespace Velmor::Test {

/// A folder of cache files that goes with the object.
class CacheFolder {
 public:
  CacheFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmor-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  CacheFolder(CacheFolder const&) = delete;
  CacheFolder& operator=(CacheFolder const&) = delete;
  ~CacheFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  API::String path() const { return path_.string(); }

  /// Where the canonical form keeps an object's frame; negative frames have no test here.
  std::filesystem::path fileOf(std::string const& object, int frame) const {
    char number[16];
    std::snprintf(number, sizeof number, "%04d", frame);
    return path_ / object / (object + "." + number + ".vdb");
  }

  /// Writes the object as that frame.
  void write(API::Object const& object, int frame) const {
    writeTo(object, fileOf(object.name().str(), frame));
  }

  void writeTo(API::Object const& object, std::filesystem::path const& file) const {
    std::filesystem::create_directories(file.parent_path());
    auto const status = Host::writeObject(object, file.string());
    if (!status.succeeded()) throw std::runtime_error(status.message().str());
  }

  /// Puts something into the frame's place that no reader can take for a cache file.
  void writeRubbish(std::string const& object, int frame) const {
    auto const file = fileOf(object, frame);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << "not a cache";
  }

 private:
  std::filesystem::path path_;
};

}  // namespace Velmor::Test
