#include "frames.h"

#include <gtest/gtest.h>

#include "failure.h"
#include "support/cache_folder.h"
#include "tools/run.h"

namespace Velmor::Tool {
namespace {

using Frames = std::vector<int>;

TEST(ParseFrames, ReadsRangesStepsAndLists) {
  EXPECT_EQ(parseFrames("7"), Frames{7});
  EXPECT_EQ(parseFrames("1-4"), (Frames{1, 2, 3, 4}));
  EXPECT_EQ(parseFrames("1-8x3"), (Frames{1, 4, 7}));
  EXPECT_EQ(parseFrames("1,5,9-11"), (Frames{1, 5, 9, 10, 11}));
  EXPECT_EQ(parseFrames("3-1"), (Frames{3, 2, 1}));
  EXPECT_EQ(parseFrames("-3--1"), (Frames{-3, -2, -1}));
  EXPECT_EQ(parseFrames("2,1-3"), (Frames{2, 1, 3}));
  EXPECT_EQ(parseFrames("2147483646-2147483647").size(), 2u);
}

TEST(ParseFrames, RefusesEverythingElse) {
  for (auto const* text : {"", "a", "1-", "1-4x", "1-4x0", "1-4x-1", "1,,2", "1 2", "1-4,",
                           "99999999999", "-2147483648-2147483647", "1-4y2"}) {
    EXPECT_THROW(parseFrames(text), Failure) << text;
  }
}

TEST(FramePattern, PutsTheNumberIntoItsPlace) {
  EXPECT_EQ(FramePattern("a.####.ply").path(12), "a.0012.ply");
  EXPECT_EQ(FramePattern("a.####.ply").path(123456), "a.123456.ply");
  EXPECT_EQ(FramePattern("a.####.ply").path(-12), "a.-0012.ply");
  EXPECT_EQ(FramePattern("a%04d.ply").path(12), "a0012.ply");
  EXPECT_EQ(FramePattern("a%d.ply").path(12), "a12.ply");
  EXPECT_EQ(FramePattern("b##/a.###").path(1), "b##/a.001");
  EXPECT_FALSE(FramePattern("b##/a.ply").numbered());
  EXPECT_FALSE(FramePattern("50%.ply").numbered());
}

TEST(FramePattern, FindsTheFilesItWouldWrite) {
  Velmor::Test::CacheFolder const folder;
  auto const path = folder.path().str();
  for (auto const* name : {"a.0001.ply", "a.0010.ply", "a.2.ply", "a.-0003.ply", "b.0001.ply",
                           "a.0001.ply.bak", "a.12345.ply", "a.00012.ply"}) {
    Velmor::Test::writeFile(path + "/" + name, "");
  }
  Frames found;
  for (auto const& [frame, file] : FramePattern(path + "/a.####.ply").find()) {
    found.push_back(frame);
    EXPECT_EQ(file, FramePattern(path + "/a.####.ply").path(frame));
  }
  EXPECT_EQ(found, (Frames{-3, 1, 10, 12345}));
  EXPECT_THROW(FramePattern(path + "/none/a.#.ply").find(), Failure);
}

}  // namespace
}  // namespace Velmor::Tool
