#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>

#include "support/cache_folder.h"
#include "support/object_builder.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

using Json = nlohmann::json;

constexpr uid_t nobody = 65534;

// A cache of two objects: "ball" with frames 1, 2, 3, 7, and "drop" with one file.
class CommandTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    cache_ = new CacheFolder;
    ObjectBuilder const ball("ball");
    auto const volume = ball.voxels();
    ball.sphere(volume, 8.f);
    ball.sphere(volume, 6.f, "smaller");
    ball.channel<Float3>(volume, "velocity", {1.f, 2.f, 3.f});
    ball.points({{0.5f, 0.5f, 0.5f}, {3.f, 4.f, 5.f}});
    for (int const frame : {1, 2, 3, 7}) cache_->write(ball.object(), frame);
    one_ = new CacheFolder;
    one_->write(ball.object(), 1);
    file_ = new std::string(one_->fileOf("ball", 1).string());
    ObjectBuilder const drop("drop");
    drop.sphere(drop.voxels(), 4.f);
    cache_->write(drop.object(), 5);
  }
  static void TearDownTestSuite() {
    delete cache_;
    delete one_;
    delete file_;
  }

  static std::string cache() { return cache_->path().str(); }
  static std::string one() { return one_->path().str(); }
  static std::string const& file() { return *file_; }
  std::string out(std::string const& name) const { return outputs_.path().str() + "/" + name; }
  std::vector<std::string> outputs() const { return namesIn(outputs_.path().str()); }

 private:
  static inline CacheFolder* cache_ = nullptr;
  static inline CacheFolder* one_ = nullptr;
  static inline std::string* file_ = nullptr;
  CacheFolder outputs_;
};

void expectFailure(Run const& run, int code, std::string const& text) {
  EXPECT_EQ(run.exit, code) << run.err;
  EXPECT_NE(run.err.find(text), std::string::npos) << run.err;
  EXPECT_EQ(run.out, "");
}

TEST_F(CommandTest, HelpListsVerbsAndExitCodes) {
  auto const run = runCommand({"--help"});
  EXPECT_EQ(run.exit, 0);
  for (auto const* text :
       {"info", "mesh", "  0  success", "  1  any other", "  2  wrong usage",
        "  3  input unreadable", "  4  mesh not closed", "  5  output not writable",
        "  6  frames of a sequence failed, one, some or all"}) {
    EXPECT_NE(run.out.find(text), std::string::npos) << text;
  }
  EXPECT_NE(runCommand({"mesh", "--help"}).out.find("5  output not writable"), std::string::npos);
}

TEST_F(CommandTest, WrongUsageIsCodeTwo) {
  expectFailure(runCommand({}), 2, "no verb given");
  expectFailure(runCommand({"mehs"}), 2, "did you mean 'mesh'?");
  expectFailure(runCommand({"mesh", "--chanel", "x", file(), "-o", "a.ply"}), 2,
                "did you mean '--channel'?");
  expectFailure(runCommand({"mesh", file()}), 2, "--output is required");
  expectFailure(runCommand({"mesh", file(), "-o", out("a.fbx")}), 2,
                "unknown extension '.fbx'; known are .ply, .obj, .stl");
  expectFailure(runCommand({"mesh", file(), "-o", out("a")}), 2, "no extension");
  expectFailure(runCommand({"mesh", file(), "--distance", "guess", "-o", out("a.ply")}), 2,
                "auto,keep,scale,rebuild");
  expectFailure(runCommand({"mesh", file(), "--subdivisions", "-1", "-o", out("a.ply")}), 2, "-1");
  expectFailure(runCommand({"info", file(), "--threads", "0"}), 2, "--threads");
  expectFailure(runCommand({"info", file(), "--frame", "one"}), 2, "--frame");
  EXPECT_TRUE(outputs().empty());
}

TEST_F(CommandTest, MissingInputIsCodeThree) {
  expectFailure(runCommand({"info", out("none.vdb")}), 3,
                "velmor: " + out("none.vdb") + ": No such file or directory");
  expectFailure(runCommand({"mesh", out(""), "-o", out("a.ply")}), 3,
                "no cache files (.vdb) in this folder");
  expectFailure(runCommand({"info", "/dev/null"}), 3,
                "velmor: /dev/null: neither a file nor a folder");
  writeFile(out("text.txt"), "text");
  expectFailure(runCommand({"info", out("text.txt")}), 3, "its name does not end in .vdb");
  writeFile(out("text.vdb"), "text");
  expectFailure(runCommand({"info", out("text.vdb")}), 3, "text.vdb");
  writeFile(out("empty.vdb"), "");
  expectFailure(runCommand({"mesh", out("empty.vdb"), "-o", out("a.ply")}), 3,
                "Failed to load frame '0'.");
  EXPECT_FALSE(std::filesystem::exists(out("a.ply")));
}

