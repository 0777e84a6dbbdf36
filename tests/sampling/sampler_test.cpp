#include "processing/sampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/scene.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using orlen::Math::vec;
using Vec3f = vec<3, float>;
using API::DataType;

// A voxel component with two leaf tiles on both sides of x = 3.
struct Scene {
  explicit Scene(float voxelScale = 1.f, bool centred = true) {
    auto settings = Host::LayoutSettings{};
    settings.centred = centred;
    Host::setLayoutSettings(settings);
    server = Host::createStateServer("sampling");
    object = Host::createObject(server, "thing");
    component = server.createComponent(API::VoxelComponentType, "volume", voxelScale);
    object.addComponent(component);
    Host::addLeafTiles(component.layout(), {{0, 0, 0}, {5, 0, 0}});
    Host::setLayoutSettings({});
  }

  template <class T, class F>
  API::VoxelChannel add(char const* name, F&& value) {
    API::VoxelChannel channel(server.createChannel(component, API::dataTypeOf<T>, name));
    API::Layout const layout(channel.layout());
    auto const accessor = layout.tileAccessor();
    for (auto i =
             layout.tileIterator(layout.maxDepth(), layout.maxDepth(), API::TraversalMode::Serial);
         i.valid(); i.next()) {
      auto const origin = accessor.tile(i.index()).coord();
      auto const data = channel.tileData<T>(i.index());
      for (int z = 0; z < 5; ++z) {
        for (int y = 0; y < 5; ++y) {
          for (int x = 0; x < 5; ++x) {
            data.data[data.offset(x, y, z)] = value(origin.i + x, origin.j + y, origin.k + z);
          }
        }
      }
    }
    return channel;
  }

  API::VoxelChannel number(char const* name) {
    return add<int>(name, [](int x, int y, int z) { return 10000 * x + 100 * y + z; });
  }
  API::VoxelChannel ramp(char const* name, float slope) {
    return add<float>(name,
                      [slope](int x, int, int) { return slope * (static_cast<float>(x) + 0.5f); });
  }

  API::StateServer server;
  API::Object object;
  API::VoxelComponent component;
};

template <class T>
T sampleOf(Sampler const& sampler, Vec3f const& pos) {
  Sample out;
  sampler.sample(pos, out);
  return out.as<T>();
}

static_assert(sizeof(Sample) == 12 && std::is_copy_assignable_v<Sample>);

TEST(Sample, CopiesAllItsWords) {
  Sample one, other;
  for (std::uint32_t w = 0; w < 3; ++w) one.words[w] = 7 + w;
  other = one;
  for (std::uint32_t w = 0; w < 3; ++w) EXPECT_EQ(other.words[w], 7 + w);
}

TEST(Sampler, IsEmptyByDefaultAndLeavesOutputsAlone) {
  Sampler const sampler;
  EXPECT_FALSE(sampler.valid());
  EXPECT_EQ(sampler.dataType(), DataType::None);
  Sample out;
  out.words[0] = 7;
  sampler.sample({0.f, 0.f, 0.f}, out);
  EXPECT_EQ(out.words[0], 7u);
  Vec3f gradient(1.f, 2.f, 3.f);
  sampler.sampleGradient({0.f, 0.f, 0.f}, gradient);
  EXPECT_EQ(gradient, Vec3f(1.f, 2.f, 3.f));
}

