#include "velmorapi/layout.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "core/layout_item.h"

namespace Velmor::API {

namespace {

// Of a voxel of a tile two depths above the leaves, counted from the tile's
// first along one axis: the cell that holds it (upper half), and the cell of the
// tile in that cell (lower half).
constexpr auto cellsDown = [] {
  std::array<std::uint32_t, std::size_t{tileWidth} * tileWidth * tileWidth> table{};
  for (std::uint32_t v = 0; v < table.size(); ++v) {
    table[v] = v / (tileWidth * tileWidth) << 16 | v / tileWidth % tileWidth;
  }
  return table;
}();

LayoutItem* layoutOf(Ref const& ref) { return static_cast<LayoutItem*>(ref.item()); }

// Slots of a chain that no depth needs keep where two tiles stand in memory,
// which is for good: the one that the chain ends in, and the parent of leaves
// whose entry in its child table was met last.
constexpr int lastAt = maxLeafDepth + 2, leafParentAt = lastAt + 2, leafEntryAt = leafParentAt + 2;

template <class Chain>
Branch const& branchAt(Chain const& known, int slot) noexcept {
  Branch const* branch;
  std::memcpy(&branch, known.slots + slot, sizeof branch);
  return *branch;
}

template <class Chain>
void keepBranch(Chain& known, int slot, Branch const& branch) noexcept {
  static_assert(sizeof known.slots > leafEntryAt * sizeof *known.slots);
  auto const* const address = &branch;
  std::memcpy(known.slots + slot, &address, sizeof address);
}

template <class Chain>
void endChain(LayoutItem const& layout, Chain& known, int depth) noexcept {
  auto const& branch = layout.branch(depth, known.slots[depth]);
  known.depth = depth;
  known.extent = static_cast<std::uint32_t>(layout.extent(depth));
  known.origin = branch.coord;
  keepBranch(known, lastAt, branch);
}

// Goes down from the tile of a chain that holds a voxel, -1 for the root that
// may, and leaves a chain behind that the next look-ups go on from.
template <class Chain>
TreeIndex searchFrom(LayoutItem const& layout, Chain& known, int from, TileCoord const& voxel,
                     int depth) {
  int const found = layout.descend(known.slots, from, voxel, depth);
  if (found < 0) return {};
  // The chain ends two depths above the leaves, or where `addTile` has led it:
  // neighbours share all of it then.
  int const last = std::min(found, std::max({from, layout.leafDepth() - 2, 0}));
  if (last != from || from != known.depth) endChain(layout, known, last);
  return {known.slots[found], found};
}

// Where the tile at the chain's end holds the voxel, but its depth is not all
// that was asked for.
template <class Chain>
[[gnu::noinline]] TreeIndex searchInside(LayoutItem const* layout, Chain& known,
                                         TileCoord const& voxel, int depth) {
  int const last = known.depth;
  auto const cell = static_cast<std::size_t>(layout->cellAt(last, known.origin, voxel));
  if (branchAt(known, lastAt).children[cell].load(std::memory_order_acquire) == 0) {
    return {known.slots[last], last};
  }
  return searchFrom(*layout, known, last, voxel, depth);
}

// Where it does not hold the voxel, or lies deeper.
template <class Chain>
[[gnu::noinline]] TreeIndex searchOutside(LayoutItem const* layout, Chain& known,
                                          TileCoord const& voxel, int depth) {
  if (layout == nullptr || depth < 0) return {};
  int const from = known.depth >= 0 && known.holds(voxel)
                       ? known.depth
                       : layout->ascend(known.slots, known.depth - 1, voxel);
  if (from > depth) return {known.slots[depth], depth};
  return searchFrom(*layout, known, from, voxel, depth);
}

Tile makeTile(LayoutItem* layout, TreeIndex const& index) {
  return {layout, index, layout->coord(index.depth, index.slot), layout->info(index.depth)};
}

}  // namespace

Tile Tile::child(int x, int y, int z) const {
  auto* const layout = static_cast<LayoutItem*>(layout_);
  auto const inTile = [](int a) { return a >= 0 && a < tileWidth; };
  if (layout == nullptr || index_.depth >= layout->leafDepth() || !inTile(x) || !inTile(y) ||
      !inTile(z)) {
    return {};
  }
  auto const slot = layout->child(index_.depth, index_.slot, cellOf(x, y, z));
  return slot >= 0 ? makeTile(layout, {slot, index_.depth + 1}) : Tile();
}

TileAccessor::TileAccessor(Ref const& layout) noexcept : layout_(refAs<LayoutItem>(layout)) {}

Tile TileAccessor::tile(int i, int j, int k, int depth) const {
  auto const found = index(TileCoord{i, j, k}, depth);
  return found.valid() ? makeTile(layoutOf(layout_), found) : Tile();
}

Tile TileAccessor::tile(TreeIndex const& index) const {
  auto* const layout = layoutOf(layout_);
  return layout != nullptr && layout->exists(index) ? makeTile(layout, index) : Tile();
}

TreeIndex TileAccessor::index(TileCoord const& voxel, int depth) const {
  auto const* const layout = layoutOf(layout_);
  int const last = known_.depth;
  if (depth <= last || !known_.holds(voxel)) return searchOutside(layout, known_, voxel, depth);
  if (known_.extent != tileWidth * tileWidth * tileWidth || depth == last + 1) {
    return searchInside(layout, known_, voxel, depth);
  }
  // Rays ask voxel by voxel: two depths at once.
  auto const along = [](std::int32_t a, std::int32_t b) {
    return cellsDown[static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b)];
  };
  auto const cells =
      along(voxel.i, known_.origin.i) +
      tileWidth * (along(voxel.j, known_.origin.j) + tileWidth * along(voxel.k, known_.origin.k));
  auto const parent =
      branchAt(known_, lastAt).children[cells >> 16].load(std::memory_order_acquire);
  if (parent == 0) return {known_.slots[last], last};
  if (parent > 0) {
    if (parent != known_.slots[leafEntryAt]) {
      known_.slots[leafEntryAt] = parent;
      keepBranch(known_, leafParentAt, layout->branch(last + 1, parent - 1));
    }
    auto const leaf =
        branchAt(known_, leafParentAt).children[cells & 0xffff].load(std::memory_order_acquire);
    if (leaf > 0) return {leaf - 1, last + 2};
    if (leaf == 0) return {parent - 1, last + 1};
  }
  return searchInside(layout, known_, voxel, depth);
}

