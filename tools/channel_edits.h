#pragma once

#include <string>
#include <vector>

#include "input.h"
#include "velmorapi/component.h"

namespace Velmor::Tool {

/// A voxel channel of an object and the component it lies in.
struct VoxelTarget {
  API::VoxelComponent component;
  API::VoxelChannel channel;
};

/// The channel that `name` ("channel" or "component/channel") means. Throws a
/// `Failure` of code `Input` that offers the nearest name.
VoxelTarget requireChannel(API::Object const& object, std::string const& name,
                           std::string const& subject);

/// Throws a `Failure` of code `Usage` if the library needs the name for channels
/// of its own, which it makes and removes. `option` is what the user wrote it for.
void refuseReserved(std::string const& option, std::string const& name);
/// The same, and also if `name` cannot be that of a new channel: empty, with a
/// '/', or taken in the component.
void requireNewName(std::string const& option, std::string const& name,
                    API::Component const& component);

/// A new channel under a name that nobody else uses; removed with the object.
class ScratchChannel {
 public:
  ScratchChannel(API::VoxelComponent const& component, API::DataType type);
  ~ScratchChannel();
  ScratchChannel(ScratchChannel const&) = delete;
  ScratchChannel& operator=(ScratchChannel const&) = delete;
  API::VoxelChannel const& channel() const { return channel_; }

 private:
  API::VoxelChannel channel_;
};

/// Keeps what channels of a component hold whose names the library will use for
/// its own, and restores them when it is destroyed.
class KeptChannels {
 public:
  explicit KeptChannels(API::VoxelComponent const& component);
  ~KeptChannels();
  KeptChannels(KeptChannels const&) = delete;
  KeptChannels& operator=(KeptChannels const&) = delete;

 private:
  struct Kept {
    std::string name;
    API::VoxelChannel copy;
  };
  std::vector<Kept> kept_;
};

/// Throws a `Failure` of code `Usage` if the path is a cache file of the input:
/// what is read is never overwritten.
void checkNotInput(Input const& input, std::string const& path);

/// Throws a `Failure` of code `Usage` unless `path` ends in .vdb or is special,
/// and what `checkOutput` throws.
void checkCacheOutput(std::string const& path);
/// Writes the object as a cache file. Throws a `Failure` of code `Output`.
void writeCache(API::Object const& object, std::string const& path);

}  // namespace Velmor::Tool
