#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "fakehost/scene.h"
#include "processing/mixer.h"

namespace Velmor::Processing {
namespace {

using Calls = std::vector<std::string>;

class MixerCalls : public testing::Test {
 protected:
  void SetUp() override { FakeHost::reset(); }
};

TEST_F(MixerCalls, TraversesTheOutputsLayoutByTheDepthRule) {
  FakeHost::Scene const scene;
  scene.leaf(0, 0, 0);
  auto const a = scene.channel("a", 1.f), b = scene.channel("b", 2.f);
  auto out = scene.channel("out", 0.f);
  FakeHost::clearCalls();
  StepMixer<float> mixer(1.f);
  mixer.mix(a, b, out);
  mixer.setDepths(0, 5);
  mixer.mix(a, b, out);
  mixer.setDepths(2, 5);
  mixer.setTraversalMode(static_cast<API::TraversalMode>(11));
  mixer.mix(a, b, out);
  EXPECT_EQ(FakeHost::calls("Layout::traverse"),
            (Calls{"Layout::traverse 3", "Layout::traverse 3", "Layout::traverse 11 2 5"}));
}

TEST_F(MixerCalls, RefusalTraversesNothing) {
  FakeHost::Scene const scene;
  scene.leaf(0, 0, 0);
  auto const a = scene.channel("a", 1.f);
  API::Channel out;
  FakeHost::clearCalls();
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, a, out));
  EXPECT_FALSE(AlphaMixer<float>(a).mix(a, a, out));
  EXPECT_TRUE(FakeHost::calls("Layout::traverse").empty());
}

template <class T>
void expectRefusal(API::Channel odd) {
  EXPECT_FALSE(StepMixer<T>(1.f).mix(odd, odd, odd));
  EXPECT_FALSE(AlphaMixer<T>(0.5f).mix(odd, odd, odd));
  EXPECT_FALSE(AlphaMixer<T>(odd).mix(odd, odd, odd));
}

TEST_F(MixerCalls, RefuseTypesOfTheHostAlone) {
  FakeHost::Scene const scene;
  auto const a = scene.channel("a", 1.f);
  auto out = scene.channel("out", 0.f);
  for (int const type : {5, 6, 7, 10}) {
    SCOPED_TRACE(type);
    API::Channel odd(
        scene.server.createChannel(scene.component, static_cast<API::DataType>(type), "odd"));
    ASSERT_TRUE(odd.valid());
    expectRefusal<int>(odd);
    expectRefusal<float>(odd);
    expectRefusal<orlen::Math::vec<2, int>>(odd);
    expectRefusal<orlen::Math::vec<2, float>>(odd);
    expectRefusal<orlen::Math::vec<3, int>>(odd);
    expectRefusal<orlen::Math::vec<3, float>>(odd);
    EXPECT_FALSE(StepMixer<float>(1.f).mix(odd, a, out));
    EXPECT_FALSE(StepMixer<float>(1.f).mix(a, odd, out));
    EXPECT_FALSE(StepMixer<float>(1.f).mix(a, a, odd));
    EXPECT_FALSE(AlphaMixer<float>(odd).mix(a, a, out));
  }
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), Calls());
}

TEST_F(MixerCalls, AFailedTraversalIsNoRefusal) {
  FakeHost::Scene const scene;
  scene.leaf(0, 0, 0);
  auto const a = scene.channel("a", 1.f);
  auto out = scene.channel("out", 0.f);
  FakeHost::script().failing.insert("Layout::traverse");
  EXPECT_TRUE(StepMixer<float>(1.f).mix(a, a, out));
  EXPECT_TRUE(AlphaMixer<float>(a).mix(a, a, out));
}

TEST_F(MixerCalls, TheOutputsElementCountDecidesHaloIncluded) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  FakeHost::script().nextChannel.count = 140;
  auto const a = scene.channel("a", 1.f), b = scene.channel("b", 2.f),
             alpha = scene.channel("alpha", 0.5f);
  FakeHost::script().nextChannel.count = 131;
  auto out = scene.channel("out", 0.f), blended = scene.channel("blended", 0.f);
  EXPECT_TRUE(StepMixer<float>(3.f).mix(a, b, out));
  EXPECT_TRUE(AlphaMixer<float>(alpha).mix(a, b, blended));
  for (auto const& [channel, expected] : {std::pair{out, 7.f}, {blended, 1.5f}}) {
    auto const data = channel.tileData<float>(index);
    ASSERT_EQ(data.count, 131u);
    for (std::size_t e = 0; e < data.count; ++e) EXPECT_EQ(data.data[e], expected) << e;
  }
}

TEST_F(MixerCalls, WorkersHaveCopiesThatAreJoinedWithoutEffect) {
  FakeHost::script().workers = 3;
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const a = scene.channel("a", 1.f), b = scene.channel("b", 2.f),
             alpha = scene.channel("alpha", 0.5f);
  auto out = scene.channel("out", 0.f);
  EXPECT_TRUE(StepMixer<float>(1.f).mix(a, b, out));
  EXPECT_EQ(out.tileData<float>(index).data[0], 3.f);
  EXPECT_TRUE(AlphaMixer<float>(alpha).mix(a, b, out));
  EXPECT_EQ(out.tileData<float>(index).data[0], 1.5f);
  EXPECT_EQ(FakeHost::calls("Visitor::copy").size(), 6u);
}

}  // namespace
}  // namespace Velmor::Processing
