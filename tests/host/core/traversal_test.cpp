#include <gtest/gtest.h>

#include <algorithm>

#include "random_tree.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

using Indices = std::vector<API::TreeIndex>;

/// Lists the tiles it is shown; joined lists follow each other.
class Lister final : public API::Visitor {
 public:
  explicit Lister(bool copies = true) : copies_(copies) {}
  void beginTraverse() override { ++begun; }
  void endTraverse() override { ++ended; }
  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    EXPECT_TRUE(accessor.tile(index).valid());
    list.push_back(index);
  }
  void endTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    EXPECT_EQ(list.back(), index);
  }
  API::Visitor* copy() const override {
    if (!copies_) return nullptr;
    ++made;
    EXPECT_TRUE(list.empty());
    return new Lister(*this);
  }
  void join(API::Visitor const& other) override {
    auto const& lister = static_cast<Lister const&>(other);
    EXPECT_EQ(lister.ended, 0);
    sizes.push_back(lister.list.size());
    list.insert(list.end(), lister.list.begin(), lister.list.end());
  }

  Indices list;
  std::vector<std::size_t> sizes;  // of what was joined
  mutable int made = 0;
  int begun = 0, ended = 0;

 private:
  bool copies_;
};

Scene shuffledScene() {
  auto scene = randomScene(11, 400);
  auto coords = sphereTiles(30.f, Vec3(3.f), 2.f);
  std::mt19937 random(4);
  std::shuffle(coords.begin(), coords.end(), random);
  auto const accessor = scene.layout.tileAccessor();
  for (auto const& coord : coords) accessor.addTile(coord, 7);
  return scene;
}

// Coarse first, and within a depth by the children's order from the root down.
Indices expectedOrder(API::Layout const& layout) {
  auto const accessor = layout.tileAccessor();
  Indices order;
  std::vector<API::Tile> level;
  auto const root = accessor.tile(0, 0, 0, 0);
  if (root.valid()) level.push_back(root);
  while (!level.empty()) {
    std::vector<API::Tile> next;
    for (auto const& tile : level) {
      order.push_back(tile.index());
      for (int c = 0; c < 125; ++c) {
        auto const child = tile.child(c % 5, c / 5 % 5, c / 25);
        if (child.valid()) next.push_back(child);
      }
    }
    level = std::move(next);
  }
  return order;
}

TEST(Traversal, GoesCoarseFirstAndInChildOrderWithinADepth) {
  auto const scene = shuffledScene();
  auto const expected = expectedOrder(scene.layout);
  for (auto const mode :
       {API::TraversalMode::Serial, API::TraversalMode::Tiles, API::TraversalMode::Mesh,
        API::TraversalMode::Bounds, static_cast<API::TraversalMode>(99)}) {
    Lister visitor;
    EXPECT_TRUE(scene.layout.traverse(visitor, mode).succeeded());
    EXPECT_EQ(visitor.list, expected);
    EXPECT_EQ(visitor.begun, 1);
    EXPECT_EQ(visitor.ended, 1);
    EXPECT_EQ(visitor.made > 0, mode != API::TraversalMode::Serial);
  }
  Indices iterated;
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) { iterated.push_back(index); });
  EXPECT_EQ(iterated, expected);
}

TEST(Traversal, CutsTheSameChunksForAnyNumberOfThreads) {
  auto const scene = shuffledScene();
  std::vector<std::size_t> sizes;
  for (int const threads : {1, 2, 3, 8, 64}) {
    Threads const settings(threads);
    Lister visitor;
    ASSERT_TRUE(scene.layout.traverse(visitor, API::TraversalMode::Tiles, 7, 7).succeeded());
    if (threads == 1) sizes = visitor.sizes;
    EXPECT_EQ(visitor.sizes, sizes) << threads;
    EXPECT_GT(visitor.sizes.size(), 20u);
  }
}

TEST(Traversal, KeepsAVisitorThatMakesNoCopies) {
  auto const scene = shuffledScene();
  Lister visitor(false);
  ASSERT_TRUE(scene.layout.traverse(visitor, API::TraversalMode::Tiles).succeeded());
  EXPECT_EQ(visitor.list, expectedOrder(scene.layout));
  EXPECT_TRUE(visitor.sizes.empty());
}

TEST(Traversal, KeepsToItsDepths) {
  auto const scene = shuffledScene();
  Lister visitor;
  ASSERT_TRUE(scene.layout.traverse(visitor, API::TraversalMode::Tiles, 5, 6).succeeded());
  for (auto const& index : visitor.list) EXPECT_TRUE(index.depth == 5 || index.depth == 6);
  EXPECT_EQ(visitor.list.size(),
            Host::tileCount(scene.layout, 5) + Host::tileCount(scene.layout, 6));
  Lister none;
  ASSERT_TRUE(scene.layout.traverse(none, API::TraversalMode::Tiles, 8, 12).succeeded());
  EXPECT_TRUE(none.list.empty());
  EXPECT_EQ(none.ended, 1);
}

TEST(Traversal, DoesNotVisitTilesThatItAdds) {
  class Adder final : public API::Visitor {
   public:
    void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
      ++visited;
      auto const low = accessor.tile(index).coord();
      accessor.addTile(low.i + 5, low.j, low.k, 7);
    }
    API::Visitor* copy() const override { return new Adder(*this); }
    void join(API::Visitor const& other) override {
      visited += static_cast<Adder const&>(other).visited;
    }
    std::size_t visited = 0;
  };
  for (auto const mode : {API::TraversalMode::Serial, API::TraversalMode::Tiles}) {
    auto const scene = sphereScene(20.f);
    auto const before = Host::tileCount(scene.layout, 7);
    Adder visitor;
    ASSERT_TRUE(scene.layout.traverse(visitor, mode, 7, 7).succeeded());
    EXPECT_EQ(visitor.visited, before);
    EXPECT_GT(Host::tileCount(scene.layout, 7), before);
    Lister again;
    ASSERT_TRUE(scene.layout.traverse(again, mode).succeeded());
    EXPECT_EQ(again.list, expectedOrder(scene.layout));
  }
}

TEST(Traversal, FailsWithoutALayoutAndOnRequest) {
  Lister visitor;
  EXPECT_EQ(API::Layout().traverse(visitor, API::TraversalMode::Serial).message(),
            "cannot traverse an invalid layout");
  auto const scene = emptyScene();
  EXPECT_TRUE(scene.layout.traverse(visitor, API::TraversalMode::Tiles).succeeded());
  Host::failCalls(Host::Call::Traverse);
  EXPECT_FALSE(scene.layout.traverse(visitor, API::TraversalMode::Tiles).succeeded());
  EXPECT_TRUE(scene.layout.traverse(visitor, API::TraversalMode::Tiles).succeeded());
  EXPECT_TRUE(visitor.list.empty());
}

}  // namespace
