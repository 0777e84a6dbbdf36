#pragma once

#include <array>
#include <cstdint>

#include "core/channel_item.h"
#include "core/item.h"

namespace Velmor::API {

/// What a `VoxelSampler` remembers between samples: where the values around the
/// leaf tile of the last sample are stored. Never the values themselves.
class SamplerItem final : public Item {
 public:
  static bool is(ItemKind kind) noexcept { return kind == ItemKind::VoxelSampler; }

  SamplerItem(VoxelChannelItem* channel, SamplerSpace space);

  VoxelChannelItem const& channel() const noexcept { return channel_; }
  SamplerSpace space() const noexcept { return space_; }

  /// Where the values of a block of 5 x 5 x 5 voxels are: a leaf tile, or one
  /// value that stands for all (a coarser cell, or the background).
  struct Block {
    std::byte const* data;
    std::uint32_t mask;  // of cell numbers: all bits, or none for a single value
  };

  /// Moves to the block that holds a voxel, unless the sampler is there already.
  void moveTo(TileCoord const& voxel) noexcept {
    if (stamp_ != channel_.layout().stamp() || !LayoutItem::inside(voxel, origin_, tileWidth)) {
      enter(voxel);
    }
  }
  /// The first voxel of the current block.
  TileCoord const& origin() const noexcept { return origin_; }
  /// The current block (13) or one of its 26 neighbours, x fastest.
  Block const& block(int neighbour) noexcept {
    auto const n = static_cast<std::size_t>(neighbour);
    if (blocks_[n].data == nullptr) find(neighbour);
    return blocks_[n];
  }

 private:
  void enter(TileCoord const& voxel) noexcept;
  void find(int neighbour) noexcept;

  VoxelChannelItem& channel_;  // the parent: lives as long as the sampler has handles
  SamplerSpace space_;
  TileCoord origin_;
  std::uint64_t stamp_ = ~std::uint64_t{0};
  std::array<Block, 27> blocks_{};
  std::array<std::int32_t, maxLeafDepth + 1> slots_{};
  int depth_ = -1;
};

}  // namespace Velmor::API
