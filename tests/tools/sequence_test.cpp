#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "processing/pointwise_filters.h"
#include "processing/surface.h"
#include "readers/particles.h"
#include "support/cache_folder.h"
#include "support/object_builder.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

using Json = nlohmann::json;

// A ball of particles two to the voxel's edge, as text.
std::string ball(double radius, double shift = 0.) {
  std::string text = "x,y,z,vx,vy,vz,heat\n";
  int const n = static_cast<int>(radius / 0.05) + 1;
  for (int k = -n; k <= n; ++k) {
    for (int j = -n; j <= n; ++j) {
      for (int i = -n; i <= n; ++i) {
        double const x = 0.05 * i, y = 0.05 * j, z = 0.05 * k;
        if (x * x + y * y + z * z > radius * radius) continue;
        for (double const value : {x + shift, y, z, 1., 2., 3.})
          text += std::to_string(value) + ",";
        text += "5\n";
      }
    }
  }
  return text;
}

class SequenceTest : public testing::Test {
 protected:
  std::string at(std::string const& name) const { return folder_.path().str() + "/" + name; }

  Velmor::Test::Run import(std::vector<std::string> more = {}) const {
    more.insert(more.begin(),
                {"import", at("p.####.csv"), "--object", "water", "--cache", at("cache")});
    return runCommand(more);
  }
  Velmor::Test::Run surface(std::vector<std::string> more) const {
    more.insert(more.begin(),
                {"surface", at("cache"), "--object", "water", "--render-component", "Particle"});
    return runCommand(more);
  }
  void writeBalls(int frames) const {
    for (int f = 1; f <= frames; ++f) {
      writeFile(at("p.000" + std::to_string(f) + ".csv"), ball(0.5, 0.01 * f));
    }
  }
  // The bytes of all files of a name with '#' for the frames 1 to `frames`.
  std::vector<std::string> bytes(std::string const& stem, int frames) const {
    std::vector<std::string> all;
    for (int f = 1; f <= frames; ++f)
      all.push_back(readFile(at(stem + std::to_string(f) + ".ply")));
    return all;
  }

  CacheFolder const folder_;
};

