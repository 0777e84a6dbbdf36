#include "model/importer.h"

#include "model/graph.h"
#include "model/message.h"
#include "velmorhost/settings.h"

namespace Velmor::Host {

namespace {

API::Status statusOf(ScanResult const& result) {
  return result.failure.empty() ? API::Status() : API::Status::failure(result.failure);
}

}  // namespace

API::Status ImporterItem::readFiles(bool recursive, bool reload, std::string const& object,
                                    std::string const& pattern) {
  ScanRequest request{path_, recursive, object, pattern};
  {
    std::lock_guard const lock(mutex_);
    if (!reload && scanned_ == request) return statusOf(result_);
  }
  auto result = scanCache(request);
  auto const status = statusOf(result);
  // Callers look at what was found, not at the status. Handlers may call the
  // host: no lock is held here.
  if (!result.failure.empty()) report(Severity::Error, result.failure);
  for (auto const& warning : result.warnings) report(Severity::Warning, warning);
  std::lock_guard const lock(mutex_);
  scanned_ = std::move(request);
  result_ = std::move(result);
  return status;
}

API::Array<API::String> ImporterItem::objectNames() const {
  std::lock_guard const lock(mutex_);
  API::Array<API::String> names;
  for (auto const& file : result_.files)
    if (names.empty() || names[names.count() - 1].str() != file.object) names.add(file.object);
  return names;
}

API::Status ImporterItem::resIDs(std::string const& object, API::Runtime::Frame frame,
                                 API::Array<API::String>& ids) const {
  auto const graph = API::itemAs<GraphItem>(graph_);
  std::lock_guard const lock(mutex_);
  // A name that files or queries spell otherwise was found by `readFiles`, and
  // is what the caller will look for in the loaded state.
  bool const spelled = scanned_ && !object.empty() && scanned_->object == object;
  bool known = false;
  std::vector<CacheFile const*> numbered, everyFrame;
  for (auto const& file : result_.files) {
    if (!spelled && file.object != object) continue;
    known = true;
    if (!file.numbered) everyFrame.push_back(&file);
    if (file.numbered && file.frame == frame) numbered.push_back(&file);
  }
  auto const& files = numbered.empty() ? everyFrame : numbered;
  for (auto const* const file : files)
    ids.add(graph->shareRecord({file->path, object, !file->numbered, file->frame}));
  if (!known) return API::Status::failure(about(path_, "no object '" + object + "'"));
  if (files.empty())
    return API::Status::failure(
        about(path_, "object '" + object + "' has no frame " + std::to_string(frame)));
  return {};
}

std::vector<CacheFile> ImporterItem::files() const {
  std::lock_guard const lock(mutex_);
  return result_.files;
}

std::vector<CacheFile> cacheFiles(API::Runtime::CacheResourceImporter const& importer) {
  auto const item = API::itemAs<ImporterItem>(importer);
  return item != nullptr ? item->files() : std::vector<CacheFile>();
}

}  // namespace Velmor::Host

namespace Velmor::API::Runtime {

using Host::ImporterItem;

CacheResourceImporter::CacheResourceImporter(Ref const& ref) noexcept
    : Ref(refAs<ImporterItem>(ref)) {}

Status CacheResourceImporter::readFiles(bool recursive, bool reload, String const& object,
                                        String const& pattern) const {
  auto const importer = itemAs<ImporterItem>(*this);
  return importer != nullptr ? importer->readFiles(recursive, reload, object.str(), pattern.str())
                             : Status::failure("no importer to read files with");
}

Array<String> CacheResourceImporter::objectNames() const {
  auto const importer = itemAs<ImporterItem>(*this);
  return importer != nullptr ? importer->objectNames() : Array<String>();
}

Status CacheResourceImporter::resIDs(String const& object, Frame frame, Array<String>& ids) const {
  auto const importer = itemAs<ImporterItem>(*this);
  return importer != nullptr ? importer->resIDs(object.str(), frame, ids)
                             : Status::failure("no importer to ask");
}

}  // namespace Velmor::API::Runtime
