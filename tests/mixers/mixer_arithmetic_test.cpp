#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <type_traits>

#include "mixers/mixed_channels.h"
#include "processing/mixer.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using namespace Test;
constexpr int lowest = std::numeric_limits<int>::min();

template <class T>
class MixerArithmetic : public testing::Test {};
using ValueTypes = testing::Types<int, float, orlen::Math::vec<2, int>, orlen::Math::vec<2, float>,
                                  orlen::Math::vec<3, int>, orlen::Math::vec<3, float>>;
TYPED_TEST_SUITE(MixerArithmetic, ValueTypes);

template <class T>
struct Parts {
  using Type = T;
  static constexpr int count = 1;
  static T& of(T& v, int) { return v; }
};
template <int N, class C>
struct Parts<orlen::Math::vec<N, C>> {
  using Type = C;
  static constexpr int count = N;
  static C& of(orlen::Math::vec<N, C>& v, int i) { return v[i]; }
};

int asInt(float v) {
  if (v >= -2147483648.f && v < 2147483648.f) return static_cast<int>(v);
  return lowest;
}
int wrap(std::int64_t v) { return static_cast<int>(static_cast<std::uint32_t>(v)); }

float literalStep(float a, float b, float step) {
  float const volatile product = step * b;
  return a + product;
}
int literalStep(int a, int b, float step) {
  return wrap(std::int64_t{a} + asInt(static_cast<float>(b) * step));
}
float literalAlpha(float a, float b, float alpha) {
  float const volatile difference = a - b;
  float const volatile scaled = difference * alpha;
  return scaled + b;
}
int literalAlpha(int a, int b, float alpha) {
  return wrap(std::int64_t{b} + asInt(static_cast<float>(wrap(std::int64_t{a} - b)) * alpha));
}

float literalByElement(float a, float b, float alpha) { return literalAlpha(a, b, alpha); }
int literalByElement(int a, int b, int alpha) {
  return wrap(std::int64_t{b} + wrap(std::int64_t{wrap(std::int64_t{a} - b)} * alpha));
}

template <class C>
bool same(C a, C b) {
  if constexpr (std::is_same_v<C, float>) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  }
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

TYPED_TEST(MixerArithmetic, OfWholeTilesHasTheBitsOfOneElementAtATime) {
  using T = TypeParam;
  using P = Parts<T>;
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  MixedChannels const c;
  auto const a = c.add("a", T()), b = c.add("b", T()), factors = c.add("factors", T());
  API::Channel stepped = c.add("stepped", T()), blended = c.add("blended", T());
  API::Channel byElement = c.add("byElement", T());
  auto const fill = [&](API::Channel const& channel) {
    forTiles(c.scene.layout, 0, 7, [&](API::TreeIndex const& index) {
      auto const data = channel.template tileData<T>(index);
      for (std::size_t e = 0; e < data.count; ++e) {
        for (int p = 0; p < P::count; ++p) {
          // Any bits: denormals, infinities and NaN come often enough.
          auto bits = static_cast<std::uint32_t>(random());
          if (random() % 8 == 0) bits &= 0x807fffffu;
          if (random() % 8 == 0) bits |= 0x7f800000u;
          P::of(data.data[e], p) = std::bit_cast<typename P::Type>(bits);
        }
      }
    });
  };
  for (float const factor : {0.3f, -1.7f, 1e-30f, 1e30f, std::nanf("")}) {
    fill(a), fill(b), fill(factors);
    StepMixer<T> const step(factor);
    AlphaMixer<T> const alpha(factor);
    ASSERT_TRUE(step.mix(a, b, stepped));
    ASSERT_TRUE(alpha.mix(a, b, blended));
    ASSERT_TRUE(AlphaMixer<T>(factors).mix(a, b, byElement));
    forTiles(c.scene.layout, 0, 7, [&](API::TreeIndex const& index) {
      auto const va = a.template tileData<T>(index), vb = b.template tileData<T>(index);
      auto const vf = factors.template tileData<T>(index), ve = byElement.tileData<T>(index);
      auto const vs = stepped.tileData<T>(index), vl = blended.tileData<T>(index);
      for (std::size_t e = 0; e < va.count; ++e) {
        T byStep = step.compute(va.data[e], vb.data[e]);
        T byAlpha = alpha.compute(va.data[e], vb.data[e]);
        for (int p = 0; p < P::count; ++p) {
          auto const x = P::of(va.data[e], p), y = P::of(vb.data[e], p);
          ASSERT_TRUE(same(P::of(vs.data[e], p), literalStep(x, y, factor)));
          ASSERT_TRUE(same(P::of(byStep, p), literalStep(x, y, factor)));
          ASSERT_TRUE(same(P::of(vl.data[e], p), literalAlpha(x, y, factor)));
          ASSERT_TRUE(same(P::of(byAlpha, p), literalAlpha(x, y, factor)));
          ASSERT_TRUE(same(P::of(ve.data[e], p), literalByElement(x, y, P::of(vf.data[e], p))));
        }
      }
    });
  }
}

}  // namespace
}  // namespace Velmor::Processing
