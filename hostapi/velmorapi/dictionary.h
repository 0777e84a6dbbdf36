#pragma once

#include <memory>

#include "velmorapi/export.h"
#include "velmorapi/math.h"
#include "velmorapi/string.h"

namespace Velmor::API {

class DictionaryStore;

/// A handle to a host key-value store. Values are bool, int, float, double,
/// `vec<3, float>` or text. Copies share the store. Not synchronised: one
/// thread writes, or many read.
class VELMOR_EXPORT Dictionary {
 public:
  Dictionary() = default;
  explicit Dictionary(std::shared_ptr<DictionaryStore> store) : store_(std::move(store)) {}

  bool hasValue(String const& key) const;
  /// The keys in ascending order.
  Array<String> keys() const;

  /// The value of `key` as a `T`: bool, int, float, double, `vec<3, float>` or
  /// `String`. Numbers convert into each other as C++ does, and every value to
  /// its text; a missing key or a value that does not convert gives `T()`.
  template <class T>
  T value(String const& key) const {
    T result{};
    get(key, result);
    return result;
  }

  /// Stores `value` under `key`, replacing a value of any type.
  void set(String const& key, bool value) const;
  void set(String const& key, int value) const;
  void set(String const& key, float value) const;
  void set(String const& key, double value) const;
  void set(String const& key, orlen::Math::vec<3, float> const& value) const;
  void set(String const& key, String const& value) const;
  void set(String const& key, char const* value) const { set(key, String(value)); }
  void remove(String const& key) const;

  DictionaryStore* store() const noexcept { return store_.get(); }

 private:
  void get(String const& key, bool& value) const;
  void get(String const& key, int& value) const;
  void get(String const& key, float& value) const;
  void get(String const& key, double& value) const;
  void get(String const& key, orlen::Math::vec<3, float>& value) const;
  void get(String const& key, String& value) const;

  std::shared_ptr<DictionaryStore> store_;
};

}  // namespace Velmor::API
