#include "shapes/level_set.h"

#include "velmorapi/level_set.h"
#include "velmorapi/object_model.h"
#include "velmorapi/state_server.h"

namespace Velmor::Processing {

namespace {

char const* const positionName = "position";
char const* const dropletName = "droplet";

API::LevelSetOptions optionsOf(SurfaceParameters const& parameters,
                               API::Dictionary const& dictionary) {
  API::LevelSetOptions options;
  options.dropletRevealFactor = parameters.levelset_droplet_reveal_factor;
  options.surfaceRadius = parameters.levelset_surface_radius;
  options.dropletRadius = parameters.levelset_droplet_radius;
  options.dropletThreshold =
      dictionary.hasValue("dropletThreshold") ? dictionary.value<float>("dropletThreshold") : 1.f;
  options.resolutionFactor = parameters.levelset_resolution_factor;
  options.enableSpatialAdapt =
      dictionary.hasValue("enableSpatialAdapt") && dictionary.value<bool>("enableSpatialAdapt");
  options.maxVolumeOfHolesToClose = parameters.levelset_max_volume_of_holes_to_close;
  options.keepParticleIds = false;
  options.verbose = false;
  return options;
}

void discard(API::VoxelComponent const& voxels, API::Object const& object,
             API::StateServer const& server) {
  auto const name = voxels.name();
  for (auto const& channel : voxels.channels()) server.removeChannel(channel.fullPathName());
  object.removeComponent(name);
  server.removeComponent(name);
}

bool isCarried(API::Channel const& channel) {
  auto const name = channel.name();
  if (name == positionName || name == dropletName) return false;
  auto const type = channel.dataType();
  return type == API::DataType::Float || type == API::DataType::Float2 ||
         type == API::DataType::Float3;
}

/// Appends the channel's path, or says that it could not be made.
bool addOutput(API::Channel const& channel, API::String const& name,
               API::Array<API::String>& outputs, Status& status) {
  if (!channel.valid()) {
    status.fail() << "Failed to create voxel channel '" << name << "'.";
    return false;
  }
  outputs.add(channel.partialPathName());
  return true;
}

}  // namespace

void buildLevelSet(SurfaceParameters const& parameters, API::PointComponent const& points,
                   API::VoxelComponent& voxels, Status& status) {
  API::Object const object(points.object());
  auto const options = optionsOf(parameters, object.dictionary());
  API::StateServer const server(API::ObjectModel::stateServer(points.stateID()));
  if (voxels.valid()) discard(voxels, object, server);

  voxels = server.createComponent(API::VoxelComponentType, object.name() + "-volume",
                                  API::Layout(points.layout()).voxelScale());
  object.addComponent(voxels);

  API::Array<API::String> inputs;
  // Points without droplets have an empty path here: the host tells inputs by their place.
  for (char const* name : {positionName, dropletName}) {
    inputs.add(API::PointChannel(points.findChannel(name)).partialPathName());
  }
  API::Array<API::String> outputs;
  // Not looked for first, as the others are: what is found would be replaced.
  API::VoxelChannel const distance(
      server.createChannel(voxels, API::DataType::Float, builtDistanceName));
  if (!addOutput(distance, builtDistanceName, outputs, status)) return;

  for (auto const& input : points.channels()) {
    if (!isCarried(input)) continue;
    API::VoxelChannel output(voxels.findChannel(input.name()));
    if (!output.valid()) output = server.createChannel(voxels, input.dataType(), input.name());
    if (!addOutput(output, input.name(), outputs, status)) return;
    inputs.add(input.partialPathName());
  }

  auto const built =
      API::createLevelSet(options, points, inputs, API::VoxelComponent(), "", voxels, outputs);
  if (!built.succeeded()) status.fail() << "Velmor::API::createLevelSet call failed...";
}

}  // namespace Velmor::Processing
