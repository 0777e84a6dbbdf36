#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "velmorapi/runtime.h"
#include "velmorapi/status.h"

namespace Velmor::Host {

/// What the reader does with the values of float level sets, which solvers
/// store in world units, in cells, or without a narrow band at all. What was
/// done is kept in the channel's dictionary under "distance_mode" ("keep",
/// "scale", "rebuild"), "distance_factor" (float) and "distance_reason" (text).
enum class DistanceMode {
  Auto,  ///< the first of the next three that gives a gradient length of 0.85 to 1.15 without jumps
  Keep,  ///< as they are
  Scale,    ///< times the constant factor that brings them to world units
  Rebuild,  ///< a true narrow band made anew around the zero crossing
};

struct ReadOptions {
  DistanceMode distance = DistanceMode::Keep;
  std::string distanceChannel;  ///< the channel it applies to; empty: all float level sets
  /// The one channel whose grid is warned about where something in it is mended,
  /// cut or skipped; empty: all.
  std::string messagesAbout;
  bool isolate = true;  ///< decode in a helper process with limits; off only for trusted files
  std::size_t memoryLimit = std::size_t{16} << 30;  ///< bytes, of the helper
  double timeLimit = 600;                           ///< seconds, of the helper
};
/// Apply to all loads of the process from now on.
VELMOR_EXPORT void setReadOptions(ReadOptions const& options);
/// Those that apply to what the calling thread loads.
VELMOR_EXPORT ReadOptions readOptions();

/// Options for what the calling thread loads while this lives, in place of the
/// process's: other threads do not see them. Ends on the thread that made it, the
/// last one made first.
class VELMOR_EXPORT ScopedReadOptions {
 public:
  explicit ScopedReadOptions(ReadOptions const& options);
  ~ScopedReadOptions();
  ScopedReadOptions(ScopedReadOptions const&) = delete;
  ScopedReadOptions& operator=(ScopedReadOptions const&) = delete;

 private:
  ReadOptions options_;
  ReadOptions const* outer_;
};

/// A cache file that an importer found.
struct CacheFile {
  std::string object;
  bool numbered = false;  ///< else the file stands for every frame
  API::Runtime::Frame frame = 0;
  std::string path;
};
/// What the importer's last scan found, sorted by object and frame.
VELMOR_EXPORT std::vector<CacheFile> cacheFiles(
    API::Runtime::CacheResourceImporter const& importer);

/// Writes an object into one `.vdb` file, whole or not at all: beside the place
/// and renamed, or directly where `path` is no regular file.
VELMOR_EXPORT API::Status writeObject(
    API::Object const& object, std::string const& path,
    API::VRC::Compression compression = API::VRC::Compression::Default);

/// Reads one `.vdb` file into a fresh state server (the object is named
/// `objectName`). With options of its own instead of the process's.
VELMOR_EXPORT API::Status readObject(std::string const& path, std::string const& objectName,
                                     API::Runtime::CacheResource::LoadOptions const& load,
                                     ReadOptions const& options, API::Ref& server);

}  // namespace Velmor::Host
