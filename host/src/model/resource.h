#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "core/item.h"
#include "model/graph.h"
#include "velmorapi/runtime.h"

namespace Velmor::Host {

/// One use of a cache file: what it has loaded is its own.
class CacheResourceItem final : public API::Item {
 public:
  static bool is(API::ItemKind kind) { return kind == API::ItemKind::CacheResource; }

  CacheResourceItem(std::string id, ResourceRecord record)
      : Item(API::ItemKind::CacheResource, std::move(id)), record_(std::move(record)) {}

  API::Status load(API::Runtime::CacheResource::LoadOptions const& options);
  API::Status save(API::Object const& object, API::VRC::Compression compression) const;
  API::Ref dataSource() const;

 private:
  ResourceRecord record_;
  mutable std::mutex mutex_;
  API::Ref server_;
};

}  // namespace Velmor::Host
