#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakehost/scene.h"
#include "processing/stencil_filters.h"

namespace Velmor::Processing {
namespace {

using Calls = std::vector<std::string>;
using Block = API::VoxelTile<float, 1, 5>;
using FakeHost::elements;
using Int3 = orlen::Math::vec<3, int>;

class HaloDriver : public testing::Test {
 protected:
  void SetUp() override { FakeHost::reset(); }
};

// Gives back the voxel, by its place in the block.
template <class T>
class Centre final : public HaloFilter<T> {
 public:
  T compute(API::VoxelTile<T, 1, 5> const& tile, int i, int j, int k) const override {
    order.push_back({i, j, k});
    return tile[(k * 7 + j) * 7 + i + 57];
  }
  mutable std::vector<Int3> order;
};

// The value one voxel further in x.
class NextInX final : public HaloFilter<float> {
 public:
  float compute(Block const& tile, int i, int j, int k) const override {
    return tile.at(i + 1, j, k);
  }
};

// The leaf tile's values as 100 x + 10 y + z of their voxels.
void number(API::Channel const& channel, API::TreeIndex const& index, float shift = 0.f) {
  auto const tile = channel.tileData<float>(index);
  for (int i = 0; i < 5; ++i)
    for (int j = 0; j < 5; ++j)
      for (int k = 0; k < 5; ++k)
        tile.data[tile.offset(i, j, k)] = static_cast<float>(100 * i + 10 * j + k) + shift;
}

std::vector<float> interior(API::Channel const& channel, API::TreeIndex const& index) {
  auto const tile = channel.tileData<float>(index);
  std::vector<float> values;
  for (int i = 0; i < 5; ++i)
    for (int j = 0; j < 5; ++j)
      for (int k = 0; k < 5; ++k) values.push_back(tile.data[tile.offset(i, j, k)]);
  return values;
}

TEST_F(HaloDriver, HasXFastestInTheBlockAndOutermostInTheLoop) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 0.f);
  auto const dst = scene.channel<float>("dst", -1.f);
  number(src, index);
  Centre<float> const filter;
  filter.filter(src, dst);
  EXPECT_EQ(elements<float>(dst, index), elements<float>(src, index));
  ASSERT_EQ(filter.order.size(), 125u);
  EXPECT_EQ(filter.order[1], Int3(0, 0, 1));
  EXPECT_EQ(filter.order[5], Int3(0, 1, 0));
  EXPECT_EQ(filter.order[25], Int3(1, 0, 0));
}

TEST_F(HaloDriver, StoresWholeVectors) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<Int3>("src", Int3(1, -2, 3));
  auto const dst = scene.channel<Int3>("dst", Int3(0, 0, 0));
  Centre<Int3>().filter(src, dst);
  EXPECT_EQ(elements<Int3>(dst, index), std::vector<Int3>(125, Int3(1, -2, 3)));
}

TEST_F(HaloDriver, RefillsTheBlockForEveryTile) {
  FakeHost::Scene const scene;
  auto const first = scene.leaf(0, 0, 0);
  auto const second = scene.leaf(5, 0, 0);
  auto const src = scene.channel<float>("src", 0.f);
  auto const dst = scene.channel<float>("dst", -1.f);
  number(src, first);
  number(src, second, 1000.f);
  FakeHost::clearCalls();
  NextInX().filter(src, dst);
  EXPECT_EQ(FakeHost::calls(), (Calls{"HaloedCache::init", "Layout::traverse 3",
                                      "HaloedCache::update 0 7", "HaloedCache::update 1 7"}));
  // At the face between them the first tile sees the second.
  EXPECT_EQ(interior(dst, first)[4 * 25], 1000.f);
  EXPECT_EQ(interior(dst, first)[0], 100.f);
  EXPECT_EQ(interior(dst, second)[0], 1100.f);
}

TEST_F(HaloDriver, WritesNothingWhereTheLayoutReportsNoWidth) {
  FakeHost::script().reportedWidth = 0;
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 1.f);
  auto const dst = scene.channel<float>("dst", 9.f);
  Centre<float> const filter;
  filter.filter(src, dst);
  MeanFilter<float>().filter(src, dst);
  EXPECT_TRUE(filter.order.empty());
  EXPECT_EQ(elements<float>(dst, index), std::vector<float>(125, 9.f));
}

// Of a constant channel the mean is what the centre is, so a client's filter and a
// built-in one, which takes its own way through the tiles, give the same.
void filterBy(bool client, API::VoxelChannel const& src, API::VoxelChannel const& dst) {
  if (client) {
    Centre<float>().filter(src, dst);
  } else {
    MeanFilter<float>().filter(src, dst);
  }
}

TEST_F(HaloDriver, WritesAsManyVoxelsAsTheReportedWidth) {
  FakeHost::script().treeWidth = 4;
  FakeHost::script().reportedWidth = 4;
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 3.f);
  for (bool const client : {true, false}) {
    auto const dst = scene.channel<float>("dst", 9.f);
    filterBy(client, src, dst);
    EXPECT_EQ(elements<float>(dst, index), std::vector<float>(64, 3.f));
  }
}

TEST_F(HaloDriver, TakesTheWidthOfTheRootForEveryDepth) {
  FakeHost::script().deeperWidth = 2;
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 3.f);
  for (bool const client : {true, false}) {
    auto const dst = scene.channel<float>("dst", 9.f);
    filterBy(client, src, dst);
    EXPECT_EQ(elements<float>(dst, index), std::vector<float>(125, 3.f));
  }
}

