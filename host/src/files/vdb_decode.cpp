#include "files/vdb_decode.h"

#include <tbb/global_control.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <ios>
#include <limits>
#include <memory>
#include <new>
#include <optional>

#include "core/number_text.h"
#include "files/kept_values.h"
#include "files/keys.h"
#include "files/tile_list.h"
#include "files/vdb_archive.h"
#include "files/vdb_distance.h"
#include "files/vdb_log.h"
#include "files/vdb_metadata.h"
#include "files/vdb_plan.h"
#include "files/vdb_points.h"
#include "files/vdb_voxels.h"
#include "velmorhost/scene.h"
#include "velmorhost/settings.h"

namespace Velmor::Host::Files {

namespace {

struct Failure {
  std::string text;
};

/// A grid that will be read, with the place it goes to.
struct Wanted {
  VdbEntry* entry;
  std::size_t component;
  std::string channel;  // of a voxel grid
  bool points;
};

FieldClass fieldClassOf(openvdb::GridBase const& grid) {
  switch (grid.getGridClass()) {
    case openvdb::GRID_LEVEL_SET:
      return FieldClass::LevelSet;
    case openvdb::GRID_FOG_VOLUME:
      return FieldClass::FogVolume;
    case openvdb::GRID_STAGGERED:
      return FieldClass::Staggered;
    default:
      return FieldClass::Unknown;
  }
}

std::string textOf(openvdb::GridBase const& grid, std::string const& key) {
  auto const value = grid.getMetadata<openvdb::StringMetadata>(key);
  return value ? value->value() : std::string();
}

using VoxelGrids = openvdb::TypeList<openvdb::FloatGrid, openvdb::DoubleGrid, openvdb::Int32Grid,
                                     openvdb::Vec3SGrid, openvdb::Vec3DGrid, openvdb::Vec3IGrid>;

/// Entries of a root node stand where the file says. Those off the places of
/// nodes would be found by some ways and not by others; next to those at the rim
/// of all indices there are no voxels to step to.
template <class Grid>
void requireSoundRoot(Grid const& grid) {
  using Node = typename Grid::TreeType::RootNodeType::ChildNodeType;
  constexpr auto size = static_cast<std::int32_t>(Node::DIM);
  constexpr auto last = std::numeric_limits<std::int32_t>::max() - size + 1;
  auto const require = [](openvdb::Coord const& at) {
    for (std::size_t a = 0; a < 3; ++a) {
      if (at[a] % size != 0 || at[a] < -last || at[a] >= last) {
        OPENVDB_THROW(openvdb::IoError, "damaged: its root node has an entry at " << at);
      }
    }
  };
  auto const& root = grid.tree().root();
  for (auto it = root.cbeginChildOn(); it; ++it) require(it.getCoord());
  for (auto it = root.cbeginValueAll(); it; ++it) require(it.getCoord());
}

bool isVoxelGrid(openvdb::GridBase const& grid) {
  return grid.apply<VoxelGrids>([](auto const&) {});
}

/// Streams have no better words for the end of a file than "iostream error".
std::string reasonOf(std::exception const& error) {
  if (dynamic_cast<std::ios_base::failure const*>(&error) != nullptr) {
    return "it ends too early, or is no .vdb file";
  }
  return error.what();
}

class Decoder {
 public:
  Decoder(ReadRequest const& request, ImageBuilder& image) : request_(request), image_(image) {}

  ImageHeader run() {
    VdbArchive archive(request_.path);
    std::vector<MetadataRecord> metadata;
    readMetadata(archive.metadata(), image_, metadata);
    auto const wanted = plan(archive);
    plan_.objectOrigin(origin_);
    for (auto const& grid : wanted) read(archive, grid);
    if (channels_.empty() && !firstLoss_.empty()) throw Failure{firstLoss_};

    ImageHeader header;
    header.metadata = image_.records(metadata);
    header.components = components();
    header.channels = image_.records(channels_);
    return header;
  }

  void warn(std::string const& text) { messages_.push_back({Severity::Warning, text}); }

  Span messages() {
    std::vector<MessageRecord> records;
    for (auto const& [severity, text] : messages_) {
      records.push_back({image_.text(text), static_cast<std::uint32_t>(severity), 0});
    }
    return image_.records(records);
  }

 private:
  void warnAbout(std::string const& channel, std::string const& text) {
    if (request_.messagesAbout.empty() || request_.messagesAbout == channel) warn(text);
  }

  /// Unnamed grids are called by what would become of them.
  std::string called(std::string const& grid, std::string const& channel) const {
    return "'" + (grid.empty() ? channel : grid) + "' of '" + request_.path + "'";
  }

