#include <gtest/gtest.h>

#include <thread>

#include "support/scene.h"
#include "velmorapi/state_server.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

TEST(State, LivesAsLongAsAnyHandleIntoIt) {
  API::VoxelChannel channel;
  API::StateID id = 0;
  {
    auto const scene = sphereScene(5.f);
    channel = scene.distance;
    id = scene.distance.stateID();
    EXPECT_EQ(scene.layout.stateID(), id);
    EXPECT_EQ(scene.object.stateID(), id);
    EXPECT_EQ(scene.volume.stateID(), id);
  }
  EXPECT_NE(id, 0u);
  EXPECT_EQ(channel.fullPathName(), API::String("object/volume/distance"));
  API::Component const component(channel.component());
  EXPECT_EQ(component.name(), API::String("volume"));
  EXPECT_EQ(API::Object(component.object()).name(), API::String("object"));
  EXPECT_EQ(component.findChannel("distance"), channel);
}

TEST(State, NamesItsThings) {
  auto const scene = emptyScene();
  EXPECT_EQ(scene.server.findObject("object"), scene.object);
  EXPECT_EQ(scene.server.objects().count(), 1u);
  EXPECT_FALSE(scene.server.findObject("other").valid());
  EXPECT_EQ(scene.object.findComponent("volume"), scene.volume);
  EXPECT_EQ(scene.object.components().count(), 1u);
  EXPECT_EQ(scene.volume.object(), scene.object);
  EXPECT_EQ(scene.volume.channels().count(), 1u);
  EXPECT_EQ(scene.distance.partialPathName(), API::String("volume/distance"));
}

TEST(State, RemovesChannelsByFullPathPartialPathAndBareName) {
  for (char const* const path : {"object/volume/distance", "volume/distance", "distance"}) {
    auto const scene = emptyScene();
    scene.server.removeChannel("object/distance");
    scene.server.removeChannel("");
    EXPECT_TRUE(scene.volume.findChannel("distance").valid());
    scene.server.removeChannel(path);
    EXPECT_FALSE(scene.volume.findChannel("distance").valid()) << path;
    EXPECT_TRUE(scene.distance.component().valid());
    scene.server.removeChannel(path);
  }
}

TEST(State, RemovesTheNewestChannelOfABareName) {
  auto const scene = emptyScene();
  API::VoxelComponent const second(
      scene.server.createComponent(API::VoxelComponentType, "second", 1.f));
  auto const inSecond = addChannel<int>(scene.server, second, "n");
  auto const inFirst = addChannel<int>(scene.server, scene.volume, "n");
  scene.server.removeChannel("n");
  EXPECT_FALSE(scene.volume.findChannel("n").valid());
  EXPECT_EQ(second.findChannel("n"), inSecond);
  EXPECT_EQ(inFirst.partialPathName(), API::String("volume/n"));
}

TEST(State, DetachesWhatIsMadeAnew) {
  auto const scene = sphereScene(5.f, Vec3(0.f), 0.5f);
  API::VoxelComponent const fresh(
      scene.server.createComponent(API::VoxelComponentType, "volume", 2.f));
  EXPECT_NE(fresh, scene.volume);
  EXPECT_FALSE(scene.object.findComponent("volume").valid());
  EXPECT_FALSE(fresh.object().valid());
  scene.object.addComponent(fresh);
  EXPECT_EQ(scene.object.findComponent("volume"), fresh);
  EXPECT_EQ(API::Layout(fresh.layout()).voxelScale(), 2.f);
  EXPECT_EQ(Host::tileCount(API::Layout(fresh.layout()), 7), 0u);
  EXPECT_EQ(scene.volume.findChannel("distance"), scene.distance);
  EXPECT_GT(valuesOf<float>(scene.distance).size(), 0u);

  auto const object = Host::createObject(scene.server, "object");
  EXPECT_EQ(scene.server.findObject("object"), object);
  EXPECT_EQ(scene.server.objects().count(), 1u);
  EXPECT_EQ(scene.object.findComponent("volume"), fresh);

  API::Layout const layout(scene.server.createLayout("accel"));
  layout.tileAccessor().addTile(0, 0, 0, 7);
  API::Layout const again(scene.server.createLayout("accel"));
  EXPECT_NE(layout, again);
  EXPECT_EQ(again.voxelScale(), 1.f);
  EXPECT_EQ(Host::tileCount(again, 0), 0u);
  EXPECT_EQ(Host::tileCount(layout, 7), 1u);
}

