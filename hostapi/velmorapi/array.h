#pragma once

#include <cstddef>
#include <initializer_list>
#include <vector>

#include "velmorapi/export.h"

namespace Velmor::API {

/// A growable sequence with value semantics, header-only so that element
/// access costs nothing. Indexing is unchecked: `i` must be below `count()`.
/// Distinct arrays may be used from different threads.
template <class T>
class VELMOR_EXPORT Array {
 public:
  Array() = default;
  Array(std::initializer_list<T> values) : values_(values) {}

  std::size_t count() const noexcept { return values_.size(); }
  bool empty() const noexcept { return values_.empty(); }
  void add(T const& value) { values_.push_back(value); }
  void resize(std::size_t count) { values_.resize(count); }
  void reserve(std::size_t count) { values_.reserve(count); }
  void clear() noexcept { values_.clear(); }

  T& operator[](std::size_t i) noexcept { return values_[i]; }
  T const& operator[](std::size_t i) const noexcept { return values_[i]; }

  T* data() noexcept { return values_.data(); }
  T const* data() const noexcept { return values_.data(); }
  T* begin() noexcept { return values_.data(); }
  T* end() noexcept { return values_.data() + values_.size(); }
  T const* begin() const noexcept { return values_.data(); }
  T const* end() const noexcept { return values_.data() + values_.size(); }

  friend bool operator==(Array const& a, Array const& b) { return a.values_ == b.values_; }
  friend bool operator!=(Array const& a, Array const& b) { return !(a == b); }

 private:
  std::vector<T> values_;
};

}  // namespace Velmor::API