TEST_F(SequenceTest, ImportMeasuresOneVoxelSizeForAllFrames) {
  writeBalls(2);
  auto const run = import({"--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const report = Json::parse(run.out);
  EXPECT_NEAR(report["voxel_size"].get<double>(), 0.1, 0.01);
  EXPECT_EQ(report["frames"].size(), 2u);
  EXPECT_EQ(namesIn(at("cache/water")),
            (std::vector<std::string>{"water.0001.vdb", "water.0002.vdb"}));
  EXPECT_EQ(report["frames"][0]["channels"], (Json{"velocity", "heat"}));
}

TEST_F(SequenceTest, PositionsThatAreNoNumbersAreCountedAndLeftOut) {
  writeFile(at("p.0001.csv"), "x,y,z\n0,0,0\nnan,0,0\n0,inf,0\n0.1,0,0\n");
  auto const run = import({"--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_EQ(Json::parse(run.out)["frames"][0]["not_finite"], 2);
  EXPECT_NE(run.err.find("2 of 4 particles left out"), std::string::npos) << run.err;
}

TEST_F(SequenceTest, FarOutParticlesKeepTheirShapeAndPlace) {
  writeFile(at("p.0001.csv"), ball(0.5, 5e5));
  ASSERT_EQ(import().exit, 0);
  auto const run = surface({"--mesh", at("m.ply"), "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const mesh = Tool::readParticles(at("m.ply"));
  double low = 1e30, high = -1e30;
  for (std::size_t p = 0; p < mesh.count(); ++p) {
    low = std::min(low, mesh.positions[3 * p]);
    high = std::max(high, mesh.positions[3 * p]);
  }
  EXPECT_NEAR(0.5 * (low + high), 5e5, 0.02);
  EXPECT_NEAR(high - low, 1.18, 0.08);  // the particles' ball grown by 0.9 voxels
}

TEST_F(SequenceTest, EmptyFramesAndSingleParticlesAreNoErrors) {
  writeFile(at("p.0001.csv"), "x,y,z\n");
  writeFile(at("p.0002.csv"), "x,y,z\n1,2,3\n");
  writeFile(at("p.0003.csv"), "x,y,z\n1,2,3\n1,2,3\n1,2,3\n");
  ASSERT_EQ(import().exit, 0);
  auto const run = surface({"--mesh", at("m.#.ply"), "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const frames = Json::parse(run.out)["frames"];
  EXPECT_EQ(frames[0]["triangles"], 0);
  EXPECT_GT(frames[1]["triangles"].get<int>(), 10);
  EXPECT_GT(frames[2]["triangles"].get<int>(), 10);
}

TEST_F(SequenceTest, AFailedFrameDoesNotStopTheOthers) {
  writeBalls(3);
  ASSERT_EQ(import().exit, 0);
  writeFile(at("cache/water/water.0002.vdb"), "rubbish");
  auto const run = surface({"--frames", "1-4", "--mesh", at("m.#.ply"), "--json"});
  EXPECT_EQ(run.exit, 6);
  auto const report = Json::parse(run.out);
  EXPECT_EQ(report["failed_frames"], (Json{2, 4}));
  EXPECT_NE(run.err.find("frame 4: "), std::string::npos);
  EXPECT_NE(run.err.find("2 of 4 frames failed: 2, 4"), std::string::npos) << run.err;
  EXPECT_TRUE(std::filesystem::exists(at("m.1.ply")));
  EXPECT_TRUE(std::filesystem::exists(at("m.3.ply")));
  EXPECT_FALSE(std::filesystem::exists(at("m.2.ply")));
}

// To say what a damaged frame lacks the command looks into its file, while other
// frames are being read.
TEST_F(SequenceTest, DamagedFramesDoNotChangeHowOthersAreRead) {
  constexpr int frames = 24;
  ObjectBuilder const ball("ball");
  auto const distance = ball.sphere(ball.voxels(), 12.f);
  Host::setFieldClass(distance, Host::FieldClass::LevelSet);
  // In cells, so that the distances need a factor.
  Processing::ScaleFilter<float>(10.f).filter(distance, distance);
  distance.setBackgroundValue(5.f);
  folder_.writeTo(ball.object(), at("seq/ball.0001.vdb"));
  auto const whole = readFile(at("seq/ball.0001.vdb"));
  for (int f = 2; f <= frames; ++f) {
    writeFile(at("seq/ball." + std::to_string(f) + ".vdb"),
              f % 3 != 1 ? whole.substr(0, whole.size() - 200) : whole);
  }
  auto const run =
      runCommand({"surface", at("seq"), "--jobs", "4", "--mesh", at("m.#.ply"), "--json"});
  EXPECT_EQ(run.exit, 6) << run.err;
  auto const report = Json::parse(run.out);
  ASSERT_EQ(report["frames"].size(), 24u);
  for (auto const& frame : report["frames"]) {
    if (frame["frame"].get<int>() % 3 != 1) {
      EXPECT_EQ(frame["state"], "failed");
    } else {
      EXPECT_EQ(frame["distance"]["mode"], "scale") << frame;
      EXPECT_EQ(readFile(at("m." + std::to_string(frame["frame"].get<int>()) + ".ply")),
                readFile(at("m.1.ply")));
    }
  }
}

TEST_F(SequenceTest, JobsAndThreadsDoNotChangeAByte) {
  writeBalls(4);
  ASSERT_EQ(import().exit, 0);
  std::vector<std::vector<std::string>> all;
  for (auto const* jobs : {"1", "4"}) {
    ASSERT_EQ(
        surface({"--jobs", jobs, "--threads", jobs, "--mesh", at("m.#.ply"), "--normals"}).exit, 0);
    all.push_back(bytes("m.", 4));
  }
  EXPECT_EQ(all[0], all[1]);
}

TEST_F(SequenceTest, ExistingFramesAreSkippedOnRequest) {
  writeBalls(2);
  ASSERT_EQ(import().exit, 0);
  writeFile(at("m.1.ply"), "mine");
  auto const run = surface({"--mesh", at("m.#.ply"), "--skip-existing", "--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_EQ(Json::parse(run.out)["frames"][0]["state"], "skipped");
  EXPECT_EQ(readFile(at("m.1.ply")), "mine");
  EXPECT_TRUE(std::filesystem::exists(at("m.2.ply")));
}

TEST_F(SequenceTest, AttributesAndNormalsReachTheVertices) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  ObjectBuilder const drop("drop");
  auto const volume = drop.voxels();
  drop.sphere(volume, 8.f);
  // Everywhere the background: nothing for the file to spell out.
  drop.channel<Float3>(volume, "velocity", {0.f, 0.f, 0.f})
      .setBackgroundValue(Float3(1.f, 2.f, 3.f));
  drop.channel<float>(volume, "heat", 0.f).setBackgroundValue(5.f);
  folder_.writeTo(drop.object(), at("drop/drop.0001.vdb"));
  auto const run = runCommand({"surface", at("drop"), "--mesh", at("m.ply"), "--attributes",
                               "velocity,heat", "--normals", "--fps", "2"});
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const mesh = Tool::readParticles(at("m.ply"));
  auto const* const velocity = mesh.find("velocity");
  auto const* const normal = mesh.find("n");
  auto const* const heat = mesh.find("heat");
  ASSERT_TRUE(velocity != nullptr && normal != nullptr && heat != nullptr);
  for (std::size_t v = 0; v < mesh.count(); ++v) {
    EXPECT_NEAR(velocity->values[3 * v + 1], 1., 1e-5);  // per frame, of which there are two
    EXPECT_NEAR(heat->values[v], 5., 1e-5);
    // Outwards from the ball's centre.
    double out = 0., length = 0.;
    for (std::size_t a = 0; a < 3; ++a) {
      double const d = mesh.positions[3 * v + a];
      out += d * normal->values[3 * v + a];
      length += d * d;
    }
    EXPECT_GT(out, 0.8 * std::sqrt(length));
  }
  ASSERT_EQ(surface({"--mesh", at("m.obj"), "--normals"}).exit, 0);
  EXPECT_NE(readFile(at("m.obj")).find("\nvn "), std::string::npos);
  auto const stl = surface({"--mesh", at("m.stl"), "--normals"});
  EXPECT_NE(stl.err.find("STL holds no normals"), std::string::npos) << stl.err;
  auto const unknown = surface({"--mesh", at("n.ply"), "--attributes", "velocty"});
  EXPECT_NE(unknown.err.find("did you mean 'velocity'?"), std::string::npos) << unknown.err;
}

TEST_F(SequenceTest, SaysWhatIsMissingWhereParticlesWereNotAskedFor) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  auto const run = runCommand({"surface", at("cache"), "--object", "water", "--mesh", at("m.ply")});
  EXPECT_EQ(run.exit, 6);
  EXPECT_NE(run.err.find("--render-component Particle"), std::string::npos) << run.err;
  auto const mesh = runCommand({"mesh", at("cache"), "-o", at("m.ply")});
  EXPECT_EQ(mesh.exit, 3);
  EXPECT_NE(mesh.err.find("velmor surface makes a surface of them"), std::string::npos) << mesh.err;
}

TEST_F(SequenceTest, AnImportThatFailsLeavesNoFolder) {
  writeFile(at("p.0001.csv"), "no,numbers\n");
  auto const run = import();
  EXPECT_EQ(run.exit, 6);
  EXPECT_FALSE(std::filesystem::exists(at("cache")));
  // A folder that was there stays.
  std::filesystem::create_directory(at("cache"));
  EXPECT_EQ(import().exit, 6);
  EXPECT_TRUE(std::filesystem::is_empty(at("cache")));
}

TEST_F(SequenceTest, NothingIsWrittenOverItsInput) {
  writeBalls(2);
  ASSERT_EQ(import().exit, 0);
  auto const file = at("cache/water/water.0001.vdb");
  auto const before = readFile(file);
  auto const made = surface({"--vdb", at("cache/water/water.####.vdb")});
  EXPECT_EQ(made.exit, 2);
  EXPECT_NE(made.err.find("water.0001.vdb: is the input itself"), std::string::npos) << made.err;
  auto const again = runCommand(
      {"import", at("cache/water/water.####.vdb"), "--object", "water", "--cache", at("cache")});
  EXPECT_EQ(again.exit, 2);
  EXPECT_NE(again.err.find("water.0001.vdb: is the input itself"), std::string::npos) << again.err;
  EXPECT_EQ(readFile(file), before);
}

TEST_F(SequenceTest, FramesOfAnImportAreNotIgnored) {
  writeBalls(1);
  EXPECT_EQ(import({"--frame", "7"}).exit, 2);
  auto const run = runCommand(
      {"import", at("p.0001.csv"), "--object", "water", "--cache", at("cache"), "--frames", "7"});
  EXPECT_EQ(run.exit, 2);
  EXPECT_NE(run.err.find("--frame"), std::string::npos) << run.err;
  EXPECT_FALSE(std::filesystem::exists(at("cache")));
}

TEST_F(SequenceTest, AnImportThatCannotWriteIsNoUnreadableInput) {
  writeFile(at("p.csv"), ball(0.3));
  std::filesystem::create_directories(at("cache/water/water.0001.vdb"));
  auto const run = runCommand({"import", at("p.csv"), "--object", "water", "--cache", at("cache")});
  EXPECT_EQ(run.exit, 5) << run.err;
  EXPECT_NE(run.err.find("it is a folder"), std::string::npos) << run.err;
}

TEST_F(SequenceTest, AnImportNeedsAFolderThatItMayEnter) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  RunOptions const asNobody{.user = 65534};
  if (runCommand({"--version"}, asNobody).exit != 0) {
    GTEST_SKIP() << "another user cannot run the command from this folder";
  }
  writeFile(at("p.csv"), ball(0.3));
  ::chmod(at("").c_str(), 0755);
  ::chmod(at("p.csv").c_str(), 0644);
  std::filesystem::create_directory(at("closed"));
  ::chmod(at("closed").c_str(), 0700);
  for (auto const* cache : {"closed", "closed/cache"}) {
    auto const run =
        runCommand({"import", at("p.csv"), "--object", "water", "--cache", at(cache)}, asNobody);
    EXPECT_EQ(run.exit, 5) << run.err;
    EXPECT_NE(run.err.find("cannot be made: Permission denied"), std::string::npos) << run.err;
  }
}

TEST_F(SequenceTest, NamesTheKeyThatTheLevelSetRefuses) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  auto const run = surface({"--levelset-surface-radius", "1e6", "--mesh", at("m.ply")});
  EXPECT_EQ(run.exit, 6);
  EXPECT_NE(run.err.find("surface radius 1e+06"), std::string::npos) << run.err;
}

TEST_F(SequenceTest, WarnsOfAPictureOfNothing) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  auto const away = surface(
      {"--eye", "0,0,5", "--target", "0,0,10", "--size", "16x16", "--render", at("away.png")});
  EXPECT_EQ(away.exit, 0);
  EXPECT_NE(away.err.find("away.png: the camera sees nothing"), std::string::npos) << away.err;
  auto const towards = surface(
      {"--eye", "0,0,5", "--target", "0,0,0", "--size", "16x16", "--render", at("towards.png")});
  EXPECT_EQ(towards.err.find("sees nothing"), std::string::npos) << towards.err;
}

TEST_F(SequenceTest, TheCameraFramesWhatIsShownAlone) {
  auto const addFar = [](ObjectBuilder const& builder, char const* component) {
    auto const far = builder.voxels(component);
    Host::addLeafTiles(API::Layout(far.layout()), {{9998, 0, 0}});
    builder.channel<float>(far, "heat", 1.f);
  };
  ObjectBuilder const drop("drop");
  drop.points({{0.f, 0.f, 0.f}});
  drop.points({{9999.f, 0.f, 0.f}}, "foam");
  drop.sphere(drop.voxels(), 4.f);
  addFar(drop, "air");
  folder_.writeTo(drop.object(), at("drop/drop.0001.vdb"));
  // A level set by another name in another component than is usual.
  ObjectBuilder const other("other");
  addFar(other, "volume");
  other.sphere(other.voxels("liquid"), 4.f, "phi");
  folder_.writeTo(other.object(), at("other/other.0001.vdb"));
  using Names = std::array<char const*, 2>;
  for (auto const& [object, component] :
       {Names{"drop", "Particle"}, Names{"drop", "Volume"}, Names{"other", "Volume"}}) {
    auto const run = runCommand({"surface", at(object), "--render-component", component, "--render",
                                 at("r.png"), "--size", "16x16", "--json"});
    ASSERT_EQ(run.exit, 0) << run.err;
    EXPECT_GT(Json::parse(run.out)["frames"][0]["covered"].get<double>(), 0.03)
        << object << ' ' << component;
  }
}

TEST_F(SequenceTest, WarnsOfAMeshOfNothingAndSaysWhyItIs) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  auto const gone = surface({"--mesh", at("m.ply"), "--erode", "1e30"});
  EXPECT_EQ(gone.exit, 0) << gone.err;
  EXPECT_NE(gone.err.find("m.ply: there is no surface"), std::string::npos) << gone.err;
  writeFile(at("p.0001.csv"), "x,y,z\n");
  ASSERT_EQ(import({"--voxel-size", "0.1"}).exit, 0);
  auto const empty = surface({"--mesh", at("m.ply")});
  EXPECT_EQ(empty.exit, 0) << empty.err;
  EXPECT_EQ(empty.err.find("no surface"), std::string::npos) << empty.err;
  EXPECT_NE(empty.err.find("m.ply: there are no particles; the mesh is empty"), std::string::npos)
      << empty.err;
}

TEST_F(SequenceTest, ParameterFilesHoldTheSameKeysAndTheCommandLineWins) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  writeFile(at("p.json"), R"({"levelset_surface_radius": 2, "enable_ocean_blending": false,
                              "clip_bbox": {"min": [-1, -1, -1], "max": [1, 1, 1]}})");
  auto const thick = surface({"--params", at("p.json"), "--mesh", at("m.ply"), "--json"});
  ASSERT_EQ(thick.exit, 0) << thick.err;
  auto const keys = Json::parse(thick.out)["parameters"];
  EXPECT_EQ(keys["levelset_surface_radius"], 2);
  EXPECT_EQ(keys["clip_bbox"]["max"], (Json{1, 1, 1}));
  EXPECT_EQ(keys["render_component"], "Particle");
  EXPECT_EQ(keys["compute_laplacian"], false);
  auto const thin = surface({"--params", at("p.json"), "--levelset_surface_radius", "1", "--mesh",
                             at("m.ply"), "--json"});
  EXPECT_EQ(Json::parse(thin.out)["parameters"]["levelset_surface_radius"], 1);
  // What a report says is what a parameter file may hold, but for the input's own.
  writeFile(at("again.json"), keys.dump());
  auto const again = surface({"--params", at("again.json"), "--mesh", at("again.ply"), "--json"});
  ASSERT_EQ(again.exit, 0) << again.err;
  EXPECT_EQ(Json::parse(again.out)["parameters"], keys);
  writeFile(at("bad.json"), R"({"smoth": 1})");
  auto const bad = surface({"--params", at("bad.json"), "--mesh", at("m.ply")});
  EXPECT_EQ(bad.exit, 2);
  EXPECT_NE(bad.err.find("did you mean 'smooth'?"), std::string::npos) << bad.err;
  EXPECT_EQ(surface({"--smooth", "much", "--mesh", at("m.ply")}).exit, 2);
  EXPECT_NE(surface({"--smoth", "1", "--mesh", at("m.ply")}).err.find("did you mean '--smooth'?"),
            std::string::npos);
}

TEST_F(SequenceTest, AParameterFileIsRefusedInWordsOfItsOwn) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  std::string const brackets(200'000, '['), closed(200'000, ']');
  struct Bad {
    std::string content;
    int exit;
    std::string text;
  };
  for (auto const& [content, exit, text] : std::vector<Bad>{
           {R"({"smooth": 1e999})", 2, "smooth: '1e999' does not fit; write AMOUNT"},
           {R"({"smooth": null})", 2, "smooth: 'null' does not fit"},
           {R"({"smooth": [1, [2]]})", 2, "smooth: '[...]' does not fit"},
           {R"({"channels": )" + brackets + closed + "}", 2, "channels: '[...]' does not fit"},
           {R"({"ocean_blending_radius": -1})", 2,
            "ocean_blending_radius: '-1' does not fit; write DISTANCE, 0 or more"},
           {R"({"smoth": 1e999})", 2, "no key 'smoth'; did you mean 'smooth'?"},
           {"{\"smooth\": 1,\n \"dilate\" 3}", 3, "line 2: no JSON: '3' after the key 'dilate'"},
           {"[1e999]", 3, "line 1: no JSON: '1e999'"},
           {R"({"smooth": 1)", 3, "line 1: no JSON, it ends too early after the key 'smooth'"},
           {R"({"smooth": ]})", 3, "line 1: no JSON: '"},
           {"", 3, "line 1: no JSON, it ends too early"},
           {"[1]", 3, "no JSON object of keys"}}) {
    writeFile(at("bad.json"), content);
    auto const run = surface({"--params", at("bad.json"), "--mesh", at("m.ply")});
    EXPECT_EQ(run.exit, exit) << content.substr(0, 40) << run.err;
    EXPECT_NE(run.err.find("bad.json: " + text), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("exception"), std::string::npos) << run.err;
  }
  auto const radius = surface({"--ocean-blending-radius=-0.5", "--mesh", at("m.ply")});
  EXPECT_EQ(radius.exit, 2);
  EXPECT_NE(radius.err.find("ocean_blending_radius: '-0.5' does not fit"), std::string::npos);
}

TEST_F(SequenceTest, WrongUsageIsToldBeforeAnyWork) {
  writeBalls(2);
  ASSERT_EQ(import().exit, 0);
  EXPECT_EQ(surface({}).exit, 2);
  EXPECT_EQ(surface({"--mesh", at("m.ply")}).exit, 2);  // two frames, one name
  EXPECT_EQ(surface({"--frames", "1-", "--mesh", at("m.#.ply")}).exit, 2);
  EXPECT_EQ(surface({"--mesh", at("m.#.fbx")}).exit, 2);
  EXPECT_EQ(surface({"--mesh", at("none/m.#.ply")}).exit, 5);
  for (auto const& view :
       std::vector<std::vector<std::string>>{{"--eye", "foo", "--target", "0,0,0"},
                                             {"--eye", "0,0,1", "--target", "0,0"},
                                             {"--eye", "0,0,1", "--target", "0,0,1.0"},
                                             {"--eye", "0,0,1"},
                                             {"--size", "1.5x2.7"},
                                             {"--size", "16,16"},
                                             {"--size", "0x16"}}) {
    std::vector<std::string> arguments{"--mesh", at("m.#.ply"), "--render", at("r.#.png")};
    arguments.insert(arguments.end(), view.begin(), view.end());
    EXPECT_EQ(surface(arguments).exit, 2) << view[1];
  }
  EXPECT_FALSE(std::filesystem::exists(at("m.1.ply")));
  EXPECT_EQ(surface({"--mesh", at("m.#.ply"), "--smooth-iterations", "1000000000"}).exit, 2);
  EXPECT_EQ(runCommand({"import", at("p.####.csv"), "--object", "a/b", "--cache", at("c")}).exit,
            2);
  EXPECT_EQ(runCommand({"import", at("q.####.csv"), "--object", "a", "--cache", at("c")}).exit, 3);
  EXPECT_EQ(runCommand({"import", at("q.csv"), "--object", "a", "--cache", at("c")}).exit, 3);
}

TEST_F(SequenceTest, RefusesObjectNamesThatNobodyCouldSayAgain) {
  writeFile(at("p.0001.csv"), "x,y,z\n1,2,3\n");
  for (std::string const name : {"", ".a", " a", "a ", "a\nb", "a,b", "a..b", "a\\b", "a\"b",
                                 "a\" graph=\"b", "name=a", "Filters"}) {
    auto const run =
        runCommand({"import", at("p.####.csv"), "--object", name, "--cache", at("cache")});
    EXPECT_EQ(run.exit, 2) << name;
    EXPECT_NE(run.err.find("is no name for an object"), std::string::npos) << run.err;
  }
  EXPECT_FALSE(std::filesystem::exists(at("cache")));
  EXPECT_EQ(
      runCommand({"import", at("p.####.csv"), "--object", "a b", "--cache", at("cache")}).exit, 0);
}

TEST_F(SequenceTest, OpenFramesAreInOrderAndNoneOfThemFailed) {
  ObjectBuilder const sheet("sheet");
  sheet.plane(sheet.voxels());
  for (auto const* frame : {"1", "2", "3", "4"}) {
    folder_.writeTo(sheet.object(), at("sheet/sheet.000" + std::string(frame) + ".vdb"));
  }
  std::filesystem::create_directory(at("s.2.vdb"));  // after its mesh this frame fails
  auto const run = runCommand({"surface", at("sheet"), "--frames", "4,2,3,1", "--distance", "keep",
                               "--mesh", at("m.#.ply"), "--vdb", at("s.#.vdb"), "--json"});
  EXPECT_EQ(run.exit, 6) << run.err;
  auto const report = Json::parse(run.out);
  EXPECT_EQ(report["failed_frames"], Json{2});
  EXPECT_EQ(report["open_frames"], (Json{1, 3, 4}));
  EXPECT_NE(run.err.find("not closed in frame 1, 3, 4"), std::string::npos) << run.err;
}

TEST_F(SequenceTest, WrittenLevelSetsMeshAlike) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  auto const made = surface({"--mesh", at("m.ply"), "--vdb", at("s.vdb"), "--json"});
  ASSERT_EQ(made.exit, 0) << made.err;
  auto const again = runCommand({"mesh", at("s.vdb"), "-o", at("n.ply"), "--json"});
  ASSERT_EQ(again.exit, 0) << again.err;
  EXPECT_EQ(Json::parse(made.out)["frames"][0]["triangles"], Json::parse(again.out)["triangles"]);
  // Their component has the object's name, which nobody has to say.
  auto const third = runCommand({"surface", at("s.vdb"), "--mesh", at("o.ply"), "--json"});
  ASSERT_EQ(third.exit, 0) << third.err;
  EXPECT_EQ(readFile(at("o.ply")), readFile(at("n.ply")));
  EXPECT_EQ(Json::parse(third.out)["parameters"]["voxel_component"], "water-volume");
  // A file without a number is no frame.
  EXPECT_EQ(third.err.find("frame"), std::string::npos) << third.err;
}

TEST_F(SequenceTest, OneFileFailsAsWithAllVerbs) {
  ObjectBuilder const ball("ball");
  ball.sphere(ball.voxels(), 6.f);
  folder_.write(ball.object(), 1);
  auto const file = folder_.fileOf("ball", 1).string();
  std::vector<std::string> arguments{"surface", file, "--mesh", at("m.ply"), "--channel", "nope"};
  auto const run = runCommand(arguments);
  EXPECT_EQ(run.exit, 3);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.find("velmor: " + file + ": Invalid distance channel 'nope'"), 0u) << run.err;
  EXPECT_EQ(run.err.find("frames failed"), std::string::npos) << run.err;
  EXPECT_FALSE(std::filesystem::exists(at("m.ply")));
  arguments.push_back("--json");
  auto const json = runCommand(arguments);
  EXPECT_EQ(json.exit, 3);
  auto const report = Json::parse(json.out);
  EXPECT_EQ(report["frames"][0]["state"], "failed");
  EXPECT_EQ(report["error"], report["frames"][0]["error"]);
}