TEST_F(CommandTest, TheDocumentOfAFailureSaysWhatIsWrongWithTheFile) {
  writeFile(out("empty.vdb"), "");
  auto const run = runCommand({"mesh", out("empty.vdb"), "--json", "-o", out("a.ply")});
  ASSERT_EQ(run.exit, 3);
  auto const warnings = Json::parse(run.out)["warnings"];
  ASSERT_EQ(warnings.size(), 1u) << run.out;
  EXPECT_EQ(warnings[0],
            "Could not read '" + out("empty.vdb") + "': it ends too early, or is no .vdb file");
}

TEST_F(CommandTest, ADamagedFrameDoesNotHideTheOthers) {
  std::filesystem::create_directory(out("seq"));
  writeFile(out("seq/a.1.vdb"), "");
  std::filesystem::copy_file(file(), out("seq/a.2.vdb"));
  auto const run = runCommand({"info", out("seq")});
  EXPECT_EQ(run.exit, 3);
  EXPECT_NE(run.out.find("object a\n  frames: 1, 2\n  frame 1 could not be read\n"),
            std::string::npos)
      << run.out;
}

TEST_F(CommandTest, WhatIsNoNumberIsWrongUsage) {
  expectFailure(
      runCommand({"render", cache(), "--object", "drop", "--fov", "nan", "-o", out("a.png")}), 2,
      "--fov is not a number");
  expectFailure(runCommand({"import", out("a.csv"), "--object", "a", "--cache", out("c"),
                            "--voxel-size", "nan"}),
                2, "--voxel-size is no positive number");
  EXPECT_FALSE(std::filesystem::exists(out("a.png")));
}

TEST_F(CommandTest, AFailureIsADocumentToo) {
  auto const fails = [](std::vector<std::string> arguments, int code, std::string const& text) {
    arguments.push_back("--json");
    auto const run = runCommand(arguments);
    EXPECT_EQ(run.exit, code) << run.err;
    EXPECT_NE(run.err.find(text), std::string::npos) << run.err;
    ASSERT_TRUE(Json::accept(run.out)) << arguments[0] << ": " << run.out;
    auto const report = Json::parse(run.out);
    EXPECT_NE(report["error"].get<std::string>().find(text), std::string::npos) << run.out;
    EXPECT_TRUE(report["warnings"].is_array());
  };
  auto const none = out("none.vdb");
  auto const missing = none + ": No such file or directory";
  fails({"info", none}, 3, missing);
  fails({"mesh", none, "-o", out("a.ply")}, 3, missing);
  fails({"render", none, "-o", out("a.png")}, 3, missing);
  fails({"surface", none, "--mesh", out("a.ply")}, 3, missing);
  fails({"filter", none, "--channel", "a", "--op", "mean", "-o", out("a.vdb")}, 3, missing);
  fails({"mix", "step", none, "--a", "a", "--b", "b", "--out", "c", "--step", "1", "-o",
         out("a.vdb")},
        3, missing);
  fails({"mesh", file(), "--channel", "velocity", "-o", out("a.ply")}, 3,
        "'velocity' holds float3 values");
  fails({"mesh", file(), "-o", out("no/a.ply")}, 5, "No such file");
  fails({"mesh", file(), "-o", out("a.fbx")}, 2, "unknown extension '.fbx'");
  fails({"mesh", file()}, 2, "--output is required");
  fails({"mehs", file()}, 2, "did you mean 'mesh'?");
  writeFile(out("empty.vdb"), "");
  fails({"info", out("empty.vdb")}, 3, "could not read object 'empty'");
  EXPECT_EQ(outputs(), std::vector<std::string>{"empty.vdb"});
  // What follows the report has no document of its own.
  auto const report = runCommand({"info", out("empty.vdb"), "--json"});
  EXPECT_EQ(Json::parse(report.out)["objects"][0]["name"], "empty");
}

