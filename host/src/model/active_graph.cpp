#include <algorithm>
#include <filesystem>

#include "model/file_name.h"
#include "model/graph.h"
#include "model/importer.h"
#include "model/resource.h"
#include "velmorapi/runtime.h"
#include "velmorhost/settings.h"

namespace Velmor::API::Runtime {

using Host::CacheResourceItem;
using Host::GraphItem;
using Host::ResourceRecord;

namespace {

/// The file name that a pattern gives for a frame; empty if it is none.
std::string fileNameOf(std::string const& pattern, Frame frame) {
  if (pattern.find('/') != pattern.npos) return {};
  auto name = pattern;
  if (auto const first = name.find('#'); first != name.npos) {
    auto const last = std::min(name.find_first_not_of('#', first), name.size());
    name.replace(first, last - first, Host::paddedFrame(frame, last - first));
  }
  return Host::isCacheFileName(name) ? name : name + ".vdb";
}

}  // namespace

ActiveGraph::ActiveGraph(Ref const& ref) noexcept : Base(refAs<GraphItem>(ref)) {}

Ref ActiveGraph::createCacheResource(Frame frame, String const& path, String const& object,
                                     String const& pattern, String const&) const {
  auto const graph = itemAs<GraphItem>(*this);
  if (graph == nullptr || path.empty() || Host::mustFail(Host::Call::CreateCacheResource))
    return {};
  auto const name = pattern.empty() ? Host::canonicalFileName(object.str(), frame)
                                    : fileNameOf(pattern.str(), frame);
  if (name.empty()) return {};
  ResourceRecord const record{(std::filesystem::path(path.str()) / name).string(), object.str(),
                              false, frame};
  return Ref(new CacheResourceItem(graph->addRecord(record), record));
}

Ref ActiveGraph::createCacheResourceImporter(String const& path) const {
  if (itemAs<GraphItem>(*this) == nullptr) return {};
  return Ref(new Host::ImporterItem(*this, path.str()));
}

Ref ActiveGraph::resource(Frame frame, String const& resID) const {
  auto const graph = itemAs<GraphItem>(*this);
  if (graph == nullptr) return {};
  auto record = graph->record(frame, resID.str());
  return record ? Ref(new CacheResourceItem(resID.str(), std::move(*record))) : Ref();
}

Status ActiveGraph::removeResource(Frame frame, String const& resID) const {
  auto const graph = itemAs<GraphItem>(*this);
  if (graph == nullptr) return Status::failure("no graph to remove a resource from");
  if (graph->removeRecord(frame, resID.str())) return {};
  return Status::failure("graph '" + name() + "' has no resource '" + resID + "' of frame " +
                         std::to_string(frame));
}

}  // namespace Velmor::API::Runtime
