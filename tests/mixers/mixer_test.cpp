#include "processing/mixer.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "support/scene.h"

namespace Velmor::Processing {
namespace {

using namespace Test;
using API::VoxelChannel;
using Int2 = orlen::Math::vec<2, int>;
using Float3 = orlen::Math::vec<3, float>;
constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

/// A layout with one leaf tile, and as many channels as are asked for.
struct Channels {
  Channels() {
    Host::addLeafTiles(scene.layout, {{0, 0, 0}});
    Host::addLeafTiles(scene.layout, {{40, 0, 0}});
  }
  template <class T>
  VoxelChannel add(char const* name, T const& value) const {
    auto const channel = addChannel<T>(scene.server, scene.volume, name, value);
    return channel;
  }
  Scene scene = emptyScene();
};

template <class T>
T valueAt(API::Channel const& channel, int depth = 7) {
  API::Layout const layout(channel.layout());
  auto const tile = layout.tileAccessor().tile(0, 0, 0, depth);
  return channel.tileData<T>(tile.index()).data[62];
}

template <class T>
class AddingMixer final : public MixerT<T> {
 public:
  T compute(T const& a, T const& b) const override { return a + b; }
  using MixerT<T>::mixable;
};

/// A client's class on top of one of ours.
class NegatingStep final : public StepMixer<float> {
 public:
  NegatingStep() : StepMixer<float>(1.f) {}
  float compute(float const&, float const& b) const override { return -b; }
};

TEST(MixerTypes, CopyAndMoveAndDestroyThroughTheBase) {
  static_assert(std::is_base_of_v<Traverser, Mixer> && std::is_base_of_v<Mixer, MixerT<int>>);
  static_assert(std::is_base_of_v<MixerT<Int2>, AlphaMixer<Int2>>);
  static_assert(std::is_base_of_v<MixerT<Float3>, StepMixer<Float3>>);
  static_assert(std::has_virtual_destructor_v<Mixer> && std::is_abstract_v<MixerT<float>>);
  static_assert(std::is_nothrow_move_constructible_v<AlphaMixer<float>> &&
                std::is_move_assignable_v<StepMixer<int>>);
  static_assert(
      std::is_same_v<decltype(std::declval<Mixer>().traversalMode()), API::TraversalMode>);
  StepMixer<float> mixer(2.f);
  mixer.setDepths(2, 5);
  auto const copy = mixer;
  auto moved = std::move(mixer);
  StepMixer<float> assigned(0.f);
  assigned = copy;
  for (auto const* m :
       {&copy, static_cast<StepMixer<float> const*>(&moved), &std::as_const(assigned)}) {
    EXPECT_EQ(m->depths()[0], 2);
    EXPECT_EQ(m->depths()[1], 5);
    EXPECT_EQ(m->compute(1.f, 3.f), 7.f);
  }
  EXPECT_EQ(moved.traversalMode(), API::TraversalMode::Tiles);
}

TEST(MixerRefusal, AChannelOnAnotherLayoutHoweverAlike) {
  Channels const one, other;
  auto const a = one.add("a", 1.f), b = other.add("b", 2.f);
  API::Channel out = one.add("out", 7.f);
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, b, out));
  EXPECT_FALSE(StepMixer<float>(1.f).mix(b, a, out));
  EXPECT_FALSE(AlphaMixer<float>(1.f).mix(a, b, out));
  EXPECT_EQ(valueAt<float>(out), 7.f);
}

TEST(MixerRefusal, AnOutputOfAnotherType) {
  Channels const c;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
  API::Channel out = c.add("out", 7);
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, b, out));
  EXPECT_EQ(valueAt<int>(out), 7);
}

TEST(MixerRefusal, ChannelsOfAnotherTypeThanTheMixers) {
  Channels const c;
  auto const a = c.add("a", 1), b = c.add("b", 2);
  API::Channel out = c.add("out", 7);
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, b, out));
  EXPECT_FALSE(AlphaMixer<float>(1.f).mix(a, b, out));
  EXPECT_EQ(valueAt<int>(out), 7);
  EXPECT_TRUE(StepMixer<int>(1.f).mix(a, b, out));
}

TEST(MixerRefusal, AnEmptyHandle) {
  Channels const c;
  auto const a = c.add("a", 1.f);
  API::Channel out = c.add("out", 7.f), none;
  EXPECT_FALSE(StepMixer<float>(1.f).mix(none, a, out));
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, none, out));
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, a, none));
  EXPECT_FALSE(AlphaMixer<float>(a).mix(none, none, none));
  EXPECT_EQ(valueAt<float>(out), 7.f);
}

