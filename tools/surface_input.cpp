#include "surface_input.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>

#include "channel_edits.h"
#include "names.h"

namespace Velmor::Tool {

namespace {

Host::DistanceMode modeOf(std::string const& name) {
  if (name == "keep") return Host::DistanceMode::Keep;
  if (name == "scale") return Host::DistanceMode::Scale;
  if (name == "rebuild") return Host::DistanceMode::Rebuild;
  return Host::DistanceMode::Auto;
}

// Makes the next surface take its distance from that channel.
void choose(FoundChannel const& channel, Host::DistanceMode mode,
            Processing::SurfaceParameters& parameters) {
  auto read = Host::readOptions();
  read.distance = mode;
  read.distanceChannel = channel.channel;
  Host::setReadOptions(read);
  listenTo(channel.channel);
  parameters.voxel_component = channel.component;
  parameters.distance_channel = channel.channel;
}

bool holdsVoxels(API::Object const& object) {
  auto const components = object.components();
  return std::any_of(components.begin(), components.end(), [](API::Component const& component) {
    return API::VoxelComponent{API::Ref(component)}.valid();
  });
}

// Loads what is asked for its names and types only: its distances stay as they are,
// which is quick and takes the least memory.
API::Object probe(Input const& input, Selection const& selection) {
  auto plain = Host::readOptions();
  plain.distance = Host::DistanceMode::Keep;
  // Other frames may be loading their distances at the same time.
  Host::ScopedReadOptions const scope(plain);
  return input.load(selection);
}

// Where the channel is that the user means, if the surface looked for it in the
// wrong place: only a loaded object tells what it holds.
std::optional<FoundChannel> elsewhere(Processing::Surface const& surface, std::string const& name,
                                      Input const& input, Selection const& selection,
                                      Processing::SurfaceParameters const& parameters) {
  if (surface.status()) return std::nullopt;
  std::optional<FoundChannel> found;
  if (surface.voxels().valid()) {
    API::Object const object(surface.voxels().object());
    found = name.empty() ? std::optional(defaultDistance(object, input.path()))
                         : findChannel(object, name);
  } else {
    // Without the component that was looked for the surface knows of no object.
    API::Object object;
    try {
      object = probe(input, selection);
    } catch (Failure const&) {
      return std::nullopt;  // the surface has said what is wrong
    }
    if (!holdsVoxels(object)) return std::nullopt;
    if (name.empty()) {
      found = defaultDistance(object, input.path());
    } else {
      auto const target = requireChannel(object, name, input.path());
      found = FoundChannel{target.component.name().str(), target.channel.name().str()};
    }
  }
  if (found && found->component == parameters.voxel_component &&
      found->channel == parameters.distance_channel) {
    return std::nullopt;
  }
  return found;
}

// What the library's message does not say: where else a distance could be. It ends
// with the list of one component, which may hold none.
std::string hintFor(Processing::Surface const& surface, Input const& input,
                    Selection const& selection, std::string const& channel) {
  API::VoxelComponent const voxels(surface.voxels());
  if (voxels.valid()) {
    API::Object const object(voxels.object());
    API::Channel const found(voxels.findChannel(channel));
    if (found.valid() && found.dataType() == API::DataType::Float) return "";
    auto const others = floatChannelsOutside(object, voxels.name().str());
    std::string text;
    if (!others.empty()) {
      text = "Other components have " + quotedList(others, "") + ". ";
    } else if (floatChannelsOutside(object, "").empty()) {
      text = "No component has a float channel. ";
    }
    return text + channelHint(object, channel, API::DataType::Float);
  }
  API::Object object;
  try {
    object = probe(input, selection);
  } catch (Failure const&) {
    return "";  // the surface has said what is wrong
  }
  auto const channels = floatChannelsOutside(object, "");
  if (!channels.empty()) return " The object has " + quotedList(channels, "") + ".";
  if (!holdsParticles(object)) return "";
  return " The object has particles: velmor surface makes a surface of them, with "
         "--render-component Particle";
}

}  // namespace

Processing::SurfaceParameters withoutParticles() {
  Processing::SurfaceParameters parameters;
  parameters.point_component = "";
  return parameters;
}

LoadedSurface loadSurface(Session& session, Input const& input, Selection const& selection,
                          std::string const& channel, Host::DistanceMode distance,
                          Processing::SurfaceParameters parameters) {
  parameters.cache_folder = input.cacheFolder();
  parameters.object = input.query(selection);
  LoadedSurface loaded;
  auto& surface = loaded.surface;
  loaded.channel = {parameters.voxel_component.str(), channel.empty() ? "distance" : channel};
  for (std::optional<FoundChannel> next = loaded.channel; next;
       next = elsewhere(*surface, channel, input, selection, parameters)) {
    loaded.channel = *next;
    choose(loaded.channel, distance, parameters);
    // The one before goes first: it would take the new one's graph along.
    surface.reset();
    surface = std::make_unique<Processing::Surface>(parameters);
  }
  checkSurface(session, *surface, input, selection, loaded.channel.channel);
  loaded.origin = origin(surface->voxels());
  return loaded;
}

void checkSurface(Session& session, Processing::Surface const& surface, Input const& input,
                  Selection const& selection, std::string const& channel) {
  auto const hint = surface.status() ? std::string() : hintFor(surface, input, selection, channel);
  if (!hint.empty()) {
    throw Failure(ExitCode::Input, input.path(), surface.status().error().str() + hint);
  }
  session.check(surface.status(), input.path());
}

DistanceTreatment treatmentOf(Processing::Surface const& surface) {
  auto const how = surface.distance().dictionary();
  DistanceTreatment treatment;
  treatment.mode = how.value<API::String>("distance_mode").str();
  treatment.reason = how.value<API::String>("distance_reason").str();
  if (how.hasValue("distance_factor")) treatment.factor = how.value<float>("distance_factor");
  return treatment;
}

void addDistanceMode(CLI::App& verb, Host::DistanceMode& mode) {
  verb.add_option_function<std::string>(
          "--distance", [&mode](std::string const& name) { mode = modeOf(name); },
          "What to do with the channel's values: keep them, scale them by a factor to "
          "world units, rebuild a narrow band from their zero crossing, or auto: the "
          "first of these that gives a true distance")
      ->check(CLI::IsMember({"auto", "keep", "scale", "rebuild"}))
      ->type_name("MODE");
}

}  // namespace Velmor::Tool
