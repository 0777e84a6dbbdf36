#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <vector>

#include "processing/extend_filter.h"
#include "processing/pointwise_filters.h"
#include "processing/smooth_filter.h"
#include "processing/stencil_filters.h"
#include "support/cache_folder.h"
#include "support/ocean_scenes.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

using Float2 = orlen::Math::vec<2, float>;
using Int3 = orlen::Math::vec<3, int>;

/// A cache file with a sphere, a cloud in the same tiles, and two other channels.
class FilterCommand : public testing::Test {
 protected:
  FilterCommand() {
    addChannel<float>(scene.server, scene.volume, "density", 0.25f);
    addChannel<Int3>(scene.server, scene.volume, "flags", Int3(5, -6, 7));
    auto const tmp = addChannel<float>(scene.server, scene.volume, "tmp", 0.f);
    // Leaves alone: a coarse cell of another value is a part of the world.
    float next = 0.f;
    forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
      auto const data = tmp.tileData<float>(index);
      for (std::size_t e = 0; e < data.count; ++e) data.data[e] = next += 0.5f;
    });
    scene.object.dictionary().set("author", "somebody");
    folder.writeTo(scene.object, input);
  }

  std::vector<std::string> command(std::vector<std::string> const& rest) const {
    std::vector<std::string> all{"filter", input};
    all.insert(all.end(), rest.begin(), rest.end());
    all.insert(all.end(), {"-o", output});
    return all;
  }
  Velmor::Test::Run filter(std::vector<std::string> const& rest) const {
    return runCommand(command(rest));
  }

  /// The voxel component of a cache file.
  static API::VoxelComponent read(std::string const& path) {
    API::Ref server;
    Host::ReadOptions options;
    options.isolate = false;
    auto const status = Host::readObject(path, "object", {}, options, server);
    EXPECT_TRUE(status.succeeded()) << status.message();
    auto const objects = API::StateServer(server).objects();
    EXPECT_EQ(objects.count(), 1u);
    return API::VoxelComponent(objects[0].findComponent("volume"));
  }
  template <class T>
  static std::vector<T> values(API::Component const& component, char const* name) {
    return valuesOf<T>(API::Channel(component.findChannel(name)));
  }

  CacheFolder folder;
  std::string input = (std::filesystem::path(folder.path().str()) / "in.vdb").string();
  std::string output = (std::filesystem::path(folder.path().str()) / "out.vdb").string();
  Scene scene = sphereScene(8.f, Vec3(0.f), 0.1f);
};

