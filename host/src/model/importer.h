#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/item.h"
#include "model/scan.h"
#include "velmorapi/runtime.h"

namespace Velmor::Host {

/// An importer of a graph: remembers what its last scan of the path found.
class ImporterItem final : public API::Item {
 public:
  static bool is(API::ItemKind kind) { return kind == API::ItemKind::CacheResourceImporter; }

  ImporterItem(API::Ref graph, std::string path)
      : Item(API::ItemKind::CacheResourceImporter, {}),
        graph_(std::move(graph)),
        path_(std::move(path)) {}

  API::Status readFiles(bool recursive, bool reload, std::string const& object,
                        std::string const& pattern);
  API::Array<API::String> objectNames() const;
  API::Status resIDs(std::string const& object, API::Runtime::Frame frame,
                     API::Array<API::String>& ids) const;
  std::vector<CacheFile> files() const;

 private:
  API::Ref graph_;  // made resources belong to it
  std::string path_;
  mutable std::mutex mutex_;
  std::optional<ScanRequest> scanned_;
  ScanResult result_;
};

}  // namespace Velmor::Host
