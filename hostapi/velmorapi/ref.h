#pragma once

#include <cstdint>

#include "velmorapi/dictionary.h"
#include "velmorapi/export.h"
#include "velmorapi/string.h"

namespace Velmor::API {

/// What a host keeps behind a handle. Only hosts see its definition.
class Item;

/// Identifies a state server for as long as any handle into it lives.
using StateID = std::uint64_t;

/// A reference-counted handle to something the host holds; the base of all
/// handles. Default constructed it refers to nothing. Comparison is identity.
/// Counting is atomic: copies of one handle may live on different threads.
///
/// Every typed handle converts implicitly from `Ref` and is invalid when the
/// thing referred to is of another kind. Every operation on an invalid handle
/// does nothing and returns an invalid, empty or zero value. Handles stay valid
/// when their item is removed from its owner.
class VELMOR_EXPORT Ref {
 public:
  Ref() noexcept = default;
  /// Shares the item; the host's own way of making handles. Null gives an invalid handle.
  explicit Ref(Item* item) noexcept;
  Ref(Ref const& other) noexcept;
  Ref(Ref&& other) noexcept : item_(other.item_) { other.item_ = nullptr; }
  Ref& operator=(Ref const& other) noexcept;
  Ref& operator=(Ref&& other) noexcept;
  ~Ref();

  bool valid() const noexcept { return item_ != nullptr; }
  bool operator==(Ref const& other) const noexcept { return item_ == other.item_; }
  bool operator!=(Ref const& other) const noexcept { return item_ != other.item_; }

  Item* item() const noexcept { return item_; }

 private:
  Item* item_ = nullptr;
};

/// Anything with a name: objects, components, channels, layouts, state
/// servers, graphs.
class VELMOR_EXPORT Base : public Ref {
 public:
  Base() noexcept = default;
  Base(Ref const& ref) noexcept : Ref(ref) {}
  /// The item's own name, empty for an invalid handle.
  String name() const;
};

/// Anything that lives in a state server.
class VELMOR_EXPORT StateServerItem : public Base {
 public:
  StateServerItem() noexcept = default;
  StateServerItem(Ref const& ref) noexcept : Base(ref) {}
  /// The server that holds the item; 0 for an invalid handle.
  StateID stateID() const;
  /// The item's own key-value store, shared by all handles to the item.
  Dictionary dictionary() const;
};

}  // namespace Velmor::API
