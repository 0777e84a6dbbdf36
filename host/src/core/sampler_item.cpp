#include "core/sampler_item.h"

#include <bit>

namespace Velmor::API {

SamplerItem::SamplerItem(VoxelChannelItem* channel, SamplerSpace space)
    : Item(ItemKind::VoxelSampler, std::string(), channel), space_(space), near_(*channel) {}

void SamplerItem::enter(TileCoord const& voxel) noexcept {
  stamp_ = layout().stamp();  // read first: what is added meanwhile changes it again
  constexpr int parentEdge = tileWidth * tileWidth;
  // Where the grid of parents starts, moved so far out that all differences are positive.
  auto const start = layout().rootOrigin().i - (1 << 20) * parentEdge;
  TileCoord parent;
  auto const locate = [start](std::int32_t v, std::int32_t& origin, std::int32_t& first) {
    auto const u = static_cast<std::uint32_t>(v - start);
    auto const cell = u % parentEdge / tileWidth;
    first = start + static_cast<std::int32_t>(u - u % parentEdge);
    origin = first + static_cast<std::int32_t>(cell) * tileWidth;
    return static_cast<std::int8_t>(cell);
  };
  cell_.x = locate(voxel.i, origin_.i, parent.i);
  cell_.y = locate(voxel.j, origin_.j, parent.j);
  cell_.z = locate(voxel.k, origin_.k, parent.k);
  near_.centre(layout().leafDepth() - 1, parent);
  known_ = tiles_ = 0;
}

void SamplerItem::find(std::uint32_t blocks) noexcept {
  known_ |= blocks;
  for (; blocks != 0; blocks &= blocks - 1) {
    int const block = std::countr_zero(blocks);
    auto const source =
        near_.source(cell_.x + block % 3 - 1, cell_.y + block / 3 % 3 - 1, cell_.z + block / 9 - 1);
    values_[static_cast<std::size_t>(block)] = source.data;
    if (source.mask != 0) tiles_ |= std::uint32_t{1} << block;
  }
}

}  // namespace Velmor::API
