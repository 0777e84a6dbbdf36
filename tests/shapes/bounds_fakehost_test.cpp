#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "fakehost/fakehost.h"
#include "processing/bounds.h"

namespace Velmor::Processing {
namespace {

using Calls = std::vector<std::string>;
using Point = orlen::Math::vec<3, float>;
using Box = orlen::Math::bbox<Point>;

API::VoxelChannel distanceChannel(float voxelScale = 1.f) {
  auto const server = FakeHost::createStateServer("state");
  API::VoxelComponent const component(
      server.createComponent(API::VoxelComponentType, "volume", voxelScale));
  return server.createChannel(component, API::DataType::Float, "distance");
}

// A leaf tile far from the surface.
API::TileData<float> farTile(API::VoxelChannel const& channel, API::TileCoord const& voxel) {
  API::Layout const layout(channel.layout());
  auto const data = channel.tileData<float>(FakeHost::addTile(layout, layout.maxDepth(), voxel));
  std::fill_n(data.data, data.count, 100.f);
  return data;
}

// The eight calls for a point, coarse to fine.
void expectMarked(Calls& calls, std::string const& point) {
  for (int depth = 0; depth <= 7; ++depth) {
    calls.push_back("TileAccessor::addTile " + point + " " + std::to_string(depth));
  }
}

TEST(BBoxOnFakeHost, VisitsLeafTilesOnly) {
  FakeHost::reset();
  auto const channel = distanceChannel(0.1f);
  farTile(channel, {0, 0, 0});
  FakeHost::clearCalls();
  EXPECT_EQ(computeBBox(channel.layout()), Box(Point(0.f), Point(0.5f)));
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), (Calls{"Layout::traverse 8 7 7"}));
}

TEST(BBoxOnFakeHost, CoversTilesOfAnyWidthWithAnyNumberOfWorkers) {
  for (int const workers : {0, 1, 3}) {
    FakeHost::reset();
    FakeHost::script().treeWidth = FakeHost::script().reportedWidth = 4;
    FakeHost::script().workers = workers;
    FakeHost::script().nextChannel.halo = 1;
    auto const channel = distanceChannel();
    for (int const i : {-4, 0, 40}) farTile(channel, {i, 2 * i, -i});
    EXPECT_EQ(computeBBox(channel.layout()), Box({-4.f, -8.f, -40.f}, {44.f, 84.f, 8.f}));
  }
}

TEST(BBoxOnFakeHost, CopiesKeepTheBox) {
  FakeHost::reset();
  auto const channel = distanceChannel();
  API::Layout const layout(channel.layout());
  auto const tile = FakeHost::addTile(layout, 7, {10, 15, 20});
  std::unique_ptr<API::Visitor> kept;
  FakeHost::script().visit = [&](API::Visitor& visitor) {
    visitor.beginTile(layout.tileAccessor(), tile);
    kept.reset(visitor.copy());
  };
  computeBBox(layout);
  ASSERT_NE(kept, nullptr);
  FakeHost::script().visit = [&](API::Visitor& visitor) { visitor.join(*kept); };
  EXPECT_EQ(computeBBox(layout), Box({10.f, 15.f, 20.f}, {15.f, 20.f, 25.f}));
}

TEST(AccelLayoutOnFakeHost, AddsEightTilesPerVoxelInOrderOnOneWorker) {
  FakeHost::reset();
  FakeHost::script().workers = 3;
  auto const channel = distanceChannel(0.1f);
  auto const data = farTile(channel, {-1, 0, 5});
  // The tile starts at (-5, 0, 5). The first index is the outermost.
  data.data[data.offset(4, 0, 0)] = -0.2f;
  data.data[data.offset(1, 0, 2)] = 0.2f;
  data.data[data.offset(1, 3, 0)] = 0.f;
  FakeHost::clearCalls();
  auto const accel = createAccelLayout(channel);
  EXPECT_TRUE(accel.valid());
  Calls expected;
  expectMarked(expected, "-20 0 35");
  expectMarked(expected, "-20 15 25");
  expectMarked(expected, "-5 0 25");
  EXPECT_EQ(FakeHost::calls("TileAccessor::addTile"), expected);
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), (Calls{"Layout::traverse 0 7 7"}));
  EXPECT_EQ(FakeHost::calls("StateServer::createLayout"),
            (Calls{"StateServer::createLayout 'accel'"}));
  EXPECT_EQ(FakeHost::calls("Layout::setVoxelScale").size(), 1u);
  EXPECT_EQ(accel.voxelScale(), 0.1f / 5.f);
}

TEST(AccelLayoutOnFakeHost, ReadsTilesOfAnyHaloStridesAndWidth) {
  FakeHost::reset();
  auto& script = FakeHost::script();
  script.treeWidth = script.reportedWidth = 4;
  script.nextChannel.halo = 1;
  script.nextChannel.strides[0] = 36;
  script.nextChannel.strides[1] = 6;
  script.nextChannel.strides[2] = 1;
  auto const channel = distanceChannel();
  auto const data = farTile(channel, {0, 0, 0});
  data.data[0] = 0.f;  // in the halo
  data.data[data.offset(3, 1, 2)] = 1.f;
  FakeHost::clearCalls();
  EXPECT_EQ(createAccelLayout(channel).voxelScale(), 0.25f);
  Calls expected;
  expectMarked(expected, "12 4 8");
  EXPECT_EQ(FakeHost::calls("TileAccessor::addTile"), expected);
}

TEST(AccelLayoutOnFakeHost, FinderHasNoCopies) {
  FakeHost::reset();
  bool visited = false;
  FakeHost::script().visit = [&](API::Visitor& visitor) {
    visited = true;
    EXPECT_EQ(visitor.copy(), nullptr);
  };
  createAccelLayout(distanceChannel());
  EXPECT_TRUE(visited);
}

}  // namespace
}  // namespace Velmor::Processing
