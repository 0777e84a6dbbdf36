#include <algorithm>
#include <array>

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
    auto const extent = layout->extent(at);
    std::array<std::uint8_t, tileCells> cells;
    int n = 0;
    for (; n < tileCells && voxels != end && LayoutItem::inside(*voxels, origin, extent);
         ++voxels, ++n) {
      cells[static_cast<std::size_t>(n)] =
          static_cast<std::uint8_t>(layout->cellAt(at, origin, *voxels));
    }
    layout->addLeaves(slot, cells.data(), n);
  }
}

}  // namespace Velmor::API
