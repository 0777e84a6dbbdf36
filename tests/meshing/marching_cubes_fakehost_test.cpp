#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "fakehost/fakehost.h"
#include "fakehost/scene.h"
#include "support/marching_cubes_reference.h"
#include "support/mesh_checks.h"

namespace Velmor::Processing {
namespace {

using namespace Velmor::Test;
using Calls = std::vector<std::string>;
using Point = orlen::Math::vec<3, float>;

float distanceAt(Point const& p) {
  return std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z) - 6.3f + 0.1f * std::sin(p.x);
}

// A bumpy sphere around the origin over tiles of the width that the script says.
API::VoxelChannel sphereOnFakeHost() {
  FakeHost::script().sample = distanceAt;
  auto const server = FakeHost::createStateServer("state");
  API::VoxelComponent const component(
      server.createComponent(API::VoxelComponentType, "volume", 1.f));
  API::VoxelChannel const channel(
      server.createChannel(component, API::DataType::Float, "distance"));
  API::Layout const layout(channel.layout());
  int const width = FakeHost::script().treeWidth;
  for (int k = -3 * width; k < 3 * width; k += width)
    for (int j = -3 * width; j < 3 * width; j += width)
      for (int i = -3 * width; i < 3 * width; i += width) {
        auto const data =
            channel.tileData<float>(FakeHost::addTile(layout, layout.maxDepth(), {i, j, k}));
        for (int z = 0; z < width; ++z)
          for (int y = 0; y < width; ++y)
            for (int x = 0; x < width; ++x)
              data.data[data.offset(x, y, z)] =
                  distanceAt(Point(static_cast<float>(i + x), static_cast<float>(j + y),
                                   static_cast<float>(k + z)) +
                             Point(0.5f));
      }
  FakeHost::clearCalls();
  return channel;
}

TEST(MarchingCubesOnFakeHost, AsksForLeafTilesAndOneSamplerPerCopy) {
  FakeHost::reset();
  FakeHost::script().workers = 3;
  auto const channel = sphereOnFakeHost();
  meshOf(channel);
  EXPECT_EQ(FakeHost::calls("Layout::traverse"), (Calls{"Layout::traverse 7 7 7"}));
  EXPECT_EQ(FakeHost::calls("VoxelChannel::createSampler"),
            Calls(4, "VoxelChannel::createSampler 'QBSpline' 1"));
  EXPECT_EQ(FakeHost::calls("Visitor::copy").size(), 3u);
  EXPECT_EQ(FakeHost::calls("Visitor::join").size(), 3u);
}

TEST(MarchingCubesOnFakeHost, MeshesAnyHaloStridesAndWidth) {
  for (int const width : {5, 4, 3, 7}) {
    for (int const halo : {0, 1, 2}) {
      for (bool const zFastest : {false, true}) {
        SCOPED_TRACE(testing::Message() << "width " << width << ", halo " << halo);
        FakeHost::reset();
        FakeHost::useTiles(width, halo, zFastest);
        auto const channel = sphereOnFakeHost();
        for (unsigned const subdivisions : {0u, 1u, 7u}) {
          // Too fine for a block per tile, and slow in the reference.
          if (subdivisions == 7 && (halo != 1 || width != 4)) continue;
          auto const expected =
              ReferenceMarchingCubes().mesh(channel, static_cast<int>(subdivisions) + 1);
          EXPECT_EQ(unbalancedEdges(expected), 0u);
          for (int const workers : {0, 1, 4}) {
            FakeHost::script().workers = workers;
            EXPECT_TRUE(sameBytes(meshOf(channel, subdivisions), expected))
                << subdivisions << " subdivisions, " << workers << " workers";
          }
        }
      }
    }
  }
}

TEST(MarchingCubesOnFakeHost, GivesNothingForAWidthThatTilesDoNotHave) {
  FakeHost::reset();
  auto const channel = sphereOnFakeHost();
  EXPECT_FALSE(meshOf(channel).triangles.empty());
  FakeHost::reset();
  FakeHost::script().reportedWidth = 9;
  EXPECT_TRUE(meshOf(sphereOnFakeHost()).triangles.empty());
}

TEST(MarchingCubesOnFakeHost, DividesByTheFirstDifferenceBeyondTheEpsilon) {
  float const epsilon = 1.1920929e-7f, more = std::nextafter(epsilon, 1.f);
  for (float const difference : {epsilon, more}) {
    FakeHost::reset();
    // A quarter of the way from the corner at 2 to that at 3.
    FakeHost::script().sample = [=](Point const& p) {
      return (p.x < 2.5f ? 0.f : difference) - 0.25f * epsilon;
    };
    FakeHost::Scene const scene;
    auto const channel = scene.channel<float>("distance", 0.f);
    scene.leaf(0, 0, 0);
    auto const mesh = meshOf(channel);
    EXPECT_EQ(mesh.points.count(), 36u);
    for (auto const& p : mesh.points) EXPECT_EQ(p.x, difference == epsilon ? 2.f : 2.25f);
  }
}

TEST(MarchingCubesOnFakeHost, GivesNothingWhenTheTraversalFails) {
  FakeHost::reset();
  auto const channel = sphereOnFakeHost();
  FakeHost::script().failing = {"Layout::traverse"};
  FakeHost::script().visit = [](API::Visitor&) {};
  Mesh mesh{{Point(1.f)}, {{1, 2, 3}}};
  MarchingCubes(0).mesh(channel, mesh.points, mesh.triangles);
  EXPECT_TRUE(mesh.points.empty() && mesh.triangles.empty());
}

// Joins by hand: what visitors do with what others have gathered.
class MarchingCubesJoin : public testing::Test {
 protected:
  MarchingCubesJoin() {
    FakeHost::reset();
    channel_ = sphereOnFakeHost();
    API::Layout const layout(channel_.layout());
    accessor_ = layout.tileAccessor();
    for (auto it = layout.tileIterator(7, 7, API::TraversalMode::Serial); it.valid(); it.next()) {
      tiles_.push_back(it.index());
    }
  }

