#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>

#include "host/files/file_scenes.h"
#include "support/message_log.h"
#include "support/object_builder.h"

namespace Velmor::Test {
namespace {

using orlen::Math::vec;

template <class T>
class VoxelRoundTrip : public testing::Test {};
using SixTypes = testing::Types<float, int, vec<2, float>, vec<3, float>, vec<2, int>, vec<3, int>>;
TYPED_TEST_SUITE(VoxelRoundTrip, SixTypes);

template <class T>
Scene hardScene(std::uint64_t seed) {
  auto scene = emptyScene(0.25f);
  auto const values = hardValues<T>();
  auto const channel = addChannel<T>(scene.server, scene.volume, "hard", values[0]);
  Random random(seed);
  auto const accessor = scene.layout.tileAccessor();
  std::vector<API::TileCoord> leaves;
  for (int n = 0; n < 60; ++n) {
    auto const near = [&] { return static_cast<int>(random.below(90)) - 45; };
    leaves.push_back({near(), near(), near()});
  }
  leaves.push_back({-190001, 150000, 3});
  Host::addLeafTiles(scene.layout, leaves);
  accessor.addTile(700, -700, 700, 4);
  accessor.addTile(-40000, 0, 0, 2);
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const cells = channel.template tileData<T>(index);
    Host::CellMask mask;
    auto const kinds = 1 + random.below(4);
    for (int c = 0; c < 125; ++c) {
      cells.data[c] = values[random.below(kinds * kinds) % values.size()];
      if (random.below(3) == 0) mask.set(c);
    }
    // Random coarse cells would have rims of millions of leaves.
    if (index.depth < 5) {
      std::fill_n(cells.data, 125, values[0]);
      mask = {};
      if (index.depth == 4) {
        cells.data[7] = values[1];
        mask.set(7);
      }
    }
    Host::setActiveMask(channel, index, mask);
  });
  return scene;
}

TYPED_TEST(VoxelRoundTrip, KeepsEveryBitAndMask) {
  CacheFolder const folder;
  for (auto const compression : {API::VRC::Compression::Default, API::VRC::Compression::None,
                                 API::VRC::Compression::Zip, API::VRC::Compression::Blosc}) {
    auto const scene = hardScene<TypeParam>(static_cast<std::uint64_t>(compression) + 1);
    auto const file = folder.path().str() + "/hard.vdb";
    ASSERT_EQ(Host::writeObject(scene.object, file, compression).message(), "");
    auto const loaded = load(file);
    ASSERT_EQ(loaded.message, "");
    expectSameContent<TypeParam>(scene.volume.findChannel("hard"), loaded.channel("hard"));
  }
}

TYPED_TEST(VoxelRoundTrip, KeepsTilesOfOneValue) {
  CacheFolder const folder;
  auto const scene = emptyScene();
  Host::addLeafTiles(scene.layout, {{0, 0, 0}, {5, 0, 0}, {400, 0, 0}});
  scene.layout.tileAccessor().addTile(-5000, 0, 0, 3);
  auto const channel =
      addChannel<TypeParam>(scene.server, scene.volume, "constant", hardValues<TypeParam>().back());
  auto const file = folder.path().str() + "/constant.vdb";
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  auto const loaded = load(file);
  EXPECT_TRUE(contentOf<TypeParam>(loaded.channel("constant")) == contentOf<TypeParam>(channel));
}

TEST(RoundTrip, ChannelsOfOneComponentShareTheirTiles) {
  CacheFolder const folder;
  auto const scene = sphereScene(12.f, {3.f, -8.f, 1.f}, 0.1f);
  auto const flags = addChannel<int>(scene.server, scene.volume, "flags");
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    for (int c = 0; c < 125; ++c) flags.tileData<int>(index).data[c] = index.slot % 3 == 0 ? 0 : c;
  });
  auto const file = folder.path().str() + "/two.vdb";
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  auto const loaded = load(file);
  EXPECT_TRUE(contentOf<float>(loaded.channel("distance")) == contentOf<float>(scene.distance));
  EXPECT_TRUE(contentOf<int>(loaded.channel("flags")) == contentOf<int>(flags));
  EXPECT_EQ(Host::fieldClass(loaded.channel("distance")), Host::FieldClass::LevelSet);
}