TEST(Sampler, ServesTheSixValueTypes) {
  Scene scene;
  auto const f = scene.add<float>("f", [](int, int, int) { return 1.f; });
  auto const f2 =
      scene.add<vec<2, float>>("f2", [](int, int, int) { return vec<2, float>(1.f, 2.f); });
  auto const f3 = scene.add<Vec3f>("f3", [](int, int, int) { return Vec3f(1.f, 2.f, 3.f); });
  auto const i = scene.add<int>("i", [](int, int, int) { return 4; });
  auto const i2 = scene.add<vec<2, int>>("i2", [](int, int, int) { return vec<2, int>(4, 5); });
  auto const i3 = scene.add<vec<3, int>>("i3", [](int, int, int) { return vec<3, int>(4, 5, 6); });
  Vec3f const pos(0.3f, 0.2f, 0.1f);
  EXPECT_EQ(Sampler(f).dataType(), DataType::Float);
  EXPECT_FLOAT_EQ(sampleOf<float>(Sampler(f), pos), 1.f);
  EXPECT_EQ(Sampler(f2).dataType(), DataType::Float2);
  EXPECT_FLOAT_EQ((sampleOf<vec<2, float>>(Sampler(f2), pos).y), 2.f);
  EXPECT_EQ(Sampler(f3).dataType(), DataType::Float3);
  EXPECT_FLOAT_EQ(sampleOf<Vec3f>(Sampler(f3), pos).z, 3.f);
  EXPECT_EQ(Sampler(i).dataType(), DataType::Int);
  EXPECT_EQ(sampleOf<int>(Sampler(i), pos), 4);
  EXPECT_EQ(Sampler(i2).dataType(), DataType::Int2);
  EXPECT_EQ((sampleOf<vec<2, int>>(Sampler(i2), pos)), (vec<2, int>(4, 5)));
  EXPECT_EQ(Sampler(i3).dataType(), DataType::Int3);
  EXPECT_EQ((sampleOf<vec<3, int>>(Sampler(i3), pos)), (vec<3, int>(4, 5, 6)));
}

TEST(Sampler, WritesOnlyTheWordsOfItsType) {
  Scene scene;
  scene.ramp("one float", 1.f);
  scene.add<vec<2, float>>("two floats", [](int, int, int) { return vec<2, float>(1.f); });
  scene.add<Vec3f>("three floats", [](int, int, int) { return Vec3f(1.f); });
  scene.number("one int");
  scene.add<vec<2, int>>("two ints", [](int, int, int) { return vec<2, int>(1); });
  scene.add<vec<3, int>>("three ints", [](int, int, int) { return vec<3, int>(1); });
  for (char const* name : {"pair_x", "pair_y"}) scene.ramp(name, 1.f);
  struct Case {
    char const* name;
    int words;
  };
  for (auto const& [name, words] :
       {Case{"one float", 1}, Case{"two floats", 2}, Case{"three floats", 3}, Case{"one int", 1},
        Case{"two ints", 2}, Case{"three ints", 3}, Case{"pair", 2}}) {
    Sampler const sampler(scene.component, name);
    ASSERT_TRUE(sampler.valid()) << name;
    // Inside, and where only the background is.
    for (float const x : {1.2f, 100.f}) {
      Sample out;
      for (auto& word : out.words) word = 0xDEADBEEFu;
      sampler.sample({x, 0.f, 0.f}, out);
      for (int w = 0; w < 3; ++w) {
        EXPECT_EQ(out.words[w] != 0xDEADBEEFu, w < words) << name << ", word " << w;
      }
    }
  }
}

TEST(Sampler, FindsThreeChannelsBySuffix) {
  for (auto const& names : {std::vector<char const*>{"v_u", "v_v", "v_w"},
                            std::vector<char const*>{"v_x", "v_y", "v_z"}}) {
    Scene scene;
    float slope = 1.f;
    for (char const* name : names) scene.ramp(name, slope++);
    Sampler const sampler(scene.component, "v");
    ASSERT_EQ(sampler.dataType(), DataType::Float3);
    auto const value = sampleOf<Vec3f>(sampler, {1.f, 0.5f, 0.5f});
    EXPECT_FLOAT_EQ(value.x, 1.f);
    EXPECT_FLOAT_EQ(value.y, 2.f);
    EXPECT_FLOAT_EQ(value.z, 3.f);
  }
}

TEST(Sampler, PrefersUVWToXYZAndThoseToTwo) {
  Scene scene;
  float slope = 1.f;
  auto const sampled = [&] {
    return sampleOf<Vec3f>(Sampler(scene.component, "v"), {1.f, 0.5f, 0.5f});
  };
  for (char const* name : {"v_x", "v_y"}) scene.ramp(name, slope++);
  EXPECT_EQ(Sampler(scene.component, "v").dataType(), DataType::Float2);
  scene.ramp("v_z", slope++);
  EXPECT_EQ(sampled(), Vec3f(1.f, 2.f, 3.f));
  for (char const* name : {"v_u", "v_v", "v_w"}) scene.ramp(name, slope++);
  EXPECT_EQ(sampled(), Vec3f(4.f, 5.f, 6.f));
  scene.ramp("v", slope);
  EXPECT_EQ(Sampler(scene.component, "v").dataType(), DataType::Float);
}