  // A quarter of the tiles each.
  void visit(API::Visitor& visitor, std::size_t quarter) const {
    for (auto t = quarter * tiles_.size() / 4; t < (quarter + 1) * tiles_.size() / 4; ++t) {
      visitor.beginTile(accessor_, tiles_[t]);
    }
  }
  std::unique_ptr<API::Visitor> copyThatVisits(API::Visitor const& visitor,
                                               std::size_t quarter) const {
    std::unique_ptr<API::Visitor> copy(visitor.copy());
    visit(*copy, quarter);
    return copy;
  }
  template <class Visit>
  Mesh meshBy(Visit const& visitBy) const {
    FakeHost::script().visit = visitBy;
    return meshOf(channel_);
  }
  // What one visitor makes of the quarters in that order.
  Mesh inOrder(std::vector<std::size_t> const& quarters) const {
    return meshBy([&](API::Visitor& v) {
      for (auto const q : quarters) visit(v, q);
      v.endTraverse();
    });
  }

  API::VoxelChannel channel_;
  API::TileAccessor accessor_;
  std::vector<API::TreeIndex> tiles_;
};

TEST_F(MarchingCubesJoin, KeepsTheOrderOfFlatJoins) {
  auto const joined = meshBy([&](API::Visitor& v) {
    visit(v, 0);
    for (std::size_t q = 1; q < 4; ++q) v.join(*copyThatVisits(v, q));
    v.endTraverse();
  });
  EXPECT_FALSE(joined.triangles.empty());
  EXPECT_TRUE(sameBytes(joined, inOrder({0, 1, 2, 3})));
}

TEST_F(MarchingCubesJoin, PutsWhatTheOtherHasJoinedBeforeWhatItVisited) {
  auto const joined = meshBy([&](API::Visitor& v) {
    auto const a = copyThatVisits(v, 1), b = copyThatVisits(v, 2), c = copyThatVisits(v, 3);
    b->join(*c);
    a->join(*b);
    visit(v, 0);
    v.join(*a);
    v.endTraverse();
  });
  EXPECT_TRUE(sameBytes(joined, inOrder({0, 3, 2, 1})));
}

TEST_F(MarchingCubesJoin, TakesNothingFromCopiesThatFoundNothing) {
  auto const joined = meshBy([&](API::Visitor& v) {
    std::unique_ptr<API::Visitor> const idle(v.copy());
    v.join(*idle);
    v.join(*copyThatVisits(v, 2));
    v.join(*idle);
    v.endTraverse();
  });
  EXPECT_FALSE(joined.triangles.empty());
  EXPECT_TRUE(sameBytes(joined, inOrder({2})));
}

TEST_F(MarchingCubesJoin, CopiesStartEmpty) {
  auto const joined = meshBy([&](API::Visitor& v) {
    visit(v, 0);
    v.join(*copyThatVisits(v, 1));
    v.join(*std::unique_ptr<API::Visitor>(v.copy()));
    v.endTraverse();
  });
  EXPECT_TRUE(sameBytes(joined, inOrder({0, 1})));
}

}  // namespace
}  // namespace Velmor::Processing