TEST_F(SequenceTest, NothingIsSaidOfOutputsThatNoFrameHas) {
  std::filesystem::create_directory(at("bad"));
  for (auto const* name : {"a.1.vdb", "a.2.vdb"}) writeFile(at(std::string("bad/") + name), "");
  auto const run = runCommand({"surface", at("bad"), "--mesh", at("m.#.ply")});
  EXPECT_EQ(run.exit, 6);
  EXPECT_NE(run.out.find("0 made, 2 failed (1, 2)"), std::string::npos) << run.out;
  for (auto const* word : {"output", "triangles", "open edges"}) {
    EXPECT_EQ(run.out.find(word), std::string::npos) << run.out;
  }
}

TEST_F(SequenceTest, SaysWhatWasDoneToTheDistance) {
  ObjectBuilder const ball("ball");
  ball.sphere(ball.voxels(), 6.f);
  for (int const frame : {1, 2}) folder_.write(ball.object(), frame);
  auto const file = folder_.fileOf("ball", 1).string();
  auto const mesh =
      runCommand({"mesh", file, "--distance", "rebuild", "-o", at("m.ply"), "--json"});
  auto const expected = Json::parse(mesh.out)["distance"];
  EXPECT_EQ(expected["mode"], "rebuild");
  std::vector<std::string> arguments{"surface", at("ball"), "--distance",
                                     "rebuild", "--mesh",   at("m.#.ply")};
  auto const text = runCommand(arguments);
  EXPECT_EQ(text.exit, 0) << text.err;
  EXPECT_NE(text.out.find("\ndistance    rebuild: "), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("\nopen edges  0\n"), std::string::npos) << text.out;
  arguments.push_back("--json");
  auto const frames = Json::parse(runCommand(arguments).out)["frames"];
  for (auto const& frame : frames) EXPECT_EQ(frame["distance"], expected);
  std::vector<std::string> picture{"render", file,  "--distance", "rebuild",
                                   "--size", "8x8", "-o",         at("r.png")};
  EXPECT_NE(runCommand(picture).out.find("\ndistance  rebuild: "), std::string::npos);
  picture.push_back("--json");
  EXPECT_EQ(Json::parse(runCommand(picture).out)["distance"], expected);
}