  void skip(std::string const& grid, std::string const& channel, std::string const& reason) {
    auto const text = "Grid " + called(grid, channel) + " is skipped: " + reason;
    warnAbout(channel, text);
    if (firstLoss_.empty()) firstLoss_ = text;
  }

  bool wantsChannel(std::string const& name) const {
    return request_.channels.empty() ||
           std::find(request_.channels.begin(), request_.channels.end(), name) !=
               request_.channels.end();
  }

  /// Decides from heads alone what goes where, so that names and origin do not
  /// depend on which part of a file is loaded.
  std::vector<Wanted> plan(VdbArchive& archive) {
    struct Fitting {
      VdbEntry* entry;
      Placement placement;
      std::string stated;
    };
    std::vector<Fitting> fitting;
    for (auto& entry : archive.entries()) {
      VdbLog log;
      std::string reason;
      auto const channel = entry.name.empty() ? std::string(Plan::unnamed) : entry.name;
      if (!entry.grid) {
        skip(entry.name, channel, "values of type '" + entry.type + "' are not supported");
        continue;
      }
      if (!isVoxelGrid(*entry.grid) && !isPointGrid(*entry.grid)) {
        skip(entry.name, channel,
             "values of type '" + entry.grid->valueType() + "' are not supported");
        continue;
      }
      try {
        archive.readHead(entry);
        if (auto const placement = placementOf(entry.grid->transform(), reason)) {
          fitting.push_back({&entry, *placement, textOf(*entry.grid, Keys::component)});
        }
      } catch (std::exception const& error) {
        reason = reasonOf(error);
      }
      if (!reason.empty()) skip(entry.name, channel, reason);
      passOn(log, entry.name, channel);
    }
    if (archive.entries().empty()) throw Failure{"'" + request_.path + "' holds no grids"};
    if (fitting.empty()) throw Failure{firstLoss_};

    for (auto const& grid : fitting) {
      if (usableName(grid.stated)) plan_.reserve(grid.stated);
    }
    std::vector<Wanted> wanted;
    for (auto const& [entry, placement, stated] : fitting) {
      Wanted grid{entry, 0, {}, isPointGrid(*entry->grid)};
      if (grid.points) {
        grid.component = plan_.points(placement, stated, entry->name);
      } else {
        grid.component = plan_.voxels(placement, stated);
        grid.channel = plan_.channelName(grid.component, entry->name);
        auto& tiles = plan_.components[grid.component].tiles;
        if (tiles.empty()) tiles = textOf(*entry->grid, Keys::tiles);
      }
      if (grid.points ? request_.points : request_.voxels && wantsChannel(grid.channel)) {
        wanted.push_back(grid);
      }
    }
    return wanted;
  }

  void passOn(VdbLog& log, std::string const& grid, std::string const& channel) {
    for (auto const& line : log.take()) {
      warnAbout(channel, "Grid " + called(grid, channel) + ": " + line);
    }
  }

  void read(VdbArchive& archive, Wanted const& grid) {
    VdbLog log;
    auto const mark = image_.mark();
    auto const known = channels_.size();
    auto const& channel = grid.points ? plan_.components[grid.component].name : grid.channel;
    try {
      archive.readAll(*grid.entry);
      if (grid.points) {
        readPoints(grid);
      } else {
        grid.entry->grid->apply<VoxelGrids>([](auto const& voxels) { requireSoundRoot(voxels); });
        readVoxels(grid);
      }
    } catch (ImageFull const&) {
      throw;
    } catch (std::exception const& error) {
      channels_.resize(known);
      image_.rewind(mark);
      skip(grid.entry->name, channel, reasonOf(error));
    }
    grid.entry->grid.reset();
    passOn(log, grid.entry->name, channel);
  }

  void readPoints(Wanted const& grid) {
    auto const& place = plan_.components[grid.component].placement;
    PointsJob job{image_};
    job.voxelSize = static_cast<float>(place.voxelSize);
    for (int a = 0; a < 3; ++a) {
      job.offset[a] = (place.translation[a] - origin_[a]) / place.voxelSize;
    }
    if (request_.clip) {
      job.clipMin = request_.clipMin;
      job.clipMax = request_.clipMax;
    }
    job.wanted = [&](std::string const& name) { return wantsChannel(name); };
    job.rename = [&](std::string const& attribute) {
      auto const stated = textOf(*grid.entry->grid, Keys::channelOf + attribute);
      return plan_.channelName(grid.component,
                               stated.empty() ? attributeChannel(attribute) : stated);
    };
    job.warn = [&](std::string const& text) {
      warn("Point grid " + called(grid.entry->name, plan_.components[grid.component].name) + ": " +
           text);
    };
    auto const first = channels_.size();
    decodePoints(*grid.entry->grid, job, channels_);
    for (auto c = first; c < channels_.size(); ++c) {
      channels_[c].component = static_cast<std::uint32_t>(grid.component);
    }
  }

