#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakehost/scene.h"
#include "processing/pointwise_filters.h"
#include "support/copies.h"

namespace Velmor::Processing {
namespace {

using Calls = std::vector<std::string>;
using FakeHost::elements;
using Test::copiesOf;
using Int3 = orlen::Math::vec<3, int>;

class TransformDriver : public testing::Test {
 protected:
  void SetUp() override { FakeHost::reset(); }
};

// A class of a client: the library knows nothing of it.
class Doubled final : public TransformFilter<int> {
 public:
  int compute(int const& value) const override {
    ++calls;
    return 2 * value;
  }
  mutable int calls = 0;
};

// A client's own rule on top of a class of the library.
class OffsetAndNegated final : public OffsetFilter<int> {
 public:
  using OffsetFilter<int>::OffsetFilter;
  int compute(int const& value) const override { return -OffsetFilter<int>::compute(value); }
};

TEST_F(TransformDriver, CountsElementsByTheSource) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<int>("src", 1);
  FakeHost::script().nextChannel.count = 130;
  auto const dst = scene.channel<int>("dst", 9);
  OffsetFilter<int>(1).filter(src, dst);
  std::vector<int> expected(130, 2);
  std::fill(expected.begin() + 125, expected.end(), 9);
  EXPECT_EQ(elements<int>(dst, index), expected);
}

TEST_F(TransformDriver, CoversTheHalo) {
  FakeHost::script().nextChannel.halo = 1;
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const channel = scene.channel<float>("channel", 1.f);
  OffsetFilter<float>(0.5f).filter(channel, channel);
  EXPECT_EQ(elements<float>(channel, index), std::vector<float>(343, 1.5f));
}

TEST_F(TransformDriver, RunsOverTilesOfAnySize) {
  // Around whole and broken numbers of vector registers.
  for (std::size_t const count : {1u, 127u, 128u, 129u, 1000u}) {
    FakeHost::reset();
    FakeHost::script().nextChannel.count = count;
    FakeHost::Scene const scene;
    auto const index = scene.leaf(0, 0, 0);
    auto const src = scene.channel<Int3>("src", Int3(0, 0, 0));
    auto const dst = scene.channel<Int3>("dst", Int3(0, 0, 0));
    auto const in = src.tileData<Int3>(index);
    for (int e = 0; e < static_cast<int>(count); ++e) in.data[e] = Int3(e, -e, 3 * e);
    auto expected = elements<Int3>(src, index);
    for (auto& value : expected) value = Int3(value.x * 2 + 1, value.y * 3 + 5, value.z - 1);
    RemapFilter<Int3>(Int3(0, 0, 1), Int3(1, 1, 2), Int3(1, 5, 0), Int3(3, 8, 1)).filter(src, dst);
    EXPECT_EQ(elements<Int3>(dst, index), expected);
    RemapFilter<Int3>(Int3(0, 0, 1), Int3(1, 1, 2), Int3(1, 5, 0), Int3(3, 8, 1)).filter(src, src);
    EXPECT_EQ(elements<Int3>(src, index), expected);
  }
}

TEST_F(TransformDriver, IgnoresAFailingTraversal) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const channel = scene.channel<int>("channel", 1);
  FakeHost::script().failing = {"Layout::traverse"};
  OffsetFilter<int>(1).filter(channel, channel);
  EXPECT_EQ(elements<int>(channel, index)[0], 2);
}

TEST_F(TransformDriver, AsksTheHostForAllDepthsOrForARange) {
  FakeHost::Scene const scene;
  auto const channel = scene.channel<int>("channel", 1);
  OffsetFilter<int> filter(1);
  auto const traversal = [&](int minDepth, int maxDepth, int mode) {
    filter.setDepths(minDepth, maxDepth);
    filter.setTraversalMode(static_cast<API::TraversalMode>(mode));
    FakeHost::clearCalls();
    filter.filter(channel, channel);
    EXPECT_EQ(FakeHost::calls().size(), 1u);
    return FakeHost::calls()[0];
  };
  EXPECT_EQ(traversal(-1, -1, 3), "Layout::traverse 3");
  EXPECT_EQ(traversal(-5, -1, 3), "Layout::traverse 3");
  EXPECT_EQ(traversal(0, 0, 3), "Layout::traverse 3");
  EXPECT_EQ(traversal(0, 5, 3), "Layout::traverse 3");
  EXPECT_EQ(traversal(-1, 3, 0), "Layout::traverse 0");
  EXPECT_EQ(traversal(1, 1, 3), "Layout::traverse 3 1 1");
  EXPECT_EQ(traversal(2, 4, 42), "Layout::traverse 42 2 4");
  EXPECT_EQ(traversal(5, 100, -1), "Layout::traverse -1 5 100");
}

