#include "velmorapi/level_set.h"

#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "core/channel_item.h"
#include "core/number_text.h"
#include "core/workers.h"
#include "levelset/carry.h"
#include "levelset/construction.h"
#include "levelset/parallel.h"
#include "levelset/redistance.h"
#include "velmorhost/scene.h"
#include "velmorhost/settings.h"

namespace Velmor::API {

namespace {

// Radii that no frame of particles needs would make every voxel depend on millions.
constexpr float largestRadius = 16.f;
constexpr float leastFactor = 1.f / 16.f, largestFactor = 64.f;

/// What the paths of the call stand for.
struct Channels {
  PointChannelItem* position = nullptr;
  PointChannelItem* droplet = nullptr;  // or null
  VoxelChannelItem* distance = nullptr;
  std::vector<Host::CarriedChannel> carried;
};

/// The newest channel of a partial path; an invalid handle if there is none.
Channel find(Component const& component, String const& path) {
  Channel found;
  for (auto const& channel : component.channels()) {
    if (channel.partialPathName() == path) found = channel;
  }
  return found;
}

std::string quoted(String const& path) { return "'" + path.str() + "'"; }

std::string wrongOptions(LevelSetOptions const& options) {
  auto const outside = [](char const* what, float value, float low, float high) -> std::string {
    if (value >= low && value <= high) return {};
    return std::string(what) + " " + Host::numberText(value) + " is not in [" +
           Host::numberText(low) + ", " + Host::numberText(high) + "]";
  };
  if (auto text = outside("surface radius", options.surfaceRadius, -1e30f, largestRadius);
      !text.empty()) {
    return text;
  }
  if (auto text = outside("droplet radius", options.dropletRadius, -1e30f, largestRadius);
      !text.empty()) {
    return text;
  }
  if (auto text =
          outside("resolution factor", options.resolutionFactor, leastFactor, largestFactor);
      !text.empty()) {
    return text;
  }
  if (std::isnan(options.dropletRevealFactor)) return "droplet reveal factor is not a number";
  if (std::isnan(options.dropletThreshold)) return "droplet threshold is not a number";
  if (std::isnan(options.maxVolumeOfHolesToClose)) return "volume of holes is not a number";
  return {};
}

/// Finds all channels; returns what is wrong with them, empty if nothing is.
std::string resolve(PointComponent const& points, Array<String> const& inputs,
                    VoxelComponent const& output, Array<String> const& outputs,
                    Channels& channels) {
  if (!points.valid()) return "no point component";
  if (!output.valid()) return "no voxel component for the output";
  if (inputs.count() < 2 || outputs.count() + 1 != inputs.count()) {
    return std::to_string(inputs.count()) + " inputs do not fit " +
           std::to_string(outputs.count()) + " outputs";
  }
  channels.position = itemAs<PointChannelItem>(find(points, inputs[0]));
  if (channels.position == nullptr) return "no point channel " + quoted(inputs[0]);
  if (channels.position->type() != DataType::Float3) {
    return "positions " + quoted(inputs[0]) + " are not vectors of three floats";
  }
  if (!inputs[1].empty()) {
    channels.droplet = itemAs<PointChannelItem>(find(points, inputs[1]));
    if (channels.droplet == nullptr) return "no point channel " + quoted(inputs[1]);
    auto const type = channels.droplet->type();
    if (type != DataType::Float && type != DataType::Int) {
      return "droplet values " + quoted(inputs[1]) + " are neither floats nor integers";
    }
  }
  for (std::size_t n = 0; n < outputs.count(); ++n) {
    auto* const out = itemAs<VoxelChannelItem>(find(output, outputs[n]));
    if (out == nullptr) return "no voxel channel " + quoted(outputs[n]);
    if (n == 0) {
      if (out->type() != DataType::Float)
        return "distances " + quoted(outputs[n]) + " are not floats";
      channels.distance = out;
      continue;
    }
    auto const& path = inputs[n + 1];
    if (out == channels.distance) {
      // Particles may bring a channel of that name; it must not overwrite what is built.
      Host::report(Host::Severity::Warning, "point channel " + quoted(path) +
                                                " is not carried: it would replace " +
                                                quoted(outputs[n]));
      continue;
    }
    auto* const in = itemAs<PointChannelItem>(find(points, path));
    if (in == nullptr) return "no point channel " + quoted(path);
    if (in->type() != out->type()) {
      return "channels " + quoted(path) + " and " + quoted(outputs[n]) + " differ in type";
    }
    if (in->type() != DataType::Float && in->type() != DataType::Float2 &&
        in->type() != DataType::Float3) {
      return "channel " + quoted(path) + " holds no floats";
    }
    channels.carried.push_back({in, out});
  }
  return {};
}

std::vector<float> asFloats(PointChannelItem& channel) {
  std::vector<float> values(channel.ranges().count());
  if (channel.type() == DataType::Float) {
    auto const* const from = reinterpret_cast<float const*>(channel.values());
    values.assign(from, from + values.size());
  } else {
    auto const* const from = reinterpret_cast<int const*>(channel.values());
    for (std::size_t v = 0; v < values.size(); ++v) values[v] = static_cast<float>(from[v]);
  }
  return values;
}

void storeDistance(Host::Construction const& construction, VoxelChannelItem& distance,
                   float voxelSize) {
  auto& layout = distance.layout();
  auto const& field = construction.field();
  auto const& grid = field.grid();
  float const band = Host::bandWidth * voxelSize;
  distance.setBackground(reinterpret_cast<std::byte const*>(&band));
  distance.setFieldClass(Host::FieldClass::LevelSet);
  layout.setVoxelScale(voxelSize);

  std::vector<TileCoord> voxels;
  for (std::size_t t = 0; t < field.count(); ++t) {
    if (Host::isInBand(field.tile(t))) voxels.push_back(grid.voxel(field.tile(t).place));
  }
  Host::addLeafTiles(Layout(Ref(&layout)), std::move(voxels));

  auto const insideAt = [&](Host::TilePlace const& place) {
    auto const* const tile = field.find(place);
    return tile != nullptr ? tile->inside.test(cellOf(2, 2, 2)) : construction.insideAt(place);
  };
  int const leafDepth = layout.leafDepth();
  Host::forEach(static_cast<std::size_t>(layout.count(leafDepth)), [&](std::size_t s) {
    auto const slot = static_cast<std::int32_t>(s);
    auto const place = grid.place(layout.coord(leafDepth, slot));
    auto* const values = distance.values<float>(leafDepth, slot);
    if (auto const* const tile = field.find(place)) {
      for (int c = 0; c < tileCells; ++c) {
        values[c] = tile->samples[static_cast<std::size_t>(c)].value * voxelSize;
      }
    } else {
      std::fill_n(values, tileCells, construction.insideAt(place) ? -band : band);
    }
  });
  for (int depth = leafDepth - 1; depth >= 0; --depth) {
    int const edge = layout.extent(depth) / tileWidth;
    Host::forEach(static_cast<std::size_t>(layout.count(depth)), [&](std::size_t s) {
      auto const slot = static_cast<std::int32_t>(s);
      auto const corner = layout.coord(depth, slot);
      auto* const values = distance.values<float>(depth, slot);
      for (int c = 0; c < tileCells; ++c) {
        if (auto const child = layout.child(depth, slot, c); child >= 0) {
          // The child's centre stands for it, so that stencils over all depths make sense.
          values[c] = distance.values<float>(depth + 1, child)[cellOf(2, 2, 2)];
          continue;
        }
        auto const p = cellPositions[static_cast<std::size_t>(c)];
        auto const middle = [edge](std::int32_t from, int cell) {
          return from + cell * edge + edge / 2;
        };
        bool const inside = insideAt(grid.place(
            TileCoord{middle(corner.i, p.x), middle(corner.j, p.y), middle(corner.k, p.z)}));
        values[c] = inside ? -band : band;
      }
    });
  }
}

void build(LevelSetOptions const& options, Channels const& channels) {
  std::vector<float> droplets;
  if (channels.droplet != nullptr) droplets = asFloats(*channels.droplet);
  Host::Particles particles(*channels.position,
                            channels.droplet != nullptr ? droplets.data() : nullptr, options);
  auto& layout = channels.distance->layout();
  Host::TileGrid const output(layout);
  if (auto const leftOut = particles.leftOut() + particles.beyond(output); leftOut > 0) {
    Host::report(Host::Severity::Warning, "left out " + std::to_string(leftOut) +
                                              " particles of '" + channels.position->partialPath() +
                                              "' whose positions are not finite or too far away");
  }
  Host::Construction construction(particles, output, options);
  float const voxelSize = static_cast<float>(double{channels.position->layout().voxelScale()} /
                                             options.resolutionFactor);
  storeDistance(construction, *channels.distance, voxelSize);
  if (channels.carried.empty()) return;
  construction.sortParticlesAround();
  Host::carry(particles, construction, channels.carried);
}

}  // namespace

Status createLevelSet(LevelSetOptions const& options, PointComponent const& points,
                      Array<String> const& inputs, VoxelComponent const& mask,
                      String const& maskChannel, VoxelComponent const& output,
                      Array<String> const& outputs) {
  if (Host::mustFail(Host::Call::CreateLevelSet)) {
    return Status::failure("level set creation failed on request");
  }
  // Also reported: callers tend to say no more than that the call failed.
  auto const failure = [](std::string const& reason) {
    auto const text = "cannot create a level set: " + reason;
    Host::report(Host::Severity::Error, text);
    return Status::failure(text);
  };
  try {
    if (mask.valid() || !maskChannel.empty()) return failure("masks are not supported");
    if (auto const wrong = wrongOptions(options); !wrong.empty()) return failure(wrong);
    Channels channels;
    if (auto const wrong = resolve(points, inputs, output, outputs, channels); !wrong.empty()) {
      return failure(wrong);
    }
    Host::withWorkers(Host::threadCount(), [&] { build(options, channels); });
    return {};
  } catch (std::exception const& error) {
    return failure(error.what());
  }
}

}  // namespace Velmor::API
