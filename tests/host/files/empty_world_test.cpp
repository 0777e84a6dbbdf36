#include <gtest/gtest.h>

#include <filesystem>

#include "host/files/file_scenes.h"
#include "host/files/vdb_files.h"
#include "processing/pointwise_filters.h"

// Filters over all depths move the value of the empty world away from the
// background, which they leave alone.

namespace Velmor::Test {
namespace {

std::string const sphereFile = "/sphere.vdb", otherFile = "/other.vdb";

/// A sphere as a file gives it: with a mask for every tile.
Loaded storedSphere(std::string const& folder) {
  EXPECT_EQ(
      Host::writeObject(sphereScene(8.f, Vec3(0.f), 0.1f).object, folder + sphereFile).message(),
      "");
  return load(folder + sphereFile);
}

std::string write(Loaded const& loaded, std::string const& folder) {
  EXPECT_EQ(Host::writeObject(loaded.object, folder + otherFile).message(), "");
  return folder + otherFile;
}

TEST(EmptyWorld, AFieldThatIsMovedAtAllDepthsComesBackBitForBit) {
  CacheFolder const folder;
  for (float const amount : {0.25f, -0.25f, -2.f, -0.5f}) {
    auto const loaded = storedSphere(folder.path().str());
    auto const distance = loaded.channel("distance");
    Processing::OffsetFilter<float>(amount).filter(distance, distance);
    auto const file = write(loaded, folder.path().str());
    EXPECT_LT(std::filesystem::file_size(file), 200'000u);
    auto const again = load(file);
    EXPECT_EQ(again.warnings, std::vector<std::string>());
    expectSameContent<float>(distance, again.channel("distance"));
    EXPECT_EQ(again.channel("distance").backgroundValue<float>(), 0.5f);
  }
}

TEST(EmptyWorld, OtherProgramsSeeItsValueEverywhere) {
  CacheFolder const folder;
  auto const loaded = storedSphere(folder.path().str());
  auto const distance = loaded.channel("distance");
  Processing::OffsetFilter<float>(0.25f).filter(distance, distance);
  auto const grids = readGrids(write(loaded, folder.path().str()));
  ASSERT_EQ(grids.size(), 1u);
  auto const grid = openvdb::gridPtrCast<openvdb::FloatGrid>(grids[0]);
  EXPECT_EQ(grid->background(), 0.75f);
  auto const before =
      openvdb::gridPtrCast<openvdb::FloatGrid>(readGrids(folder.path().str() + sphereFile)[0]);
  EXPECT_EQ(grid->activeVoxelCount(), before->activeVoxelCount());
  for (auto const& at : {openvdb::Coord(0), openvdb::Coord(8, 0, 0), openvdb::Coord(4000, 7, -7),
                         openvdb::Coord(-195000)}) {
    EXPECT_EQ(grid->tree().getValue(at), 0.25f + before->tree().getValue(at)) << at;
  }
}

TEST(EmptyWorld, AConstantChannelIsASmallFile) {
  CacheFolder const folder;
  auto const scene = sphereScene(8.f, Vec3(0.f), 0.1f);
  auto const wind = addChannel<Vec3>(scene.server, scene.volume, "wind", Vec3(0.f));
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const cells = wind.tileData<Vec3>(index);
    std::fill_n(cells.data, cells.count, Vec3(1.f, -0.f, 3.f));
  });
  auto const file = folder.path().str() + sphereFile;
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  EXPECT_LT(std::filesystem::file_size(file), 200'000u);
  auto const back = load(file).channel("wind");
  EXPECT_EQ(back.backgroundValue<Vec3>(), Vec3(0.f));
  API::Layout const layout(back.layout());
  EXPECT_EQ(Host::tileCount(layout, 7), Host::tileCount(scene.layout, 7));
  std::size_t cells = 0, wrong = 0;
  forTiles(layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const data = back.tileData<Vec3>(index);
    for (std::size_t c = 0; c < data.count; ++c) {
      wrong += std::memcmp(&data.data[c], &wind.tileData<Vec3>({0, 0}).data[0], sizeof(Vec3)) != 0;
    }
    cells += data.count;
  });
  EXPECT_GT(cells, 10'000u);
  EXPECT_EQ(wrong, 0u);
}

TEST(EmptyWorld, TheBackgroundIsScaledWithTheDistances) {
  CacheFolder const folder;
  auto const loaded = storedSphere(folder.path().str());
  auto const distance = loaded.channel("distance");
  Processing::ScaleFilter<float>(10.f).filter(distance, distance);
  auto const file = write(loaded, folder.path().str());
  EXPECT_EQ(load(file).channel("distance").backgroundValue<float>(), 0.5f);
  auto how = trusting();
  how.distance = Host::DistanceMode::Scale;
  auto const scaled = load(file, how).channel("distance");
  EXPECT_NEAR(scaled.backgroundValue<float>(), 0.05f, 1e-3f);
  how.distance = Host::DistanceMode::Rebuild;
  auto const rebuilt = load(file, how).channel("distance");
  EXPECT_NEAR(rebuilt.backgroundValue<float>(), 0.5f, 1e-6f);
}

TEST(EmptyWorld, ABackgroundThatDoesNotFitItsTypeIsLeftAside) {
  CacheFolder const folder;
  auto const file = folder.path().str() + sphereFile;
  for (auto const* const text : {"3f000000,0", "", "3f00000z", "123456789", ",", "3f000000,"}) {
    auto const grid = sphereGrid(8.f, 0.1);
    grid->insertMeta("velmor_background", openvdb::StringMetadata(text));
    writeGrids(file, {grid});
    auto const loaded = load(file);
    EXPECT_EQ(loaded.message, "");
    EXPECT_EQ(loaded.channel("distance").backgroundValue<float>(), grid->background()) << text;
  }
}

/// A root and tiles below it, every cell with a value of its own.
template <class T>
Scene unevenScene() {
  auto const scene = emptyScene();
  Host::addLeafTiles(scene.layout, {{0, 0, 0}, {7000, 0, 0}});
  auto const channel = addChannel<T>(scene.server, scene.volume, "uneven");
  int next = 0;
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const cells = channel.template tileData<T>(index);
    for (std::size_t c = 0; c < cells.count; ++c) {
      if constexpr (std::is_arithmetic_v<T>) {
        cells.data[c] = static_cast<T>(++next);
      } else {
        for (int a = 0; a < T::size; ++a)
          cells.data[c][a] = static_cast<typename T::value_type>(++next);
      }
    }
  });
  return scene;
}

