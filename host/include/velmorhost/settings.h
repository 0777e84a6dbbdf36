#pragma once

#include <functional>
#include <string>

#include "velmorapi/export.h"

/// The embedded host's own interface, for tools and tests: everything that the
/// host API leaves to a host.
namespace Velmor::Host {

/// The shape of the tile trees that layouts get from now on.
struct LayoutSettings {
  int depth = 7;          ///< leaf depth, 1 to 7
  int reportedWidth = 5;  ///< what `tileDimInfo` says; the tree itself is always 5 wide
  bool centred = true;    ///< tiles centred on voxel 0, else anchored with their corner there
};
VELMOR_EXPORT void setLayoutSettings(LayoutSettings const& settings);
VELMOR_EXPORT LayoutSettings layoutSettings();

/// Workers of a traversal and of file work: 1 or more; 0 means all processors
/// allowed to the process, which is the default. Results never depend on it.
VELMOR_EXPORT void setThreadCount(int count);
VELMOR_EXPORT int threadCount();

/// Host operations that can be made to fail, to test what callers do then.
enum class Call {
  CreateTempFolder,
  CreateActiveGraph,
  CreateCacheResource,
  SaveResource,
  LoadResource,
  DataSource,
  FindObject,
  CreateComponent,
  CreateChannel,
  CreateLayout,
  CreateLevelSet,
  Traverse,
};
/// Lets the next `skip` calls through, then makes `count` calls fail.
VELMOR_EXPORT void failCalls(Call call, int count = 1, int skip = 0);
VELMOR_EXPORT void clearFailures();
/// For the host's own code: whether this call is one of those that must fail.
VELMOR_EXPORT bool mustFail(Call call);

enum class Severity { Note, Warning, Error };
using MessageHandler = std::function<void(Severity, std::string const&)>;
/// Receives what the host has to say beyond a status: skipped grids, renamed
/// objects, the reason of a failed load. Messages name the file and the grid.
/// May be called from any thread, one call at a time, and may call the host. The
/// default (also after null) prints warnings and errors to standard error.
VELMOR_EXPORT void setMessageHandler(MessageHandler handler);
VELMOR_EXPORT void report(Severity severity, std::string const& text);

}  // namespace Velmor::Host
