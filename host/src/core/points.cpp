#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "core/server_item.h"
#include "velmorhost/scene.h"

namespace Velmor::Host {

namespace {

using Position = orlen::Math::vec<3, float>;

struct Placed {
  std::uint64_t tile;
  std::uint32_t place;
};

// Voxel of a finite position inside the root; false for any other.
bool voxelOf(API::LayoutItem const& layout, Position const& position, API::TileCoord& voxel) {
  constexpr float limit = 1e9f;  // far beyond every root, and fits an integer
  auto const inRange = [](float x) { return std::abs(x) < limit; };  // false for NaN
  if (!inRange(position.x) || !inRange(position.y) || !inRange(position.z)) return false;
  auto const floor = [](float x) { return static_cast<std::int32_t>(std::floor(x)); };
  voxel = {floor(position.x), floor(position.y), floor(position.z)};
  return layout.inRoot(voxel);
}

}  // namespace

std::vector<std::uint32_t> setPoints(API::PointComponent const& points,
                                     std::vector<Position> const& positions) {
  auto* const component = API::itemAs<API::ComponentItem>(points);
  if (component == nullptr || component->kind() != API::ItemKind::PointComponent) return {};
  auto const& old = component->layout();
  API::Owned<API::LayoutItem> const tree(
      new API::LayoutItem(old.name(), component->parent(), old.voxelScale()));
  API::Layout const layout{API::Ref(tree.get())};

  std::vector<Placed> placed;
  placed.reserve(positions.size());
  std::vector<API::TileCoord> voxels;
  for (std::size_t p = 0; p < positions.size(); ++p) {
    API::TileCoord voxel;
    if (!voxelOf(*tree, positions[p], voxel)) continue;
    placed.push_back({tree->leafKey(voxel), static_cast<std::uint32_t>(p)});
  }
  std::sort(placed.begin(), placed.end(), [](Placed const& a, Placed const& b) {
    return a.tile != b.tile ? a.tile < b.tile : a.place < b.place;
  });

  auto ranges = std::make_shared<API::PointRanges>();
  std::vector<std::uint32_t> order;
  order.reserve(placed.size());
  for (std::size_t p = 0; p < placed.size(); ++p) {
    if (p == 0 || placed[p].tile != placed[p - 1].tile) {
      if (p != 0) ranges->starts.push_back(p);
      API::TileCoord voxel;
      voxelOf(*tree, positions[placed[p].place], voxel);
      voxels.push_back(voxel);
    }
    order.push_back(placed[p].place);
  }
  if (!placed.empty()) ranges->starts.push_back(placed.size());
  addLeafTiles(layout, std::move(voxels));  // in the same order: slots are ranges

  component->resetPoints(tree, std::move(ranges));
  API::PointChannel const channel{
      API::Ref(component->createChannel(API::DataType::Float3, "position"))};
  auto* const stored = pointData<Position>(channel);
  for (std::size_t p = 0; p < order.size(); ++p) stored[p] = positions[order[p]];
  return order;
}

void* pointStorage(API::PointChannel const& channel, API::DataType type) {
  auto* const item = API::itemAs<API::PointChannelItem>(channel);
  return item != nullptr && item->type() == type ? item->values() : nullptr;
}

}  // namespace Velmor::Host
