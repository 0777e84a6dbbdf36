#include "core/item.h"

namespace Velmor::API {

Item::~Item() = default;

StateID Item::stateID() const { return 0; }

std::shared_ptr<DictionaryStore> Item::dictionary() const { return nullptr; }

void Item::addHandle() noexcept {
  if (handles_.fetch_add(1, std::memory_order_relaxed) != 0) return;
  addOwner();
  if (parent_ != nullptr) parent_->addHandle();
}

void Item::dropHandle() noexcept {
  if (handles_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  Item* const parent = parent_;  // the item may be gone after the next line
  dropOwner();
  if (parent != nullptr) parent->dropHandle();
}

bool Item::tryAddHandle() noexcept {
  auto handles = handles_.load(std::memory_order_relaxed);
  while (handles > 0) {
    if (handles_.compare_exchange_weak(handles, handles + 1, std::memory_order_relaxed))
      return true;
  }
  return false;
}

void Item::dropOwner() noexcept {
  if (keepers_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

Ref::Ref(Item* item) noexcept : item_(item) {
  if (item_ != nullptr) item_->addHandle();
}

Ref::Ref(Ref const& other) noexcept : Ref(other.item_) {}

Ref& Ref::operator=(Ref const& other) noexcept {
  if (item_ != other.item_) *this = Ref(other);
  return *this;
}

Ref& Ref::operator=(Ref&& other) noexcept {
  if (this != &other) {
    Item* const old = item_;
    item_ = other.item_;
    other.item_ = nullptr;
    if (old != nullptr) old->dropHandle();
  }
  return *this;
}

Ref::~Ref() {
  if (item_ != nullptr) item_->dropHandle();
}

String Base::name() const { return valid() ? String(item()->name()) : String(); }

StateID StateServerItem::stateID() const { return valid() ? item()->stateID() : 0; }

Dictionary StateServerItem::dictionary() const {
  return valid() ? Dictionary(item()->dictionary()) : Dictionary();
}

}  // namespace Velmor::API
