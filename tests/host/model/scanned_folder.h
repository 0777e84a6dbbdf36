#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/cache_folder.h"
#include "velmorapi/object_model.h"
#include "velmorhost/files.h"

namespace Velmor::Test {

/// A folder of files that only have names, and what importers say of it.
class ScannedFolder : public CacheFolder {
 public:
  ScannedFolder() = default;
  explicit ScannedFolder(std::vector<std::string> const& files) {
    for (auto const& file : files) touch(file);
  }

  std::string path(std::string const& below = "") const {
    auto const top = CacheFolder::path().str();
    return below.empty() ? top : top + '/' + below;
  }

  void touch(std::string const& file) const {
    std::filesystem::create_directories(std::filesystem::path(path(file)).parent_path());
    std::ofstream(path(file)) << "x";
  }
};

/// An importer in a graph of its own.
inline API::Runtime::CacheResourceImporter importerOf(std::string const& path) {
  API::Runtime::ActiveGraph const graph(API::ObjectModel::createActiveGraph("importer-tests"));
  auto const importer = graph.createCacheResourceImporter(path);
  API::ObjectModel::removeActiveGraph(graph.name());
  return importer;
}

/// How the host words a message about a path.
inline std::string about(std::string const& path, std::string const& text) {
  std::string message = "'";
  message += path;
  message += "': ";
  message += text;
  return message;
}

using Names = std::vector<std::string>;

inline Names namesOf(API::Runtime::CacheResourceImporter const& importer) {
  Names names;
  for (auto const& name : importer.objectNames()) names.push_back(name.str());
  return names;
}

/// The names that a scan of the path finds.
inline Names objectsIn(std::string const& path, std::string const& object = "",
                       std::string const& pattern = "", bool recursive = false) {
  auto const importer = importerOf(path);
  importer.readFiles(recursive, false, object, pattern);
  return namesOf(importer);
}

/// The files that hold the object's frame, below `top`.
inline Names filesFor(std::string const& path, std::string const& object, int frame,
                      std::string const& top) {
  API::Runtime::ActiveGraph const graph(API::ObjectModel::createActiveGraph("importer-tests"));
  API::Runtime::CacheResourceImporter const importer(graph.createCacheResourceImporter(path));
  API::ObjectModel::removeActiveGraph(graph.name());
  importer.readFiles(false, false, object, "");
  API::Array<API::String> ids;
  importer.resIDs(object, frame, ids);
  Names files;
  // Identifiers begin with the file, as far as two of one file can be told apart.
  for (auto const& id : ids) {
    EXPECT_TRUE(API::Runtime::CacheResource(graph.resource(frame, id)).valid()) << id;
    files.push_back(std::filesystem::path(id.str()).lexically_relative(top).string());
  }
  return files;
}

/// Object and frame of each file found, "*" where it stands for every frame.
inline Names framesIn(std::string const& path, std::string const& object = "",
                      bool recursive = false) {
  auto const importer = importerOf(path);
  importer.readFiles(recursive, false, object, "");
  Names frames;
  for (auto const& file : Host::cacheFiles(importer))
    frames.push_back(file.object + ' ' + (file.numbered ? std::to_string(file.frame) : "*"));
  return frames;
}

}  // namespace Velmor::Test
