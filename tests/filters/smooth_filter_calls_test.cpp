#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakehost/scene.h"
#include "processing/smooth_filter.h"

namespace Velmor::Processing {
namespace {

using Calls = std::vector<std::string>;
using Smooth = SmoothFilter<float>;

class SmoothCalls : public testing::Test {
 protected:
  void SetUp() override { FakeHost::reset(); }
};

TEST_F(SmoothCalls, MakesAndRemovesItsChannelEvenWithoutIterations) {
  FakeHost::Scene const scene;
  scene.leaf(0, 0, 0);
  auto const channel = scene.channel("density", 1.f);
  FakeHost::clearCalls();
  Smooth(Smooth::Laplacian, 0, 1.f).filter(channel, channel);
  EXPECT_EQ(FakeHost::calls("StateServer::"),
            (Calls{"StateServer::createChannel 'volume' 1 'tmp'",
                   "StateServer::removeChannel 'tmp' handles=0"}));
  EXPECT_EQ(FakeHost::calls("Channel::setBackgroundValue"),
            (Calls{"Channel::setBackgroundValue 'tmp'"}));
  EXPECT_TRUE(FakeHost::calls("Layout::traverse").empty());
}

TEST_F(SmoothCalls, CopiesWithoutIterationsWhateverTheMode) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const source = scene.channel("source", 1.f), target = scene.channel("target", 0.f);
  FakeHost::clearCalls();
  Smooth(static_cast<Smooth::Mode>(7), 0, 1.f).filter(source, target);
  EXPECT_EQ(FakeHost::elements<float>(target, index), std::vector<float>(125, 1.f));
  EXPECT_EQ(FakeHost::calls("StateServer::").size(), 2u);
}

TEST_F(SmoothCalls, GivesItsChannelABackgroundOfZero) {
  FakeHost::Scene const scene;
  scene.leaf(0, 0, 0);
  auto const channel = scene.channel("density", 1.f);
  float background = -1.f;
  FakeHost::script().visit = [&](API::Visitor&) {
    API::Channel const tmp(scene.component.findChannel("tmp"));
    ASSERT_TRUE(tmp.valid());
    background = tmp.backgroundValue<float>();
  };
  Smooth(Smooth::Laplacian, 1, 1.f).filter(channel, channel);
  EXPECT_EQ(background, 0.f);
}

TEST_F(SmoothCalls, HoldsNoHandleToItsChannelWhenRemovingIt) {
  FakeHost::Scene const scene;
  scene.leaf(0, 0, 0);
  auto const channel = scene.channel("density", 1.f);
  FakeHost::script().workers = 2;
  FakeHost::clearCalls();
  Smooth(Smooth::Curvature, 2, 1.f).filter(channel, channel);

  EXPECT_EQ(FakeHost::calls("StateServer::removeChannel"),
            (Calls{"StateServer::removeChannel 'tmp' handles=0"}));
}

TEST_F(SmoothCalls, RunsTheSpeedOverAllDepthsAndTheStepOverTheLeaves) {
  FakeHost::Scene const scene;
  scene.leaf(0, 0, 0);
  auto const source = scene.channel("source", 1.f), target = scene.channel("target", 0.f);
  FakeHost::clearCalls();
  Smooth filter(Smooth::Laplacian, 2, 1.f);
  filter.setDepths(3, 3);
  filter.setTraversalMode(static_cast<API::TraversalMode>(9));
  filter.filter(source, target);
  EXPECT_EQ(FakeHost::calls("Layout::traverse"),
            (Calls{"Layout::traverse 3", "Layout::traverse 3", "Layout::traverse 3 7 7",
                   "Layout::traverse 3", "Layout::traverse 3 7 7"}));
}

TEST_F(SmoothCalls, SurviveAHostThatMakesNoChannel) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const channel = scene.channel("density", 1.f);
  FakeHost::script().failing.insert("StateServer::createChannel");
  FakeHost::clearCalls();
  Smooth(Smooth::Laplacian, 2, 1.f).filter(channel, channel);
  EXPECT_EQ(channel.tileData<float>(index).data[0], 1.f);
  EXPECT_EQ(FakeHost::calls("StateServer::removeChannel").size(), 1u);
}

TEST_F(SmoothCalls, ReachVoxelsBehindAHaloAndOtherStrides) {
  FakeHost::script().nextChannel.halo = 1;
  FakeHost::script().nextChannel.strides[0] = 2;
  FakeHost::script().nextChannel.strides[1] = 14;
  FakeHost::script().nextChannel.strides[2] = 98;
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const channel = scene.channel("density", 0.f);
  auto const data = channel.tileData<float>(index);
  data.data[data.offset(2, 2, 2)] = 1.f;
  Smooth(Smooth::Laplacian, 1, 0.5f).filter(channel, channel);
  EXPECT_EQ(data.data[data.offset(2, 2, 2)], 0.5f);
  EXPECT_EQ(data.data[data.offset(1, 2, 2)], 0.5f * 0.166666672f);
  EXPECT_EQ(data.data[data.offset(2, 2, 3)], 0.5f * 0.166666672f);
}

}  // namespace
}  // namespace Velmor::Processing
