#include "processing/mixer.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

#include "mixers/mixed_channels.h"
#include "support/bits.h"

namespace Velmor::Processing {
namespace {

using namespace Test;
using Int2 = orlen::Math::vec<2, int>;
using Float3 = orlen::Math::vec<3, float>;

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
  MixedChannels const one, other;
  auto const a = one.add("a", 1.f), b = other.add("b", 2.f);
  API::Channel out = one.add("out", 7.f);
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, b, out));
  EXPECT_FALSE(StepMixer<float>(1.f).mix(b, a, out));
  EXPECT_FALSE(AlphaMixer<float>(1.f).mix(a, b, out));
  EXPECT_EQ(valueAt<float>(out), 7.f);
}

TEST(MixerRefusal, AnOutputOfAnotherType) {
  MixedChannels const c;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
  API::Channel out = c.add("out", 7);
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, b, out));
  EXPECT_EQ(valueAt<int>(out), 7);
}

TEST(MixerRefusal, ChannelsOfAnotherTypeThanTheMixers) {
  MixedChannels const c;
  auto const a = c.add("a", 1), b = c.add("b", 2);
  API::Channel out = c.add("out", 7);
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, b, out));
  EXPECT_FALSE(AlphaMixer<float>(1.f).mix(a, b, out));
  EXPECT_EQ(valueAt<int>(out), 7);
  EXPECT_TRUE(StepMixer<int>(1.f).mix(a, b, out));
}

TEST(MixerRefusal, AnEmptyHandle) {
  MixedChannels const c;
  auto const a = c.add("a", 1.f);
  API::Channel out = c.add("out", 7.f), none;
  EXPECT_FALSE(StepMixer<float>(1.f).mix(none, a, out));
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, none, out));
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, a, none));
  EXPECT_FALSE(AlphaMixer<float>(a).mix(none, none, none));
  EXPECT_EQ(valueAt<float>(out), 7.f);
}

TEST(Mixable, SaysWhatMixWillDo) {
  MixedChannels const c, other;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f), i = c.add("i", 1);
  AddingMixer<float> const mixer;
  EXPECT_TRUE(mixer.mixable(a, b, a));
  EXPECT_FALSE(mixer.mixable(a, b, i));
  EXPECT_FALSE(mixer.mixable(a, i, b));
  EXPECT_FALSE(mixer.mixable(a, other.add("o", 1.f), b));
  EXPECT_FALSE(AddingMixer<int>().mixable(a, b, a));
}

TEST(MixerT, CallsAClientsComputeAlsoWhenItDerivesFromOurs) {
  MixedChannels const c;
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
    MixedChannels const c;
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

TEST(Mixers, GiveTheSameBitsForAnyNumberOfThreads) {
  auto const values = [](int threads) {
    Threads const limit(threads);
    auto const scene = sphereScene(20.f);
    API::Channel out = addChannel<float>(scene.server, scene.volume, "out", 0.f);
    EXPECT_TRUE(AlphaMixer<float>(0.3f).mix(scene.distance, scene.distance, out));
    EXPECT_TRUE(StepMixer<float>(0.7f).mix(out, scene.distance, out));
    API::Channel zeros = addChannel<float>(scene.server, scene.volume, "zeros", 9.f);
    EXPECT_TRUE(StepMixer<float>(-1.f).mix(out, out, zeros));
    auto all = valuesOf<float>(out);
    for (float const zero : valuesOf<float>(zeros)) all.push_back(zero);
    return all;
  };
  auto const one = values(1);
  for (int const threads : {2, 3, 8, 64}) {
    SCOPED_TRACE(threads);
    expectSameBits(values(threads), one);
  }
}

}  // namespace
}  // namespace Velmor::Processing
