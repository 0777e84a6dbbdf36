#include <gtest/gtest.h>

#include "fakehost/fakehost.h"
#include "processing/mixer.h"

namespace Velmor::Processing {
namespace {

using Calls = std::vector<std::string>;

struct Channels {
  Channels() {
    server = FakeHost::createStateServer("state");
    component = server.createComponent(API::VoxelComponentType, "volume", 1.f);
    index = FakeHost::addTile(API::Layout(component.layout()), 7, {0, 0, 0});
  }
  API::Channel add(char const* name, float value) const {
    API::Channel const channel(server.createChannel(component, API::DataType::Float, name));
    auto const data = channel.tileData<float>(index);
    for (std::size_t e = 0; e < data.count; ++e) data.data[e] = value;
    return channel;
  }
  API::StateServer server;
  API::VoxelComponent component;
  API::TreeIndex index;
};

class MixerCalls : public testing::Test {
 protected:
  void SetUp() override { FakeHost::reset(); }
};

TEST_F(MixerCalls, TraversesTheOutputsLayoutByTheDepthRule) {
  Channels const c;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
  auto out = c.add("out", 0.f);
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
  Channels const c;
  auto const a = c.add("a", 1.f);
  API::Channel out;
  FakeHost::clearCalls();
  EXPECT_FALSE(StepMixer<float>(1.f).mix(a, a, out));
  EXPECT_FALSE(AlphaMixer<float>(a).mix(a, a, out));
  EXPECT_TRUE(FakeHost::calls("Layout::traverse").empty());
}

TEST_F(MixerCalls, AFailedTraversalIsNoRefusal) {
  Channels const c;
  auto const a = c.add("a", 1.f);
  auto out = c.add("out", 0.f);
  FakeHost::script().failing.insert("Layout::traverse");
  EXPECT_TRUE(StepMixer<float>(1.f).mix(a, a, out));
  EXPECT_TRUE(AlphaMixer<float>(a).mix(a, a, out));
}

TEST_F(MixerCalls, TheOutputsElementCountDecidesHaloIncluded) {
  Channels const c;
  FakeHost::script().nextChannel.count = 140;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f), alpha = c.add("alpha", 0.5f);
  FakeHost::script().nextChannel.count = 131;
  auto out = c.add("out", 0.f), blended = c.add("blended", 0.f);
  EXPECT_TRUE(StepMixer<float>(3.f).mix(a, b, out));
  EXPECT_TRUE(AlphaMixer<float>(alpha).mix(a, b, blended));
  for (auto const& [channel, expected] : {std::pair{out, 7.f}, {blended, 1.5f}}) {
    auto const data = channel.tileData<float>(c.index);
    ASSERT_EQ(data.count, 131u);
    for (std::size_t e = 0; e < data.count; ++e) EXPECT_EQ(data.data[e], expected) << e;
  }
}

TEST_F(MixerCalls, WorkersHaveCopiesThatAreJoinedWithoutEffect) {
  FakeHost::script().workers = 3;
  Channels const c;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f), alpha = c.add("alpha", 0.5f);
  auto out = c.add("out", 0.f);
  EXPECT_TRUE(StepMixer<float>(1.f).mix(a, b, out));
  EXPECT_EQ(out.tileData<float>(c.index).data[0], 3.f);
  EXPECT_TRUE(AlphaMixer<float>(alpha).mix(a, b, out));
  EXPECT_EQ(out.tileData<float>(c.index).data[0], 1.5f);
  EXPECT_EQ(FakeHost::calls("Visitor::copy").size(), 6u);
}

}  // namespace
}  // namespace Velmor::Processing
