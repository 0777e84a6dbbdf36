#include "files/state_load.h"

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <tuple>
#include <vector>

#include "core/channel_item.h"
#include "core/layout_item.h"
#include "files/keys.h"
#include "velmorapi/component.h"
#include "velmorapi/layout.h"
#include "velmorapi/state_server.h"
#include "velmorhost/files.h"
#include "velmorhost/scene.h"
#include "velmorhost/settings.h"

namespace Velmor::Host::Files {

namespace {

struct Failure {
  std::string text;
};

void fillDictionary(Image const& image, Span const& span, API::Dictionary const& dictionary) {
  auto const* const records = image.at<MetadataRecord>(span);
  for (std::uint64_t r = 0; r < span.count; ++r) {
    auto const& record = records[r];
    auto const key = image.text(record.key);
    switch (record.type) {
      case MetadataType::Bool:
        dictionary.set(key, record.integer != 0);
        break;
      case MetadataType::Int:
        dictionary.set(key, static_cast<int>(record.integer));
        break;
      case MetadataType::Float:
        dictionary.set(key, record.vector[0]);
        break;
      case MetadataType::Double:
        dictionary.set(key, record.number);
        break;
      case MetadataType::Vector:
        dictionary.set(key, {record.vector[0], record.vector[1], record.vector[2]});
        break;
      case MetadataType::Text:
        dictionary.set(key, API::String(image.text(record.text)));
        break;
    }
  }
}

void placeComponent(Image const& image, ComponentRecord const& record,
                    API::Dictionary const& dictionary) {
  dictionary.set(Keys::origin,
                 orlen::Math::vec<3, float>{record.origin[0], record.origin[1], record.origin[2]});
  dictionary.set(Keys::voxelSize, record.voxelSize);
  for (int a = 0; a < 3; ++a) dictionary.set(Keys::translation[a], record.translation[a]);
  if (record.kind == ComponentKind::Points) {
    dictionary.set(Keys::gridName, API::String(image.text(record.gridName)));
  }
}

/// A tile that a component will have, and where it hangs among those of the
/// level above.
struct PlannedTile {
  std::uint64_t order;
  API::TileCoord coord;
  API::TreeIndex index;
  std::size_t parent = 0;
  int cell = 0;
  bool plain = false;  // only listed: no channel has values for it
};

/// The tiles of all channels of a component, by level in tree order.
class PlannedTiles {
 public:
  PlannedTiles(Image const& image, ComponentRecord const& component,
               std::vector<ChannelRecord const*> const& channels)
      : shape_(image.header().shape) {
    for (int d = 0; d <= shape_.depth; ++d) {
      auto& tiles = levels_[d];
      auto const add = [&, shape = shape_](Span const& span, bool plain) {
        auto const* const coords = image.at<API::TileCoord>(span);
        tiles.reserve(tiles.size() + span.count);
        for (std::uint64_t t = 0; t < span.count; ++t) {
          tiles.push_back({shape.order(coords[t], d), coords[t], {}, 0, 0, plain});
        }
      };
      for (auto const* channel : channels) add(channel->levels[d].coords, false);
      auto const& plain = component.tiles[d];
      if (plain.count > 0) add(plain, true);
      if (channels.size() > 1 || plain.count > 0) {
        std::sort(tiles.begin(), tiles.end(), [](auto const& a, auto const& b) {
          return std::tie(a.order, a.plain) < std::tie(b.order, b.plain);
        });
        tiles.erase(std::unique(tiles.begin(), tiles.end(),
                                [](auto const& a, auto const& b) { return a.order == b.order; }),
                    tiles.end());
      }
      if (d > 0) hang(d);
    }
  }

  std::vector<PlannedTile>& level(int d) { return levels_[d]; }
  int depth() const { return shape_.depth; }

  /// Makes the tiles in a layout without any; finds the index of each.
  void make(API::LayoutItem& layout) {
    if (layout.leafDepth() != shape_.depth || layout.centred() != (shape_.centred != 0)) {
      throw Failure{"its tiles are those of another layout"};
    }
    for (int d = 0; d <= shape_.depth; ++d) {
      for (auto& tile : levels_[d]) {
        auto const slot =
            d == 0 ? layout.addRoot()
                   : layout.addChild(d - 1, levels_[d - 1][tile.parent].index.slot, tile.cell);
        if (slot < 0) throw std::bad_alloc();
        tile.index = {slot, d};
      }
    }
  }

 private:
  /// Finds the parents of a level's tiles. The list of plain tiles is as old as
  /// the file: where channels have been edited, clipped or left out since, those
  /// of its tiles whose parents are gone go too.
  void hang(int d) {
    auto const& above = levels_[d - 1];
    auto& tiles = levels_[d];
    std::size_t parent = 0;
    auto kept = tiles.begin();
    for (auto& tile : tiles) {
      auto const order = tile.order / TreeShape::cells;
      while (parent < above.size() && above[parent].order < order) ++parent;
      if (parent == above.size() || above[parent].order != order) {
        if (!tile.plain) throw Failure{"a tile hangs nowhere"};
        continue;
      }
      tile.parent = parent;
      tile.cell = static_cast<int>(tile.order % TreeShape::cells);
      *kept++ = tile;
    }
    tiles.erase(kept, tiles.end());
  }