TEST(Sampler, FindsTwoChannelsOnlyAsXAndY) {
  Scene xy;
  xy.ramp("v_x", 1.f);
  xy.ramp("v_y", 2.f);
  Sampler const sampler(xy.component, "v");
  EXPECT_EQ(sampler.dataType(), DataType::Float2);
  EXPECT_FLOAT_EQ((sampleOf<vec<2, float>>(sampler, {1.f, 0.5f, 0.5f}).y), 2.f);
  Scene uv;
  uv.ramp("v_u", 1.f);
  uv.ramp("v_v", 2.f);
  EXPECT_FALSE(Sampler(uv.component, "v").valid());
}

TEST(Sampler, FallsBackToXAndYBesideAThirdOfAnotherType) {
  Scene scene;
  scene.ramp("v_x", 1.f);
  scene.ramp("v_y", 2.f);
  scene.number("v_z");
  EXPECT_EQ(Sampler(scene.component, "v").dataType(), DataType::Float2);
}

TEST(Sampler, IsEmptyForMixedOrIntegerGroupsAndMissingChannels) {
  Scene mixed;
  mixed.ramp("v_u", 1.f);
  mixed.ramp("v_v", 1.f);
  mixed.number("v_w");
  EXPECT_FALSE(Sampler(mixed.component, "v").valid());
  Scene integers;
  for (char const* name : {"v_u", "v_v", "v_w", "v_x", "v_y"}) integers.number(name);
  EXPECT_FALSE(Sampler(integers.component, "v").valid());
  EXPECT_FALSE(Sampler(integers.component, "nothing").valid());
  EXPECT_FALSE(Sampler(API::VoxelChannel()).valid());
  EXPECT_FALSE(Sampler(API::VoxelComponent(), "v").valid());
}

TEST(Sampler, TruncatesIntegerPositionsTowardZero) {
  // The same rule reads voxel 0 where tiles start at 0, and voxel -1 where a
  // tile that begins at -2 holds voxel 0.
  Scene corner(1.f, false);
  EXPECT_EQ(sampleOf<int>(Sampler(corner.number("n")), {-0.4f, 0.f, 0.f}), 0);
  Scene centred(1.f, true);
  EXPECT_EQ(sampleOf<int>(Sampler(centred.number("n")), {-0.4f, 0.f, 0.f}), -10000);
}

TEST(Sampler, TruncationShowsOnlyBelowTileBordersOnTheNegativeSide) {
  Scene scene;
  Host::addLeafTiles(scene.component.layout(), {{-12, 0, 0}, {-7, 0, 0}});
  Sampler const sampler(scene.number("n"));
  struct Case {
    float position;
    int voxel;
  };
  for (auto const& [position, voxel] :
       {Case{-8.f, -8}, Case{-7.5f, -7}, Case{-3.5f, -4}, Case{-2.5f, -2}, Case{-1.5f, -2},
        Case{-0.4f, -1}, Case{2.9f, 2}, Case{7.99f, 7}}) {
    EXPECT_EQ(sampleOf<int>(sampler, {position, 0.f, 0.f}), 10000 * voxel) << position;
  }
}

TEST(Sampler, StaysInItsTileWhereTheDifferenceRoundsUpToTheWidth) {
  Scene scene;
  Sampler const sampler(scene.number("n"));
  float const below = std::nextafter(3.f, 0.f);
  ASSERT_EQ(below - -2.f, 5.f);
  EXPECT_EQ(sampleOf<int>(sampler, {below, 0.f, 0.f}), -20000);
}

TEST(Sampler, ReadsIntegersAtWorldPositions) {
  Scene scene(0.1f);
  Sampler const sampler(scene.number("n"));
  EXPECT_EQ(sampleOf<int>(sampler, {0.65f, 0.15f, 0.05f}), 60100);
}

TEST(Sampler, MultipliesPositionsByTheReciprocalOfTheVoxelScale) {
  Scene scene(0.7f);
  float const below = std::nextafter(3.5f, 0.f);
  ASSERT_LT(below / 0.7f, 5.f);
  EXPECT_EQ(sampleOf<int>(Sampler(scene.number("n")), {below, 0.f, 0.f}), 50000);
}

