#include "core/channel_item.h"

#include <algorithm>

#include "core/dictionary_store.h"
#include "core/server_item.h"

namespace Velmor::API {

namespace {

template <std::size_t... D>
std::array<Host::Pool, sizeof...(D)> makePools(std::size_t stride, std::index_sequence<D...>) {
  return {Host::Pool(stride, D == 0 ? 0 : 4)...};
}

std::array<Host::Pool, maxLeafDepth + 1> makePools(std::size_t stride) {
  return makePools(stride, std::make_index_sequence<maxLeafDepth + 1>());
}

std::atomic<std::uint64_t> nextSerial{1};

template <class Bits>
void replaceBits(std::byte* values, std::size_t count, std::byte const* from, std::byte const* to) {
  Bits old, now;
  std::memcpy(&old, from, sizeof old);
  std::memcpy(&now, to, sizeof now);
  auto* const begin = reinterpret_cast<Bits*>(values);
  for (auto* value = begin; value != begin + count; ++value) {
    if (*value == old) *value = now;
  }
}

constexpr int storedBit = 127;  // a cell mask leaves it free

}  // namespace

ChannelItem::ChannelItem(ItemKind kind, std::string name, Item* component, Owned<LayoutItem> layout,
                         DataType type)
    : Item(kind, std::move(name), component),
      layout_(std::move(layout)),
      type_(type),
      size_(valueSize(type)),
      serial_(nextSerial.fetch_add(1)),
      dictionary_(std::make_shared<DictionaryStore>()) {}

ComponentItem& ChannelItem::component() const noexcept {
  return *static_cast<ComponentItem*>(parent());
}

std::string ChannelItem::partialPath() const { return component().name() + '/' + name(); }

std::string ChannelItem::fullPath() const {
  auto const* const object = component().object();
  return object != nullptr ? object->name() + '/' + partialPath() : partialPath();
}

void ChannelItem::setBackground(std::byte const* value) {
  auto const old = background_;
  // A new channel's values may never have been touched: leave them so.
  if (std::memcmp(old.data(), value, size_) == 0) return;
  std::memcpy(background_.data(), value, size_);
  replaceValues(old.data(), value);
}

VoxelChannelItem::VoxelChannelItem(std::string name, Item* component, Owned<LayoutItem> layout,
                                   DataType type)
    : ChannelItem(ItemKind::VoxelChannel, std::move(name), component, std::move(layout), type),
      pools_(makePools(tileCells * valueSize(type))) {
  auto& tree = this->layout();
  // Pools are zero from the start, which is the value of existing tiles.
  for (int d = 0; d <= tree.leafDepth(); ++d) {
    for (std::int32_t slot = 0; slot < tree.count(d); ++slot) {
      pools_[static_cast<std::size_t>(d)].ensure(slot);
      slot += pools_[static_cast<std::size_t>(d)].run(slot) - 1;
    }
  }
  tree.attach(this);
}

VoxelChannelItem::~VoxelChannelItem() {
  layout().detach(this);
  delete masks_.load();
}

void VoxelChannelItem::addTile(int depth, std::int32_t slot, TileRecord const& record) {
  auto& pool = pools_[static_cast<std::size_t>(depth)];
  pool.ensure(slot);
  auto const* const from = depth == 0 ? background()
                                      : values(depth - 1, record.parent) +
                                            static_cast<std::size_t>(record.cell) * size();
  withBits(size(), [&]<class Bits>(Bits*) {
    Bits value;
    std::memcpy(&value, from, sizeof value);
    std::fill_n(reinterpret_cast<Bits*>(pool.at(slot)), tileCells, value);
  });
}

void VoxelChannelItem::replaceValues(std::byte const* from, std::byte const* to) {
  auto const& tree = layout();
  for (int d = 0; d <= tree.leafDepth(); ++d) {
    auto const& pool = pools_[static_cast<std::size_t>(d)];
    auto const count = tree.count(d);
    for (std::int32_t slot = 0; slot < count;) {
      auto const run = std::min(pool.run(slot), count - slot);
      if (pool.has(slot)) {
        withBits(size(), [&]<class Bits>(Bits*) {
          replaceBits<Bits>(pool.at(slot), static_cast<std::size_t>(run) * tileCells, from, to);
        });
      }
      slot += run;
    }
  }
}

bool VoxelChannelItem::storedMask(TreeIndex const& index, Host::CellMask& mask) const noexcept {
  auto* const masks = masks_.load(std::memory_order_acquire);
  if (masks == nullptr) return false;
  auto const& pool = (*masks)[static_cast<std::size_t>(index.depth)];
  if (!pool.has(index.slot)) return false;
  Host::CellMask stored;
  std::memcpy(&stored, pool.at(index.slot), sizeof stored);
  if (!stored.test(storedBit)) return false;
  stored.words[1] &= (std::uint64_t{1} << (tileCells - 64)) - 1;
  mask = stored;
  return true;
}

void VoxelChannelItem::storeMask(TreeIndex const& index, Host::CellMask const& mask) {
  auto* masks = masks_.load(std::memory_order_acquire);
  if (masks == nullptr) {
    auto made = std::unique_ptr<Pools>(new Pools(makePools(sizeof(Host::CellMask))));
    if (masks_.compare_exchange_strong(masks, made.get(), std::memory_order_acq_rel)) {
      masks = made.release();
    }
  }
  auto& pool = (*masks)[static_cast<std::size_t>(index.depth)];
  pool.ensure(index.slot);
  auto stored = mask;
  stored.set(storedBit);
  std::memcpy(pool.at(index.slot), &stored, sizeof stored);
}

std::size_t VoxelChannelItem::memoryUse() const {
  auto const* const masks = masks_.load(std::memory_order_acquire);
  std::size_t bytes = sizeof(*this);
  for (int d = 0; d <= layout().leafDepth(); ++d) {
    auto const tiles = static_cast<std::size_t>(layout().count(d));
    auto const& pool = pools_[static_cast<std::size_t>(d)];
    bytes += tiles * pool.stride();
    if (masks != nullptr && (*masks)[static_cast<std::size_t>(d)].has(0)) {
      bytes += tiles * sizeof(Host::CellMask);
    }
  }
  return bytes;
}

PointChannelItem::PointChannelItem(std::string name, Item* component, Owned<LayoutItem> layout,
                                   DataType type, std::shared_ptr<PointRanges const> ranges)
    : ChannelItem(ItemKind::PointChannel, std::move(name), component, std::move(layout), type),
      ranges_(std::move(ranges)),
      values_(ranges_->count() * valueSize(type)) {}

void PointChannelItem::replaceValues(std::byte const* from, std::byte const* to) {
  withBits(size(), [&]<class Bits>(Bits*) {
    replaceBits<Bits>(values_.data(), ranges_->count(), from, to);
  });
}

}  // namespace Velmor::API
