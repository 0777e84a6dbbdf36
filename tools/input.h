#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "session.h"
#include "velmorapi/component.h"
#include "velmorapi/object_model.h"
#include "velmorapi/runtime.h"

namespace Velmor::Tool {

/// What the user named.
struct InputOptions {
  std::string path;  ///< a cache file or a cache folder
  std::string object;
  std::optional<int> frame;
};

/// An object in the input and where its frames are.
struct CacheObject {
  std::string name;
  bool everyFrame = false;  ///< a file without a number stands for every frame
  std::vector<int> frames;  ///< of the numbered files
};

/// One object at one frame.
struct Selection {
  std::string object;
  int frame = 0;
  bool everyFrame = false;  ///< its file stands for every frame
};

/// "splash, frame 12", or "splash, all frames (one file)".
std::string wordsFor(Selection const& selection);

/// A cache file or folder given on the command line. Every problem is thrown as
/// a `Failure` of code `Input` whose text lists what there is.
class Input {
 public:
  /// Looks what is there; loads nothing.
  explicit Input(std::string path);

  std::string const& path() const noexcept { return path_; }
  bool isFile() const noexcept { return isFile_; }
  std::vector<CacheObject> const& objects() const noexcept { return objects_; }

  /// The object of that name; without a name the only one.
  CacheObject const& object(std::string const& name) const;
  /// Object and frame; what is not named must be the only one.
  Selection select(InputOptions const& options) const;
  /// The frame of an object if it has it, or its first one.
  int frameOrFirst(CacheObject const& object, std::optional<int> frame) const;

  /// Parameters of a shape: the folder and the query that make it load the selection.
  API::String cacheFolder() const { return path_; }
  API::String query(Selection const& selection) const;

  /// Whether a path leads to one of the cache files.
  bool holds(std::string const& path) const;

  /// Loads a selection by itself, without any shape.
  API::Object load(Selection const& selection) const;

 private:
  [[noreturn]] void fail(std::string const& text) const;

  std::string path_;
  bool isFile_ = false;
  std::vector<CacheObject> objects_;
  std::vector<std::string> files_;
};

/// A channel found in an object.
struct FoundChannel {
  std::string component;
  std::string channel;
};

/// The voxel channel that `name` ("channel" or "component/channel") means.
std::optional<FoundChannel> findChannel(API::Object const& object, std::string const& name);

/// Without a name: the float channel "distance", else the only float level set.
/// Throws a `Failure` of code `Input` that lists the candidates where that does
/// not decide.
FoundChannel defaultDistance(API::Object const& object, std::string const& subject);

/// Without a name: the only float channel; else "density", else the only fog
/// volume. Throws as `defaultDistance` does.
FoundChannel defaultDensity(API::Object const& object, std::string const& subject);

/// Whether the object holds a float channel that is meant as a distance.
bool hasDistance(API::Object const& object);

/// What to say to a user whose channel name does not fit: the nearest name of a
/// channel of that type, or the type that the channel has. May be empty.
std::string channelHint(API::Object const& object, std::string const& name, API::DataType wanted);

/// Throws the `Failure` of code `Input` for a voxel channel that there is not: it
/// lists those of the component that `name` ("channel" or "component/channel")
/// means, else those of all.
[[noreturn]] void failWithoutChannel(API::Object const& object, std::string const& name,
                                     std::string const& subject);

/// The float channels outside the component of that name, as --channel takes them;
/// the name may be that of no component.
std::vector<std::string> floatChannelsOutside(API::Object const& object,
                                              std::string const& component);

/// Whether the object has a component of points.
bool holdsParticles(API::Object const& object);

/// "float", "float2", ... as users read it.
std::string typeName(API::DataType type);

/// Keeps warnings about other channels than `name` ("channel" or
/// "component/channel") out of all loads from now on.
void listenTo(std::string const& name);

/// What the report on one frame of an input begins with.
Json reportOf(Input const& input, Selection const& selection);

/// How far the world of a component lies from its own coordinates.
std::array<double, 3> origin(API::Component const& component);

}  // namespace Velmor::Tool