TEST(Mixable, SaysWhatMixWillDo) {
  Channels const c, other;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f), i = c.add("i", 1);
  AddingMixer<float> const mixer;
  EXPECT_TRUE(mixer.mixable(a, b, a));
  EXPECT_FALSE(mixer.mixable(a, b, i));
  EXPECT_FALSE(mixer.mixable(a, i, b));
  EXPECT_FALSE(mixer.mixable(a, other.add("o", 1.f), b));
  EXPECT_FALSE(AddingMixer<int>().mixable(a, b, a));
}

TEST(MixerT, CallsAClientsComputeAlsoWhenItDerivesFromOurs) {
  Channels const c;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
  API::Channel out = c.add("out", 0.f);
  EXPECT_TRUE(AddingMixer<float>().mix(a, b, out));
  EXPECT_EQ(valueAt<float>(out), 3.f);
  EXPECT_TRUE(NegatingStep().mix(a, b, out));
  EXPECT_EQ(valueAt<float>(out), -2.f);
}

TEST(MixerT, MixesEveryDepthUnlessBothDepthsAreAtLeastOne) {
  struct Case {
    int min, max;
    bool all;
  };
  for (auto const [min, max, all] :
       {Case{-1, -1, true}, Case{0, 5, true}, Case{-3, 0, true}, Case{2, 5, false}}) {
    Channels const c;
    auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
    API::Channel out = c.add("out", 7.f);
    StepMixer<float> mixer(1.f);
    ASSERT_TRUE(mixer.setDepths(min, max));
    ASSERT_TRUE(mixer.mix(a, b, out));
    for (int depth = 0; depth <= 7; ++depth) {
      EXPECT_EQ(valueAt<float>(out, depth), all || (depth >= 2 && depth <= 5) ? 3.f : 7.f)
          << min << ", " << max << " at depth " << depth;
    }
  }
}

TEST(MixerT, TakesNoDepthsInDescendingOrder) {
  StepMixer<float> mixer(1.f);
  EXPECT_FALSE(mixer.setDepths(2, -1));
  EXPECT_EQ(mixer.depths()[0], -1);
}

TEST(AlphaMixer, BlendsFloatsByDifferenceThenScaleThenSum) {
  EXPECT_EQ(AlphaMixer<float>(0.25f).compute(8.f, 4.f), 5.f);
  // Not alpha * a + (1 - alpha) * b, which gives 0.119999997, nor fused, 1.99000013.
  EXPECT_EQ(AlphaMixer<float>(0.1f).compute(0.3f, 0.1f), 0.120000005f);
  EXPECT_EQ(AlphaMixer<float>(0.3f).compute(5.f, 0.7f), 1.99000001f);
  EXPECT_EQ(AlphaMixer<float>(2.f).compute(3.f, 1.f), 5.f);  // nothing clamps
}

TEST(AlphaMixer, TruncatesTheScaledDifferenceOfIntegers) {
  AlphaMixer<int> const half(0.5f);
  EXPECT_EQ(half.compute(3, 0), 1);
  EXPECT_EQ(half.compute(-3, 0), -1);
  // The difference wraps to -2147483648 before it is scaled.
  EXPECT_EQ(half.compute(highest, -1), -1073741825);
  EXPECT_EQ(AlphaMixer<Int2>(0.5f).compute({3, -3}, {0, 0}), Int2(1, -1));
}

TEST(AlphaMixer, AProductThatNoIntHoldsBecomesTheLowest) {
  // 2147483647 as a float is 2147483648.
  EXPECT_EQ(AlphaMixer<int>(1.f).compute(highest, 0), lowest);
  EXPECT_EQ(AlphaMixer<int>(1e30f).compute(1, 0), lowest);
  EXPECT_EQ(AlphaMixer<int>(std::nanf("")).compute(5, 2), orlen::Math::detail::add(2, lowest));
}

TEST(AlphaMixer, ANanAlphaGivesNan) {
  EXPECT_TRUE(std::isnan(AlphaMixer<float>(std::nanf("")).compute(1.f, 2.f)));
}

TEST(StepMixer, AddsTheScaledSecondToTheFirst) {
  EXPECT_EQ(StepMixer<int>(0.5f).compute(10, -3), 9);
  EXPECT_EQ(StepMixer<float>(0.3f).compute(0.3f, 5.f), 1.79999995f);
  EXPECT_EQ(StepMixer<Float3>(2.f).compute({1.f, 2.f, 3.f}, {1.f, -1.f, 0.5f}),
            Float3(3.f, 0.f, 4.f));
  EXPECT_EQ(StepMixer<int>(1.f).compute(1, highest), orlen::Math::detail::add(1, lowest));
}

