#include "velmorapi/object_model.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/message_log.h"
#include "velmorhost/scene.h"
#include "velmorhost/settings.h"

namespace Velmor::Test {
namespace {

using API::ObjectModel;
using API::Runtime::ActiveGraph;

API::Object objectNamed(std::string const& name) {
  return Host::createObject(Host::createStateServer("state"), name);
}

std::vector<std::string> found(std::string const& text) {
  API::Query const query(ObjectModel::createQuery());
  query.load(text);
  EXPECT_TRUE(query.valid()) << text;
  std::vector<std::string> names;
  for (auto const& object : query.run()) names.push_back(API::Object(object).name().str());
  return names;
}

/// Removes a graph at the end of a test, so that tests do not meet each other.
struct GraphGuard {
  explicit GraphGuard(std::string text) : graph(std::move(text)) {}
  GraphGuard(GraphGuard const&) = delete;
  GraphGuard& operator=(GraphGuard const&) = delete;
  ~GraphGuard() { ObjectModel::removeActiveGraph(graph); }
  std::string graph;
};

using Names = std::vector<std::string>;

TEST(Publish, ObjectsAreFoundInTheirGraphAtTheirFrameByTheirName) {
  GraphGuard const sim("sim"), other("other");
  Host::publish(objectNamed("liquid"), "sim", 3);
  EXPECT_EQ(found("graph=sim frame=3 name=liquid"), Names{"liquid"});
  EXPECT_EQ(found("graph=sim frame=3"), Names{"liquid"});
  EXPECT_EQ(found("graph=sim frame=3 type=object"), Names{"liquid"});
  EXPECT_EQ(found("graph=sim frame=4"), Names{});
  EXPECT_EQ(found("graph=sim name=liquid"), Names{});
  EXPECT_EQ(found("graph=sim frame=3 name=liqui"), Names{});
  EXPECT_EQ(found("graph=other frame=3"), Names{});
  EXPECT_EQ(found("frame=3 name=liquid"), Names{});
}

TEST(Publish, KeepsTheOrderOfPublishing) {
  GraphGuard const sim("sim");
  for (char const* const name : {"b", "c", "a"}) Host::publish(objectNamed(name), "sim", 0);
  EXPECT_EQ(found("graph=sim"), (Names{"b", "c", "a"}));
}

TEST(Publish, TwiceTheSameObjectCountsOnce) {
  GraphGuard const sim("sim");
  auto const object = objectNamed("liquid");
  Host::publish(object, "sim", 0);
  Host::publish(object, "sim", 0);
  Host::publish(object, "sim", 1);
  EXPECT_EQ(found("graph=sim frame=0"), Names{"liquid"});
  EXPECT_EQ(found("graph=sim frame=1"), Names{"liquid"});
}

TEST(Publish, TwoObjectsOfOneNameAreBothFoundFirstOneFirst) {
  GraphGuard const sim("sim");
  auto const first = objectNamed("liquid");
  Host::publish(first, "sim", 0);
  Host::publish(objectNamed("liquid"), "sim", 0);
  API::Query const query(ObjectModel::createQuery());
  query.load("graph=sim, name=liquid");
  ASSERT_EQ(query.run().count(), 2u);
  EXPECT_EQ(query.run()[0], first);
}

TEST(Publish, MakesTheGraphAndUsesAnExistingOneByNameOrPath) {
  GraphGuard const guard("/a/sim");
  Host::publish(objectNamed("one"), "/a/sim", 0);
  ActiveGraph const graph(ObjectModel::activeGraph("/a/sim"));
  ASSERT_TRUE(graph.valid());
  Host::publish(objectNamed("two"), graph.name(), 0);
  Host::publish(objectNamed("three"), "/a//sim/", 0);
  EXPECT_EQ(found("graph=\"/a/sim\""), (Names{"one", "two", "three"}));
}

TEST(Publish, TheGraphKeepsTheObjectUntilItIsRemoved) {
  API::StateID id = 0;
  {
    auto const object = objectNamed("liquid");
    id = object.stateID();
    Host::publish(object, "sim", 0);
  }
  ActiveGraph const graph(ObjectModel::activeGraph("sim"));
  EXPECT_TRUE(ObjectModel::stateServer(id).valid());
  ObjectModel::removeActiveGraph("sim");
  EXPECT_FALSE(ObjectModel::stateServer(id).valid()) << "though a handle to the graph is left";
  EXPECT_EQ(found("graph=sim"), Names{});
}

TEST(Publish, IgnoresInvalidObjectsAndGraphsWithoutAName) {
  Host::publish(API::Object(), "sim", 0);
  EXPECT_FALSE(ObjectModel::activeGraph("sim").valid());
  Host::publish(objectNamed("liquid"), "", 0);
  EXPECT_EQ(found("frame=0"), Names{});
}

TEST(Publish, NamesThatAQueryCannotHoldAreMetWithUnderscoresAndAWarning) {
  GraphGuard const sim("sim");
  MessageLog const log;
  Host::publish(objectNamed("my,li/quid"), "sim", 0);
  EXPECT_EQ(found("graph=sim name=my_li_quid"), Names{"my,li/quid"});
  EXPECT_EQ(log.warnings(),
            Names{"'my,li/quid': addressed as 'my_li_quid': a query cannot hold the "
                  "object's name"});
}

TEST(ActiveGraphs, AreFoundByNameAndByPath) {
  ActiveGraph const graph(ObjectModel::createActiveGraph("/cache/liquid"));
  GraphGuard const guard(graph.name().str());
  ASSERT_TRUE(graph.valid());
  EXPECT_EQ(ObjectModel::activeGraph(graph.name()), graph);
  for (char const* const path :
       {"/cache/liquid", "/cache/liquid/", "/cache//liquid", "/cache/./liquid", "/cache/liquid/."})
    EXPECT_EQ(ObjectModel::activeGraph(path), graph) << path;
  for (char const* const path : {"", "/cache", "liquid", "/cache/liquid2", "cache/liquid"})
    EXPECT_FALSE(ObjectModel::activeGraph(path).valid()) << path;
}

TEST(ActiveGraphs, OfOnePathHaveDifferentNames) {
  ActiveGraph const first(ObjectModel::createActiveGraph("/cache/liquid"));
  ActiveGraph const second(ObjectModel::createActiveGraph("/cache/liquid/"));
  GraphGuard const one(first.name().str()), two(second.name().str());
  ASSERT_TRUE(second.valid());
  EXPECT_NE(first, second);
  EXPECT_NE(first.name(), second.name());
  EXPECT_EQ(ObjectModel::activeGraph(second.name()), second);
  EXPECT_EQ(ObjectModel::activeGraph("/cache/liquid"), first) << "the oldest of a path";
  ObjectModel::removeActiveGraph(first.name());
  EXPECT_EQ(ObjectModel::activeGraph("/cache/liquid"), second);
}

TEST(ActiveGraphs, HandlesStayGoodAfterRemovalWhichIsQuietWhenRepeated) {
  MessageLog const log;
  ActiveGraph const graph(ObjectModel::createActiveGraph("/cache/liquid"));
  ObjectModel::removeActiveGraph("/cache/liquid");
  ObjectModel::removeActiveGraph("/cache/liquid");
  ObjectModel::removeActiveGraph("");
  EXPECT_FALSE(ObjectModel::activeGraph("/cache/liquid").valid());
  EXPECT_TRUE(graph.valid());
  EXPECT_EQ(graph.name(), "/cache/liquid");
  EXPECT_TRUE(graph.createCacheResourceImporter("/cache/liquid").valid());
  EXPECT_TRUE(log.errors().empty() && log.warnings().empty());
}

TEST(ActiveGraphs, NeedAPath) { EXPECT_FALSE(ObjectModel::createActiveGraph("").valid()); }

TEST(ActiveGraphs, CanBeMadeToFailButPublishingIsNot) {
  GraphGuard const sim("sim");
  Host::failCalls(Host::Call::CreateActiveGraph);
  Host::publish(objectNamed("liquid"), "sim", 0);
  EXPECT_TRUE(ObjectModel::activeGraph("sim").valid());
  EXPECT_FALSE(ObjectModel::createActiveGraph("/cache/liquid").valid());
  ActiveGraph const graph(ObjectModel::createActiveGraph("/cache/liquid"));
  EXPECT_TRUE(graph.valid());
  ObjectModel::removeActiveGraph(graph.name());
  Host::clearFailures();
}

TEST(ActiveGraphs, HandlesOfOtherKindsAreRefused) {
  EXPECT_FALSE(ActiveGraph(objectNamed("liquid")).valid());
  EXPECT_FALSE(ActiveGraph(ObjectModel::createQuery()).valid());
  EXPECT_FALSE(API::Query(objectNamed("liquid")).valid());
}

TEST(ActiveGraphs, MayBeMadeUsedAndRemovedOnSeveralThreads) {
  auto const work = [](int worker) {
    auto const name = "worker" + std::to_string(worker);
    for (int round = 0; round < 50; ++round) {
      ActiveGraph const graph(ObjectModel::createActiveGraph("/shared/path"));
      Host::publish(objectNamed(name), name, round);
      Host::publish(objectNamed(name), "common", round);
      EXPECT_EQ(found("graph=" + name + " frame=" + std::to_string(round)), Names{name});
      found("graph=common frame=" + std::to_string(round));
      EXPECT_EQ(ObjectModel::activeGraph(graph.name()), graph);
      ObjectModel::removeActiveGraph(graph.name());
    }
    ObjectModel::removeActiveGraph(name);
  };
  std::vector<std::thread> workers;
  for (int worker = 0; worker < 4; ++worker) workers.emplace_back(work, worker);
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(found("graph=common frame=7").size(), 4u);
  ObjectModel::removeActiveGraph("common");
  EXPECT_FALSE(ObjectModel::activeGraph("/shared/path").valid());
}

}  // namespace
}  // namespace Velmor::Test