template <class T>
class UnevenWorld : public testing::Test {};
using OneOfEachSize = testing::Types<float, orlen::Math::vec<2, int>, orlen::Math::vec<3, float>>;
TYPED_TEST_SUITE(UnevenWorld, OneOfEachSize);

// Spelled out in OpenVDB's nodes the rims of these cells would be billions of leaves.
TYPED_TEST(UnevenWorld, CoarseCellsOfAnyValueComeBackBitForBit) {
  CacheFolder const folder;
  auto const scene = unevenScene<TypeParam>();
  auto const file = folder.path().str() + otherFile;
  std::vector<std::string> warnings;
  Host::setMessageHandler(
      [&](Host::Severity, std::string const& text) { warnings.push_back(text); });
  auto const status = Host::writeObject(scene.object, file);
  Host::setMessageHandler(nullptr);
  ASSERT_EQ(status.message(), "");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find("Channel 'uneven': its coarse cells of "), std::string::npos);
  EXPECT_LT(std::filesystem::file_size(file), 20'000'000u);
  expectSameContent<TypeParam>(scene.volume.findChannel("uneven"), load(file).channel("uneven"));
}

TEST(UnevenWorld, ADamagedListOfCellsIsLeftAside) {
  CacheFolder const folder;
  auto const file = folder.path().str() + sphereFile;
  auto const plain = [&] {
    writeGrids(file, {sphereGrid(8.f, 0.1)});
    return contentOf<float>(load(file).channel("distance"));
  }();
  for (auto const* const text :
       {"7,1;", "7,1;0,0,7d,1,3f800000", "7,1;7,0,0,1,3f800000", "7,1;0,1,0,1,3f800000",
        "7,1;0,0,0,2,3f800000", "7,1;0,0,0,1,", "7,1;0,0,0,1,3f800000,0", "6,1;0,0,0,1,3f800000",
        "7,1;1,7c,0,1,3f800000x", "7,1;1,ffffffffffffffff,0,1,3f800000"}) {
    auto const grid = sphereGrid(8.f, 0.1);
    grid->insertMeta("velmor_coarse", openvdb::StringMetadata(text));
    writeGrids(file, {grid});
    auto const loaded = load(file);
    EXPECT_EQ(loaded.message, "");
    EXPECT_TRUE(contentOf<float>(loaded.channel("distance")) == plain) << text;
  }
  auto const grid = sphereGrid(8.f, 0.1);
  grid->insertMeta("velmor_coarse", openvdb::StringMetadata("7,1;0,0,0,1,3f800000"));
  writeGrids(file, {grid});
  EXPECT_EQ(load(file).channel("distance").tileData<float>({0, 0}).data[0], 1.f);
}

}  // namespace
}  // namespace Velmor::Test
