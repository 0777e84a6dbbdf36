#pragma once

#include "core/to_int.h"
#include "processing/mixer.h"
#include "velmorapi/math.h"

namespace Velmor::Processing {

/// What the mixers do to one component. The order of the operations is part of
/// every result.
namespace MixRules {

using orlen::Math::detail::add;
using orlen::Math::detail::mul;
using orlen::Math::detail::sub;

inline float blend(float a, float b, float alpha) { return (a - b) * alpha + b; }

inline int blend(int a, int b, float alpha) {
  return add(b, toInt(static_cast<float>(sub(a, b)) * alpha));
}

/// By an element of an alpha channel: integers by an integer product.
inline int blend(int a, int b, int alpha) { return add(mul(sub(a, b), alpha), b); }

inline float advance(float a, float b, float step) { return a + step * b; }

inline int advance(int a, int b, float step) { return add(a, toInt(static_cast<float>(b) * step)); }

}  // namespace MixRules

/// A mixer's rule with its constant, for any component.
template <class T>
struct MixRule<AlphaMixer<T>> {
  explicit MixRule(AlphaMixer<T> const& mixer) : alpha(mixer.alpha_) {}
  template <class C>
  C operator()(C a, C b) const {
    return MixRules::blend(a, b, alpha);
  }
  float alpha;
};

template <class T>
struct MixRule<StepMixer<T>> {
  explicit MixRule(StepMixer<T> const& mixer) : step(mixer.step_) {}
  template <class C>
  C operator()(C a, C b) const {
    return MixRules::advance(a, b, step);
  }
  float step;
};

}  // namespace Velmor::Processing