TEST(Sampler, ReadsIntegersByTheVoxelScaleItWasMadeWith) {
  Scene scene(0.5f);
  auto const channel = scene.number("n");
  Sampler const sampler(channel);
  API::Layout(channel.layout()).setVoxelScale(0.25f);
  EXPECT_EQ(sampleOf<int>(sampler, {3.25f, 0.f, 0.f}), 60000);
  EXPECT_EQ(sampleOf<int>(Sampler(sampler), {3.25f, 0.f, 0.f}), 60000);
  EXPECT_EQ(sampleOf<int>(Sampler(channel), {1.625f, 0.f, 0.f}), 60000);
}

TEST(Sampler, ReadsTheBackgroundWhereNoLeafIs) {
  Scene scene;
  auto const channel = scene.number("n");
  channel.setBackgroundValue(42);
  Sampler const sampler(channel);
  EXPECT_EQ(sampleOf<int>(sampler, {100.f, 0.f, 0.f}), 42);
  EXPECT_EQ(sampleOf<int>(sampler, {1e30f, 0.f, 0.f}), 42);
  EXPECT_EQ(sampleOf<int>(sampler, {std::nanf(""), 0.f, 0.f}), 42);
  float const inf = std::numeric_limits<float>::infinity();
  for (float const bad : {std::nanf(""), inf, -inf, 1e30f, -1e30f}) {
    for (int a = 0; a < 3; ++a) {
      Vec3f pos(0.f);
      pos[a] = bad;
      EXPECT_EQ(sampleOf<int>(sampler, pos), 42) << bad;
    }
  }
}

TEST(Sampler, NeverReadsIntegersFromCoarseTiles) {
  Scene scene;
  auto const channel = scene.number("n");
  channel.setBackgroundValue(42);
  API::Layout const layout(channel.layout());
  // A tile right above the leaves, with values of its own.
  auto const parent = layout.tileAccessor().addTile(1000, 0, 0, layout.maxDepth() - 1);
  auto const cells = channel.tileData<int>(parent);
  std::fill_n(cells.data, cells.count, -7);
  EXPECT_EQ(layout.tileAccessor().tile(1000, 0, 0, layout.maxDepth()).index(), parent);
  EXPECT_EQ(sampleOf<int>(Sampler(channel), {1000.f, 0.f, 0.f}), 42);
}

TEST(Sampler, SurvivesFloatPositionsThatAreNoPlaces) {
  Scene scene;
  auto const channel = scene.ramp("r", 1.f);
  channel.setBackgroundValue(42.f);
  Sampler const sampler(channel);
  float const inf = std::numeric_limits<float>::infinity();
  for (float const bad : {std::nanf(""), inf, -inf, 1e30f, -1e30f}) {
    for (int a = 0; a < 3; ++a) {
      Vec3f pos(0.f), gradient(0.f);
      pos[a] = bad;
      Sample out;
      sampler.sample(pos, out);
      sampler.sampleGradient(pos, gradient);
      if (std::abs(bad) == 1e30f) {
        EXPECT_EQ(out.as<float>(), 42.f) << bad;
      }
    }
  }
}

TEST(Sampler, GivesGradientsOfSingleFloatChannelsAlone) {
  Scene scene(0.1f);
  Sampler const ramp(scene.ramp("r", 2.f));
  Vec3f gradient;
  ramp.sampleGradient({0.2f, 0.05f, 0.05f}, gradient);
  EXPECT_NEAR(gradient.x, 20.f, 1e-3f);  // 2 per voxel
  EXPECT_NEAR(gradient.y, 0.f, 1e-3f);
  for (char const* name : {"v_u", "v_v", "v_w"}) scene.ramp(name, 1.f);
  scene.number("n");
  scene.add<Vec3f>("f3", [](int, int, int) { return Vec3f(1.f); });
  for (char const* name : {"v", "n", "f3"}) {
    Vec3f untouched(7.f, 8.f, 9.f);
    Sampler const sampler(scene.component, name);
    ASSERT_TRUE(sampler.valid());
    sampler.sampleGradient({0.2f, 0.05f, 0.05f}, untouched);
    EXPECT_EQ(untouched, Vec3f(7.f, 8.f, 9.f)) << name;
  }
}