TEST_F(SequenceTest, FramesThatWereTreatedUnlikeAreToldApart) {
  // The second level set counts voxels where it should count lengths.
  for (int const frame : {1, 2}) {
    ObjectBuilder const ball("ball");
    auto const volume = ball.voxels();
    auto const distance = ball.sphere(volume, 6.f);
    if (frame == 2) {
      Processing::ScaleFilter<float>(10.f).filter(distance, distance);
    }
    folder_.write(ball.object(), frame);
  }
  auto const run = runCommand({"surface", at("ball"), "--mesh", at("m.#.ply")});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_NE(run.out.find("\ndistance    keep in 1; scale in 2\n"), std::string::npos) << run.out;
}

TEST_F(SequenceTest, ReportsTheOpenEdgesOfAllFrames) {
  ObjectBuilder const sheet("sheet");
  sheet.plane(sheet.voxels());
  for (int const frame : {1, 2}) folder_.write(sheet.object(), frame);
  std::vector<std::string> arguments{"surface", at("sheet"),   "--distance",  "keep",
                                     "--mesh",  at("m.#.ply"), "--allow-open"};
  auto const text = runCommand(arguments);
  arguments.push_back("--json");
  auto const frames = Json::parse(runCommand(arguments).out)["frames"];
  auto const each = frames[0]["open_edges"].get<int>();
  ASSERT_GT(each, 0);
  EXPECT_NE(text.out.find("\nopen edges  " + std::to_string(2 * each) + " in 2 frames\n"),
            std::string::npos)
      << text.out;
  EXPECT_NE(text.err.find(", " + std::to_string(each) + " open edges, "), std::string::npos)
      << text.err;
}

