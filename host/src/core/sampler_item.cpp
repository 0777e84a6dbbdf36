#include "core/sampler_item.h"

#include <bit>

namespace Velmor::API {

SamplerItem::SamplerItem(VoxelChannelItem* channel, SamplerSpace space)
    : Item(ItemKind::VoxelSampler, std::string(), channel),
      layout_(&channel->layout()),
      type_(channel->type()),
      space_(space),
      near_(*channel) {}

void SamplerItem::enter(TileCoord const& voxel) noexcept {
  stamp_ = layout().stamp();  // read first: what is added meanwhile changes it again
  constexpr int parentEdge = tileWidth * tileWidth;
  // Where the grid of parents starts, moved so far out that all differences are positive.
  auto const start = layout().rootOrigin().i - (1 << 20) * parentEdge;
  TileCoord parent;
  auto const locate = [start](std::int32_t v, std::int32_t& first) {
    auto const u = static_cast<std::uint32_t>(v - start);
    first = start + static_cast<std::int32_t>(u - u % parentEdge);
    return static_cast<std::int8_t>(u % parentEdge / tileWidth);
  };
  cell_.x = locate(voxel.i, parent.i);
  cell_.y = locate(voxel.j, parent.j);
  cell_.z = locate(voxel.k, parent.k);
  origin_ = IntLanes{parent.i, parent.j, parent.k, 0} +
            tileWidth * IntLanes{cell_.x, cell_.y, cell_.z, 0};
  near_.centre(layout().leafDepth() - 1, parent);
  known_ = tiles_ = 0;
}

void SamplerItem::find(std::uint32_t blocks) noexcept {
  known_ |= blocks;
  for (; blocks != 0; blocks &= blocks - 1) {
    int const block = std::countr_zero(blocks);
    int const x = block % 3 - 1, y = block / 3 % 3 - 1, z = block / 9 - 1;
    auto const source = near_.source(cell_.x + x, cell_.y + y, cell_.z + z);
    auto& base = bases_[static_cast<std::size_t>(block)];
    auto& mask = masks_[static_cast<std::size_t>(block)];
    base = reinterpret_cast<std::uintptr_t>(source.data);
    mask = 0;
    if (source.mask == 0) continue;
    tiles_ |= std::uint32_t{1} << block;
    mask = ~mask;
    base -= static_cast<std::uintptr_t>(std::intptr_t{tileWidth * cellOf(x, y, z)}) *
            near_.channel().size();
  }
}

}  // namespace Velmor::API