  void readVoxels(Wanted const& wanted) {
    auto& grid = wanted.entry->grid;
    auto const voxelSize = plan_.components[wanted.component].placement.voxelSize;
    ChannelRecord record;
    record.component = static_cast<std::uint32_t>(wanted.component);
    record.name = image_.text(wanted.channel);
    record.fieldClass = static_cast<std::uint32_t>(fieldClassOf(*grid));
    std::vector<MetadataRecord> metadata;
    readMetadata(*grid, image_, metadata);
    if (wanted.channel != wanted.entry->name) {
      addText(image_, metadata, Keys::gridName, wanted.entry->name);
    }
    record.metadata = image_.records(metadata);

    if (grid->isType<openvdb::DoubleGrid>()) {
      auto const& precise = static_cast<openvdb::DoubleGrid const&>(*grid);
      grid = std::make_shared<openvdb::FloatGrid>(precise);
    }
    auto const own = textOf(*grid, Keys::background), coarse = textOf(*grid, Keys::coarse);
    float scale = 1;  // 0: the field was made anew
    if (grid->isType<openvdb::FloatGrid>()) {
      scale = prepareDistance(wanted, grid, voxelSize, !own.empty(), record);
    }

    auto const clip = clipBox(voxelSize);
    VoxelJob job{image_, request_.shape};
    job.levelSet = record.fieldClass == static_cast<std::uint32_t>(FieldClass::LevelSet);
    if (clip) job.clip = &*clip;
    decodeGrid(*grid, job, record);
    if (scale != 0) addKept(own, coarse, scale, record);
    if (job.cut) {
      warnAbout(
          wanted.channel,
          "Grid " + called(wanted.entry->name, wanted.channel) +
              " reaches beyond the voxels that a layout can hold; what lies there is left out");
    }
    channels_.push_back(record);
  }

  /// What the grid had no place for. Only distances have another scale than 1.
  void addKept(std::string const& background, std::string const& coarse, float scale,
               ChannelRecord& record) {
    auto const change = [&](std::uint32_t& bits) {
      if (scale != 1) bits = std::bit_cast<std::uint32_t>(std::bit_cast<float>(bits) * scale);
    };
    if (unpackBackground(background, record)) change(record.background[0]);
    std::vector<CoarseCell> cells;
    auto const type = static_cast<API::DataType>(record.type);
    if (coarse.empty() || !unpackCoarseCells(coarse, request_.shape, type, cells)) return;
    for (auto& cell : cells) change(cell.value[0]);
    record.coarse = image_.records(cells);
  }

  static std::int64_t voxelAt(float world, double voxelSize) {
    constexpr double far = 1e15;
    return static_cast<std::int64_t>(
        std::floor(std::clamp(static_cast<double>(world) / voxelSize, -far, far)));
  }
  /// The voxels of a component that were asked for, if not all were.
  std::optional<VoxelBox> clipBox(double voxelSize) const {
    if (!request_.clip) return std::nullopt;
    VoxelBox box{};
    for (int a = 0; a < 3; ++a) {
      box.lo[a] = voxelAt(request_.clipMin[a], voxelSize);
      box.hi[a] = voxelAt(request_.clipMax[a], voxelSize);
    }
    return box;
  }

  /// The factor that distances were multiplied by; 0 if they were made anew.
  /// A level set with a background of its own keeps what the empty world has:
  /// a filter put it there.
  float prepareDistance(Wanted const& wanted, openvdb::GridBase::Ptr& grid, double voxelSize,
                        bool ownBackground, ChannelRecord& record) {
    bool const levelSet = record.fieldClass == static_cast<std::uint32_t>(FieldClass::LevelSet);
    bool const chosen =
        request_.distanceChannel.empty() ? levelSet : request_.distanceChannel == wanted.channel;
    if (!levelSet && !chosen) return 1;
    auto const mode = chosen ? request_.distance : DistanceMode::Keep;
    auto distance = openvdb::gridPtrCast<openvdb::FloatGrid>(grid);
    auto const before = distance->background();
    // What is only taken for a distance may be fog, which is kept as it is.
    bool const mended = !ownBackground && (levelSet || mode != DistanceMode::Keep) &&
                        mendBackground(*distance, voxelSize);
    auto const outcome = treatDistance(distance, voxelSize, mode, mended);
    grid = distance;
    auto const subject =
        (levelSet ? "Level set " : "Grid ") + called(wanted.entry->name, wanted.channel);
    if (mended) {
      warnAbout(wanted.channel,
                subject + " has background " + numberText(before) + "; +5 voxels is taken outside");
    }
    if (outcome.notNumbers > 0) {
      warnAbout(wanted.channel, subject + " has " + std::to_string(outcome.notNumbers) +
                                    " active values that are no numbers");
    }
    if (chosen) {
      record.distanceMode = 1 + static_cast<std::uint32_t>(outcome.mode);
      record.distanceFactor = outcome.factor;
      record.distanceReason = image_.text(outcome.reason);
    }
    return outcome.mode == DistanceMode::Rebuild ? 0 : outcome.factor;
  }