  TreeShape shape_;
  std::vector<PlannedTile> levels_[TreeShape::levels];
};

constexpr CellMask full = [] {
  CellMask mask;
  mask.words = {~std::uint64_t{0}, (std::uint64_t{1} << (TreeShape::cells - 64)) - 1};
  return mask;
}();

/// Copies a channel's tiles; tiles that only other channels have are filled
/// with what covers them.
void fillChannel(Image const& image, ChannelRecord const& record, PlannedTiles& planned,
                 API::Channel const& channel) {
  auto* const item = API::itemAs<API::VoxelChannelItem>(channel);
  auto const size = item->size();
  std::vector<CellMask> above, masks;
  for (int d = 0; d <= planned.depth(); ++d) {
    auto const& tiles = planned.level(d);
    auto const& level = record.levels[d];
    auto const* const coords = image.at<API::TileCoord>(level.coords);
    auto const* const slots = image.at<std::uint32_t>(level.slots);
    auto const* const values = image.at<std::byte>(level.values);
    auto const* const stored = image.at<std::uint64_t>(level.masks);
    bool const all = tiles.size() == level.coords.count;
    std::vector<std::int64_t> own;
    if (!all) {
      std::uint64_t next = 0;
      own.reserve(tiles.size());
      for (auto const& tile : tiles) {
        bool const has = next < level.coords.count && coords[next] == tile.coord;
        own.push_back(has ? static_cast<std::int64_t>(next++) : -1);
      }
    }
    masks.assign(tiles.size(), {});
    tbb::parallel_for(std::size_t{0}, tiles.size(), [&](std::size_t t) {
      auto const& tile = tiles[t];
      auto* const out = item->values(d, tile.index.slot);
      auto const mine = all ? static_cast<std::int64_t>(t) : own[t];
      if (mine >= 0) {
        auto const slot = std::uint64_t{slots[mine]};
        std::memcpy(out, values + slot * TreeShape::cells * size, TreeShape::cells * size);
        masks[t].words = {stored[2 * slot], stored[2 * slot + 1] & full.words[1]};
      } else if (d > 0) {
        auto const* const covering =
            item->values(d - 1, planned.level(d - 1)[tile.parent].index.slot) +
            static_cast<std::size_t>(tile.cell) * size;
        for (int c = 0; c < TreeShape::cells; ++c) {
          std::memcpy(out + static_cast<std::size_t>(c) * size, covering, size);
        }
        if (above[tile.parent].test(tile.cell)) masks[t] = full;
      }
      item->storeMask(tile.index, masks[t]);
    });
    above.swap(masks);
  }
}

/// Cells whose tiles are not there, or which a tile refines, stay as they are.
void setCoarseCells(Image const& image, ChannelRecord const& record, API::Channel const& channel) {
  auto* const item = API::itemAs<API::VoxelChannelItem>(channel);
  auto const size = item->size();
  auto const accessor = API::Layout(channel.layout()).tileAccessor();
  auto const* const cells = image.at<CoarseCell>(record.coarse);
  for (std::uint64_t c = 0; c < record.coarse.count; ++c) {
    auto const& cell = cells[c];
    auto const index = accessor.index(cell.tile, cell.depth);
    if (index.depth != cell.depth || item->layout().child(index.depth, index.slot, cell.cell) >= 0)
      continue;
    std::memcpy(item->values(index.depth, index.slot) + static_cast<std::size_t>(cell.cell) * size,
                cell.value, size);
    CellMask mask;
    item->storedMask(index, mask);
    cell.active != 0 ? mask.set(cell.cell) : mask.reset(cell.cell);
    item->storeMask(index, mask);
  }
}

class Loader {
 public:
  Loader(Image const& image, API::StateServer const& server, API::Object const& object)
      : image_(image), server_(server), object_(object) {}

  void run() {
    auto const& head = image_.header();
    fillDictionary(image_, head.metadata, object_.dictionary());
    auto const* const components = image_.at<ComponentRecord>(head.components);
    auto const* const channels = image_.at<ChannelRecord>(head.channels);
    for (std::uint64_t c = 0; c < head.components.count; ++c) {
      std::vector<ChannelRecord const*> own;
      for (std::uint64_t n = 0; n < head.channels.count; ++n) {
        if (channels[n].component == c) own.push_back(&channels[n]);
      }
      if (own.empty()) continue;
      if (components[c].kind == ComponentKind::Voxels) {
        loadVoxels(components[c], own);
      } else {
        loadPoints(components[c], own);
      }
    }
    setOrigin(components, head.components.count);
  }

