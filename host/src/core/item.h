#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "velmorapi/dictionary.h"
#include "velmorapi/ref.h"

namespace Velmor::API {

/// The kinds of items, so that a handle tells its own without a dynamic cast.
enum class ItemKind : std::uint8_t {
  StateServer,
  Object,
  VoxelComponent,
  PointComponent,
  VoxelChannel,
  PointChannel,
  Layout,
  VoxelSampler,
  Query,
  Resource,
  CacheResource,
  CacheResourceImporter,
  ActiveGraph,
};

/// The base of everything behind a handle. Two counts decide its life: handles
/// (`Ref`) and owners (`Owned`, such as a component's list of its channels). It
/// dies when both are gone. As long as it has handles it holds a handle to its
/// parent, so that a handle to a channel keeps the component and the state
/// alive; owners do not, so that parents may own their children without a cycle.
class Item {
 public:
  /// `parent` may be null, and must own or outlive the item while the item has no handles.
  Item(ItemKind kind, std::string name, Item* parent = nullptr)
      : name_(std::move(name)), parent_(parent), kind_(kind) {}
  Item(Item const&) = delete;
  Item& operator=(Item const&) = delete;
  virtual ~Item();

  ItemKind kind() const noexcept { return kind_; }
  std::string const& name() const noexcept { return name_; }
  Item* parent() const noexcept { return parent_; }

  /// The state that the item belongs to; 0 for items outside states.
  virtual StateID stateID() const;
  /// The item's key-value store; null where it has none.
  virtual std::shared_ptr<DictionaryStore> dictionary() const;

  void addHandle() noexcept;
  void dropHandle() noexcept;
  /// Adds a handle unless there is none left, which means that the item is
  /// dying; for registries that hold items weakly.
  bool tryAddHandle() noexcept;

  void addOwner() noexcept { keepers_.fetch_add(1, std::memory_order_relaxed); }
  void dropOwner() noexcept;

 private:
  std::atomic<std::int64_t> handles_{0};
  std::atomic<std::int64_t> keepers_{0};  // owners, and one for all handles together
  std::string name_;
  Item* parent_;
  ItemKind kind_;
};

/// Shares the life of an item without keeping the item's parent alive.
template <class T>
class Owned {
 public:
  Owned() noexcept = default;
  explicit Owned(T* item) noexcept : item_(item) {
    if (item_ != nullptr) item_->addOwner();
  }
  Owned(Owned const& other) noexcept : Owned(other.item_) {}
  Owned(Owned&& other) noexcept : item_(std::exchange(other.item_, nullptr)) {}
  Owned& operator=(Owned other) noexcept {
    std::swap(item_, other.item_);
    return *this;
  }
  ~Owned() {
    if (item_ != nullptr) item_->dropOwner();
  }
  T* get() const noexcept { return item_; }
  T* operator->() const noexcept { return item_; }
  T& operator*() const noexcept { return *item_; }
  explicit operator bool() const noexcept { return item_ != nullptr; }

 private:
  T* item_ = nullptr;
};

/// The item behind a handle as a `T`, or null if it is of another kind. `T`
/// has a `static bool is(ItemKind)`.
template <class T>
T* itemAs(Item* item) noexcept {
  return item != nullptr && T::is(item->kind()) ? static_cast<T*>(item) : nullptr;
}
template <class T>
T* itemAs(Ref const& ref) noexcept {
  return itemAs<T>(ref.item());
}

/// The handle itself if its item is a `T`, else an invalid one: what the
/// constructors of typed handles start from.
template <class T>
Ref refAs(Ref const& ref) noexcept {
  return itemAs<T>(ref) != nullptr ? ref : Ref();
}

}  // namespace Velmor::API
