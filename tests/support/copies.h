#pragma once

#include <utility>
#include <vector>

namespace Velmor::Test {

/// An object copied, moved, assigned and move-assigned; `other` is what the last
/// two were before. Then what was moved and move-assigned from: of the library's
/// values nothing is taken away.
template <class T>
std::vector<T> copiesOf(T const& original, T const& other) {
  T moved(original), assigned(original), copyAssigned(other), moveAssigned(other);
  T const target(std::move(moved));
  copyAssigned = original;
  moveAssigned = std::move(assigned);
  return {T(original), target, copyAssigned, moveAssigned, moved, assigned};
}

}  // namespace Velmor::Test
