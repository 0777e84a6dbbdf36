#include <gtest/gtest.h>

#include <random>
#include <string>

#include "fakehost/fakehost.h"
#include "intersection/plain_walk.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using Velmor::Test::PlainWalk;
using Point = orlen::Math::vec<3, float>;

// Leaf tiles at random, on a host whose grid of tiles is not the walk's.
API::Layout randomLayout(std::mt19937& random) {
  auto const server = FakeHost::createStateServer("state");
  API::Layout const layout(server.createLayout("layout"));
  std::uniform_int_distribution<int> voxel(-30, 30);
  for (int n = 0; n < 40; ++n) {
    API::TileCoord const at{voxel(random), voxel(random), voxel(random)};
    for (int depth = 0; depth <= layout.maxDepth(); ++depth) FakeHost::addTile(layout, depth, at);
  }
  return layout;
}

TEST(IntersectorOnFakeHost, TakesWidthAndDepthFromTheLayout) {
  unsigned const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> turn(-1.f, 1.f);
  long found = 0;
  for (int const width : {2, 3, 4, 5, 8}) {
    for (int const depth : {1, 3, 4}) {
      FakeHost::reset();
      FakeHost::script().treeWidth = FakeHost::script().reportedWidth = width;
      FakeHost::script().maxDepth = depth;
      auto const layout = randomLayout(random);
      Intersector tiles(layout);
      PlainWalk plain(layout);
      for (int r = 0; r < 1000; ++r) {
        Point const o = Point(turn(random), turn(random), turn(random)) * 30.f;
        Point const d(turn(random), turn(random), r % 5 == 0 ? 0.f : turn(random));
        tiles.init(o, d, 0.f, 100.f);
        plain.init(o, d, 0.f, 100.f);
        for (int n = 0; n < 1000; ++n) {
          auto const i = tiles.next(), j = plain.next();
          ASSERT_EQ(i.t0, j.t0) << "width " << width << ", depth " << depth;
          ASSERT_EQ(i.t1, j.t1) << "width " << width << ", depth " << depth;
          if (!i.valid()) break;
          ++found;
        }
      }
    }
  }
  EXPECT_GT(found, 500);
}

}  // namespace
}  // namespace Velmor::Processing