TEST(State, RemovesComponents) {
  auto const scene = sphereScene(5.f);
  scene.object.removeComponent("volume");
  EXPECT_FALSE(scene.object.findComponent("volume").valid());
  EXPECT_FALSE(scene.volume.object().valid());
  scene.object.addComponent(scene.volume);
  EXPECT_EQ(scene.object.findComponent("volume"), scene.volume);
  scene.server.removeComponent("volume");
  scene.server.removeComponent("volume");
  EXPECT_FALSE(scene.object.findComponent("volume").valid());
  EXPECT_TRUE(scene.distance.layout().valid());
}

TEST(State, KeepsApartFromOtherStates) {
  auto const a = emptyScene(), b = emptyScene();
  EXPECT_NE(a.server, b.server);
  EXPECT_NE(a.object.stateID(), b.object.stateID());
  EXPECT_FALSE(a.server.createChannel(b.volume, API::DataType::Float, "c").valid());
  a.object.addComponent(b.volume);
  EXPECT_EQ(b.volume.object(), b.object);
  EXPECT_FALSE(a.server.createComponent("Unknown", "c", 1.f).valid());
}

TEST(State, FailsOnRequest) {
  auto const scene = emptyScene();
  Host::failCalls(Host::Call::CreateChannel, 1, 1);
  EXPECT_TRUE(scene.server.createChannel(scene.volume, API::DataType::Float, "a").valid());
  EXPECT_FALSE(scene.server.createChannel(scene.volume, API::DataType::Float, "b").valid());
  EXPECT_TRUE(scene.server.createChannel(scene.volume, API::DataType::Float, "b").valid());
  Host::failCalls(Host::Call::CreateComponent);
  EXPECT_FALSE(scene.server.createComponent(API::VoxelComponentType, "c", 1.f).valid());
  EXPECT_TRUE(scene.object.findComponent("volume").valid());
  Host::failCalls(Host::Call::CreateLayout);
  EXPECT_FALSE(scene.server.createLayout("l").valid());
  Host::failCalls(Host::Call::FindObject);
  EXPECT_FALSE(scene.server.findObject("object").valid());
  Host::clearFailures();
  EXPECT_TRUE(scene.server.findObject("object").valid());
}

TEST(State, DoesNothingThroughInvalidHandles) {
  API::StateServer const server;
  EXPECT_FALSE(server.findObject("object").valid());
  EXPECT_FALSE(server.createComponent(API::VoxelComponentType, "c", 1.f).valid());
  EXPECT_FALSE(server.createLayout("l").valid());
  server.removeChannel("c");
  server.removeComponent("c");
  EXPECT_EQ(server.objects().count(), 0u);
  API::Object const object;
  object.addComponent(API::Component());
  object.removeComponent("c");
  EXPECT_EQ(object.components().count(), 0u);
  EXPECT_EQ(object.stateID(), 0u);
  EXPECT_TRUE(object.name().empty());
  API::Component const component;
  EXPECT_FALSE(component.findChannel("c").valid() || component.layout().valid() ||
               component.object().valid());
  EXPECT_FALSE(Host::createObject(server, "o").valid());
  EXPECT_FALSE(API::Object(emptyScene().layout).valid());
}

TEST(State, CountsHandlesAcrossThreads) {
  API::VoxelChannel const channel = sphereScene(5.f).distance;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&channel] {
      for (int n = 0; n < 2000; ++n) {
        API::Component const component(channel.component());
        API::Object const object(component.object());
        API::Layout const layout(channel.layout());
        ASSERT_EQ(object.stateID(), layout.stateID());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(channel.fullPathName(), API::String("object/volume/distance"));
}

}  // namespace
