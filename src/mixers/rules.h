#pragma once

#include "velmorapi/math.h"
#include "velmorapi/to_int.h"

/// What the mixers do to one component. The order of the operations is part of
/// every result.
namespace Velmor::Processing::MixRules {

inline float blend(float a, float b, float alpha) { return (a - b) * alpha + b; }

inline int blend(int a, int b, float alpha) {
  using namespace orlen::Math::detail;
  return add(b, toInt(static_cast<float>(sub(a, b)) * alpha));
}

/// By an element of an alpha channel: integers by an integer product.
inline int blend(int a, int b, int alpha) {
  using namespace orlen::Math::detail;
  return add(mul(sub(a, b), alpha), b);
}

inline float advance(float a, float b, float step) { return a + step * b; }

inline int advance(int a, int b, float step) {
  using namespace orlen::Math::detail;
  return add(a, toInt(static_cast<float>(b) * step));
}

}  // namespace Velmor::Processing::MixRules