TEST(RoundTrip, CoarseValuesAboveTilesAreTheirCentres) {
  CacheFolder const folder;
  auto const scene = sphereScene(12.f);
  auto const file = folder.path().str() + "/sphere.vdb";
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  auto const channel = load(file).channel("distance");
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  int found = 0;
  forTiles(layout, 0, 6, [&](API::TreeIndex const& index) {
    auto const tile = accessor.tile(index);
    for (int c = 0; c < 125; ++c) {
      auto const child = tile.child(c % 5, c / 5 % 5, c / 25);
      if (!child.valid()) continue;
      ++found;
      EXPECT_EQ(channel.tileData<float>(index).data[c],
                channel.tileData<float>(child.index()).data[62]);
    }
  });
  EXPECT_GT(found, 100);
}

TEST(RoundTrip, AnyTreeShape) {
  CacheFolder const folder;
  for (auto const& settings : {Host::LayoutSettings{4, 5, true}, Host::LayoutSettings{3, 5, false},
                               Host::LayoutSettings{1, 5, false}}) {
    LayoutShape const shape(settings);
    auto const scene = emptyScene(1.f, 2.f);
    Host::addLeafTiles(scene.layout, {{0, 0, 0}, {7, 12, 4}, {20, 20, 20}});
    forTiles(scene.layout, settings.depth, settings.depth, [&](API::TreeIndex const& index) {
      for (int c = 0; c < 125; ++c) {
        scene.distance.tileData<float>(index).data[c] = static_cast<float>(c + index.slot);
      }
    });
    auto const file = folder.path().str() + "/shape.vdb";
    ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
    auto const loaded = load(file);
    ASSERT_EQ(loaded.message, "");
    EXPECT_TRUE(contentOf<float>(loaded.channel("distance")) == contentOf<float>(scene.distance));
  }
}

std::multiset<std::vector<std::uint32_t>> pointBits(API::PointComponent const& points) {
  std::multiset<std::vector<std::uint32_t>> bits;
  for (std::size_t p = 0; p < points.elementCount(); ++p) {
    std::vector<std::uint32_t> one;
    for (auto const& channel : points.channels()) {
      if (channel.name() == "position") continue;
      auto const* values =
          static_cast<std::uint32_t const*>(Host::pointStorage(channel, channel.dataType()));
      auto const width =
          channel.dataType() == API::DataType::Float || channel.dataType() == API::DataType::Int
              ? 1u
          : channel.dataType() == API::DataType::Float2 || channel.dataType() == API::DataType::Int2
              ? 2u
              : 3u;
      one.insert(one.end(), values + p * width, values + (p + 1) * width);
    }
    bits.insert(one);
  }
  return bits;
}

template <class T>
void addAttribute(Scene const& scene, API::PointComponent const& points, char const* name,
                  Random& random) {
  API::PointChannel const channel(scene.server.createChannel(points, API::dataTypeOf<T>, name));
  auto const values = hardValues<T>();
  auto* const out = Host::pointData<T>(channel);
  for (std::size_t p = 0; p < points.elementCount(); ++p) {
    out[p] = values[random.below(static_cast<std::uint32_t>(values.size()))];
  }
}