TEST(Sampler, GradientAgreesWithFiniteDifferences) {
  Scene scene(0.1f);
  Sampler const sampler(scene.add<float>("f", [](int x, int y, int z) {
    return std::sin(0.7f * static_cast<float>(x)) + 0.3f * static_cast<float>(y * z);
  }));
  float const h = 0.004f;
  for (Vec3f const p : {Vec3f(0.23f, 0.03f, 0.06f), Vec3f(0.31f, 0.11f, -0.02f)}) {
    Vec3f gradient;
    sampler.sampleGradient(p, gradient);
    for (int a = 0; a < 3; ++a) {
      Vec3f q = p, r = p;
      q[a] += h;
      r[a] -= h;
      float const slope = (sampleOf<float>(sampler, q) - sampleOf<float>(sampler, r)) / (2.f * h);
      EXPECT_NEAR(gradient[a], slope, 0.02f * std::max(1.f, std::abs(slope)));
    }
  }
}

TEST(Sampler, GradientsOfASphereLieAlongItsRadius) {
  auto const sphere = Velmor::Test::sphereScene(25.f, {0.37f, -0.21f, 0.13f}, 0.1f);
  Sampler const sampler(sphere.distance);
  unsigned const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::normal_distribution<float> any;
  std::uniform_real_distribution<float> off(-1.f, 1.f);
  for (int n = 0; n < 2000; ++n) {
    Vec3f const v(any(random), any(random), any(random));
    Vec3f const out = v * (1.f / std::hypot(v.x, v.y, v.z));
    Vec3f const p = (out * (25.f + off(random)) + Vec3f(0.37f, -0.21f, 0.13f)) * 0.1f;
    Vec3f g;
    sampler.sampleGradient(p, g);
    float const length = std::hypot(g.x, g.y, g.z);
    EXPECT_NEAR(length, 1.f, 0.02f);
    EXPECT_GT((g.x * out.x + g.y * out.y + g.z * out.z) / length,
              std::cos(std::numbers::pi_v<float> / 180.f));
  }
}

TEST(Sampler, SeesChangedValues) {
  Scene scene;
  auto const channel = scene.number("n");
  Sampler const sampler(channel);
  EXPECT_EQ(sampleOf<int>(sampler, {1.f, 0.f, 0.f}), 10000);
  API::Layout const layout(channel.layout());
  auto const tile = layout.tileAccessor().tile(1, 0, 0, layout.maxDepth());
  auto const data = channel.tileData<int>(tile.index());
  data.data[data.offset(3, 2, 2)] = -5;
  EXPECT_EQ(sampleOf<int>(sampler, {1.f, 0.f, 0.f}), -5);
}

TEST(Sampler, CopiesMovesAndEmptiesOnSelfAssignment) {
  Scene scene;
  Sampler sampler(scene.number("n"));
  Sampler const copy(sampler);
  Sampler assigned;
  assigned = sampler;
  EXPECT_EQ(sampleOf<int>(copy, {1.f, 0.f, 0.f}), 10000);
  EXPECT_EQ(sampleOf<int>(assigned, {1.f, 0.f, 0.f}), 10000);
  Sampler const empty;
  assigned = empty;
  EXPECT_FALSE(assigned.valid());
  Sampler moved(std::move(sampler));
  EXPECT_FALSE(sampler.valid());
  EXPECT_TRUE(moved.valid());
  auto& self = moved;
  moved = self;
  EXPECT_FALSE(moved.valid());
}

TEST(Sampler, CopiesServeThreads) {
  Scene scene;
  Sampler const prototype(scene.ramp("r", 1.f));
  std::vector<float> results(8);
  std::vector<std::thread> threads;
  for (auto& result : results) {
    threads.emplace_back([&prototype, &result] {
      Sampler const sampler(prototype);
      for (int n = 0; n < 500; ++n) result = sampleOf<float>(sampler, {2.f, 0.5f, 0.5f});
    });
  }
  for (auto& thread : threads) thread.join();
  for (float result : results) EXPECT_FLOAT_EQ(result, 2.f);
}

}  // namespace
}  // namespace Velmor::Processing