TEST_F(TransformDriver, CallsAClientsComputeOncePerElement) {
  FakeHost::Scene const scene;
  std::vector<API::TreeIndex> const tiles{scene.leaf(0, 0, 0), scene.leaf(5, 0, 0),
                                          scene.leaf(0, -5, 0)};
  auto const channel = scene.channel<int>("channel", 3);
  Doubled const filter;
  filter.filter(channel, channel);
  EXPECT_EQ(filter.calls, 3 * 125);
  for (auto const& index : tiles) {
    EXPECT_EQ(elements<int>(channel, index), std::vector<int>(125, 6));
  }
}

TEST_F(TransformDriver, CallsTheComputeOfAClassDerivedFromOneOfTheLibrary) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const channel = scene.channel<int>("channel", 3);
  OffsetAndNegated(4).filter(channel, channel);
  EXPECT_EQ(elements<int>(channel, index), std::vector<int>(125, -7));
}

TEST_F(TransformDriver, OneChannelOfTheWrongTypeIsLeftAloneLikeTheOther) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const right = scene.channel<float>("right", 3.f);
  auto const wrong = scene.channel<int>("wrong", 3);
  Doubled const client;
  OffsetFilter<float>(1.f).filter(right, wrong);
  OffsetFilter<float>(1.f).filter(wrong, right);
  client.filter(wrong, right);
  client.filter(right, wrong);
  OffsetFilter<float>(1.f).filter(API::Channel(), right);
  OffsetFilter<float>(1.f).filter(right, API::Channel());
  EXPECT_EQ(client.calls, 0);
  EXPECT_EQ(elements<float>(right, index), std::vector<float>(125, 3.f));
  EXPECT_EQ(elements<int>(wrong, index), std::vector<int>(125, 3));
}

TEST_F(TransformDriver, GivesEveryWorkerAVisitorThatWorksAlone) {
  FakeHost::script().workers = 3;
  FakeHost::Scene const scene;
  std::vector<API::TreeIndex> tiles;
  for (int i = 0; i < 7; ++i) tiles.push_back(scene.leaf(5 * i, 0, 0));
  auto const src = scene.channel<int>("src", 1);
  auto const dst = scene.channel<int>("dst", 0);
  OffsetFilter<int>(1).filter(src, dst);
  EXPECT_EQ(FakeHost::calls("Visitor::copy").size(), 3u);
  EXPECT_EQ(FakeHost::calls("Visitor::join").size(), 3u);
  for (auto const& index : tiles) EXPECT_EQ(elements<int>(dst, index)[124], 2);
}

TEST_F(TransformDriver, ItsVisitorAndCopiesHoldTheChannelsForOneCall) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<int>("src", 1);
  auto const dst = scene.channel<int>("dst", 0);
  int handlesWithACopy = 0;
  int handlesBefore = 0;
  FakeHost::script().visit = [&](API::Visitor& visitor) {
    handlesBefore = FakeHost::handleCount(src);
    std::unique_ptr<API::Visitor> const copy(visitor.copy());
    ASSERT_NE(copy, nullptr);
    handlesWithACopy = FakeHost::handleCount(src);
    copy->beginTraverse();
    copy->beginTile(scene.layout.tileAccessor(), index);
    copy->endTile(scene.layout.tileAccessor(), index);
    copy->visitVoxel(scene.layout.tileAccessor(), index, 0, 0, 0);
    copy->endTraverse();
    visitor.join(*copy);
  };
  OffsetFilter<int>(1).filter(src, dst);
  EXPECT_EQ(handlesWithACopy, handlesBefore + 1);
  EXPECT_EQ(FakeHost::handleCount(src), 1);
  EXPECT_EQ(FakeHost::handleCount(dst), 1);
  EXPECT_EQ(elements<int>(dst, index), std::vector<int>(125, 2));
}

TEST_F(TransformDriver, CopiesAndAssignedFiltersWriteTheSame) {
  FakeHost::Scene const scene;
  auto const two = FakeHost::addTile(scene.layout, 2, {0, 0, 0});
  auto const three = FakeHost::addTile(scene.layout, 3, {0, 0, 0});
  auto const src = scene.channel<int>("src", 1);
  OffsetFilter<int> original(4);
  original.setTraversalMode(API::TraversalMode::Serial);
  original.setDepths(2, 2);
  for (auto const& filter : copiesOf(original, OffsetFilter<int>(0))) {
    auto const dst = scene.channel<int>("dst", 9);
    FakeHost::clearCalls();
    filter.filter(src, dst);
    EXPECT_EQ(FakeHost::calls(), Calls{"Layout::traverse 0 2 2"});
    EXPECT_EQ(elements<int>(dst, two), std::vector<int>(125, 5));
    EXPECT_EQ(elements<int>(dst, three), std::vector<int>(125, 9));
  }
}

}  // namespace
}  // namespace Velmor::Processing