TreeIndex TileAccessor::addTileSlow(TileCoord const& voxel, int depth) const {
  auto* const layout = layoutOf(layout_);
  if (layout == nullptr || depth < 0 || depth > layout->leafDepth() || !layout->inRoot(voxel)) {
    return {};
  }
  int at = known_.depth;
  auto origin = known_.origin;
  if (at < 0 || !known_.holds(voxel)) {
    at = layout->ascend(known_.slots, at, voxel);
    if (at < 0) {
      auto const root = layout->addRoot();
      if (root < 0) return {};
      known_.slots[0] = root;
      at = 0;
    }
    origin = layout->branch(at, known_.slots[at]).coord;
  }
  // The chain ends above the leaves: neighbours share all of it then.
  int const last = std::min(depth, layout->leafDepth() - 1);
  while (at < last) {
    auto const slot = layout->addChild(at, known_.slots[at], layout->cellAt(at, origin, voxel));
    if (slot < 0) break;
    known_.slots[++at] = slot;
    origin = layout->branch(at, slot).coord;
  }
  if (at != known_.depth || origin != known_.origin) endChain(*layout, known_, at);
  if (at < last) return {};
  if (depth <= at) return {known_.slots[depth], depth};
  auto const leaf = layout->addChild(at, known_.slots[at], layout->cellAt(at, origin, voxel));
  return leaf >= 0 ? TreeIndex{leaf, depth} : TreeIndex();
}

Layout::Layout(Ref const& ref) noexcept : StateServerItem(refAs<LayoutItem>(ref)) {}

float Layout::voxelScale() const { return valid() ? layoutOf(*this)->voxelScale() : 1.f; }

void Layout::setVoxelScale(float scale) const {
  if (valid()) layoutOf(*this)->setVoxelScale(scale);
}

int Layout::maxDepth() const { return valid() ? layoutOf(*this)->leafDepth() : 0; }

TileDimInfo Layout::tileDimInfo(int depth) const {
  if (!valid() || depth < 0 || depth > layoutOf(*this)->leafDepth()) return {};
  return layoutOf(*this)->info(depth);
}

TileAccessor Layout::tileAccessor() const { return TileAccessor(*this); }

TileIterator Layout::tileIterator(int minDepth, int maxDepth, TraversalMode) const {
  if (!valid()) return {};
  auto const* const layout = layoutOf(*this);
  Array<TreeIndex> indices;
  for (int d = std::max(minDepth, 0); d <= std::min(maxDepth, layout->leafDepth()); ++d) {
    auto const tiles = layout->tiles(d);
    indices.reserve(indices.count() + static_cast<std::size_t>(tiles.count));
    for (std::int32_t t = 0; t < tiles.count; ++t) indices.add({tiles.slot(t), d});
  }
  return {*this, std::move(indices)};
}

}  // namespace Velmor::API