TEST_F(SequenceTest, FindsTheDistanceAsAllVerbsDoUnlessItsComponentIsNamed) {
  ObjectBuilder const ball("ball");
  auto const volume = ball.voxels("cells");
  Host::setFieldClass(ball.sphere(volume, 6.f, "phi"), Host::FieldClass::LevelSet);
  for (auto const* name : {"b.1.vdb", "b.2.vdb"}) {
    folder_.writeTo(ball.object(), at(std::string("balls/") + name));
  }
  auto const run = [this](std::vector<std::string> const& more) {
    std::vector<std::string> all{"surface", at("balls"), "--mesh", at("m.#.ply"), "--json"};
    all.insert(all.end(), more.begin(), more.end());
    return runCommand(all);
  };
  auto const only = run({});
  ASSERT_EQ(only.exit, 0) << only.err;
  auto const report = Json::parse(only.out);
  EXPECT_EQ(report["parameters"]["distance_channel"], "phi");
  EXPECT_GT(report["frames"][1]["triangles"], 100);
  EXPECT_EQ(run({"--channel", "cells/phi"}).exit, 0);
  EXPECT_EQ(run({"--distance-channel", "phi", "--voxel-component", "cells"}).exit, 0);
  auto const named = run({"--voxel-component", "volume"});
  EXPECT_EQ(named.exit, 6);
  EXPECT_NE(named.err.find("frame 2: "), std::string::npos) << named.err;
  EXPECT_NE(run({"--channel", "phy"}).err.find("did you mean 'phi'?"), std::string::npos);

  Host::setFieldClass(ball.sphere(volume, 5.f, "psi"), Host::FieldClass::LevelSet);
  folder_.writeTo(ball.object(), at("two.vdb"));
  auto const two = runCommand({"surface", at("two.vdb"), "--mesh", at("m.ply")});
  EXPECT_EQ(two.exit, 3);
  EXPECT_NE(two.err.find("two.vdb: no channel 'distance' and several level sets; choose one with "
                         "--channel: 'cells/phi', 'cells/psi'\n"),
            std::string::npos)
      << two.err;
}

