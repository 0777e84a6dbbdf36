#include "core/layout_item.h"

#include <algorithm>
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

std::int32_t LayoutItem::addTile(std::atomic<std::int32_t>& entry, int depth,
                                 TileRecord record) noexcept {
  std::int32_t seen = 0;
  while (!entry.compare_exchange_weak(seen, -1, std::memory_order_acq_rel)) {
    if (seen > 0) return seen - 1;
    if (seen < 0) std::this_thread::yield();
    seen = 0;
  }
  auto slot = count(depth);
  do {
    if (slot == std::numeric_limits<std::int32_t>::max() - 1) {
      entry.store(0, std::memory_order_release);
      return -1;
    }
  } while (!counts_[at(depth)].compare_exchange_weak(slot, slot + 1, std::memory_order_acq_rel));
  try {
    makeTile(depth, slot, record);
  } catch (std::bad_alloc const&) {
    entry.store(0, std::memory_order_release);  // the slot stays unused
    return -1;
  }
  entry.store(slot + 1, std::memory_order_release);
  return slot;
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
  if (hasValues_.load(std::memory_order_acquire)) {
    std::shared_lock const lock(valuesMutex_);
    for (auto* const values : values_) values->addTile(depth, slot, record);
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
