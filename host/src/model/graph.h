#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/item.h"
#include "velmorapi/runtime.h"

namespace Velmor::Host {

/// What a graph knows of one of its resources: enough to make it anew.
struct ResourceRecord {
  std::string file;
  std::string object;       ///< the name that a loaded object gets
  bool everyFrame = false;  ///< else only `frame`
  API::Runtime::Frame frame = 0;
  bool operator==(ResourceRecord const&) const = default;
};

/// An active graph: the resources opened on a path, and objects in memory.
class GraphItem final : public API::Item {
 public:
  static bool is(API::ItemKind kind) { return kind == API::ItemKind::ActiveGraph; }

  GraphItem(std::string name, std::string path)
      : Item(API::ItemKind::ActiveGraph, std::move(name)), path_(std::move(path)) {}

  std::string const& path() const noexcept { return path_; }

  /// Adds a resource of its own and returns its identifier.
  std::string addRecord(ResourceRecord const& record);
  /// The identifier of an equal record shared by all importers, added if need be.
  std::string shareRecord(ResourceRecord const& record);
  std::optional<ResourceRecord> record(API::Runtime::Frame frame, std::string const& id) const;
  bool removeRecord(API::Runtime::Frame frame, std::string const& id);

  void publish(API::Ref const& object, API::Runtime::Frame frame);
  /// The published objects of a frame, in the order of publishing.
  std::vector<API::Ref> published(API::Runtime::Frame frame) const;
  void forgetPublished();

 private:
  struct Entry {
    ResourceRecord record;
    bool shared = false;
    bool at(API::Runtime::Frame frame) const { return record.everyFrame || record.frame == frame; }
  };
  struct Published {
    API::Ref object;
    API::Runtime::Frame frame;
  };

  std::string add(ResourceRecord const& record, bool shared);

  std::string path_;
  mutable std::mutex mutex_;
  std::map<std::string, Entry> records_;
  std::size_t added_ = 0;
  std::vector<Published> published_;
};

/// The active graphs of the process, by name and by path.
class GraphRegistry {
 public:
  static GraphRegistry& instance();

  /// The graph of that name, else the oldest of that path; invalid if there is none.
  API::Ref find(std::string const& nameOrPath) const;
  /// A new graph, named after its path; invalid for an empty path.
  API::Ref create(std::string const& path);
  API::Ref findOrCreate(std::string const& nameOrPath);
  /// Forgets the graph; returns it, or an invalid handle if there is none.
  API::Ref remove(std::string const& nameOrPath);

 private:
  API::Ref findLocked(std::string const& key) const;
  API::Ref createLocked(std::string const& key);

  mutable std::mutex mutex_;
  std::map<std::string, API::Ref> byName_;
  std::multimap<std::string, API::Ref> byPath_;
};

}  // namespace Velmor::Host