TEST_F(CommandTest, AnUnknownOptionIsNamedBeforeWhatIsMissing) {
  for (auto const* verb : {"info", "mesh", "surface"}) {
    auto const run = runCommand({verb, "--thread", "2"});
    expectFailure(run, 2, "not expected: --thread; did you mean '--threads'?");
    EXPECT_EQ(run.err.find("required"), std::string::npos) << run.err;
  }
  expectFailure(runCommand({"info", "--zzz"}), 2, "not expected: --zzz\n");
  expectFailure(runCommand({"info"}), 2, "input is required");
}

TEST_F(CommandTest, ParticlesAreDrawnAsSpheresOnRequest) {
  auto const run = runCommand(
      {"render", one(), "--spheres", "1.5", "--size", "40x30", "-o", out("a.png"), "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const report = Json::parse(run.out);
  EXPECT_EQ(report["as"], "spheres");
  EXPECT_EQ(report["component"], "particle");
  EXPECT_EQ(report["spheres"], 2);
  EXPECT_GT(report["covered"], 0.05);
  // The camera that framed them takes the same picture again.
  auto const place = [](Json const& at) {
    std::string text = at[0].dump();
    for (std::size_t a = 1; a < 3; ++a) text.append(",").append(at[a].dump());
    return text;
  };
  auto const again = runCommand(
      {"render", one(), "--spheres", "1.5", "--size", "40x30", "-o", out("b.png"), "--distance",
       "keep", "--eye=" + place(report["eye"]), "--target=" + place(report["target"])});
  ASSERT_EQ(again.exit, 0);
  EXPECT_NE(again.err.find("particles are shown as spheres: --distance does nothing"),
            std::string::npos)
      << again.err;
  EXPECT_EQ(readFile(out("a.png")), readFile(out("b.png")));
}

TEST_F(CommandTest, SpheresNeedParticlesAndNothingThatDescribesChannels) {
  auto const render = [this](std::vector<std::string> more) {
    more.insert(more.begin(), {"render", cache(), "--object", "drop", "-o", out("a.png")});
    return runCommand(more);
  };
  expectFailure(render({"--spheres", "1"}), 3, "object 'drop' has no particles for --spheres");
  expectFailure(render({"--spheres", "1", "--channel", "distance"}), 2, "--spheres");
  expectFailure(render({"--spheres", "1", "--shade", "density"}), 2, "--spheres are no fog");
  for (auto const* radius : {"0", "-1", "nan", "inf"}) {
    expectFailure(render({"--spheres", radius}), 2, "--spheres");
  }
  EXPECT_TRUE(outputs().empty());
}

TEST_F(CommandTest, WarnsOfNoOtherChannelThanTheOneInUse) {
  auto const path = std::string(VELMOR_SHARED_DATA) + "/c42-gas-cache/fluid_data_0001.vdb";
  if (!std::filesystem::exists(path)) GTEST_SKIP() << "no data beside the project";
  auto const warnings = [](Velmor::Test::Run const& run) {
    return Json::parse(run.out)["warnings"].size();
  };
  EXPECT_EQ(warnings(runCommand({"render", path, "--channel", "density", "--size", "8x8", "-o",
                                 out("a.png"), "--json"})),
            0u);
  auto const mesh =
      runCommand({"mesh", path, "--channel", "phi_obstacle", "-o", out("a.ply"), "--json"});
  EXPECT_EQ(warnings(mesh), 1u) << mesh.err;
  EXPECT_NE(mesh.err.find("Level set 'phi_obstacle'"), std::string::npos) << mesh.err;
  // Who wants to know what is in a file is told everything.
  EXPECT_GE(warnings(runCommand({"info", path, "--json"})), 4u);
}

TEST_F(CommandTest, AnObjectMustBeNamedWhereThereAreSeveral) {
  expectFailure(runCommand({"mesh", cache(), "-o", out("a.ply")}), 3,
                "holds several objects; choose one with --object: 'ball', 'drop'");
  expectFailure(runCommand({"mesh", cache(), "--object", "bal", "-o", out("a.ply")}), 3,
                "no object 'bal'; there is 'ball', 'drop'; did you mean 'ball'?");
  EXPECT_EQ(runCommand({"mesh", cache(), "--object", "drop", "-o", out("a.ply")}).exit, 0);
}

TEST_F(CommandTest, AFrameMustBeNamedWhereThereAreSeveral) {
  expectFailure(runCommand({"mesh", cache(), "--object", "ball", "-o", out("a.ply")}), 3,
                "object 'ball' has several frames; choose one with --frame: 1..3, 7");
  expectFailure(
      runCommand({"mesh", cache(), "--object", "ball", "--frame", "4", "-o", out("a.ply")}), 3,
      "object 'ball' has no frame 4; it has 1..3, 7");
  EXPECT_EQ(
      runCommand({"mesh", cache(), "--object", "ball", "--frame", "7", "-o", out("a.ply")}).exit,
      0);
}

TEST_F(CommandTest, AWrongChannelIsAnsweredWithTheNearestName) {
  auto const run = runCommand({"mesh", file(), "--channel", "distnce", "-o", out("a.ply")});
  expectFailure(run, 3,
                "velmor: " + file() +
                    ": Invalid distance channel 'distnce'. Available channels are:\n"
                    "    distance\n    smaller\n");
  EXPECT_NE(run.err.find("Did you mean 'distance'?"), std::string::npos) << run.err;
}

TEST_F(CommandTest, AChannelOfAnotherTypeIsRefused) {
  expectFailure(runCommand({"mesh", file(), "--channel", "velocity", "-o", out("a.ply")}), 3,
                "'velocity' holds float3 values, not float.");
}

TEST_F(CommandTest, TheOnlyLevelSetIsTakenWithoutADistance) {
  CacheFolder const folder;
  ObjectBuilder const builder("only");
  auto const volume = builder.voxels();
  Host::setFieldClass(builder.sphere(volume, 5.f, "phi"), Host::FieldClass::LevelSet);
  builder.channel<float>(volume, "density", 1.f);
  folder.write(builder.object(), 1);
  auto const run = runCommand({"mesh", folder.path().str(), "--json", "-o", out("a.ply")});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_EQ(Json::parse(run.out)["channel"], "phi");
}

TEST_F(CommandTest, SeveralLevelSetsWithoutADistanceAreListed) {
  CacheFolder const folder;
  ObjectBuilder const builder("two");
  auto const volume = builder.voxels();
  for (auto const* name : {"inner", "outer"}) {
    Host::setFieldClass(builder.sphere(volume, 5.f, name), Host::FieldClass::LevelSet);
  }
  folder.write(builder.object(), 1);
  expectFailure(runCommand({"mesh", folder.path().str(), "-o", out("a.ply")}), 3,
                "several level sets; choose one with --channel: 'inner', 'outer'");
}

TEST_F(CommandTest, WithoutAnyLevelSetTheFloatChannelsAreListed) {
  CacheFolder const folder;
  ObjectBuilder const builder("smoke");
  auto const volume = builder.voxels();
  builder.channel<float>(volume, "density", 1.f);
  builder.channel<float>(volume, "heat", 1.f);
  folder.write(builder.object(), 1);
  expectFailure(runCommand({"mesh", folder.path().str(), "-o", out("a.ply")}), 3,
                "no channel 'distance' and no level set; choose one with --channel: 'density', "
                "'heat'");
}

TEST_F(CommandTest, FarFromTheOriginAFormatOfFloatsIsWarnedOf) {
  CacheFolder const folder;
  ObjectBuilder const builder("far");
  builder.sphere(builder.voxels(), 5.f);
  builder.object().dictionary().set("origin", Float3{10000.f, 0.f, 0.f});
  folder.write(builder.object(), 1);
  auto const warnings = [&](std::string const& path) {
    auto const run = runCommand({"mesh", folder.path().str(), "--json", "-o", path});
    EXPECT_EQ(run.exit, 0) << run.err;
    return Json::parse(run.out)["warnings"];
  };
  EXPECT_EQ(warnings(out("a.stl")),
            Json::array({out("a.stl") + ": STL holds floats only; this far from the origin they "
                                        "are coarser than a thousandth of a voxel"}));
  EXPECT_EQ(warnings(out("a.ply")), Json::array());
}

TEST_F(CommandTest, UnwritableOutputsAreCodeFive) {
  expectFailure(runCommand({"mesh", file(), "-o", out("no/a.ply")}), 5, "No such file");
  std::filesystem::create_directory(out("folder.ply"));
  expectFailure(runCommand({"mesh", file(), "-o", out("folder.ply")}), 5, "Is a directory");
  expectFailure(runCommand({"mesh", file(), "-o", "/dev/full"}), 5, "No space left on device");
  EXPECT_EQ(runCommand({"info", file()}, {.standardOutput = "/dev/full"}).exit, 5);
}

TEST_F(CommandTest, AFullDiskLeavesTheOldFileAndNothingElse) {
  writeFile(out("a.ply"), "old");
  // The reader's shared memory counts as a file as well, the mesh is larger.
  auto const run = runCommand({"mesh", file(), "--subdivisions", "20", "-o", out("a.ply")},
                              {.fileSizeLimit = std::size_t{4} << 20});
  EXPECT_EQ(run.signal, 0);
  expectFailure(run, 5, "a.ply: cannot write: File too large");
  EXPECT_EQ(outputs(), std::vector<std::string>{"a.ply"});
  EXPECT_EQ(readFile(out("a.ply")), "old");
}

TEST_F(CommandTest, RangesOfVectorsAreThoseOfTheirComponents) {
  CacheFolder const folder;
  ObjectBuilder const builder("wind");
  auto const volume = builder.voxels();
  Host::addLeafTiles(volume.layout(), {{0, 0, 0}});
  auto const nan = std::numeric_limits<float>::quiet_NaN();
  for (auto const& [name, value] :
       {std::pair{"half", Float3(nan, 2.f, nan)}, {"none", Float3(nan)}}) {
    auto const channel = builder.channel<Float3>(volume, name, Float3(0.f));
    auto const index = API::Layout(volume.layout()).tileAccessor().tile(0, 0, 0, 7).index();
    std::fill_n(channel.tileData<Float3>(index).data, 125, value);
  }
  folder.write(builder.object(), 1);
  auto const run = runCommand({"info", folder.path().str(), "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const report = Json::parse(run.out);
  auto const& channels = report["objects"][0]["components"][0]["channels"];
  ASSERT_EQ(channels.size(), 2u);
  for (auto const& channel : channels) {
    auto const bounds = Json{nullptr, 2., nullptr};
    EXPECT_EQ(channel["range"],
              channel["name"] == "half" ? Json({{"min", bounds}, {"max", bounds}}) : Json());
  }
}

TEST_F(CommandTest, PermissionsCountForOtherUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  RunOptions const asNobody{.user = nobody};
  // The command itself must be reachable for that user.
  if (runCommand({"--version"}, asNobody).exit != 0) {
    GTEST_SKIP() << "another user cannot run the command from this folder";
  }
  std::filesystem::copy(one(), out("cache"), std::filesystem::copy_options::recursive);
  chmod(out("").c_str(), 0755);
  chmod(out("cache").c_str(), 0700);
  expectFailure(runCommand({"info", out("cache")}, asNobody), 3, "Permission denied");
  chmod(out("cache").c_str(), 0755);
  chmod(out("cache/ball").c_str(), 0755);
  chmod(out("cache/ball/ball.0001.vdb").c_str(), 0600);
  auto const closed = runCommand({"info", out("cache/ball/ball.0001.vdb")}, asNobody);
  expectFailure(closed, 3, "Permission denied");
  chmod(out("cache/ball/ball.0001.vdb").c_str(), 0644);
  EXPECT_EQ(runCommand({"info", out("cache")}, asNobody).exit, 0);
  expectFailure(runCommand({"mesh", out("cache"), "-o", out("a.ply")}, asNobody), 5,
                "Permission denied");
}

TEST_F(CommandTest, AnEmptyMeshIsNoError) {
  CacheFolder const folder;
  ObjectBuilder const builder("air");
  auto const volume = builder.voxels();
  Host::addLeafTiles(volume.layout(), {{0, 0, 0}});
  builder.channel<float>(volume, "distance", 0.4f);
  folder.write(builder.object(), 1);
  auto const run = runCommand({"mesh", folder.path().str(), "--json", "-o", out("a.ply")});
  EXPECT_EQ(run.exit, 0) << run.err;
  EXPECT_NE(run.err.find("velmor: warning: "), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("'distance' crosses zero nowhere: it has no active voxel\n"),
            std::string::npos)
      << run.err;
  auto const report = Json::parse(run.out);
  EXPECT_EQ(report["triangles"], 0);
  EXPECT_FALSE(report["warnings"].empty());
  EXPECT_NE(readFile(out("a.ply")).find("element vertex 0\n"), std::string::npos);
}

TEST_F(CommandTest, AnEmptyMeshOfFogIsSaidToBeThat) {
  CacheFolder const folder;
  ObjectBuilder const builder("smoke");
  auto const volume = builder.voxels();
  Host::addLeafTiles(volume.layout(), {{0, 0, 0}});
  auto const density = builder.channel<float>(volume, "density", 0.f);
  fillCells<float>(density, [](double x, double y, double z) {
    return std::min({x, y, z}) > 0. && std::max({x, y, z}) < 5. ? x : 0.;
  });
  Host::setFieldClass(density, Host::FieldClass::FogVolume);
  folder.write(builder.object(), 1);
  auto const cache = folder.path().str();
  for (auto const& arguments : std::vector<std::vector<std::string>>{
           {"mesh", cache, "--channel", "density", "-o", out("a.ply")},
           {"surface", cache, "--channel", "density", "--mesh", out("a.ply")}}) {
    auto const run = runCommand(arguments);
    EXPECT_EQ(run.exit, 0) << run.err;
    EXPECT_NE(run.err.find("'density' crosses zero nowhere: its active voxels hold 0.5 to 2.5"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("; it is a fog volume and no distance\n"), std::string::npos) << run.err;
  }
}

TEST_F(CommandTest, ChannelsOfAllComponentsAreListedWhereOneHasNone) {
  CacheFolder const folder;
  ObjectBuilder const builder("two");
  builder.channel<int>(builder.voxels(), "flags", 1);
  builder.channel<float>(builder.voxels("gas"), "heat", 1.f);
  folder.write(builder.object(), 1);
  auto const cache = folder.path().str();
  auto const mesh = runCommand({"mesh", cache, "--channel", "nope", "-o", out("a.ply")});
  expectFailure(mesh, 3, "Invalid distance channel 'nope'");
  EXPECT_NE(mesh.err.find("Other components have 'gas/heat'."), std::string::npos) << mesh.err;
  expectFailure(runCommand({"surface", folder.fileOf("two", 1).string(), "--voxel-component",
                            "nope", "--mesh", out("a.ply")}),
                3, "Invalid voxel component. The object has 'gas/heat'.");
  expectFailure(runCommand({"render", cache, "--channel", "nope", "-o", out("a.png")}), 3,
                "no channel 'nope'; there is 'gas/heat'");
}

TEST_F(CommandTest, WithoutAnyFloatChannelThatIsSaid) {
  CacheFolder const folder;
  ObjectBuilder const builder("flags");
  builder.channel<int>(builder.voxels(), "flags", 1);
  folder.write(builder.object(), 1);
  expectFailure(runCommand({"mesh", folder.path().str(), "--channel", "nope", "-o", out("a.ply")}),
                3, "No component has a float channel.");
}

TEST_F(CommandTest, AnObjectOfParticlesIsAnsweredWithWhatShowsThem) {
  CacheFolder const folder;
  ObjectBuilder const builder("drops");
  builder.points({{0.f, 0.f, 0.f}});
  folder.write(builder.object(), 1);
  auto const cache = folder.path().str();
  for (auto const* channel : {"", "density"}) {
    std::vector<std::string> arguments{"render", cache, "-o", out("a.png")};
    if (*channel != 0) arguments.insert(arguments.end(), {"--channel", channel});
    expectFailure(runCommand(arguments), 3, "--spheres R shows them");
  }
  auto const file = folder.fileOf("drops", 1).string();
  expectFailure(runCommand({"mesh", file, "-o", out("a.ply")}), 3, "--render-component Particle");
  expectFailure(runCommand({"surface", file, "--mesh", out("a.ply")}), 3,
                "--render-component Particle");
  expectFailure(
      runCommand({"filter", cache, "--channel", "distance", "--op", "mean", "-o", out("a.vdb")}), 3,
      "no voxel channel 'distance'; there is none: the object has particles only");
}

TEST_F(CommandTest, HalfAViewpointIsAnsweredWithTheOtherHalf) {
  auto const render = [this](char const* option) {
    return runCommand({"render", file(), option, "1,2,3", "-o", out("a.png")});
  };
  expectFailure(render("--eye"), 2, "add --target X,Y,Z, where it looks");
  expectFailure(render("--target"), 2, "add --eye X,Y,Z, where it stands");
}

TEST_F(CommandTest, AnOpenMeshIsWrittenAndCodeFourUnlessAllowed) {
  CacheFolder const folder;
  ObjectBuilder const builder("plane");
  builder.plane(builder.voxels());
  folder.write(builder.object(), 1);
  std::vector<std::string> arguments{"mesh", folder.path().str(), "--distance", "keep", "--json",
                                     "-o",   out("a.ply")};
  auto const run = runCommand(arguments);
  EXPECT_EQ(run.exit, 4) << run.err;
  EXPECT_GT(Json::parse(run.out)["open_edges"], 0);
  EXPECT_NE(run.err.find("the mesh is not closed"), std::string::npos);
  EXPECT_TRUE(std::filesystem::exists(out("a.ply")));
  arguments.push_back("--allow-open");
  auto const allowed = runCommand(arguments);
  EXPECT_EQ(allowed.exit, 0);
  EXPECT_NE(allowed.err.find("velmor: note: "), std::string::npos) << allowed.err;
}

TEST_F(CommandTest, TheMeshReportHoldsWhatProgramsNeed) {
  auto const run = runCommand({"mesh", file(), "--json", "-o", out("a.ply")});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const report = Json::parse(run.out);
  EXPECT_EQ(report["object"], "ball");
  EXPECT_EQ(report["frame"], 1);
  EXPECT_EQ(report["channel"], "distance");
  EXPECT_EQ(report["distance"]["mode"], "keep");
  EXPECT_EQ(report["open_edges"], 0);
  EXPECT_GT(report["vertices"], 500);
  EXPECT_EQ(report["triangles"].get<int>(), 2 * report["vertices"].get<int>() - 4);
  EXPECT_GE(report["seconds"]["total"], 0.0);
}

TEST_F(CommandTest, TheInfoReportHoldsWhatProgramsNeed) {
  auto const run = runCommand({"info", cache(), "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const report = Json::parse(run.out);
  ASSERT_EQ(report["objects"].size(), 2u);
  auto const& ball = report["objects"][0];
  EXPECT_EQ(ball["name"], "ball");
  EXPECT_EQ(ball["frames"], (Json{1, 2, 3, 7}));
  ASSERT_EQ(ball["components"].size(), 2u);
  for (auto const& component : ball["components"]) {
    for (auto const* key : {"name", "type", "voxel_size", "origin", "tiles", "channels"}) {
      EXPECT_TRUE(component.contains(key)) << key;
    }
  }
  auto const& volume = ball["components"][0];
  EXPECT_EQ(volume["type"], "voxels");
  EXPECT_NEAR(volume["voxel_size"].get<double>(), 0.1, 1e-6);
  EXPECT_EQ(volume["origin"], (Json{0.0, 0.0, 0.0}));
  EXPECT_EQ(volume["tiles"].size(), 8u);
  ASSERT_EQ(volume["channels"].size(), 3u);
  for (auto const& channel : volume["channels"]) {
    for (auto const* key :
         {"name", "type", "class", "active_voxels", "stored_voxels", "range", "bounds"}) {
      EXPECT_TRUE(channel.contains(key)) << key;
    }
    EXPECT_EQ(channel["stored_voxels"], 125 * volume["tiles"][7].get<int>());
    EXPECT_LE(channel["active_voxels"], channel["stored_voxels"]);
  }
  auto const& particle = ball["components"][1];
  EXPECT_EQ(particle["type"], "points");
  EXPECT_EQ(particle["channels"][0]["count"], 2);
  EXPECT_NEAR(particle["channels"][0]["bounds"]["max"][2].get<double>(), 0.5, 1e-6);
}

TEST_F(CommandTest, InfoBoundsAreThoseOfActiveCells) {
  CacheFolder const folder;
  ObjectBuilder const builder("one");
  auto const volume = builder.voxels();
  Host::addLeafTiles(volume.layout(), {{0, 0, 0}});
  auto const density = builder.channel<float>(volume, "density", 0.f);
  fillCells<float>(density, [](double x, double y, double z) {
    return (x == 0.5 || x == 1.5) && y == 1.5 && z == -0.5 ? x : 0.;
  });
  folder.write(builder.object(), 1);
  auto const run = runCommand({"info", folder.path().str(), "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const channel = Json::parse(run.out)["objects"][0]["components"][0]["channels"][0];
  EXPECT_EQ(channel["active_voxels"], 2);
  EXPECT_EQ(channel["range"], (Json{{"min", 0.5}, {"max", 1.5}}));
  std::array<double, 6> const box{0, 0.1, -0.1, 0.2, 0.2, 0};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(channel["bounds"]["min"][axis].get<double>(), box[axis], 1e-6);
    EXPECT_NEAR(channel["bounds"]["max"][axis].get<double>(), box[axis + 3], 1e-6);
  }
}

TEST_F(CommandTest, QuietPrintsNothingOnSuccess) {
  auto const run = runCommand({"mesh", file(), "--quiet", "-o", out("a.ply")});
  EXPECT_EQ(run.exit, 0);
  EXPECT_EQ(run.out + run.err, "");
}

TEST_F(CommandTest, TheReportGivesWayToDataOnStandardOutput) {
  ASSERT_EQ(runCommand({"mesh", file(), "-o", out("a.ply")}).exit, 0);
  auto const bytes = readFile(out("a.ply"));
  for (auto const* name : {"-", "/dev/stdout"}) {
    auto const run = runCommand({"mesh", file(), "-o", name});
    EXPECT_EQ(run.exit, 0) << run.err;
    EXPECT_TRUE(run.out == bytes) << name;
    EXPECT_NE(run.err.find("open edges"), std::string::npos);
  }
}

TEST_F(CommandTest, MeshBytesDoNotDependOnThreads) {
  for (auto const* extension : {"ply", "obj", "stl"}) {
    std::string first;
    for (auto const* threads : {"1", "2", "3", "8", "64"}) {
      auto const path = out(std::string("a.") + extension);
      ASSERT_EQ(
          runCommand({"mesh", file(), "--subdivisions", "1", "--threads", threads, "-o", path})
              .exit,
          0);
      auto const bytes = readFile(path);
      if (first.empty()) first = bytes;
      EXPECT_TRUE(bytes == first) << extension << ", threads " << threads;
    }
    EXPECT_FALSE(first.empty());
  }
}

TEST_F(CommandTest, AKillInTheMiddleOfWritingLeavesNoOutputAndTheNextRunSweeps) {
  bool killed = false;
  // The finer the mesh, the longer the time in which a kill meets the writing.
  for (int attempt = 0; attempt < 20 && !killed; ++attempt) {
    auto const subdivisions = attempt < 2 ? "7" : attempt < 4 ? "15" : "31";
    writeFile(out("old.ply"), "old");  // an attempt before may have been too late
    killed = killCommandWhen({"mesh", file(), "--subdivisions", subdivisions, "-o", out("old.ply")},
                             [this] { return outputs().size() > 1; }) &&
             outputs().size() > 1;
  }
  ASSERT_TRUE(killed) << "never met the command while it wrote";
  EXPECT_TRUE(readFile(out("old.ply")) == "old");
  ASSERT_EQ(outputs().size(), 2u);
  ASSERT_EQ(runCommand({"mesh", file(), "-o", out("new.ply")}).exit, 0);
  EXPECT_EQ(outputs(), (std::vector<std::string>{"new.ply", "old.ply"}));
}

TEST_F(CommandTest, ASignalInTheMiddleOfWritingACacheFileLeavesNothingOrTheNextRunSweeps) {
  CacheFolder const folder;
  ObjectBuilder const large("large");
  large.sphere(large.voxels(), 40.f);
  folder.write(large.object(), 1);
  for (int const signal : {SIGTERM, SIGKILL}) {
    bool met = false;
    for (int attempt = 0; attempt < 50 && !met; ++attempt) {
      met = killCommandWhen(
                {"filter", folder.path().str(), "--channel", "distance", "--op", "offset:0", "-o",
                 out("a.vdb")},
                [this] { return !outputs().empty(); }, signal) &&
            !std::filesystem::exists(out("a.vdb"));
      std::filesystem::remove(out("a.vdb"));
    }
    ASSERT_TRUE(met) << "never met the command while it wrote";
    // Only what cannot be caught leaves something.
    EXPECT_EQ(outputs().size(), signal == SIGKILL ? 1u : 0u);
    ASSERT_EQ(runCommand({"mesh", file(), "-o", out("a.ply")}).exit, 0);
    EXPECT_EQ(outputs(), std::vector<std::string>{"a.ply"});
    std::filesystem::remove(out("a.ply"));
  }
}

}  // namespace
}  // namespace Velmor::Test
