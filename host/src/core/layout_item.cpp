#include "core/layout_item.h"

#include <algorithm>
#include <limits>
#include <new>

#include "core/dictionary_store.h"
#include "velmorhost/settings.h"

namespace Velmor::API {

namespace {

constexpr int firstShift(int depth) { return depth == 0 ? 0 : 4; }

template <std::size_t... D>
std::array<Host::Pool, sizeof...(D)> makePools(std::size_t stride, std::index_sequence<D...>) {
  return {Host::Pool(stride, firstShift(static_cast<int>(D)))...};
}

}  // namespace

LayoutItem::LayoutItem(std::string name, Item* server, float voxelScale)
    : Item(ItemKind::Layout, std::move(name), server),
      voxelScale_(voxelScale),
      records_(makePools(sizeof(TileRecord), std::make_index_sequence<maxLeafDepth + 1>())),
      branches_(makePools(sizeof(Branch), std::make_index_sequence<maxLeafDepth>())),
      dictionary_(std::make_shared<DictionaryStore>()) {
  auto const settings = Host::layoutSettings();
  leafDepth_ = settings.depth;
  reportedWidth_ = settings.reportedWidth;
  centred_ = settings.centred;
  extents_[at(leafDepth_ + 1)] = 1;
  for (int d = leafDepth_; d >= 0; --d) extents_[at(d)] = tileWidth * extents_[at(d + 1)];
  // Quotients by the cell's edge without a division: exact, as the dividends
  // are below 5^8 and the factors have 40 fractional bits.
  for (int d = 0; d <= leafDepth_; ++d) {
    cellFactors_[at(d)] =
        (std::uint64_t{1} << 40) / static_cast<std::uint64_t>(extents_[at(d + 1)]) + 1;
  }
  rootOrigin_ = centred_ ? -(extents_[0] >> 1) : 0;
}

TileCoord LayoutItem::coord(int depth, std::int32_t slot) const noexcept {
  if (depth < leafDepth_) return branch(depth, slot).coord;
  auto const& leaf = record(depth, slot);
  auto const origin = branch(depth - 1, leaf.parent).coord;
  auto const cell = cellPositions[static_cast<std::size_t>(leaf.cell)];
  return {origin.i + cell.x * tileWidth, origin.j + cell.y * tileWidth,
          origin.k + cell.z * tileWidth};
}

int LayoutItem::descend(std::int32_t* slots, int depth, TileCoord const& v,
                        int last) const noexcept {
  if (depth < 0) {
    if (!inRoot(v)) return -1;
    slots[0] = root();
    if (slots[0] < 0) return -1;
    depth = 0;
  }
  last = std::min(last, leafDepth_);
  while (depth < last) {
    auto const& parent = branch(depth, slots[depth]);
    auto const cell = cellAt(depth, parent.coord, v);
    auto const next = settled(parent.children[static_cast<std::size_t>(cell)]) - 1;
    if (next < 0) break;
    slots[++depth] = next;
  }
  return std::min(depth, last);
}

std::int32_t LayoutItem::addRoot() noexcept {
  auto const seen = root_.load(std::memory_order_acquire);
  return seen > 0 ? seen - 1 : addTile(root_, 0, {-1, 0});
}

std::int32_t LayoutItem::reserve(int depth, std::int32_t count) noexcept {
  auto& used = counts_[at(depth)];
  auto first = used.load(std::memory_order_relaxed);
  do {
    if (first >= std::numeric_limits<std::int32_t>::max() - count) return -1;
  } while (!used.compare_exchange_weak(first, first + count, std::memory_order_acq_rel));
  return first;
}

std::int32_t LayoutItem::addTile(std::atomic<std::int32_t>& entry, int depth,
                                 TileRecord record) noexcept {
  std::lock_guard const lock(lockOf(depth, record.parent));
  auto const seen = entry.load(std::memory_order_relaxed);
  if (seen > 0) return seen - 1;
  entry.store(-1, std::memory_order_relaxed);  // ahead of the count
  auto slot = reserve(depth, 1);
  try {
    if (slot >= 0) makeTile(depth, slot, record);
  } catch (std::bad_alloc const&) {
    slot = -1;  // stays unused
  }
  entry.store(slot + 1, std::memory_order_release);
  return slot;
}

void LayoutItem::addLeaves(std::int32_t slot, std::uint8_t const* cells, int count) noexcept {
  std::lock_guard const lock(lockOf(leafDepth_, slot));
  auto& children = branch(leafDepth_ - 1, slot).children;
  std::array<std::uint8_t, tileCells> missing;
  int n = 0;
  for (int c = 0; c < count; ++c) {
    auto& entry = children[cells[c]];
    if (entry.load(std::memory_order_relaxed) != 0) continue;
    entry.store(-1, std::memory_order_relaxed);  // ahead of the count
    missing[at(n++)] = cells[c];
  }
  if (n == 0) return;
  auto first = reserve(leafDepth_, n);
  try {
    if (first >= 0) makeLeaves(first, slot, missing.data(), n);
  } catch (std::bad_alloc const&) {
    first = -1;  // the slots stay unused
  }
  for (int m = 0; m < n; ++m) {
    children[missing[at(m)]].store(first >= 0 ? first + m + 1 : 0, std::memory_order_release);
  }
}

void LayoutItem::makeTile(int depth, std::int32_t slot, TileRecord record) {
  auto& records = records_[at(depth)];
  records.ensure(slot);
  *reinterpret_cast<TileRecord*>(records.at(slot)) = record;
  if (depth < leafDepth_) {
    auto& branches = branches_[at(depth)];
    branches.ensure(slot);
    auto coord = rootOrigin();
    if (depth > 0) {
      coord = branch(depth - 1, record.parent).coord;
      auto const cell = cellPositions[static_cast<std::size_t>(record.cell)];
      coord.i += cell.x * extent(depth);
      coord.j += cell.y * extent(depth);
      coord.k += cell.z * extent(depth);
    }
    reinterpret_cast<Branch*>(branches.at(slot))->coord = coord;
    branchCount_.fetch_add(1, std::memory_order_acq_rel);
  }
  makeValues(depth, slot, 1);
}

void LayoutItem::makeLeaves(std::int32_t first, std::int32_t parent, std::uint8_t const* cells,
                            int count) {
  auto& records = records_[at(leafDepth_)];
  for (int done = 0; done < count;) {
    records.ensure(first + done);
    auto* to = reinterpret_cast<TileRecord*>(records.at(first + done));
    int const end = done + std::min(count - done, records.run(first + done));
    for (; done < end; ++done) *to++ = {parent, cells[done]};
  }
  makeValues(leafDepth_, first, count);
}

void LayoutItem::makeValues(int depth, std::int32_t first, int count) {
  if (!hasValues_.load(std::memory_order_acquire)) return;
  std::shared_lock const lock(valuesMutex_);
  for (auto* const values : values_) {
    for (auto slot = first; slot < first + count; ++slot) {
      values->addTile(depth, slot, record(depth, slot));
    }
  }
}

LayoutItem::DepthTiles LayoutItem::tiles(int depth) const {
  std::lock_guard const lock(orderMutex_);
  return orderedTiles(depth);
}

LayoutItem::DepthTiles LayoutItem::orderedTiles(int depth) const {
  if (depth == 0) return {root() >= 0 ? 1 : 0, nullptr};
  auto const slots = count(depth);
  auto& cache = orders_[at(depth)];
  if (cache.count == slots) return cache;

  auto const parents = orderedTiles(depth - 1);
  auto order = std::make_shared<std::vector<std::int32_t>>();
  order->reserve(static_cast<std::size_t>(slots));
  bool slotsInOrder = true;
  for (std::int32_t p = 0; p < parents.count; ++p) {
    for (auto const& entry : branch(depth - 1, parents.slot(p)).children) {
      auto const slot = entry.load(std::memory_order_acquire) - 1;
      if (slot < 0 || slot >= slots) continue;
      slotsInOrder = slotsInOrder && slot == static_cast<std::int32_t>(order->size());
      order->push_back(slot);
    }
  }
  DepthTiles const result{static_cast<std::int32_t>(order->size()),
                          slotsInOrder ? nullptr : std::move(order)};
  // Fewer when another thread is adding tiles just now: good for this caller only.
  if (result.count == slots) cache = result;
  return result;
}

void LayoutItem::attach(VoxelValues* values) {
  std::unique_lock const lock(valuesMutex_);
  values_.push_back(values);
  hasValues_.store(true, std::memory_order_release);
}

void LayoutItem::detach(VoxelValues* values) {
  std::unique_lock const lock(valuesMutex_);
  std::erase(values_, values);
  hasValues_.store(!values_.empty(), std::memory_order_release);
}

std::uint64_t LayoutItem::leafKey(TileCoord const& v) const noexcept {
  auto const index = [this](std::int32_t a) { return difference(a, rootOrigin_) / tileWidth; };
  auto x = index(v.i), y = index(v.j), z = index(v.k);
  std::uint64_t key = 0;
  for (int level = 0; level < leafDepth_; ++level) {
    auto const cell = x % tileWidth + tileWidth * (y % tileWidth + tileWidth * (z % tileWidth));
    key |= std::uint64_t{cell} << (7 * level);  // 7 bits hold a cell
    x /= tileWidth;
    y /= tileWidth;
    z /= tileWidth;
  }
  return key;
}

std::size_t LayoutItem::memoryUse() const {
  std::size_t bytes = sizeof(*this);
  for (int d = 0; d <= leafDepth_; ++d) {
    auto const tiles = static_cast<std::size_t>(count(d));
    bytes += tiles * (sizeof(TileRecord) + (d < leafDepth_ ? sizeof(Branch) : 0));
  }
  std::lock_guard const lock(orderMutex_);
  for (auto const& cache : orders_) {
    if (cache.order) bytes += cache.order->capacity() * sizeof(std::int32_t);
  }
  return bytes;
}

}  // namespace Velmor::API