TEST_F(HaloDriver, ObeysTheDestinationsHaloAndStrides) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 0.f);
  number(src, index);
  FakeHost::script().nextChannel.halo = 1;
  auto const haloed = scene.channel<float>("haloed", 9.f);
  // z fastest, and every second element unused.
  FakeHost::script().nextChannel = {0, {50, 10, 2}, 250};
  auto const swapped = scene.channel<float>("swapped", 9.f);
  for (auto const& dst : {haloed, swapped}) {
    Centre<float>().filter(src, dst);
    EXPECT_EQ(interior(dst, index), interior(src, index));
    auto const all = elements<float>(dst, index);
    EXPECT_EQ(std::count(all.begin(), all.end(), 9.f),
              static_cast<std::ptrdiff_t>(all.size()) - 125);
  }
}

TEST_F(HaloDriver, KernelsObeyTheDestinationsHaloAndStridesToo) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 0.f);
  number(src, index);
  auto const dense = scene.channel<float>("dense", 9.f);
  MeanFilter<float>().filter(src, dense);
  FakeHost::script().nextChannel.halo = 1;
  auto const haloed = scene.channel<float>("haloed", 9.f);
  FakeHost::script().nextChannel = {0, {50, 10, 2}, 250};
  auto const swapped = scene.channel<float>("swapped", 9.f);
  for (auto const& dst : {haloed, swapped}) {
    MeanFilter<float>().filter(src, dst);
    EXPECT_EQ(interior(dst, index), interior(dense, index));
  }
}

TEST_F(HaloDriver, ReadsASourceWithHaloAndStrides) {
  FakeHost::script().nextChannel = {1, {49, 7, 1}, 0};
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 0.f);
  number(src, index);
  FakeHost::script().nextChannel = {};
  auto const dst = scene.channel<float>("dst", 0.f);
  Centre<float>().filter(src, dst);
  EXPECT_EQ(interior(dst, index), interior(src, index));
}

TEST_F(HaloDriver, EveryWorkerHasACacheOfItsOwn) {
  FakeHost::script().workers = 3;
  FakeHost::Scene const scene;
  for (int i = 0; i < 7; ++i) scene.leaf(5 * i, 0, 0);
  auto const src = scene.channel<float>("src", 4.f);
  auto const dst = scene.channel<float>("dst", 0.f);
  FakeHost::clearCalls();
  NextInX().filter(src, dst);
  EXPECT_EQ(FakeHost::calls("Visitor::copy").size(), 3u);
  EXPECT_EQ(FakeHost::calls("HaloedCache::init").size(), 1u + 3u);
  EXPECT_EQ(FakeHost::calls("HaloedCache::update").size(), 7u);
}

TEST_F(HaloDriver, IgnoresEveryStatus) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 4.f);
  for (auto const* call : {"HaloedCache::init", "HaloedCache::update", "Layout::traverse"}) {
    FakeHost::script().failing = {call};
    auto const dst = scene.channel<float>("dst", 9.f);
    Centre<float> const filter;
    filter.filter(src, dst);
    EXPECT_EQ(filter.order.size(), 125u) << call;
    EXPECT_NE(elements<float>(dst, index)[0], 9.f) << call;
  }
}

TEST_F(HaloDriver, AsksTheHostForAllDepthsOrForARange) {
  FakeHost::Scene const scene;
  auto const two = FakeHost::addTile(scene.layout, 2, {0, 0, 0});
  auto const three = FakeHost::addTile(scene.layout, 3, {0, 0, 0});
  auto const src = scene.channel<float>("src", 1.f);
  auto const dst = scene.channel<float>("dst", 9.f);
  Centre<float> filter;
  filter.setTraversalMode(API::TraversalMode::Serial);
  filter.setDepths(2, 2);
  FakeHost::clearCalls();
  filter.filter(src, dst);
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), Calls{"Layout::traverse 0 2 2"});
  EXPECT_EQ(elements<float>(dst, two), std::vector<float>(125, 1.f));
  EXPECT_EQ(elements<float>(dst, three), std::vector<float>(125, 9.f));
  filter.setDepths(0, 4);
  FakeHost::clearCalls();
  filter.filter(src, dst);
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), Calls{"Layout::traverse 0"});
  EXPECT_EQ(elements<float>(dst, three), std::vector<float>(125, 1.f));
}

TEST_F(HaloDriver, AChannelOfTheWrongTypeIsNeverWritten) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const right = scene.channel<float>("right", 3.f);
  auto const wrong = scene.channel<int>("wrong", 3);
  Centre<float> const filter;
  filter.filter(right, wrong);
  MeanFilter<float>().filter(right, wrong);
  filter.filter(right, API::Channel());
  filter.filter(API::Channel(), right);
  EXPECT_TRUE(filter.order.empty());
  // The other way round values are lost, but nothing breaks.
  filter.filter(wrong, right);
  EXPECT_EQ(filter.order.size(), 125u);
  EXPECT_EQ(elements<int>(wrong, index), std::vector<int>(125, 3));
}

TEST_F(HaloDriver, ItsVisitorHoldsTheChannelsForOneCall) {
  FakeHost::Scene const scene;
  auto const index = scene.leaf(0, 0, 0);
  auto const src = scene.channel<float>("src", 1.f);
  auto const dst = scene.channel<float>("dst", 0.f);
  FakeHost::script().visit = [&](API::Visitor& visitor) {
    std::unique_ptr<API::Visitor> const copy(visitor.copy());
    ASSERT_NE(copy, nullptr);
    copy->beginTile(scene.layout.tileAccessor(), index);
    visitor.join(*copy);
  };
  NextInX().filter(src, dst);
  EXPECT_EQ(interior(dst, index)[0], 1.f);
  EXPECT_EQ(FakeHost::handleCount(src), 1);
  EXPECT_EQ(FakeHost::handleCount(dst), 1);
}

}  // namespace
}  // namespace Velmor::Processing
