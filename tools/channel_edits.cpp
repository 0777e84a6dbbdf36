#include "channel_edits.h"

#include <algorithm>
#include <array>

#include "failure.h"
#include "output.h"
#include "velmorapi/object_model.h"
#include "velmorhost/files.h"
#include "velmorhost/scene.h"
#include "writers/extension.h"

namespace Velmor::Tool {

namespace {

constexpr std::array<char const*, 2> reservedNames{"tmp", "oceanTmp"};

API::StateServer serverOf(API::StateServerItem const& item) {
  return API::ObjectModel::stateServer(item.stateID());
}

std::string unusedName(API::Component const& component) {
  std::string name = "velmor-scratch";
  while (component.findChannel(name).valid()) name += '_';
  return name;
}

}  // namespace

VoxelTarget requireChannel(API::Object const& object, std::string const& name,
                           std::string const& subject) {
  auto const found = findChannel(object, name);
  if (found) {
    API::VoxelComponent const component(object.findComponent(found->component));
    return {component, API::VoxelChannel(component.findChannel(found->channel))};
  }
  failWithoutChannel(object, name, subject);
}

void refuseReserved(std::string const& option, std::string const& name) {
  auto const channel = name.substr(name.rfind('/') + 1);
  if (std::find(reservedNames.begin(), reservedNames.end(), channel) == reservedNames.end()) return;
  throw Failure(
      ExitCode::Usage, "",
      option + ": '" + channel + "' is a name that filters use for channels of their own");
}

void requireNewName(std::string const& option, std::string const& name,
                    API::Component const& component) {
  refuseReserved(option, name);
  if (name.empty() || name.find('/') != std::string::npos) {
    throw Failure(ExitCode::Usage, "", option + ": '" + name + "' cannot be a channel's name");
  }
  if (component.findChannel(name).valid()) {
    throw Failure(ExitCode::Usage, "", option + ": there is a channel '" + name + "' already");
  }
}

ScratchChannel::ScratchChannel(API::VoxelComponent const& component, API::DataType type)
    : channel_(serverOf(component).createChannel(component, type, unusedName(component))) {
  if (!channel_.valid()) throw Failure(ExitCode::Other, "", "no channel could be made");
}

ScratchChannel::~ScratchChannel() { serverOf(channel_).removeChannel(channel_.fullPathName()); }

KeptChannels::KeptChannels(API::VoxelComponent const& component) {
  for (auto const* const name : reservedNames) {
    API::VoxelChannel const channel(component.findChannel(name));
    if (channel.valid()) kept_.push_back({name, Host::copyChannel(channel, unusedName(component))});
  }
}

KeptChannels::~KeptChannels() {
  for (auto const& kept : kept_) {
    Host::copyChannel(kept.copy, kept.name);
    serverOf(kept.copy).removeChannel(kept.copy.fullPathName());
  }
}

void checkNotInput(Input const& input, std::string const& path) {
  if (input.holds(path)) {
    throw Failure(ExitCode::Usage, path, "is the input itself; name another file for the result");
  }
}

void checkCacheOutput(std::string const& path) {
  if (extensionOf(path) != "vdb" && !isSpecialOutput(path)) {
    throw Failure(ExitCode::Usage, path, "cache files are written as .vdb");
  }
  checkOutput(path);
}

void writeCache(API::Object const& object, std::string const& path) {
  // The host knows files by their names only.
  auto const status = Host::writeObject(object, path == "-" ? "/dev/stdout" : path);
  if (!status.succeeded()) throw Failure(ExitCode::Output, path, status.message().str());
}

}  // namespace Velmor::Tool
