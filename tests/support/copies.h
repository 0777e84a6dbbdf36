#pragma once

#include <vector>

namespace Velmor::Test {

/// An object copied, moved, assigned and move-assigned; `other` is what the
/// last two were before.
template <class T>
std::vector<T> copiesOf(T const& original, T const& other) {
  std::vector<T> copies;
  copies.push_back(original);
  copies.push_back(T(original));
  copies.push_back(other);
  copies.back() = original;
  copies.push_back(other);
  copies.back() = T(original);
  return copies;
}

}  // namespace Velmor::Test