  static void decodeGrid(openvdb::GridBase const& grid, VoxelJob& job, ChannelRecord& record) {
    auto const set = [&](API::DataType type) { record.type = static_cast<std::int32_t>(type); };
    auto const pair = textOf(grid, Keys::type);
    if (grid.isType<openvdb::FloatGrid>()) {
      set(API::DataType::Float);
      decodeFloat(static_cast<openvdb::FloatGrid const&>(grid), job, record);
    } else if (grid.isType<openvdb::Int32Grid>()) {
      set(API::DataType::Int);
      decodeInt(static_cast<openvdb::Int32Grid const&>(grid), job, record);
    } else if (grid.isType<openvdb::Vec3DGrid>()) {
      set(API::DataType::Float3);
      decodeDouble3(static_cast<openvdb::Vec3DGrid const&>(grid), job, record);
    } else if (grid.isType<openvdb::Vec3SGrid>()) {
      auto const& vectors = static_cast<openvdb::Vec3SGrid const&>(grid);
      set(pair == Keys::float2 ? API::DataType::Float2 : API::DataType::Float3);
      pair == Keys::float2 ? decodeFloat2(vectors, job, record)
                           : decodeFloat3(vectors, job, record);
    } else {
      auto const& vectors = static_cast<openvdb::Vec3IGrid const&>(grid);
      set(pair == Keys::int2 ? API::DataType::Int2 : API::DataType::Int3);
      pair == Keys::int2 ? decodeInt2(vectors, job, record) : decodeInt3(vectors, job, record);
    }
  }

  Span components() {
    std::vector<ComponentRecord> records;
    for (auto const& plan : plan_.components) {
      ComponentRecord record;
      record.kind = plan.kind;
      record.name = image_.text(plan.name);
      record.gridName = image_.text(plan.gridName);
      record.voxelSize = plan.placement.voxelSize;
      for (int a = 0; a < 3; ++a) {
        auto const own = plan.placement.translation[a] - 0.5 * plan.placement.voxelSize;
        record.translation[a] = plan.placement.translation[a];
        record.origin[a] =
            static_cast<float>(plan.kind == ComponentKind::Points ? origin_[a] : own);
      }
      if (!plan.tiles.empty()) addTiles(plan.tiles, record);
      records.push_back(record);
    }
    return image_.records(records);
  }

  void addTiles(std::string const& text, ComponentRecord& record) {
    TileLists lists;
    if (!unpackTiles(text, request_.shape, lists)) return;
    auto const clip = clipBox(record.voxelSize);
    for (int d = 0; d <= request_.shape.depth; ++d) {
      auto& list = lists[static_cast<std::size_t>(d)];
      if (clip) {
        std::erase_if(list, [&, extent = request_.shape.tileExtent(d)](API::TileCoord const& tile) {
          return !clip->touches(tile, extent);
        });
      }
      std::copy(list.begin(), list.end(),
                image_.allocate<API::TileCoord>(list.size(), record.tiles[d]));
    }
  }

  ReadRequest const& request_;
  ImageBuilder& image_;
  Plan plan_;
  double origin_[3] = {0, 0, 0};
  std::vector<ChannelRecord> channels_;
  std::vector<std::pair<Severity, std::string>> messages_;
  std::string firstLoss_;  // the first thing that could not be read
};

}  // namespace

void decode(ReadRequest const& request, ImageBuilder& image) {
  startVdb();
  tbb::global_control const workers(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(std::max(1, request.threads)));
  auto const start = image.mark();
  ImageHeader header;
  std::string failure;
  Decoder decoder(request, image);
  try {
    VdbLog const log;
    header = decoder.run();
  } catch (Failure const& known) {
    failure = known.text;
  } catch (ImageFull const&) {
    failure = "'" + request.path + "' needs " + tooMuch(request);
  } catch (std::bad_alloc const&) {
    failure = "'" + request.path + "' needs " + tooMuch(request);
  } catch (std::exception const& error) {
    failure = "Could not read '" + request.path + "': " + reasonOf(error);
  }
  if (!failure.empty()) {
    image.rewind(start);
    header = {};
    header.failed = 1;
    header.failure = image.text(failure);
  }
  header.messages = decoder.messages();
  header.shape = request.shape;
  image.finish(header);
}

}  // namespace Velmor::Host::Files
