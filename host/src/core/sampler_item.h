#pragma once

#include <array>
#include <cstdint>

#include "core/item.h"
#include "core/neighbourhood.h"

namespace Velmor::API {

/// What a `VoxelSampler` remembers between samples: where the values around the
/// leaf tile of the last sample are stored. Never the values themselves.
class SamplerItem final : public Item {
 public:
  static bool is(ItemKind kind) noexcept { return kind == ItemKind::VoxelSampler; }

  SamplerItem(VoxelChannelItem* channel, SamplerSpace space);

  VoxelChannelItem const& channel() const noexcept { return near_.channel(); }
  LayoutItem const& layout() const noexcept { return near_.channel().layout(); }
  SamplerSpace space() const noexcept { return space_; }

  /// Moves to the block of 5 x 5 x 5 voxels that holds a voxel, unless the
  /// sampler is there already or right beside it: who samples the corners of a
  /// tile's voxels, row by row, should stay. The block need not be a tile.
  void moveTo(TileCoord const& voxel) noexcept {
    TileCoord const low{origin_.i - 1, origin_.j - 1, origin_.k - 1};
    if (stamp_ != layout().stamp() || !LayoutItem::inside(voxel, low, tileWidth + 2)) {
      enter(voxel);
    }
  }
  /// The first voxel of the current block.
  TileCoord const& origin() const noexcept { return origin_; }

  /// Prepares the blocks of a set, one bit per block: the current one is 13,
  /// around it are its neighbours, x fastest. True if all of them are tiles.
  bool prepare(std::uint32_t blocks) noexcept {
    if ((blocks & ~known_) != 0) find(blocks & ~known_);
    return (blocks & ~tiles_) == 0;
  }
  /// The values of a prepared block: 125 of a tile, or one.
  std::byte const* values(int block) const noexcept {
    return values_[static_cast<std::size_t>(block)];
  }
  template <class T>
  T const* values(int block) const noexcept {
    return reinterpret_cast<T const*>(values(block));
  }
  bool isTile(int block) const noexcept { return ((tiles_ >> block) & 1u) != 0; }

 private:
  void enter(TileCoord const& voxel) noexcept;
  void find(std::uint32_t blocks) noexcept;

  TileCoord origin_;
  std::uint64_t stamp_ = ~std::uint64_t{0};
  std::uint32_t known_ = 0, tiles_ = 0;
  std::array<std::byte const*, 27> values_{};
  CellPosition cell_{};  // of the block in its parent
  SamplerSpace space_;
  Neighbourhood near_;  // of the parent channel, which lives as long as the sampler has handles
};

}  // namespace Velmor::API
