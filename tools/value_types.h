#pragma once

#include "velmorapi/math.h"
#include "velmorapi/types.h"

namespace Velmor::Tool {

/// The scalars that a value of a channel consists of.
template <class T>
struct Components {
  using Scalar = T;
  static constexpr int count = 1;
  static Scalar& at(T& value, int) { return value; }
  static Scalar at(T const& value, int) { return value; }
};
template <int N, class S>
struct Components<orlen::Math::vec<N, S>> {
  using Scalar = S;
  static constexpr int count = N;
  static Scalar& at(orlen::Math::vec<N, S>& value, int c) { return value[c]; }
  static Scalar at(orlen::Math::vec<N, S> const& value, int c) { return value[c]; }
};

/// Returns `use(T())` for the `T` that channels of this type hold, and without
/// calling it an empty result for `None`.
template <class Use>
auto byType(API::DataType type, Use&& use) {
  using orlen::Math::vec;
  switch (type) {
    case API::DataType::Float:
      return use(float{});
    case API::DataType::Float2:
      return use(vec<2, float>{});
    case API::DataType::Float3:
      return use(vec<3, float>{});
    case API::DataType::Int:
      return use(int{});
    case API::DataType::Int2:
      return use(vec<2, int>{});
    case API::DataType::Int3:
      return use(vec<3, int>{});
    case API::DataType::None:
      break;
  }
  return decltype(use(float{}))();
}

/// Whether channels of this type hold integers.
inline bool isInteger(API::DataType type) {
  return type == API::DataType::Int || type == API::DataType::Int2 || type == API::DataType::Int3;
}

}  // namespace Velmor::Tool
