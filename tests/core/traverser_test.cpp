#include "processing/traverser.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

namespace Velmor::Processing {
namespace {

using Pair = orlen::Math::vec<2, int>;

template <class T, class = void>
constexpr bool hasTraversalMode = false;
template <class T>
constexpr bool hasTraversalMode<T, std::void_t<decltype(std::declval<T&>().traversalMode())>> =
    true;

static_assert(hasTraversalMode<Traverser> && !hasTraversalMode<Traverser const>);
static_assert(std::has_virtual_destructor_v<Traverser>);
// One virtual table, the mode, the pair.
static_assert(sizeof(Traverser) <= sizeof(void*) + 16);

TEST(Traverser, StartsWithModeThreeAndAllDepths) {
  Traverser traverser;
  EXPECT_EQ(static_cast<int>(traverser.traversalMode()), 3);
  EXPECT_EQ(traverser.depths(), Pair(-1, -1));
}

TEST(Traverser, StoresAnyMode) {
  Traverser traverser;
  for (int const mode : {0, 7, 8, -1, 12345}) {
    traverser.setTraversalMode(static_cast<API::TraversalMode>(mode));
    EXPECT_EQ(static_cast<int>(traverser.traversalMode()), mode);
  }
}

TEST(Traverser, RefusesDescendingDepthsAndKeepsThePair) {
  Traverser traverser;
  EXPECT_FALSE(traverser.setDepths(3, 2));
  EXPECT_EQ(traverser.depths(), Pair(-1, -1));
  EXPECT_TRUE(traverser.setDepths(2, 4));
  EXPECT_FALSE(traverser.setDepths(2, -1));
  EXPECT_EQ(traverser.depths(), Pair(2, 4));
}

TEST(Traverser, AcceptsEqualZeroAndNegativeDepths) {
  Traverser traverser;
  for (auto const pair : {Pair(2, 2), Pair(-5, -1), Pair(0, 4), Pair(0, 0), Pair(-3, 7)}) {
    EXPECT_TRUE(traverser.setDepths(pair.x, pair.y));
    EXPECT_EQ(traverser.depths(), pair);
  }
}

TEST(Traverser, CopiesBothSettings) {
  Traverser a;
  a.setTraversalMode(API::TraversalMode::Serial);
  a.setDepths(2, 3);
  Traverser b(a);
  Traverser c;
  c = a;
  Traverser d(std::move(b));
  for (auto* const copy : {&c, &d}) {
    EXPECT_EQ(copy->traversalMode(), API::TraversalMode::Serial);
    EXPECT_EQ(copy->depths(), Pair(2, 3));
  }
}

}  // namespace
}  // namespace Velmor::Processing
