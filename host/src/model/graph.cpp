#include "model/graph.h"

#include <algorithm>
#include <utility>

namespace Velmor::Host {

namespace {

/// One spelling for paths that differ only in needless separators. Links and
/// ".." stay: what they lead to can change while a graph lives.
std::string graphKey(std::string const& path) {
  std::string key;
  for (char const c : path) {
    if (c == '/' && key.ends_with("/.")) key.pop_back();
    if (c != '/' || !key.ends_with('/')) key += c;
  }
  if (key.ends_with("/.")) key.pop_back();
  if (key.size() > 1 && key.ends_with('/')) key.pop_back();
  return key;
}

/// `base`, or with the first number behind it that makes it unique.
template <class Map>
std::string uniqueKey(Map const& map, std::string const& base, std::size_t number = 2) {
  std::string key = base;
  while (map.count(key) > 0) key = base + '#' + std::to_string(number++);
  return key;
}

}  // namespace

std::string GraphItem::add(ResourceRecord const& record, bool shared) {
  // Counting all additions keeps the search short for a file that is written again and again.
  auto id = uniqueKey(records_, record.file, ++added_);
  records_.emplace(id, Entry{record, shared});
  return id;
}

std::string GraphItem::addRecord(ResourceRecord const& record) {
  std::lock_guard const lock(mutex_);
  return add(record, false);
}

std::string GraphItem::shareRecord(ResourceRecord const& record) {
  std::lock_guard const lock(mutex_);
  auto const last = records_.upper_bound(record.file + '$');  // '$' follows '#'
  for (auto it = records_.lower_bound(record.file); it != last; ++it)
    if (it->second.shared && it->second.record == record) return it->first;
  return add(record, true);
}

std::optional<ResourceRecord> GraphItem::record(API::Runtime::Frame frame,
                                                std::string const& id) const {
  std::lock_guard const lock(mutex_);
  auto const it = records_.find(id);
  if (it == records_.end() || !it->second.at(frame)) return {};
  return it->second.record;
}

bool GraphItem::removeRecord(API::Runtime::Frame frame, std::string const& id) {
  std::lock_guard const lock(mutex_);
  auto const it = records_.find(id);
  if (it == records_.end() || !it->second.at(frame)) return false;
  records_.erase(it);
  return true;
}

void GraphItem::publish(API::Ref const& object, API::Runtime::Frame frame) {
  std::lock_guard const lock(mutex_);
  auto const same = [&](Published const& p) { return p.object == object && p.frame == frame; };
  if (std::none_of(published_.begin(), published_.end(), same))
    published_.push_back({object, frame});
}

std::vector<API::Ref> GraphItem::published(API::Runtime::Frame frame) const {
  std::lock_guard const lock(mutex_);
  std::vector<API::Ref> objects;
  for (auto const& p : published_)
    if (p.frame == frame) objects.push_back(p.object);
  return objects;
}

void GraphItem::forgetPublished() {
  std::vector<Published> released;  // outlives the lock: freeing a state can take long
  std::lock_guard const lock(mutex_);
  released.swap(published_);
}

GraphRegistry& GraphRegistry::instance() {
  // Never destroyed: handles in static storage of clients may outlast it otherwise.
  static auto& registry = *new GraphRegistry;
  return registry;
}

API::Ref GraphRegistry::findLocked(std::string const& key) const {
  if (auto const it = byName_.find(key); it != byName_.end()) return it->second;
  auto const it = byPath_.lower_bound(key);
  return it != byPath_.end() && it->first == key ? it->second : API::Ref();
}

API::Ref GraphRegistry::createLocked(std::string const& key) {
  if (key.empty()) return {};
  API::Ref const graph(new GraphItem(uniqueKey(byName_, key), key));
  byName_.emplace(graph.item()->name(), graph);
  byPath_.emplace(key, graph);
  return graph;
}

API::Ref GraphRegistry::find(std::string const& nameOrPath) const {
  std::lock_guard const lock(mutex_);
  return findLocked(graphKey(nameOrPath));
}

API::Ref GraphRegistry::create(std::string const& path) {
  std::lock_guard const lock(mutex_);
  return createLocked(graphKey(path));
}

API::Ref GraphRegistry::findOrCreate(std::string const& nameOrPath) {
  auto const key = graphKey(nameOrPath);
  std::lock_guard const lock(mutex_);
  auto graph = findLocked(key);
  return graph.valid() ? graph : createLocked(key);
}

API::Ref GraphRegistry::remove(std::string const& nameOrPath) {
  std::lock_guard const lock(mutex_);
  auto graph = findLocked(graphKey(nameOrPath));
  if (auto const item = API::itemAs<GraphItem>(graph)) {
    byName_.erase(item->name());
    auto const [first, last] = byPath_.equal_range(item->path());
    for (auto it = first; it != last; ++it) {
      if (it->second != graph) continue;
      byPath_.erase(it);
      break;
    }
  }
  return graph;
}

}  // namespace Velmor::Host