// What each key changes, as far as the summary of a frame shows it.
TEST_F(SequenceTest, KeysOfTheSurfaceHaveEffects) {
  writeBalls(1);
  ASSERT_EQ(import().exit, 0);
  auto const meshWith = [this](std::vector<std::string> const& more) {
    std::vector<std::string> arguments{"--mesh", at("m.ply"), "--allow-open", "--quiet"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    auto const run = surface(arguments);
    EXPECT_EQ(run.exit, 0) << run.err;
    return readFile(at("m.ply"));
  };
  auto const plain = meshWith({});
  for (auto const& change : std::vector<std::vector<std::string>>{
           {"--space-scale", "2"},
           {"--clip", "true", "--clip-bbox", "-1,-1,-1,0,1,1"},
           {"--levelset-resolution-factor", "1.5"},
           {"--levelset-surface-radius", "1.8"},
           {"--dilate", "0.05"},
           {"--erode", "0.05"},
           {"--smooth", "0.5"},
           {"--smooth", "0.5", "--smooth-iterations", "3"},
           {"--smooth", "0.5", "--smooth-mode", "Curvature"},
           {"--enable-ocean-blending", "true", "--ocean-blending-dimension", "3,3"}}) {
    EXPECT_TRUE(meshWith(change) != plain) << change[0];
  }
}

// Shapes on one folder share the graph of its path; one that goes takes the
// graph along, and the others must not mind.
TEST_F(SequenceTest, ShapesOnSeveralThreadsDoNotDisturbEachOther) {
  writeBalls(4);
  ASSERT_EQ(import().exit, 0);
  std::array<std::string, 8> errors;
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < errors.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 3; ++round) {
        Processing::SurfaceParameters parameters;
        parameters.cache_folder = at("cache");
        parameters.object = "frame=" + std::to_string(t % 4 + 1) + ", name=\"water\"";
        parameters.voxel_component = "";
        parameters.render_component = Processing::SurfaceParameters::Particle;
        Processing::Surface const surface(parameters);
        if (!surface.status()) errors[t] += surface.status().error().str();
        if (!surface.accel().valid()) errors[t] += "no surface";
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (auto const& error : errors) EXPECT_EQ(error, "");
}

}  // namespace
}  // namespace Velmor::Test
