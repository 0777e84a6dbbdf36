#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <vector>

#include "support/cache_folder.h"
#include "support/scene.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

using Float3 = orlen::Math::vec<3, float>;

class MixCommand : public testing::Test {
 protected:
  MixCommand() {
    auto const scene = emptyScene();
    scene.server.removeChannel("volume/distance");
    Host::addLeafTiles(scene.layout, {{0, 0, 0}, {10, 0, 0}});
    // Backgrounds of 0 and values on top, so that there are active voxels.
    auto const add = [&](char const* name, auto value) {
      auto const channel = addChannel<decltype(value)>(scene.server, scene.volume, name);
      forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
        auto const data = channel.template tileData<decltype(value)>(index);
        for (int e = 0; e < 60; ++e) data.data[e] = value;
      });
    };
    add("warm", 8.f), add("cold", 4.f), add("share", 0.25f);
    add("count", 3), add("less", -3);
    add("push", Float3(1.f, 2.f, 3.f)), add("pull", Float3(4.f, 4.f, 4.f));
    folder.writeTo(scene.object, input);
  }

  Velmor::Test::Run mix(std::string const& rule, std::vector<std::string> const& rest) const {
    std::vector<std::string> all{"mix", rule, input};
    all.insert(all.end(), rest.begin(), rest.end());
    all.insert(all.end(), {"-o", output});
    return runCommand(all);
  }

  template <class T>
  std::vector<T> written(char const* name) const {
    API::Ref server;
    Host::ReadOptions options;
    options.isolate = false;
    EXPECT_TRUE(Host::readObject(output, "object", {}, options, server).succeeded());
    auto const object = API::StateServer(server).objects()[0];
    return valuesOf<T>(
        API::Channel(API::Component(object.findComponent("volume")).findChannel(name)));
  }

  CacheFolder folder;
  std::string input = (std::filesystem::path(folder.path().str()) / "in.vdb").string();
  std::string output = (std::filesystem::path(folder.path().str()) / "out.vdb").string();
};

TEST_F(MixCommand, BlendsByAConstantIntoANewChannel) {
  auto const run = mix(
      "alpha", {"--a", "warm", "--b", "cold", "--out", "lukewarm", "--alpha", "0.25", "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_EQ(nlohmann::json::parse(run.out)["out"], "lukewarm");
  EXPECT_EQ(written<float>("lukewarm")[0], 5.f);
  EXPECT_EQ(written<float>("warm")[0], 8.f);
  EXPECT_EQ(written<float>("share")[0], 0.25f);
}

TEST_F(MixCommand, BlendsByAChannelIntoAnExistingOne) {
  auto const run = mix(
      "alpha", {"--a", "warm", "--b", "cold", "--out", "cold", "--alpha-channel", "volume/share"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_EQ(written<float>("cold")[0], 5.f);
}

TEST_F(MixCommand, StepsIntegersAndVectors) {
  ASSERT_EQ(mix("step", {"--a", "count", "--b", "less", "--out", "sum", "--step", "0.5"}).exit, 0);
  EXPECT_EQ(written<int>("sum")[0], 2);
  ASSERT_EQ(mix("step", {"--a", "push", "--b", "pull", "--out", "push", "--step", "-2"}).exit, 0);
  EXPECT_EQ(written<Float3>("push")[0], Float3(-7.f, -6.f, -5.f));
}

TEST_F(MixCommand, RefusesWhatCannotBeMixedAndWritesNothing) {
  struct Refusal {
    std::string rule;
    std::vector<std::string> arguments;
    int exit;
    std::string text;
  };
  Refusal const refusals[] = {
      {"alhpa", {"--a", "warm", "--b", "cold", "--out", "x", "--alpha", "1"}, 2, "'alpha'?"},
      {"alpha", {"--a", "warm", "--b", "cold", "--out", "x"}, 2, "--alpha-channel"},
      {"alpha", {"--a", "warm", "--b", "cold", "--out", "x", "--step", "1"}, 2, "either --alpha"},
      {"step", {"--a", "warm", "--b", "cold", "--out", "x", "--alpha", "1"}, 2, "--step"},
      {"step", {"--a", "warm", "--b", "cold", "--out", "x", "--step", "nan"}, 2, "finite"},
      {"step", {"--a", "wram", "--b", "cold", "--out", "x", "--step", "1"}, 3, "'warm'?"},
      {"step", {"--a", "warm", "--b", "less", "--out", "x", "--step", "1"}, 3, "cannot be mixed"},
      {"step",
       {"--a", "warm", "--b", "cold", "--out", "less", "--step", "1"},
       3,
       "cannot be mixed"},
      {"alpha",
       {"--a", "warm", "--b", "cold", "--out", "x", "--alpha-channel", "count"},
       3,
       "cannot be mixed"},
      {"step", {"--a", "warm", "--b", "cold", "--out", "tmp", "--step", "1"}, 2, "their own"},
      {"step", {"--a", "warm", "--b", "cold", "--out", "oceanTmp", "--step", "1"}, 2, "their own"},
      {"step", {"--a", "warm", "--b", "cold", "--out", "", "--step", "1"}, 2, "channel's name"},
  };
  for (auto const& [rule, arguments, exit, text] : refusals) {
    auto const run = mix(rule, arguments);
    EXPECT_EQ(run.exit, exit) << run.err;
    EXPECT_NE(run.err.find(text), std::string::npos) << run.err;
    EXPECT_FALSE(std::filesystem::exists(output));
  }
}

}  // namespace
}  // namespace Velmor::Test
