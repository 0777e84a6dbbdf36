#pragma once

#include <array>
#include <cstdint>

#include "core/channel_item.h"

namespace Velmor::API {

/// Where the values of a block of 5 x 5 x 5 cells are: the 125 of a tile, or a
/// single one that stands for all (a coarser cell's, or the background).
struct CellSource {
  std::byte const* data;
  std::uint32_t mask;  // of cell numbers: all bits, or none for a single value
};

/// Of a cell from one tile before a place to one behind it (0 to 14): which of
/// the three tiles holds it, and its number there.
struct CellAlong {
  std::int8_t tile, cell;
};
inline constexpr auto cellsAlong = [] {
  std::array<CellAlong, std::size_t{3} * tileWidth> table{};
  for (std::size_t c = 0; c < table.size(); ++c) {
    table[c] = {static_cast<std::int8_t>(c / tileWidth), static_cast<std::int8_t>(c % tileWidth)};
  }
  return table;
}();

/// Finds the tiles around a place from their parents, of which it remembers 27:
/// going from tile to tile in tree order then costs a look into a child table
/// each. It holds addresses, never values, so values may change at any time.
/// Serves one thread.
class Neighbourhood {
 public:
  /// `channel` must outlive the neighbourhood.
  explicit Neighbourhood(VoxelChannelItem const& channel) noexcept : channel_(&channel) {}

  VoxelChannelItem const& channel() const noexcept { return *channel_; }

  /// Moves to the place of a tile of `depth` that starts at `origin`, whether
  /// there is such a tile or not, even outside the root. False if it is there
  /// already, and no tile was added since: what was found before still holds.
  bool centre(int depth, TileCoord const& origin) noexcept {
    auto const now = channel_->layout().stamp();
    if (depth == depth_ && origin == origin_ && now == stamp_) return false;
    depth_ = depth;
    origin_ = origin;
    stamp_ = now;
    known_ = 0;
    childPool_ = &channel_->pool(depth + 1);
    return true;
  }

  /// What holds the cells of the child in cell (x, y, z) of the place, each
  /// from -5 to 9: beside it are its neighbours' children.
  CellSource source(int x, int y, int z) noexcept {
    auto const ax = along(x), ay = along(y), az = along(z);
    int const tile = ax.tile + 3 * (ay.tile + 3 * az.tile);
    if ((known_ >> tile & 1u) == 0) find(tile);
    return source(tile, cellOf(ax.cell, ay.cell, az.cell));
  }
  /// The same for the seven children along x, from -1 to 5.
  void row(int y, int z, CellSource* to) noexcept;

 private:
  struct Parent {
    Branch const* branch;     // an empty one if there is no tile of that depth
    std::byte const* values;  // of the tile, or of the one coarser cell there
    std::size_t step;         // from one cell's value to the next one's
  };
  static constexpr std::size_t index(int i) noexcept { return static_cast<std::size_t>(i); }
  static constexpr CellAlong along(int cell) noexcept {
    return cellsAlong[index(cell + tileWidth)];
  }

  /// Of a known parent.
  CellSource source(int tile, int cell) const noexcept {
    auto const& parent = parents_[index(tile)];
    auto const child = LayoutItem::settled(parent.branch->children[index(cell)]) - 1;
    if (child >= 0) return {childPool_->at(child), ~std::uint32_t{0}};
    return {parent.values + index(cell) * parent.step, 0};
  }
  void find(int tile) noexcept;

  VoxelChannelItem const* channel_;
  int depth_ = -1;
  TileCoord origin_;
  std::uint64_t stamp_ = 0;
  std::uint32_t known_ = 0;  // a bit per parent
  std::array<Parent, 27> parents_{};
  Host::Pool const* childPool_ = nullptr;
  // The last path through the tree.
  std::array<std::int32_t, maxLeafDepth + 1> slots_{};
  int pathDepth_ = -1;
};

}  // namespace Velmor::API
