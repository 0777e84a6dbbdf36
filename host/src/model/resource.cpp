#include "model/resource.h"

#include <filesystem>

#include "model/message.h"
#include "velmorhost/files.h"
#include "velmorhost/settings.h"

namespace Velmor::Host {

namespace {

/// Callers often drop the status of a host operation, so its words are reported as well.
API::Status fail(std::string const& message) {
  report(Severity::Error, message);
  return API::Status::failure(message);
}

}  // namespace

API::Status CacheResourceItem::load(API::Runtime::CacheResource::LoadOptions const& options) {
  if (options.keepLoaded && dataSource().valid()) return {};
  API::Ref server;
  auto status = mustFail(Call::LoadResource)
                    ? API::Status::failure(about(record_.file, "loading made to fail"))
                    : readObject(record_.file, record_.object, options, readOptions(), server);
  if (!status.succeeded()) {
    report(Severity::Error, status.message().str());
    server = API::Ref();
  }
  // The old state is freed behind the lock, by `server`.
  std::lock_guard const lock(mutex_);
  std::swap(server_, server);
  return status;
}

API::Status CacheResourceItem::save(API::Object const& object,
                                    API::VRC::Compression compression) const {
  auto const& file = record_.file;
  if (!object.valid()) return fail(about(file, "no object to write"));
  if (compression < API::VRC::Compression::Default || compression > API::VRC::Compression::Blosc)
    return fail(
        about(file, "unknown compression " + std::to_string(static_cast<int>(compression))));
  if (mustFail(Call::SaveResource)) return fail(about(file, "saving made to fail"));

  auto const folder = std::filesystem::path(file).parent_path();
  std::error_code error;
  bool const created = std::filesystem::create_directories(folder, error);
  if (error) return fail(about(folder.string(), "cannot make the folder: " + error.message()));
  auto const status = writeObject(object, file, compression);
  if (!status.succeeded()) {
    report(Severity::Error, status.message().str());
    if (created) std::filesystem::remove(folder, error);  // spares a folder that is not empty
  }
  return status;
}

API::Ref CacheResourceItem::dataSource() const {
  std::lock_guard const lock(mutex_);
  return server_;
}

}  // namespace Velmor::Host

namespace Velmor::API::Runtime {

using Host::CacheResourceItem;

Resource::Resource(Ref const& ref) noexcept : Ref(refAs<CacheResourceItem>(ref)) {}

String Resource::resID() const {
  auto const resource = itemAs<CacheResourceItem>(*this);
  return resource != nullptr ? String(resource->name()) : String();
}

Ref Resource::dataSource() const {
  auto const resource = itemAs<CacheResourceItem>(*this);
  if (resource == nullptr || Host::mustFail(Host::Call::DataSource)) return {};
  return resource->dataSource();
}

CacheResource::CacheResource(Ref const& ref) noexcept : Resource(ref) {}

Status CacheResource::load(LoadOptions const& options) const {
  auto const resource = itemAs<CacheResourceItem>(*this);
  return resource != nullptr ? resource->load(options) : Status::failure("no resource to load");
}

Status CacheResource::save(Object const& object, VRC::Compression compression) const {
  auto const resource = itemAs<CacheResourceItem>(*this);
  return resource != nullptr ? resource->save(object, compression)
                             : Status::failure("no resource to save to");
}

}  // namespace Velmor::API::Runtime