TEST(StepMixer, MayWriteItsFirstInput) {
  Channels const c;
  API::Channel a = c.add("a", 1.f);
  auto const b = c.add("b", 2.f);
  EXPECT_TRUE(StepMixer<float>(3.f).mix(a, b, a));
  EXPECT_EQ(valueAt<float>(a), 7.f);
  API::Channel second = b;
  EXPECT_TRUE(StepMixer<float>(1.f).mix(a, b, second));
  EXPECT_EQ(valueAt<float>(b), 9.f);
}

TEST(AlphaChannel, ActsInTheArithmeticOfItsType) {
  Channels const c;
  auto const a = c.add("a", 7), b = c.add("b", 3);
  API::Channel out = c.add("out", 0);
  for (auto const& [alpha, expected] : {std::pair{1, 7}, {0, 3}, {2, 2 * 7 - 3}, {-1, 2 * 3 - 7}}) {
    EXPECT_TRUE(AlphaMixer<int>(c.add("alpha", alpha)).mix(a, b, out));
    EXPECT_EQ(valueAt<int>(out), expected);
  }
  API::Channel wrapped = c.add("wrapped", 0);
  EXPECT_TRUE(AlphaMixer<int>(c.add("alpha", highest)).mix(a, b, wrapped));
  EXPECT_EQ(valueAt<int>(wrapped), -4 + 3);  // 4 * 2147483647 wraps to -4
}

TEST(AlphaChannel, BlendsEachComponentByItsOwn) {
  Channels const c;
  auto const a = c.add("a", Float3(8.f, 8.f, 8.f)), b = c.add("b", Float3(4.f, 4.f, 4.f));
  API::Channel out = c.add("out", Float3());
  EXPECT_TRUE(AlphaMixer<Float3>(c.add("alpha", Float3(0.f, 0.25f, 2.f))).mix(a, b, out));
  EXPECT_EQ(valueAt<Float3>(out), Float3(4.f, 5.f, 12.f));
}

TEST(AlphaChannel, OfAnotherTypeIsRefusedBeforeAnythingElseIsLookedAt) {
  Channels const c;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
  auto const ints = c.add("ints", 1);
  API::Channel out = c.add("out", 7.f);
  EXPECT_FALSE(AlphaMixer<float>(ints).mix(a, b, out));
  EXPECT_FALSE(AlphaMixer<float>(ints).mix({}, b, out));
  EXPECT_EQ(valueAt<float>(out), 7.f);
}

TEST(AlphaChannel, OnAnotherLayoutIsRefused) {
  Channels const c, other;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
  API::Channel out = c.add("out", 7.f);
  EXPECT_FALSE(AlphaMixer<float>(other.add("alpha", 1.f)).mix(a, b, out));
  EXPECT_EQ(valueAt<float>(out), 7.f);
}

TEST(AlphaChannel, AnEmptyHandleIsAConstantOne) {
  Channels const c;
  auto const a = c.add("a", 0.1f), b = c.add("b", 1e9f);
  API::Channel out = c.add("out", 7.f);
  AlphaMixer<float> const mixer{API::Channel()};
  EXPECT_TRUE(mixer.mix(a, b, out));
  EXPECT_EQ(valueAt<float>(out), (0.1f - 1e9f) * 1.f + 1e9f);
  EXPECT_EQ(AlphaMixer<float>(c.add("alpha", 0.f)).compute(3.f, 1.f), 3.f);
}

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
  auto const seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Channels const c;
  auto const a = c.add("a", T()), b = c.add("b", T());
  API::Channel stepped = c.add("stepped", T()), blended = c.add("blended", T());
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
    fill(a), fill(b);
    StepMixer<T> const step(factor);
    AlphaMixer<T> const alpha(factor);
    ASSERT_TRUE(step.mix(a, b, stepped));
    ASSERT_TRUE(alpha.mix(a, b, blended));
    forTiles(c.scene.layout, 0, 7, [&](API::TreeIndex const& index) {
      auto const va = a.template tileData<T>(index), vb = b.template tileData<T>(index);
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
        }
      }
    });
  }
}

TEST(MixerArithmeticOrder, IsTheSameForAnyNumberOfThreads) {
  auto const bytes = [](int threads) {
    Threads const limit(threads);
    auto const scene = sphereScene(20.f);
    API::Channel out = addChannel<float>(scene.server, scene.volume, "out", 0.f);
    EXPECT_TRUE(AlphaMixer<float>(0.3f).mix(scene.distance, scene.distance, out));
    EXPECT_TRUE(StepMixer<float>(0.7f).mix(out, scene.distance, out));
    return valuesOf<float>(out);
  };
  auto const one = bytes(1);
  for (int const threads : {2, 3, 8, 64}) EXPECT_EQ(bytes(threads), one) << threads;
}

}  // namespace
}  // namespace Velmor::Processing