TEST(RoundTrip, PointsKeepOrderAttributesAndPlaces) {
  CacheFolder const folder;
  auto const scene = emptyScene();
  API::PointComponent const points(
      scene.server.createComponent(API::PointComponentType, "particle", 0.37f));
  scene.object.addComponent(points);
  Random random(11);
  std::vector<Vec3> positions;
  for (int p = 0; p < 4000; ++p) {
    auto const at = [&] { return (static_cast<float>(random.below(1u << 24)) / (1 << 20) - 8.f); };
    positions.push_back({at(), at() - 90.f, at() * 3.f});
  }
  positions.push_back({-100000.25f, 3.f, 3.f});
  Host::setPoints(points, positions);
  addAttribute<float>(scene, points, "life", random);
  addAttribute<int>(scene, points, "id", random);
  addAttribute<vec<2, float>>(scene, points, "uv", random);
  addAttribute<vec<2, int>>(scene, points, "pair", random);
  addAttribute<vec<3, int>>(scene, points, "cell", random);
  addAttribute<vec<3, float>>(scene, points, "velocity", random);

  auto const file = folder.path().str() + "/points.vdb";
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  API::PointComponent const back(loaded.object.findComponent("particle"));
  ASSERT_EQ(back.elementCount(), points.elementCount());
  EXPECT_EQ(back.channels().count(), points.channels().count());
  EXPECT_EQ(API::Layout(back.layout()).voxelScale(), 0.37f);
  EXPECT_TRUE(pointBits(back) == pointBits(points));
  auto const* const before = Host::pointData<Vec3>(API::Ref(points.findChannel("position")));
  auto const* const after = Host::pointData<Vec3>(API::Ref(back.findChannel("position")));
  auto const* const lives = Host::pointData<float>(API::Ref(points.findChannel("life")));
  auto const* const livesAfter = Host::pointData<float>(API::Ref(back.findChannel("life")));
  for (std::size_t p = 0; p < back.elementCount(); ++p) {
    for (int a = 0; a < 3; ++a) EXPECT_NEAR(before[p][a], after[p][a], 1e-6);
    EXPECT_EQ(std::memcmp(&lives[p], &livesAfter[p], 4), 0);
  }
}

TEST(RoundTrip, PointChannelsKeepNamesThatAttributesCannotHave) {
  CacheFolder const folder;
  ObjectBuilder const builder("spray");
  auto const points = builder.points({{1.f, 2.f, 3.f}, {4.f, 5.f, 6.f}});
  std::vector<std::string> const names{"temp (C)",          "temp_[C]", "n x",      "vel-x", "a.b",
                                       "\xc3\xa9t\xc3\xa9", "v",        "velocity", "plain", "P"};
  for (std::size_t n = 0; n < names.size(); ++n) {
    builder.pointChannel(points, names[n].c_str(), static_cast<int>(n));
  }
  builder.pointChannel(points, "", 1.f);
  auto file = folder.path().str() + "/spray.vdb";
  ASSERT_EQ(Host::writeObject(builder.object(), file).message(), "");
  for (int trip = 0; trip < 2; ++trip) {
    auto const loaded = load(file);
    ASSERT_EQ(loaded.message, "");
    EXPECT_EQ(API::PointComponent(loaded.object.findComponent("particle")).channels().count(),
              names.size() + 2);
    EXPECT_TRUE(loaded.channel("unnamed", "particle").valid());
    for (std::size_t n = 0; n < names.size(); ++n) {
      API::PointChannel const back(loaded.channel(names[n].c_str(), "particle"));
      ASSERT_TRUE(back.valid()) << names[n];
      EXPECT_EQ(Host::pointData<int>(back)[1], static_cast<int>(n)) << names[n];
    }
    file = folder.path().str() + "/again.vdb";
    ASSERT_EQ(Host::writeObject(loaded.object, file).message(), "");
  }
}

TEST(RoundTrip, PointsWithoutPositionsAreLeftOutWithAWarning) {
  CacheFolder const folder;
  ObjectBuilder const builder("spray");
  auto const points = builder.points({{1.f, 2.f, 3.f}});
  builder.sphere(builder.voxels(), 3.f);
  builder.server().removeChannel("particle/position");
  MessageLog const log;
  auto const file = folder.path().str() + "/spray.vdb";
  ASSERT_EQ(Host::writeObject(builder.object(), file).message(), "");
  EXPECT_EQ(log.warnings(), std::vector<std::string>{
                                "The points of 'particle' have no positions and are left out"});
  EXPECT_EQ(load(file).message, "");
}