TEST_F(FilterCommand, ReportsAFileForAllFramesAsSuch) {
  auto const json = filter({"--channel", "distance", "--op", "offset:0", "--json"});
  EXPECT_EQ(nlohmann::json::parse(json.out)["every_frame"], true);
  auto const text = filter({"--channel", "distance", "--op", "offset:0"}).out;
  EXPECT_NE(text.find(", all frames (one file)\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("frame 0"), std::string::npos) << text;
}

TEST_F(FilterCommand, WarnsOfASurfaceThatIsGone) {
  auto const warns = [this](std::vector<std::string> const& rest) {
    auto const run = filter(rest);
    EXPECT_EQ(run.exit, 0) << run.err;
    return run.err.find("no surface is left: '") != std::string::npos;
  };
  EXPECT_TRUE(warns({"--channel", "distance", "--op", "dilate:1e30"}));
  EXPECT_TRUE(warns({"--channel", "distance", "--op", "erode:2", "--into", "less"}));
  EXPECT_FALSE(warns({"--channel", "distance", "--op", "dilate:0.1"}));
  EXPECT_FALSE(warns({"--channel", "density", "--op", "offset:7"})) << "no level set";
  EXPECT_FALSE(warns({"--channel", "distance", "--op", "curvature"})) << "not meant as a distance";
}

TEST_F(FilterCommand, WarnsOfFogWhereADistanceIsMeant) {
  Host::setFieldClass(scene.volume.findChannel("density"), Host::FieldClass::FogVolume);
  folder.writeTo(scene.object, input);
  auto const warns = [this](char const* channel, std::string const& operation) {
    auto const run = filter({"--channel", channel, "--op", operation});
    EXPECT_EQ(run.exit, 0) << run.err;
    return run.err.find("'density' is a fog volume; " + operation + " is meant for distances") !=
           std::string::npos;
  };
  for (auto const* operation : {"dilate:0.1", "erode:0.1", "curvature", "smooth:curvature:1:0.1"}) {
    EXPECT_TRUE(warns("density", operation)) << operation;
    EXPECT_FALSE(warns("distance", operation)) << operation;
  }
  EXPECT_FALSE(warns("density", "offset:1"));
  EXPECT_FALSE(warns("density", "smooth:laplacian:1:0.1"));
}

TEST_F(FilterCommand, RunsOperatorsInTheOrderGivenAndKeepsEverythingElse) {
  auto const run = filter({"--channel", "distance", "--op", "dilate:0.05", "--op", "scale:2",
                           "--op", "mean", "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const report = nlohmann::json::parse(run.out);
  EXPECT_EQ(report["operators"], (std::vector<std::string>{"dilate:0.05", "scale:2", "mean"}));
  EXPECT_EQ(report["result"], "distance");

  auto const before = read(input), after = read(output);
  API::Channel const expected(before.findChannel("distance"));
  Processing::DilateFilter<float>(0.05f).filter(expected, expected);
  Processing::ScaleFilter<float>(2.f).filter(expected, expected);
  auto const mean = addChannel<float>(
      API::StateServer(API::ObjectModel::stateServer(before.stateID())), before, "mean", 0.f);
  Processing::MeanFilter<float>().filter(expected, mean);
  EXPECT_EQ(values<float>(after, "distance"), valuesOf<float>(mean));
  for (auto const* const name : {"density", "tmp"}) {
    EXPECT_EQ(values<float>(after, name), values<float>(before, name)) << name;
  }
  EXPECT_EQ(values<Int3>(after, "flags"), values<Int3>(before, "flags"));
  EXPECT_EQ(API::Object(after.object()).dictionary().value<API::String>("author"), "somebody");
}

TEST_F(FilterCommand, WorksOnIntegerVectors) {
  auto const run = filter({"--channel", "volume/flags", "--op", "offset:1,2,3", "--op",
                           "remap:0,0,0:10,10,10:0,0,0:25,25,-25"});
  ASSERT_EQ(run.exit, 0) << run.err;
  for (auto const& v : values<Int3>(read(output), "flags")) ASSERT_EQ(v, Int3(12, -8, -20));
}

TEST_F(FilterCommand, PutsTheResultIntoANewChannelWithTheSourcesActiveVoxels) {
  auto const run = filter({"--channel", "distance", "--op", "offset:0.01", "--into", "moved"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const before = read(input), after = read(output);
  EXPECT_EQ(values<float>(after, "distance"), values<float>(before, "distance"));
  auto moved = values<float>(before, "distance");
  for (float& v : moved) v = 0.01f + v;
  EXPECT_EQ(values<float>(after, "moved"), moved);
  API::Channel const source(after.findChannel("distance")), result(after.findChannel("moved"));
  forTiles(API::Layout(after.layout()), 7, 7, [&](API::TreeIndex const& index) {
    ASSERT_EQ(Host::activeMask(result, index), Host::activeMask(source, index));
  });
}

TEST_F(FilterCommand, StencilsWorkOnLeafTilesUnlessDepthsAreGiven) {
  auto const coarse = [&](API::Component const& component) {
    API::Channel const channel(component.findChannel("distance"));
    std::vector<float> found;
    forTiles(API::Layout(component.layout()), 0, 6, [&](API::TreeIndex const& index) {
      auto const data = channel.tileData<float>(index);
      // Cells above tiles are made anew when a file is read.
      auto const tile = API::Layout(component.layout()).tileAccessor().tile(index);
      for (int c = 0; c < 125; ++c) {
        if (!tile.child(c % 5, c / 5 % 5, c / 25).valid()) found.push_back(data.data[c]);
      }
    });
    return found;
  };
  ASSERT_EQ(filter({"--channel", "distance", "--op", "laplacian"}).exit, 0);
  EXPECT_EQ(coarse(read(output)), coarse(read(input)));
  auto const leaves = values<float>(read(output), "distance");
  EXPECT_NE(leaves, values<float>(read(input), "distance"));
  ASSERT_EQ(filter({"--channel", "distance", "--op", "laplacian", "--depths", "7", "7"}).exit, 0);
  EXPECT_EQ(values<float>(read(output), "distance"), leaves);
  // No leaf tile at these depths.
  ASSERT_EQ(filter({"--channel", "distance", "--op", "laplacian", "--depths", "2", "4"}).exit, 0);
  EXPECT_EQ(values<float>(read(output), "distance"), values<float>(read(input), "distance"));
}

TEST_F(FilterCommand, SmoothsAsTheLibraryDoes) {
  auto const run = filter({"--channel", "distance", "--op", "smooth:curvature:3:0.5"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const before = read(input);
  API::Channel const expected(before.findChannel("distance"));
  Processing::SmoothFilter<float>(Processing::SmoothFilter<float>::Curvature, 3, 0.5f)
      .filter(expected, expected);
  EXPECT_EQ(values<float>(read(output), "distance"), valuesOf<float>(expected));
}

TEST_F(FilterCommand, ExplainsItsOperators) {
  auto const run = runCommand({"filter", "--list"});
  EXPECT_EQ(run.exit, 0);
  for (auto const* const name : {"offset:V", "remap:INMIN:INMAX:OUTMIN:OUTMAX", "median",
                                 "smooth:laplacian|curvature:ITERATIONS:STEP",
                                 "ocean:HEIGHT:CX,CZ:DX,DZ:RADIUS[:MASKNAME]", "uvs:CX,CZ:DX,DZ"}) {
    EXPECT_NE(run.out.find(name), std::string::npos) << name;
  }
}

TEST_F(FilterCommand, MakesAMissingChannelForTextureCoordinates) {
  auto const run = filter({"--channel", "uv", "--op", "uvs:0,0:2,2"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const after = read(output);
  API::Channel const uv(after.findChannel("uv"));
  ASSERT_EQ(uv.dataType(), API::DataType::Float2);
  auto const tile = API::Layout(after.layout()).tileAccessor().tile(0, 0, 8, 7);
  auto const data = uv.tileData<Float2>(tile.index());
  auto const at = data.data[data.offset(0 - tile.coord().i, 0, 8 - tile.coord().k)];
  EXPECT_NEAR(at.x, 0.5f, 1e-6f);
  EXPECT_NEAR(at.y, 0.9f, 1e-6f);
}

struct Refusal {
  std::vector<std::string> arguments;
  int exit;
  std::string text;
};

TEST_F(FilterCommand, RefusesWhatCannotBeMeantAndWritesNothing) {
  Refusal const refusals[] = {
      {{"--channel", "distance", "--op", "smoth:laplacian:1:1"}, 2, "did you mean 'smooth'?"},
      {{"--channel", "distance", "--op", "smooth:laplcian:1:1"}, 2, "'laplacian'"},
      {{"--channel", "distance", "--op", "smooth:laplacian:-1:1"}, 2, "iterations"},
      {{"--channel", "distance", "--op", "smooth:laplacian:10001:1"}, 2, "up to 10000"},
      {{"--channel", "distance", "--op", "smooth:laplacian:1000000000:1"}, 2, "up to 10000"},
      {{"--channel", "distance", "--op", "offset"}, 2, "is written offset:V"},
      {{"--channel", "distance", "--op", "mean:3"}, 2, "is written mean"},
      {{"--channel", "distance", "--op", "offset:nan"}, 2, "is not a number"},
      {{"--channel", "distance", "--op", "offset:1e60"}, 2, "is not a number"},
      {{"--channel", "flags", "--op", "offset:1,2"}, 2, "is not 3 integers between commas"},
      {{"--channel", "flags", "--op", "offset:1,2,2.5"}, 2, "is not 3 integers between commas"},
      {{"--channel", "flags", "--op", "remap:0,0,0:1,0,1:0,0,0:1,1,1"}, 2, "are equal"},
      {{"--channel", "flags", "--op", "mean"}, 3, "works on float values; 'flags' holds int3"},
      {{"--channel", "distnce", "--op", "mean"}, 3, "did you mean 'distance'?"},
      {{"--channel", "distance", "--op", "uvs:0,0:1,1"}, 3, "works on float2 values"},
      {{"--channel", "tmp", "--op", "mean"}, 2, "use for channels of their own"},
      {{"--channel", "distance", "--op", "mean", "--into", "tmp"}, 2, "channels of their own"},
      {{"--channel", "distance", "--op", "mean", "--into", "oceanTmp"}, 2, "channels of their own"},
      {{"--channel", "distance", "--op", "mean", "--into", "density"}, 2, "already"},
      {{"--channel", "distance", "--op", "mean", "--into", ""}, 2, "a name is missing"},
      {{"--channel", "distance", "--op", "mean", "--into", "a/b"}, 2, "cannot be"},
      {{"--channel", "distance", "--op", "mean", "--depths", "3", "2"}, 2, "--depths"},
      {{"--channel", "distance", "--op", "ocean:0:0,0:1,1:0:density"}, 2, "already"},
      {{"--channel", "distance", "--op", "ocean:0:0,0:1,1:0:oceanTmp"}, 2, "channels of their own"},
      {{"--channel", "distance", "--op", "ocean:0:0,0:1,1:0:m", "--into", "m"}, 2, "used twice"},
      {{"--channel", "distance", "--op", "ocean:nan:0,0:1,1:0"}, 2, "is not a number"},
      {{"--channel", "distance", "--op", "ocean:0:0,0:1,1:inf"}, 2, "is not a number"},
      {{"--channel", "distance", "--op", "ocean:0:0,0:1,1:-2"}, 2, "ocean: '-2' is not a radius"},
      {{"--channel", "distance", "--op", "ocean:0:0,0:-1,1:0"}, 2, "size of a rectangle"},
      {{"--channel", "nowhere/distance", "--op", "mean"}, 3, "'volume/distance', 'volume/density'"},
      {{"--channel", "distance", "--op", "ocean:0:0,0:1e9,1e9:0"}, 2, "--max-tiles 20000000"},
      {{"--channel", "distance", "--op", "ocean:0:0,0:9,9:0", "--max-tiles", "9"},
       2,
       "--max-tiles 9"},
      {{"--channel", "distance", "--op", "ocean:1e6:0,0:1,1:0"}, 2, "voxels that a cache can hold"},
      {{"--channel", "flags", "--op", "ocean:0:0,0:1,1:0"}, 3, "works on float values"},
  };
  for (auto const& [arguments, exit, text] : refusals) {
    auto const run = filter(arguments);
    EXPECT_EQ(run.exit, exit) << arguments[3] << ": " << run.err;
    EXPECT_NE(run.err.find(text), std::string::npos) << arguments[3] << ": " << run.err;
    EXPECT_FALSE(std::filesystem::exists(output));
  }
}

TEST_F(FilterCommand, WritesCacheFilesOnly) {
  auto const run = runCommand({"filter", input, "--channel", "density", "--op", "offset:1", "-o",
                               folder.path().str() + "/out.ply"});
  EXPECT_EQ(run.exit, 2);
  EXPECT_NE(run.err.find("out.ply: cache files are written as .vdb"), std::string::npos) << run.err;
}

TEST_F(FilterCommand, ADashIsStandardOutput) {
  auto const run =
      runCommand({"filter", input, "--channel", "density", "--op", "offset:1", "-o", "-"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_NE(run.err.find("operators"), std::string::npos) << run.err;  // the report gave way
  writeFile(output, run.out);
  EXPECT_EQ(values<float>(read(output), "density").front(), 1.25f);
  EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST_F(FilterCommand, NeverWritesOverItsInput) {
  auto const before = values<float>(read(input), "density");
  auto const link = folder.path().str() + "/link.vdb";
  std::filesystem::create_symlink(input, link);
  for (auto const& place : {input, link}) {
    auto const run =
        runCommand({"filter", input, "--channel", "density", "--op", "offset:1", "-o", place});
    EXPECT_EQ(run.exit, 2);
    EXPECT_NE(run.err.find("is the input itself"), std::string::npos) << run.err;
  }
  EXPECT_EQ(values<float>(read(input), "density"), before);
}

TEST_F(FilterCommand, SaysSoWhereTheOutputCannotBeWritten) {
  auto const run = runCommand({"filter", input, "--channel", "density", "--op", "offset:1", "-o",
                               folder.path().str() + "/no/such/folder/out.vdb"});
  EXPECT_EQ(run.exit, 5) << run.err;
}

/// An ocean around a pool whose file has a band of 3 voxels and an origin.
class OceanCommand : public FilterCommand {
 protected:
  OceanCommand() {
    pool = wavyPool(0.3, 0.5f);
    // A narrow band of 3 voxels, as most files have.
    forTiles(pool.layout, 0, 7, [&](API::TreeIndex const& index) {
      auto const data = pool.distance.tileData<float>(index);
      for (std::size_t e = 0; e < data.count; ++e)
        data.data[e] = std::clamp(data.data[e], -1.5f, 1.5f);
    });
    pool.distance.setBackgroundValue(1.5f);
    pool.object.dictionary().set("origin", Vec3(10.f, 20.f, 30.f));
    folder.writeTo(pool.object, input);
  }
  Scene pool;
};

TEST_F(OceanCommand, MovesThePlateauFirstAndTakesWorldPositions) {
  auto const run = filter({"--channel", "distance", "--op", "ocean:20.15:10,30:100,100:5:mask"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_NE(run.err.find("moved the plateau of 'distance' from 3 voxels out to 5"),
            std::string::npos)
      << run.err;
  auto const before = read(input), after = read(output);
  EXPECT_EQ(API::Object(after.object()).dictionary().value<Vec3>("origin"), Vec3(10.f, 20.f, 30.f));
  // The same through the library, in the coordinates of the cache.
  API::VoxelChannel const expected(before.findChannel("distance"));
  ASSERT_TRUE(Host::movePlateau(expected, 2.5f));
  auto const origin = API::Object(before.object()).dictionary().value<Vec3>("origin");
  Processing::ExtendFilter(static_cast<float>(20.15 - double{origin.y}), {0.f, 0.f}, {100.f, 100.f},
                           5.f, "mask")
      .filter(expected, expected);
  EXPECT_EQ(values<float>(after, "distance"), valuesOf<float>(expected));
  EXPECT_EQ(values<float>(after, "mask"), values<float>(before, "mask"));
  EXPECT_FALSE(after.findChannel("oceanTmp").valid());
}

TEST_F(OceanCommand, RefusesAChannelThatIsNoLevelSet) {
  addChannel<float>(pool.server, pool.volume, "density", 0.f);
  folder.writeTo(pool.object, input);
  auto const run = filter({"--channel", "density", "--op", "ocean:20:10,30:50,50:0"});
  EXPECT_EQ(run.exit, 3);
  EXPECT_NE(run.err.find("no level set"), std::string::npos) << run.err;
}

}  // namespace
}  // namespace Velmor::Test
