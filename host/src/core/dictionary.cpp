#include "velmorapi/dictionary.h"

#include <type_traits>

#include "core/dictionary_store.h"
#include "core/number_text.h"
#include "velmorapi/to_int.h"

namespace Velmor::API {

namespace {

using Host::numberText;
using Vector = orlen::Math::vec<3, float>;

struct ToText {
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(int value) const { return numberText(value); }
  std::string operator()(float value) const { return numberText(value); }
  std::string operator()(double value) const { return numberText(value); }
  std::string operator()(Vector const& v) const {
    return numberText(v.x) + ' ' + numberText(v.y) + ' ' + numberText(v.z);
  }
  std::string operator()(std::string const& text) const { return text; }
};

template <class To>
struct ToNumber {
  template <class From>
  To operator()(From const& value) const {
    if constexpr (!std::is_arithmetic_v<From>) {
      return To();
    } else if constexpr (std::is_same_v<To, int> && std::is_floating_point_v<From>) {
      return orlen::Math::detail::toInt(value);
    } else {
      return static_cast<To>(value);
    }
  }
};

template <class Convert, class To>
void read(DictionaryStore const* store, String const& key, Convert const& convert, To& value) {
  if (store == nullptr) return;
  auto const at = store->values.find(key.str());
  if (at != store->values.end()) value = std::visit(convert, at->second);
}

template <class T>
void write(DictionaryStore* store, String const& key, T value) {
  if (store != nullptr)
    store->values.insert_or_assign(key.str(), DictionaryValue(std::move(value)));
}

}  // namespace

bool Dictionary::hasValue(String const& key) const {
  return store_ && store_->values.find(key.str()) != store_->values.end();
}

Array<String> Dictionary::keys() const {
  Array<String> keys;
  if (!store_) return keys;
  keys.reserve(store_->values.size());
  for (auto const& [key, value] : store_->values) keys.add(String(key));
  return keys;
}

void Dictionary::set(String const& key, bool value) const { write(store(), key, value); }
void Dictionary::set(String const& key, int value) const { write(store(), key, value); }
void Dictionary::set(String const& key, float value) const { write(store(), key, value); }
void Dictionary::set(String const& key, double value) const { write(store(), key, value); }
void Dictionary::set(String const& key, Vector const& value) const { write(store(), key, value); }
void Dictionary::set(String const& key, String const& value) const {
  write(store(), key, value.str());
}

void Dictionary::remove(String const& key) const {
  if (store_) store_->values.erase(key.str());
}

void Dictionary::get(String const& key, bool& value) const {
  read(store(), key, ToNumber<bool>(), value);
}
void Dictionary::get(String const& key, int& value) const {
  read(store(), key, ToNumber<int>(), value);
}
void Dictionary::get(String const& key, float& value) const {
  read(store(), key, ToNumber<float>(), value);
}
void Dictionary::get(String const& key, double& value) const {
  read(store(), key, ToNumber<double>(), value);
}
void Dictionary::get(String const& key, Vector& value) const {
  if (!store_) return;
  auto const at = store_->values.find(key.str());
  if (at == store_->values.end()) return;
  if (auto const* const vector = std::get_if<Vector>(&at->second)) value = *vector;
}
void Dictionary::get(String const& key, String& value) const {
  std::string text;
  read(store(), key, ToText(), text);
  value = String(std::move(text));
}

}  // namespace Velmor::API
