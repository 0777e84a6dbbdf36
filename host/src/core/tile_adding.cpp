#include <algorithm>
#include <array>
#include <cstdint>

#include "core/layout_item.h"
#include "velmorapi/bulk.h"

namespace Velmor::API {

namespace {

/// Makes a voxel's tiles down to `last`, which lies above the leaves, and returns
/// the depth reached. `slots` is a chain down to `depth`, which it continues.
int addChain(LayoutItem& layout, std::int32_t* slots, int depth, TileCoord const& voxel,
             int last) noexcept {
  depth = layout.ascend(slots, depth, voxel);
  if (depth < 0) {
    slots[0] = layout.addRoot();
    if (slots[0] < 0) return -1;
    depth = 0;
  }
  for (; depth < last; ++depth) {
    auto const& origin = layout.branch(depth, slots[depth]).coord;
    slots[depth + 1] = layout.addChild(depth, slots[depth], layout.cellAt(depth, origin, voxel));
    if (slots[depth + 1] < 0) break;
  }
  return depth;
}

// Of a voxel of a tile right above the leaves, counted from the tile's first
// along one axis: the cell that holds it; beyond the tile a number that makes
// any sum one that no cell has.
constexpr auto cellsOfLeaves = [] {
  std::array<std::uint8_t, 32> table{};
  for (std::size_t v = 0; v < table.size(); ++v) {
    table[v] = static_cast<std::uint8_t>(v < tileWidth * tileWidth ? v / tileWidth : tileCells);
  }
  return table;
}();

/// The cells of as many voxels as follow one another in the tile right above the
/// leaves that starts at `origin`, 125 at most. Returns their number.
int leafCells(TileCoord const& origin, TileCoord const* voxels, std::size_t count,
              std::array<std::uint8_t, tileCells>& cells) noexcept {
  count = std::min<std::size_t>(count, tileCells);
  std::size_t n = 0;
  for (; n < count; ++n) {
    auto const along = [](std::int32_t v, std::int32_t first) {
      return static_cast<std::uint32_t>(v) - static_cast<std::uint32_t>(first);
    };
    auto const x = along(voxels[n].i, origin.i), y = along(voxels[n].j, origin.j),
               z = along(voxels[n].k, origin.k);
    if ((x | y | z) >= cellsOfLeaves.size()) break;
    int const cell = cellOf(cellsOfLeaves[x], cellsOfLeaves[y], cellsOfLeaves[z]);
    if (cell >= tileCells) break;
    cells[n] = static_cast<std::uint8_t>(cell);
  }
  return static_cast<int>(n);
}

}  // namespace

void addTiles(Layout const& handle, TileCoord const* voxels, std::size_t count, int depth) {
  auto* const layout = static_cast<LayoutItem*>(handle.item());
  if (layout == nullptr || depth < 0) return;
  int const lastBranch = std::min(depth, layout->leafDepth() - 1);
  std::array<std::int32_t, maxLeafDepth + 1> slots;
  int at = -1;
  auto const* const end = voxels + count;
  while (voxels != end) {
    if (!layout->inRoot(*voxels)) {
      ++voxels;
      continue;
    }
    at = addChain(*layout, slots.data(), at, *voxels, lastBranch);
    if (at < lastBranch || depth == lastBranch) {
      ++voxels;
      continue;
    }
    auto const slot = slots[static_cast<std::size_t>(at)];
    auto const origin = layout->branch(at, slot).coord;
    std::array<std::uint8_t, tileCells> cells;
    int const n = leafCells(origin, voxels, static_cast<std::size_t>(end - voxels), cells);
    voxels += n;
    layout->addLeaves(slot, cells.data(), n);
  }
}

}  // namespace Velmor::API
