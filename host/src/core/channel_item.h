#pragma once

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <vector>

#include "core/item.h"
#include "core/layout_item.h"
#include "core/pool.h"
#include "velmorapi/types.h"
#include "velmorhost/scene.h"

namespace Velmor::API {

/// Which points lie in which leaf tile: those of slot s are [starts[s], starts[s + 1]).
struct PointRanges {
  std::vector<std::size_t> starts{0};
  std::size_t count() const noexcept { return starts.back(); }
};

class ComponentItem;

/// What voxel and point channels share.
class ChannelItem : public Item {
 public:
  static bool is(ItemKind kind) noexcept {
    return kind == ItemKind::VoxelChannel || kind == ItemKind::PointChannel;
  }

  StateID stateID() const override { return parent()->stateID(); }
  std::shared_ptr<DictionaryStore> dictionary() const override { return dictionary_; }

  DataType type() const noexcept { return type_; }
  std::size_t size() const noexcept { return size_; }
  LayoutItem& layout() const noexcept { return *layout_; }
  ComponentItem& component() const noexcept;
  std::string partialPath() const;
  std::string fullPath() const;
  /// Grows with each channel made in a process: the newest has the largest.
  std::uint64_t serial() const noexcept { return serial_; }

  /// A value of the channel's type; its address stays the same.
  std::byte* background() noexcept { return background_.data(); }
  std::byte const* background() const noexcept { return background_.data(); }
  /// Also rewrites the stored values that are bit-equal to the old one.
  void setBackground(std::byte const* value);

  Host::FieldClass fieldClass() const noexcept { return fieldClass_.load(); }
  void setFieldClass(Host::FieldClass fieldClass) noexcept { fieldClass_.store(fieldClass); }

  virtual std::size_t memoryUse() const = 0;

 protected:
  ChannelItem(ItemKind kind, std::string name, Item* component, Owned<LayoutItem> layout,
              DataType type);
  virtual void replaceValues(std::byte const* from, std::byte const* to) = 0;

 private:
  Owned<LayoutItem> layout_;
  DataType type_;
  std::size_t size_;
  alignas(8) std::array<std::byte, 12> background_{};
  std::atomic<Host::FieldClass> fieldClass_{Host::FieldClass::Unknown};
  std::uint64_t serial_;
  std::shared_ptr<DictionaryStore> dictionary_;
};

/// A value per cell of every tile of a layout.
class VoxelChannelItem final : public ChannelItem, private VoxelValues {
 public:
  static bool is(ItemKind kind) noexcept { return kind == ItemKind::VoxelChannel; }

  VoxelChannelItem(std::string name, Item* component, Owned<LayoutItem> layout, DataType type);
  ~VoxelChannelItem() override;

  /// The values of an existing tile.
  std::byte* values(int depth, std::int32_t slot) const noexcept {
    return pools_[static_cast<std::size_t>(depth)].at(slot);
  }
  template <class T>
  T* values(int depth, std::int32_t slot) const noexcept {
    return reinterpret_cast<T*>(values(depth, slot));
  }

  Host::Pool const& pool(int depth) const noexcept {
    return pools_[static_cast<std::size_t>(depth)];
  }

  /// The mask that was given to an existing tile; false if none was.
  bool storedMask(TreeIndex const& index, Host::CellMask& mask) const noexcept;
  void storeMask(TreeIndex const& index, Host::CellMask const& mask);

  std::size_t memoryUse() const override;

 private:
  using Pools = std::array<Host::Pool, maxLeafDepth + 1>;

  void addTile(int depth, std::int32_t slot, TileRecord const& record) override;
  void replaceValues(std::byte const* from, std::byte const* to) override;

  Pools pools_;
  std::atomic<Pools*> masks_{nullptr};  // made by the first mask
};

/// A value per point of a point component.
class PointChannelItem final : public ChannelItem {
 public:
  static bool is(ItemKind kind) noexcept { return kind == ItemKind::PointChannel; }

  PointChannelItem(std::string name, Item* component, Owned<LayoutItem> layout, DataType type,
                   std::shared_ptr<PointRanges const> ranges);

  PointRanges const& ranges() const noexcept { return *ranges_; }
  std::byte* values() noexcept { return values_.data(); }
  std::size_t memoryUse() const override { return sizeof(*this) + values_.capacity(); }

 private:
  void replaceValues(std::byte const* from, std::byte const* to) override;

  std::shared_ptr<PointRanges const> ranges_;
  std::vector<std::byte> values_;
};

/// Calls `function(T*)` with a null pointer of the type that a channel type names.
template <class Function>
void withType(DataType type, Function const& function) {
  using namespace orlen::Math;
  switch (type) {
    case DataType::Float:
      return function(static_cast<float*>(nullptr));
    case DataType::Float2:
      return function(static_cast<vec<2, float>*>(nullptr));
    case DataType::Float3:
      return function(static_cast<vec<3, float>*>(nullptr));
    case DataType::Int:
      return function(static_cast<int*>(nullptr));
    case DataType::Int2:
      return function(static_cast<vec<2, int>*>(nullptr));
    case DataType::Int3:
      return function(static_cast<vec<3, int>*>(nullptr));
    case DataType::None:
      return;
  }
}

/// Calls `function(T*)` with a null pointer of an unsigned type of the size of
/// a channel type's values: for work on bits alone.
struct Bits4 {
  std::uint32_t a;
  bool operator==(Bits4 const&) const = default;
};
struct Bits8 {
  std::uint32_t a, b;
  bool operator==(Bits8 const&) const = default;
};
struct Bits12 {
  std::uint32_t a, b, c;
  bool operator==(Bits12 const&) const = default;
};
template <class Function>
void withBits(std::size_t size, Function const& function) {
  if (size == 4) return function(static_cast<Bits4*>(nullptr));
  if (size == 8) return function(static_cast<Bits8*>(nullptr));
  if (size == 12) return function(static_cast<Bits12*>(nullptr));
}

}  // namespace Velmor::API
