#pragma once

#include "velmorapi/component.h"
#include "velmorapi/export.h"
#include "velmorapi/ref.h"
#include "velmorapi/status.h"

namespace Velmor::API::VRC {

/// How a cache file is compressed.
enum class Compression : std::int32_t { Default = 0, None = 1, Zip = 2, Blosc = 3 };

}  // namespace Velmor::API::VRC

namespace Velmor::API::Runtime {

/// A frame number; negative ones exist.
using Frame = std::int32_t;

/// Something an active graph holds for a frame.
class VELMOR_EXPORT Resource : public Ref {
 public:
  Resource() noexcept = default;
  Resource(Ref const& ref) noexcept;
  /// Unique within its graph.
  String resID() const;
  /// The loaded data as a `StateServer`; invalid before a successful load.
  Ref dataSource() const;
};

/// One object of one frame in a cache file.
class VELMOR_EXPORT CacheResource : public Resource {
 public:
  struct LoadOptions {
    Array<String> channels;                                ///< empty: all
    orlen::Math::bbox<orlen::Math::vec<3, float>> bounds;  ///< cache world units; inverted: all
    bool keepLoaded = false;  ///< do not read again what this resource has loaded
    bool points = true;
    bool voxels = true;
  };

  CacheResource() noexcept = default;
  CacheResource(Ref const& ref) noexcept;
  /// Reads the file. On failure nothing is loaded and the message says why.
  Status load(LoadOptions const& options) const;
  /// Writes the object into the resource's file, whole or not at all.
  Status save(Object const& object, VRC::Compression compression) const;
};

/// Finds cache files in a folder, or takes a single file.
class VELMOR_EXPORT CacheResourceImporter : public Ref {
 public:
  CacheResourceImporter() noexcept = default;
  CacheResourceImporter(Ref const& ref) noexcept;
  /// Scans the path. `recursive` takes the files of all folders below it as
  /// well. Without `reload`, what an earlier scan with the same arguments found
  /// is kept. `object` restricts to one object name (empty: all), and `pattern`
  /// to file names that contain it (empty: all). Fails if the path cannot be
  /// read; a folder that holds nothing is no failure.
  Status readFiles(bool recursive, bool reload, String const& object, String const& pattern) const;
  /// The objects found, sorted, each once. A name that no query can hold has '_'
  /// in those places.
  Array<String> objectNames() const;
  /// Appends the identifiers of the files that hold the object at the frame:
  /// those numbered with it, or else those without a number, which stand for
  /// every frame. Fails if there are none.
  Status resIDs(String const& object, Frame frame, Array<String>& ids) const;
};

/// A set of resources opened on one path.
class VELMOR_EXPORT ActiveGraph : public Base {
 public:
  ActiveGraph() noexcept = default;
  ActiveGraph(Ref const& ref) noexcept;
  /// A resource that will write `object` of `frame` into folder `path`. `pattern`
  /// is a file name with '#' in place of the frame's digits (empty: the host's
  /// own), and `comment` a text that a host may keep with it; the embedded one
  /// does not. Invalid for an empty path or a pattern that names another folder.
  Ref createCacheResource(Frame frame, String const& path, String const& object,
                          String const& pattern, String const& comment) const;
  Ref createCacheResourceImporter(String const& path) const;
  /// The resource of an identifier, as a fresh one: two calls share no data.
  Ref resource(Frame frame, String const& resID) const;
  /// Drops the resource from the graph; its file stays.
  Status removeResource(Frame frame, String const& resID) const;
};

}  // namespace Velmor::API::Runtime
