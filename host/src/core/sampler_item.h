#pragma once

#include <array>
#include <cstdint>

#include "core/item.h"
#include "core/neighbourhood.h"

namespace Velmor::API {

/// One number per axis; the fourth means nothing.
using IntLanes = std::int32_t __attribute__((vector_size(16)));

/// What a `VoxelSampler` remembers between samples: where the values around the
/// leaf tile of the last sample are stored. Never the values themselves.
class SamplerItem final : public Item {
 public:
  static bool is(ItemKind kind) noexcept { return kind == ItemKind::VoxelSampler; }

  SamplerItem(VoxelChannelItem* channel, SamplerSpace space);

  DataType type() const noexcept { return type_; }
  LayoutItem const& layout() const noexcept { return *layout_; }
  SamplerSpace space() const noexcept { return space_; }

  /// Whether the current block, or one voxel around it, holds a voxel, given as
  /// counted from the first one of the block: who samples the corners of a
  /// tile's voxels, row by row, should stay.
  bool isNear(IntLanes at) const noexcept {
    auto const isAlong = [&at](int axis) { return static_cast<std::uint32_t>(at[axis] + 1) < 7u; };
    return stamp_ == layout_->stamp() && isAlong(0) && isAlong(1) && isAlong(2);
  }
  IntLanes origin() const noexcept { return origin_; }
  /// Makes the block of 5 x 5 x 5 voxels that holds a voxel the current one. It
  /// need not be a tile.
  void enter(TileCoord const& voxel) noexcept;

  /// Prepares the blocks of a set, one bit per block: the current one is 13,
  /// around it are its neighbours, x fastest. True if all of them are tiles.
  bool prepare(std::uint32_t blocks) noexcept {
    if ((blocks & ~tiles_) == 0) return true;
    if ((blocks & ~known_) != 0) find(blocks & ~known_);
    return (blocks & ~tiles_) == 0;
  }
  /// A cell that lies in a prepared block that is a tile. Cells of all blocks are
  /// counted on from those of the current one, which are 0 to 124.
  template <class T>
  T const* tileValues(std::size_t block, int cell) const noexcept {
    return address<T>(bases_[block] + offset<T>(cell));
  }
  /// The same for any prepared block.
  template <class T>
  T const* values(std::size_t block, int cell) const noexcept {
    return address<T>(bases_[block] + (offset<T>(cell) & masks_[block]));
  }

 private:
  template <class T>
  static std::uintptr_t offset(int cell) noexcept {
    return static_cast<std::uintptr_t>(std::intptr_t{cell}) * sizeof(T);
  }
  template <class T>
  static T const* address(std::uintptr_t value) noexcept {
    return reinterpret_cast<T const*>(value);  // NOLINT(performance-no-int-to-ptr)
  }
  void find(std::uint32_t blocks) noexcept;

  IntLanes origin_{};
  std::uint64_t stamp_ = ~std::uint64_t{0};
  LayoutItem const* layout_;
  std::uint32_t known_ = 0, tiles_ = 0;
  DataType type_;
  SamplerSpace space_;
  // Of a tile: where the current block's first cell would be if the tile's grid
  // reached that far. Of others: where their one value is.
  std::array<std::uintptr_t, 27> bases_{};
  std::array<std::uintptr_t, 27> masks_{};  // of offsets: none for a single value
  CellPosition cell_{};                     // of the block in its parent
  Neighbourhood near_;  // of the parent channel, which lives as long as the sampler has handles
};

}  // namespace Velmor::API
