#include "velmorhost/settings.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/scene.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

TEST(Settings, ShapeTheLayoutsThatFollowOnly) {
  auto const before = emptyScene();
  LayoutShape const settings({3, 0, true});
  auto const scene = emptyScene();
  EXPECT_EQ(before.layout.maxDepth(), 7);
  EXPECT_EQ(scene.layout.maxDepth(), 3);
  EXPECT_EQ(scene.layout.tileDimInfo(0).width, 0);
  EXPECT_EQ(scene.layout.tileDimInfo(0).extent, 625);
  EXPECT_TRUE(scene.layout.tileAccessor().addTile(312, -312, 0, 3).valid());
}

TEST(Settings, LimitTheDepth) {
  LayoutShape const restore(Host::layoutSettings());
  Host::setLayoutSettings({12, 5, true});
  EXPECT_EQ(Host::layoutSettings().depth, 7);
  Host::setLayoutSettings({0, 5, true});
  EXPECT_EQ(Host::layoutSettings().depth, 1);
}

TEST(Settings, CountThreads) {
  EXPECT_GE(Host::threadCount(), 1);
  {
    Threads const threads(3);
    EXPECT_EQ(Host::threadCount(), 3);
  }
  Host::setThreadCount(-4);
  EXPECT_GE(Host::threadCount(), 1);
}

TEST(Settings, FailTheCallsThatWereAskedFor) {
  EXPECT_FALSE(Host::mustFail(Host::Call::SaveResource));
  Host::failCalls(Host::Call::SaveResource, 2, 1);
  EXPECT_FALSE(Host::mustFail(Host::Call::LoadResource));
  EXPECT_FALSE(Host::mustFail(Host::Call::SaveResource));
  EXPECT_TRUE(Host::mustFail(Host::Call::SaveResource));
  EXPECT_TRUE(Host::mustFail(Host::Call::SaveResource));
  EXPECT_FALSE(Host::mustFail(Host::Call::SaveResource));
  Host::failCalls(Host::Call::SaveResource, 5);
  Host::clearFailures();
  EXPECT_FALSE(Host::mustFail(Host::Call::SaveResource));
}

TEST(Settings, HandMessagesToTheHandlerAndElseToStandardError) {
  std::vector<std::string> messages;
  Host::setMessageHandler([&](Host::Severity severity, std::string const& text) {
    messages.push_back((severity == Host::Severity::Note ? "note " : "other ") + text);
  });
  Host::report(Host::Severity::Note, "a");
  Host::report(Host::Severity::Error, "b");
  Host::setMessageHandler(nullptr);
  EXPECT_EQ(messages, (std::vector<std::string>{"note a", "other b"}));
  ::testing::internal::CaptureStderr();
  Host::report(Host::Severity::Note, "a");
  Host::report(Host::Severity::Warning, "w");
  Host::report(Host::Severity::Error, "e");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "warning: w\nerror: e\n");
}

TEST(Settings, HandlersMayReportAndReplaceThemselves) {
  std::vector<std::string> messages;
  Host::setMessageHandler([&](Host::Severity, std::string const& text) {
    Host::setMessageHandler(
        [&messages](Host::Severity, std::string const& inner) { messages.push_back(inner); });
    Host::report(Host::Severity::Note, "inner");
    messages.push_back(text);
  });
  Host::report(Host::Severity::Note, "outer");
  Host::setMessageHandler(nullptr);
  EXPECT_EQ(messages, (std::vector<std::string>{"inner", "outer"}));
}

}  // namespace