 private:
  /// The object's origin is its first voxel component's, else its first one's,
  /// whether that was loaded or not.
  void setOrigin(ComponentRecord const* components, std::uint64_t count) const {
    auto const* const end = components + count;
    auto const* first = std::find_if(
        components, end, [](ComponentRecord const& c) { return c.kind == ComponentKind::Voxels; });
    if (first == end) first = components;
    if (count == 0) return;
    object_.dictionary().set(
        Keys::origin,
        orlen::Math::vec<3, float>{first->origin[0], first->origin[1], first->origin[2]});
  }

  API::Component makeComponent(ComponentRecord const& record, char const* type) const {
    auto const name = image_.text(record.name);
    API::Component const component =
        server_.createComponent(type, name, static_cast<float>(record.voxelSize));
    if (!component.valid()) throw Failure{"component '" + name + "' could not be made"};
    object_.addComponent(component);
    placeComponent(image_, record, component.dictionary());
    return component;
  }

  API::Channel makeChannel(API::Component const& component, ChannelRecord const& record) const {
    auto const name = image_.text(record.name);
    API::Channel const channel =
        server_.createChannel(component, static_cast<API::DataType>(record.type), name);
    if (!channel.valid()) throw Failure{"channel '" + name + "' could not be made"};
    return channel;
  }

  void describe(API::Channel const& channel, ChannelRecord const& record) const {
    auto const dictionary = channel.dictionary();
    fillDictionary(image_, record.metadata, dictionary);
    setFieldClass(channel, static_cast<FieldClass>(record.fieldClass));
    if (record.distanceMode == 0) return;
    static constexpr char const* modes[] = {"auto", "keep", "scale", "rebuild"};
    dictionary.set(Keys::distanceMode, modes[record.distanceMode - 1]);
    dictionary.set(Keys::distanceFactor, record.distanceFactor);
    dictionary.set(Keys::distanceReason, API::String(image_.text(record.distanceReason)));
  }

  static void setBackground(API::Channel const& channel, ChannelRecord const& record) {
    API::withType(static_cast<API::DataType>(record.type), [&]<class T>(T*) {
      T value;
      std::memcpy(&value, record.background, sizeof value);
      channel.setBackgroundValue(value);
    });
  }

  void loadVoxels(ComponentRecord const& record,
                  std::vector<ChannelRecord const*> const& channels) const {
    PlannedTiles planned(image_, record, channels);
    auto const component = makeComponent(record, API::VoxelComponentType);
    // Channels first: new tiles then get their first values from them at once.
    std::vector<API::Channel> made;
    for (auto const* channel : channels) {
      made.push_back(makeChannel(component, *channel));
      setBackground(made.back(), *channel);
    }
    planned.make(*API::itemAs<API::LayoutItem>(component.layout()));
    for (std::size_t c = 0; c < channels.size(); ++c) {
      fillChannel(image_, *channels[c], planned, made[c]);
      setCoarseCells(image_, *channels[c], made[c]);
      refreshCoarseValues(made[c]);
      describe(made[c], *channels[c]);
    }
  }

  void loadPoints(ComponentRecord const& record,
                  std::vector<ChannelRecord const*> const& channels) const {
    auto const& positions = *channels.front();
    auto const count = positions.points.count;
    for (auto const* channel : channels) {
      if (channel->points.count != count) throw Failure{"point attributes differ in length"};
    }
    if (positions.type != static_cast<std::int32_t>(API::DataType::Float3)) {
      throw Failure{"points without positions"};
    }
    auto const component = makeComponent(record, API::PointComponentType);
    using Position = orlen::Math::vec<3, float>;
    auto const* const first = image_.at<Position>(positions.points);
    auto const order = setPoints(component, {first, first + count});
    if (order.size() != count) {
      report(Severity::Warning, std::to_string(count - order.size()) + " points of '" +
                                    image_.text(record.gridName) +
                                    "' lie beyond what a layout can hold and are left out");
    }
    for (auto const* channel : channels) {
      auto const made = channel == channels.front()
                            ? API::Channel(component.findChannel("position"))
                            : makeChannel(component, *channel);
      describe(made, *channel);
      if (channel == channels.front()) continue;
      auto* const item = API::itemAs<API::PointChannelItem>(made);
      auto const size = item->size();
      auto const* const in = image_.at<std::byte>(channel->points);
      for (std::size_t p = 0; p < order.size(); ++p) {
        std::memcpy(item->values() + p * size, in + order[p] * size, size);
      }
    }
  }

  Image const& image_;
  API::StateServer const& server_;
  API::Object const& object_;
};

}  // namespace

API::Status loadState(Image const& image, std::string const& path, std::string const& objectName,
                      API::Ref& server) {
  auto const made = createStateServer(objectName);
  auto const object = createObject(made, objectName);
  try {
    tbb::task_arena(threadCount()).execute([&] { Loader(image, made, object).run(); });
  } catch (Failure const& failure) {
    return API::Status::failure("Could not load '" + path + "': " + failure.text);
  } catch (std::bad_alloc const&) {
    return API::Status::failure("Could not load '" + path + "': out of memory");
  }
  server = made;
  return {};
}

}  // namespace Velmor::Host::Files
