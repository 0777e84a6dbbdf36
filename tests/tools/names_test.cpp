#include "names.h"

#include <gtest/gtest.h>

namespace Velmor::Tool {
namespace {

TEST(NearestName, FindsMistypedNames) {
  std::vector<std::string> const names{"density", "distance", "velocity"};
  EXPECT_EQ(nearestName("distnce", names), "distance");
  EXPECT_EQ(nearestName("Distance", names), "distance");
  EXPECT_EQ(nearestName("ditsance", names), "distance");
  EXPECT_EQ(nearestName("velocty", names), "velocity");
}

TEST(NearestName, IsEmptyForWhatIsNoMisspelling) {
  EXPECT_EQ(nearestName("zzz", {"density", "distance"}), "");
  EXPECT_EQ(nearestName("x", {"phi"}), "");
  EXPECT_EQ(nearestName("a", {"b"}), "");
  EXPECT_EQ(nearestName("phi", {}), "");
}

TEST(QuotedList, QuotesEachName) {
  EXPECT_EQ(quotedList({"a", "b c"}, "none"), "'a', 'b c'");
  EXPECT_EQ(quotedList({}, "none"), "none");
}

TEST(FrameList, DrawsRunsTogether) {
  EXPECT_EQ(frameList({1, 2, 3, 5, 7, 8}), "1..3, 5, 7, 8");
  EXPECT_EQ(frameList({-2, -1, 0}), "-2..0");
  EXPECT_EQ(frameList({}), "");
}

}  // namespace
}  // namespace Velmor::Tool
