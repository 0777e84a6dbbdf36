#include "fakehost/fakehost.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "processing/pointwise_filters.h"

namespace Velmor {
namespace {

using Calls = std::vector<std::string>;

// The distinct files named libvelmorapi.so* that are mapped into this process.
std::vector<std::string> loadedHosts() {
  std::vector<std::string> hosts;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    auto const at = line.find('/');
    if (at == std::string::npos || line.find("libvelmorapi.so") == std::string::npos) continue;
    if (hosts.empty() || hosts.back() != line.substr(at)) hosts.push_back(line.substr(at));
  }
  return hosts;
}

TEST(FakeHost, IsTheOnlyHostOfTheProcess) {
  auto const hosts = loadedHosts();
  ASSERT_EQ(hosts.size(), 1u);
  EXPECT_NE(hosts[0].find("/fakehost/"), std::string::npos);
}

TEST(FakeHost, RunsTheLibraryAndLogsItsCalls) {
  FakeHost::reset();
  auto const server = FakeHost::createStateServer("state");
  API::VoxelComponent const component(
      server.createComponent(API::VoxelComponentType, "volume", 0.5f));
  API::VoxelChannel const channel(server.createChannel(component, API::DataType::Int, "count"));
  auto const index = FakeHost::addTile(channel.layout(), 7, {-1, 0, 0});
  FakeHost::clearCalls();

  Processing::OffsetFilter<int>(3).filter(channel, channel);

  EXPECT_EQ(FakeHost::calls(), (Calls{"Layout::traverse 3"}));
  auto const tile = channel.tileData<int>(index);
  ASSERT_EQ(tile.count, 125u);
  EXPECT_EQ(tile.data[0], 3);
  EXPECT_EQ(tile.data[124], 3);
}

TEST(FakeHost, CountsTheHandlesOfARemovedChannel) {
  FakeHost::reset();
  auto const server = FakeHost::createStateServer("state");
  API::Component const component(server.createComponent(API::VoxelComponentType, "volume", 1.f));
  {
    API::Channel const channel(server.createChannel(component, API::DataType::Float, "tmp"));
    API::Channel const second(channel);
    EXPECT_EQ(FakeHost::handleCount(channel), 2);
  }
  server.removeChannel("volume/tmp");
  server.removeChannel("volume/tmp");
  EXPECT_EQ(FakeHost::calls("StateServer::removeChannel"),
            (Calls{"StateServer::removeChannel 'volume/tmp' handles=0",
                   "StateServer::removeChannel 'volume/tmp' handles=-1"}));
}

}  // namespace
}  // namespace Velmor