// A filter or a plug-in may have written anything over the positions.
TEST(RoundTrip, PointsThatAreNowhereAreLeftOutWithTheirValues) {
  CacheFolder const folder;
  auto const scene = emptyScene();
  API::PointComponent const points(
      scene.server.createComponent(API::PointComponentType, "particle", 1.f));
  scene.object.addComponent(points);
  // Along x backwards: the file has them the other way round, and says so.
  std::vector<Vec3> positions;
  for (int n = 0; n < 8; ++n)
    positions.push_back({n < 6 ? 7.5f - 0.8f * static_cast<float>(n) : -9.f, 0.f, 0.f});
  Host::setPoints(points, positions);
  API::PointChannel const number(scene.server.createChannel(points, API::DataType::Int, "number"));
  auto* const at = Host::pointData<Vec3>(API::PointChannel(points.findChannel("position")));
  for (int n = 0; n < 8; ++n) Host::pointData<int>(number)[n] = n;
  at[1].x = std::numeric_limits<float>::quiet_NaN();
  at[2].y = std::numeric_limits<float>::infinity();
  at[5].z = -3e9f;
  auto const file = folder.path().str() + "/points.vdb";
  MessageLog const log;
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  EXPECT_EQ(log.warnings(),
            std::vector<std::string>{
                "3 points of 'particle' have positions that no file can hold and are left out"});
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  auto const* const back =
      Host::pointData<int>(API::PointChannel(loaded.channel("number", "particle")));
  ASSERT_EQ(API::PointComponent(loaded.object.findComponent("particle")).elementCount(), 5u);
  EXPECT_EQ(std::vector<int>(back, back + 5), (std::vector<int>{0, 3, 4, 6, 7}));
}

TEST(RoundTrip, MetadataGoesBothWays) {
  CacheFolder const folder;
  auto const scene = sphereScene(5.f);
  auto const dictionary = scene.object.dictionary();
  dictionary.set("flag", true);
  dictionary.set("number", 7);
  dictionary.set("single", 0.1f);
  dictionary.set("precise", 0.1);
  dictionary.set("direction", Vec3{1.f, 2.f, 3.f});
  dictionary.set("note", "two words");
  scene.distance.dictionary().set("unit", "metre");
  auto const file = folder.path().str() + "/meta.vdb";
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  auto const loaded = load(file);
  auto const back = loaded.object.dictionary();
  EXPECT_TRUE(back.value<bool>("flag"));
  EXPECT_EQ(back.value<int>("number"), 7);
  EXPECT_EQ(back.value<float>("single"), 0.1f);
  EXPECT_EQ(back.value<double>("precise"), 0.1);
  EXPECT_EQ(back.value<Vec3>("direction"), (Vec3{1.f, 2.f, 3.f}));
  EXPECT_EQ(back.value<API::String>("note"), "two words");
  EXPECT_EQ(loaded.channel("distance").dictionary().value<API::String>("unit"), "metre");
}

TEST(RoundTrip, SameBytesForAnyThreadCount) {
  CacheFolder const folder;
  auto const scene = sphereScene(20.f);
  std::map<int, decltype(contentOf<float>(scene.distance))> content;
  std::map<int, std::string> bytes;
  for (int const threads : {1, 2, 8}) {
    Threads const limit(threads);
    auto const file = folder.path().str() + "/threads.vdb";
    ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
    content[threads] = contentOf<float>(load(file).channel("distance"));
    std::ifstream in(file, std::ios::binary);
    bytes[threads].assign(std::istreambuf_iterator<char>(in), {});
    ASSERT_GT(bytes[threads].size(), 1000u);
    // Behind the versions stands an identifier that no two files share.
    bytes[threads].erase(21, 36);
  }
  EXPECT_TRUE(content[1] == content[2] && content[1] == content[8]);
  EXPECT_TRUE(bytes[1] == bytes[2] && bytes[1] == bytes[8]);
}

}  // namespace
}  // namespace Velmor::Test
