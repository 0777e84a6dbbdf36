#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "fakehost/fakehost.h"
#include "processing/sampler.h"

namespace Velmor::Processing {
namespace {

using Calls = std::vector<std::string>;
using Point = orlen::Math::vec<3, float>;
using API::DataType;

class SamplerOnFakeHost : public testing::Test {
 protected:
  SamplerOnFakeHost() { FakeHost::reset(); }

  void open(float voxelScale = 1.f) {
    server = FakeHost::createStateServer("state");
    component = server.createComponent(API::VoxelComponentType, "volume", voxelScale);
  }
  API::VoxelChannel add(char const* name, DataType type) const {
    return server.createChannel(component, type, name);
  }
  static Calls samplersMade() { return FakeHost::calls("VoxelChannel::createSampler"); }

  API::StateServer server;
  API::VoxelComponent component;
};

TEST_F(SamplerOnFakeHost, MakesOneHostSamplerPerChannelAndCopy) {
  open();
  std::string const call = "VoxelChannel::createSampler 'QBSpline' 2";
  for (char const* name : {"a_x", "a_y", "b_u", "b_v", "b_w", "c"}) add(name, DataType::Float);
  add("n", DataType::Int3);
  struct Case {
    char const* name;
    std::size_t count;
  };
  for (auto const& [name, count] : {Case{"a", 2}, Case{"b", 3}, Case{"c", 1}, Case{"n", 1}}) {
    FakeHost::clearCalls();
    Sampler const sampler(component, name);
    EXPECT_EQ(samplersMade(), Calls(count, call)) << name;
    Sampler copy(sampler);
    EXPECT_EQ(samplersMade(), Calls(2 * count, call)) << name;
    Sampler const moved(std::move(copy));
    EXPECT_EQ(samplersMade(), Calls(2 * count, call)) << name;
    Sampler assigned;
    assigned = moved;
    EXPECT_EQ(samplersMade(), Calls(3 * count, call)) << name;
  }
}

TEST_F(SamplerOnFakeHost, RefusesTypesOfTheHostAlone) {
  open();
  for (int const type : {5, 6, 7, 10}) {
    auto const channel = add("odd", static_cast<DataType>(type));
    ASSERT_TRUE(channel.valid());
    EXPECT_FALSE(Sampler(channel).valid()) << type;
  }
}

TEST_F(SamplerOnFakeHost, GoesOnToTheSuffixesBehindAChannelOfARefusedType) {
  open();
  add("v", static_cast<DataType>(5));
  EXPECT_FALSE(Sampler(component, "v").valid());
  for (char const* name : {"v_x", "v_y"}) add(name, DataType::Float);
  EXPECT_EQ(Sampler(component, "v").dataType(), DataType::Float2);
  add("v_z", static_cast<DataType>(5));
  EXPECT_EQ(Sampler(component, "v").dataType(), DataType::Float2);
  add("v_z", DataType::Float);
  EXPECT_EQ(Sampler(component, "v").dataType(), DataType::Float3);
}

TEST_F(SamplerOnFakeHost, AsksForWorldPositionsAndHandsTheGradientOn) {
  open(0.5f);
  Sampler const sampler(add("d", DataType::Float));
  Point asked;
  FakeHost::script().sample = [&](Point const& p) {
    asked = p;
    return 3.f;
  };
  FakeHost::script().gradient = {4.f, 5.f, 6.f};
  Sample out;
  sampler.sample({1.f, 2.f, 3.f}, out);
  EXPECT_EQ(asked, Point(1.f, 2.f, 3.f));
  EXPECT_EQ(out.as<float>(), 3.f);
  Point gradient;
  sampler.sampleGradient({7.f, 8.f, 9.f}, gradient);
  EXPECT_EQ(asked, Point(7.f, 8.f, 9.f));
  EXPECT_EQ(gradient, Point(4.f, 5.f, 6.f));
}

TEST_F(SamplerOnFakeHost, ReadsIntegersFromTilesOfAnyHaloStridesAndWidth) {
  for (int const width : {3, 4, 8}) {
    for (int const halo : {0, 1, 2}) {
      for (bool const zFastest : {false, true}) {
        SCOPED_TRACE(testing::Message() << "width " << width << ", halo " << halo);
        FakeHost::reset();
        FakeHost::useTiles(width, halo, zFastest);
        open(0.5f);
        auto const channel = add("n", DataType::Int);
        API::Layout const layout(component.layout());
        auto const data =
            channel.tileData<int>(FakeHost::addTile(layout, 7, {width, 0, 2 * width}));
        for (int k = 0; k < width; ++k)
          for (int j = 0; j < width; ++j)
            for (int i = 0; i < width; ++i)
              data.data[data.offset(i, j, k)] = 10000 * i + 100 * j + k;
        Sampler const sampler(channel);
        for (int v = 0; v < width; ++v) {
          // In the middle of voxel (width + v, v, 3 width - 1 - v).
          Point const p(static_cast<float>(width + v) + 0.5f, static_cast<float>(v) + 0.5f,
                        static_cast<float>(3 * width - 1 - v) + 0.5f);
          Sample out;
          sampler.sample(p * 0.5f, out);
          EXPECT_EQ(out.as<int>(), 10000 * v + 100 * v + (width - 1 - v));
        }
      }
    }
  }
}

// The embedded host's tiles that start at multiples of their width are never negative.
TEST_F(SamplerOnFakeHost, TruncationShowsOnlyBelowTileBordersOnTheNegativeSide) {
  open();
  auto const channel = add("n", DataType::Int);
  API::Layout const layout(component.layout());
  for (int const first : {-15, -10, -5, 0, 5}) {
    auto const data = channel.tileData<int>(FakeHost::addTile(layout, 7, {first, 0, 0}));
    for (int i = 0; i < 5; ++i) data.data[data.offset(i, 0, 0)] = first + i;
  }
  Sampler const sampler(channel);
  struct Case {
    float position;
    int voxel;
  };
  for (auto const& [position, voxel] :
       {Case{-8.f, -8}, Case{-7.5f, -8}, Case{-5.5f, -5}, Case{-3.5f, -4}, Case{-2.5f, -3},
        Case{-1.5f, -2}, Case{-0.4f, 0}, Case{2.9f, 2}, Case{7.99f, 7}}) {
    Sample out;
    sampler.sample({position, 0.f, 0.f}, out);
    EXPECT_EQ(out.as<int>(), voxel) << position;
  }
}

TEST_F(SamplerOnFakeHost, KeepsItsChannelsAlive) {
  open();
  auto channel = add("d", DataType::Int);
  int const before = FakeHost::handleCount(channel);
  {
    Sampler const sampler(channel);
    EXPECT_GT(FakeHost::handleCount(channel), before);
  }
  EXPECT_EQ(FakeHost::handleCount(channel), before);
}

}  // namespace
}  // namespace Velmor::Processing
