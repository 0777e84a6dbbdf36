#include "core/sampler_item.h"

#include <algorithm>

namespace Velmor::API {

SamplerItem::SamplerItem(VoxelChannelItem* channel, SamplerSpace space)
    : Item(ItemKind::VoxelSampler, std::string(), channel), channel_(*channel), space_(space) {}

void SamplerItem::enter(TileCoord const& voxel) noexcept {
  auto const& layout = channel_.layout();
  stamp_ = layout.stamp();  // read first: what is added meanwhile changes it again
  auto const first = layout.rootOrigin();
  auto const align = [](std::int32_t a, std::int32_t start) {
    auto const remainder = (a - start) % tileWidth;
    return a - (remainder < 0 ? remainder + tileWidth : remainder);
  };
  origin_ = {align(voxel.i, first.i), align(voxel.j, first.j), align(voxel.k, first.k)};
  for (auto& block : blocks_) block.data = nullptr;
}

void SamplerItem::find(int neighbour) noexcept {
  auto const& layout = channel_.layout();
  TileCoord const voxel{origin_.i + (neighbour % 3 - 1) * tileWidth,
                        origin_.j + (neighbour / 3 % 3 - 1) * tileWidth,
                        origin_.k + (neighbour / 9 - 1) * tileWidth};
  int const leaf = layout.leafDepth();
  int const depth =
      layout.descend(slots_.data(), layout.ascend(slots_.data(), depth_, voxel), voxel, leaf);
  depth_ = std::min(depth, leaf - 1);
  auto& block = blocks_[static_cast<std::size_t>(neighbour)];
  if (depth < 0) {
    block = {channel_.background(), 0};
    return;
  }
  auto const slot = slots_[static_cast<std::size_t>(depth)];
  auto const* const values = channel_.values(depth, slot);
  if (depth == leaf) {
    block = {values, ~std::uint32_t{0}};
  } else {
    auto const cell = layout.cellAt(depth, layout.branch(depth, slot).coord, voxel);
    block = {values + static_cast<std::size_t>(cell) * channel_.size(), 0};
  }
}

}  // namespace Velmor::API
