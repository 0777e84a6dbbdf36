#include <algorithm>

#include "fakehost/items.h"

namespace Velmor::FakeHost {

World& world() {
  static World& everything = *new World;  // handles may outlive any static
  return everything;
}

Script& script() { return world().script; }

void useTiles(int width, int halo, bool zFastest) {
  auto& now = script();
  now.treeWidth = now.reportedWidth = width;
  now.nextChannel = TileShape();
  now.nextChannel.halo = halo;
  int const edge = width + 2 * halo;
  if (zFastest) {
    now.nextChannel.strides[0] = edge * edge;
    now.nextChannel.strides[1] = edge;
    now.nextChannel.strides[2] = 1;
  }
}

void reset() {
  auto& w = world();
  w.script = Script();
  w.calls.clear();
  w.servers.clear();
  w.graphs.clear();
  w.resources.clear();
  if (std::none_of(w.items.begin(), w.items.end(),
                   [](auto const& item) { return item->handles > 0; })) {
    w.items.clear();
  }
}

std::vector<std::string> const& calls() { return world().calls; }

std::vector<std::string> calls(std::string const& prefix) {
  std::vector<std::string> found;
  for (auto const& call : world().calls) {
    if (call.compare(0, prefix.size(), prefix) == 0) found.push_back(call);
  }
  return found;
}

void clearCalls() { world().calls.clear(); }

int handleCount(API::Ref const& ref) { return ref.valid() ? ref.item()->handles.load() : 0; }

}  // namespace Velmor::FakeHost

namespace Velmor::API {

Ref::Ref(Item* item) noexcept : item_(item) {
  if (item_ != nullptr) ++item_->handles;
}
Ref::Ref(Ref const& other) noexcept : Ref(other.item_) {}
Ref& Ref::operator=(Ref const& other) noexcept {
  Ref copy(other);
  std::swap(item_, copy.item_);
  return *this;
}
Ref& Ref::operator=(Ref&& other) noexcept {
  std::swap(item_, other.item_);
  return *this;
}
Ref::~Ref() {
  if (item_ != nullptr) --item_->handles;
}

String Base::name() const { return valid() ? String(item()->name) : String(); }
StateID StateServerItem::stateID() const { return valid() ? item()->state : 0; }
Dictionary StateServerItem::dictionary() const {
  return valid() ? item()->dictionary : Dictionary();
}

bool Dictionary::hasValue(String const& key) const {
  return store_ != nullptr && store_->values.count(key) > 0;
}
Array<String> Dictionary::keys() const {
  Array<String> found;
  if (store_ == nullptr) return found;
  for (auto const& entry : store_->values) found.add(entry.first);
  return found;
}
void Dictionary::remove(String const& key) const {
  if (store_ != nullptr) store_->values.erase(key);
}

namespace {

template <class T>
void put(DictionaryStore* store, String const& key, T const& value) {
  if (store != nullptr) store->values[key] = value;
}

// Numbers convert into each other; all else must be of the very type.
template <class T>
void fetch(DictionaryStore* store, String const& key, T& value) {
  if (store == nullptr || store->values.count(key) == 0) return;
  std::visit(
      [&](auto const& stored) {
        using S = std::decay_t<decltype(stored)>;
        if constexpr (std::is_same_v<S, T>) {
          value = stored;
        } else if constexpr (std::is_arithmetic_v<S> && std::is_arithmetic_v<T>) {
          value = static_cast<T>(stored);
        }
      },
      store->values[key]);
}

}  // namespace

void Dictionary::set(String const& key, bool value) const { put(store_.get(), key, value); }
void Dictionary::set(String const& key, int value) const { put(store_.get(), key, value); }
void Dictionary::set(String const& key, float value) const { put(store_.get(), key, value); }
void Dictionary::set(String const& key, double value) const { put(store_.get(), key, value); }
void Dictionary::set(String const& key, orlen::Math::vec<3, float> const& value) const {
  put(store_.get(), key, value);
}
void Dictionary::set(String const& key, String const& value) const {
  put(store_.get(), key, value);
}
void Dictionary::get(String const& key, bool& value) const { fetch(store_.get(), key, value); }
void Dictionary::get(String const& key, int& value) const { fetch(store_.get(), key, value); }
void Dictionary::get(String const& key, float& value) const { fetch(store_.get(), key, value); }
void Dictionary::get(String const& key, double& value) const { fetch(store_.get(), key, value); }
void Dictionary::get(String const& key, orlen::Math::vec<3, float>& value) const {
  fetch(store_.get(), key, value);
}
void Dictionary::get(String const& key, String& value) const { fetch(store_.get(), key, value); }

}  // namespace Velmor::API
