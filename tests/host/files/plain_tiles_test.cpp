#include <gtest/gtest.h>

#include "host/files/file_scenes.h"
#include "host/files/vdb_files.h"

// Tiles that say nothing which the cells above them do not, and so are only
// listed in the file.

namespace Velmor::Test {
namespace {

API::TileCoord const nearTile{-2, -2, -2}, farTile{7003, -2, -2}, plainTile{7008, -2, -2};

/// Two channels, each with values in a tile that the other has not, and a plain
/// tile beside the far one.
std::string writeTwoPlaces(std::string const& folder) {
  auto const scene = emptyScene();
  Host::addLeafTiles(scene.layout, {nearTile, farTile, plainTile});
  auto const fill = [&](API::Channel const& channel, API::TileCoord const& tile) {
    auto const data = channel.tileData<float>(scene.layout.tileAccessor().index(tile, 7));
    for (std::size_t e = 0; e < data.count; ++e) data.data[e] = static_cast<float>(e);
  };
  fill(addChannel<float>(scene.server, scene.volume, "near"), nearTile);
  fill(addChannel<float>(scene.server, scene.volume, "far"), farTile);
  auto file = folder + "/two.vdb";
  EXPECT_EQ(Host::writeObject(scene.object, file).message(), "");
  return file;
}

bool has(Loaded const& loaded, char const* channel, API::TileCoord const& tile) {
  return API::Layout(loaded.channel(channel).layout()).tileAccessor().index(tile, 7).depth == 7;
}

TEST(PlainTiles, ComeBack) {
  CacheFolder const folder;
  auto const loaded = load(writeTwoPlaces(folder.path().str()));
  for (auto const& tile : {nearTile, farTile, plainTile}) EXPECT_TRUE(has(loaded, "near", tile));
}

TEST(PlainTiles, GoWhereTheTilesAboveThemAreNotLoaded) {
  CacheFolder const folder;
  auto const file = writeTwoPlaces(folder.path().str());
  API::Runtime::CacheResource::LoadOptions some;
  some.channels.add("near");
  auto const part = load(file, trusting(), some);
  EXPECT_EQ(part.message, "");
  EXPECT_TRUE(has(part, "near", nearTile));
  EXPECT_FALSE(has(part, "near", plainTile));

  some.channels = {};
  some.channels.add("far");
  EXPECT_TRUE(has(load(file, trusting(), some), "far", plainTile));
}

TEST(PlainTiles, AreClippedLikeOthers) {
  CacheFolder const folder;
  auto const file = writeTwoPlaces(folder.path().str());
  API::Runtime::CacheResource::LoadOptions box;
  box.bounds = {{-1.f, -1.f, -1.f}, {1.f, 1.f, 1.f}};
  auto const middle = load(file, trusting(), box);
  EXPECT_EQ(middle.message, "");
  EXPECT_TRUE(has(middle, "near", nearTile));
  EXPECT_FALSE(has(middle, "near", plainTile));

  box.bounds = {{7000.f, -1.f, -1.f}, {7004.f, 1.f, 1.f}};
  auto const beside = load(file, trusting(), box);
  EXPECT_TRUE(has(beside, "far", farTile));
  EXPECT_FALSE(has(beside, "far", plainTile)) << "its parent is there, it is not asked for";
}

TEST(PlainTiles, AListThatDoesNotFitTheGridIsHarmless) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(8.f, 0.1)});
  auto const plain = contentOf<float>(load(file).channel("distance"));
  for (auto const* const text : {"", "7", "7,1;", "6,1;1:0", "7,0;1:0", "7,1;0:0", "7,1;8:0",
                                 "7,1;1:7d", "7,1;1:3,0", "7,1;1:7c,1", "7,1;1:0;1:1", "7,1;1:0x",
                                 "7,1;7:0,1,ffff", "7,1;2:5;3:271", "7,1;7:ffffffffffffffff,1"}) {
    auto const grid = sphereGrid(8.f, 0.1);
    grid->insertMeta("velmor_tiles", openvdb::StringMetadata(text));
    writeGrids(file, {grid});
    auto const loaded = load(file);
    EXPECT_EQ(loaded.message, "") << text;
    EXPECT_TRUE(contentOf<float>(loaded.channel("distance")) == plain) << text;
  }
}

}  // namespace
}  // namespace Velmor::Test
