#include "velmorhost/scene.h"

#include <tbb/parallel_sort.h>

#include <algorithm>
#include <utility>

#include "core/server_item.h"

namespace Velmor::Host {

namespace {

API::LayoutItem* layoutOf(API::Layout const& layout) {
  return API::itemAs<API::LayoutItem>(layout);
}

}  // namespace

API::StateServer createStateServer(API::String const& name) {
  return API::Ref(new API::ServerItem(name.str()));
}

API::Object createObject(API::StateServer const& server, API::String const& name) {
  auto* const item = API::itemAs<API::ServerItem>(server);
  return item != nullptr ? API::Ref(item->createObject(name.str())) : API::Ref();
}

void addLeafTiles(API::Layout const& layout, std::vector<API::TileCoord> voxels) {
  auto* const item = layoutOf(layout);
  if (item == nullptr) return;
  std::vector<std::pair<std::uint64_t, API::TileCoord>> tiles;
  tiles.reserve(voxels.size());
  for (auto const& voxel : voxels) {
    if (item->inRoot(voxel)) tiles.emplace_back(item->leafKey(voxel), voxel);
  }
  voxels = {};
  auto const before = [](auto const& a, auto const& b) { return a.first < b.first; };
  if (!std::is_sorted(tiles.begin(), tiles.end(), before)) {
    tbb::parallel_sort(tiles.begin(), tiles.end(), before);
  }
  auto const accessor = layout.tileAccessor();
  int const depth = item->leafDepth();
  auto last = ~std::uint64_t{0};
  for (auto const& [key, voxel] : tiles) {
    if (key != last) accessor.addTile(voxel, depth);
    last = key;
  }
}

std::size_t tileCount(API::Layout const& layout, int depth) {
  auto const* const item = layoutOf(layout);
  if (item == nullptr || depth < 0 || depth > item->leafDepth()) return 0;
  return static_cast<std::size_t>(item->count(depth));
}

FieldClass fieldClass(API::Channel const& channel) {
  auto const* const item = API::itemAs<API::ChannelItem>(channel);
  return item != nullptr ? item->fieldClass() : FieldClass::Unknown;
}

void setFieldClass(API::Channel const& channel, FieldClass fieldClass) {
  if (auto* const item = API::itemAs<API::ChannelItem>(channel)) item->setFieldClass(fieldClass);
}

std::size_t memoryUse(API::Layout const& layout) {
  auto const* const item = layoutOf(layout);
  return item != nullptr ? item->memoryUse() : 0;
}

std::size_t memoryUse(API::Channel const& channel) {
  auto const* const item = API::itemAs<API::ChannelItem>(channel);
  return item != nullptr ? item->memoryUse() : 0;
}

void refreshCoarseValues(API::Channel const& channel) {
  auto const* const item = API::itemAs<API::VoxelChannelItem>(channel);
  if (item == nullptr) return;
  constexpr int centre = API::cellOf(2, 2, 2);
  auto const& layout = item->layout();
  auto const offset = [item](int cell) { return static_cast<std::size_t>(cell) * item->size(); };
  for (int depth = layout.leafDepth(); depth > 0; --depth) {
    for (std::int32_t slot = 0; slot < layout.count(depth); ++slot) {
      auto const& tile = layout.record(depth, slot);
      std::memcpy(item->values(depth - 1, tile.parent) + offset(tile.cell),
                  item->values(depth, slot) + offset(centre), item->size());
    }
  }
}

}  // namespace Velmor::Host
