#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <initializer_list>
#include <nlohmann/json.hpp>

#include "readers/particles.h"
#include "support/cache_folder.h"
#include "support/object_builder.h"
#include "support/sanitized.h"
#include "tools/level_sets.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

class RealFile : public testing::TestWithParam<std::string> {};

TEST_P(RealFile, GivesAClosedSurfaceForEveryLevelSetOrSaysThatThereIsNone) {
  auto const path = std::string(VELMOR_SHARED_DATA) + "/" + GetParam();
  auto const results = meshLevelSets(path);
  if (results.empty()) {
    // Without a level set there is nothing to be guessed, and the command says so.
    CacheFolder const folder;
    auto const out = folder.path().str() + "/none.ply";
    auto const run = runCommand({"mesh", path, "-o", out});
    EXPECT_EQ(run.exit, 3);
    std::initializer_list<char const*> const reasons{"no level set", "holds no float channel",
                                                     "has particles", "is skipped"};
    EXPECT_TRUE(std::any_of(reasons.begin(), reasons.end(), [&run](char const* reason) {
      return run.err.find(reason) != std::string::npos;
    })) << run.err;
    EXPECT_FALSE(std::filesystem::exists(out));
  }
  for (auto const& result : results) {
    SCOPED_TRACE(result.channel + ": " + result.mode + ": " + result.reason);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.openEdges, 0u);
    EXPECT_EQ(result.duplicates, 0u);
    EXPECT_EQ(result.notFinite, 0u);
    if (result.mode != "rebuild") {
      EXPECT_LE(result.farthest, 0.1);
    }
  }
}

std::string testName(testing::TestParamInfo<std::string> const& info) {
  std::string name = info.param;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

std::vector<std::string> realFiles() {
  auto files = vdbFiles(VELMOR_SHARED_DATA);
  if (!sanitized) return files;
  // One frame of a sequence, the first, whose names differ in their numbers.
  auto const series = [](std::string const& file) {
    return file.substr(0, file.find_last_not_of("0123456789", file.rfind('.') - 1) + 1);
  };
  auto const others = std::unique(
      files.begin(), files.end(),
      [&](std::string const& a, std::string const& b) { return series(a) == series(b); });
  files.erase(others, files.end());
  return files;
}

INSTANTIATE_TEST_SUITE_P(SharedData, RealFile, testing::ValuesIn(realFiles()), testName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RealFile);

/// The vertices of a mesh as any program finds them in its PLY file.
struct WrittenVertices {
  explicit WrittenVertices(std::string const& path) {
    auto const positions = Tool::readParticles(path).positions;
    for (std::size_t n = 0; n + 2 < positions.size(); n += 3) {
      places.push_back({positions[n], positions[n + 1], positions[n + 2]});
    }
    for (double const number : positions) notFinite += std::isfinite(number) ? 0 : 1;
    auto sorted = places;
    std::sort(sorted.begin(), sorted.end());
    duplicates = static_cast<std::size_t>(sorted.end() - std::unique(sorted.begin(), sorted.end()));
  }

  /// The farthest of them from a sphere, infinite where one is no place.
  double farthestFrom(Float3 const& centre, float radius) const {
    double farthest = 0;
    for (auto const& p : places) {
      auto const away = std::abs(std::hypot(p[0] - static_cast<double>(centre.x),
                                            p[1] - static_cast<double>(centre.y),
                                            p[2] - static_cast<double>(centre.z)) -
                                 static_cast<double>(radius));
      farthest = std::max(farthest, std::isnan(away) ? HUGE_VAL : away);
    }
    return farthest;
  }

  std::vector<std::array<double, 3>> places;
  std::size_t duplicates = 0;  ///< vertices at the place of another
  std::size_t notFinite = 0;   ///< numbers
};

/// Meshes frame 1 of "ball" at each number of subdivisions and looks at what is
/// written: `check(report, vertices)` for each that is closed.
template <class Check>
void eachWrittenMesh(CacheFolder const& folder, Check const& check) {
  auto const out = folder.path().str() + "/ball.ply";
  for (auto const* subdivisions : {"0", "1", "3"}) {
    SCOPED_TRACE(std::string("subdivisions ") + subdivisions);
    auto const run = runCommand({"mesh", folder.fileOf("ball", 1).string(), "--subdivisions",
                                 subdivisions, "--json", "-o", out});
    ASSERT_EQ(run.exit, 0) << run.err;
    nlohmann::json const report = nlohmann::json::parse(run.out);
    EXPECT_EQ(report["open_edges"], 0);
    WrittenVertices const written(out);
    EXPECT_EQ(written.places.size(), report["vertices"].get<std::size_t>());
    EXPECT_EQ(written.duplicates, 0u);
    EXPECT_EQ(written.notFinite, 0u);
    check(report, written);
  }
}

struct SphereCase {
  Float3 centre;
  float radius;
};

class AnalyticSphere : public testing::TestWithParam<SphereCase> {};

// Through the whole command: written, read back, meshed.
TEST_P(AnalyticSphere, IsClosedAndLiesWhereItShouldAtEverySubdivision) {
  auto const centre = GetParam().centre;
  auto const radius = GetParam().radius;
  CacheFolder const folder;
  ObjectBuilder const builder("ball");
  addSphere(builder.server(), builder.voxels("volume", 1.f), "distance", radius, centre);
  folder.write(builder.object(), 1);
  eachWrittenMesh(folder, [&](nlohmann::json const& report, WrittenVertices const& written) {
    // One closed surface without a handle.
    EXPECT_EQ(report["triangles"].get<int>(), 2 * report["vertices"].get<int>() - 4);
    // Interpolation of a distance moves it inwards by about a quarter over the radius.
    EXPECT_LT(written.farthestFrom(centre, radius), 0.1 + 0.3 / static_cast<double>(radius));
  });
}

INSTANTIATE_TEST_SUITE_P(
    Places, AnalyticSphere,
    testing::Values(SphereCase{{0.f, 0.f, 0.f}, 8.f},         // across the origin
                    SphereCase{{0.37f, -0.21f, 0.13f}, 6.f},  //
                    SphereCase{{-40.f, -31.f, -22.f}, 9.5f},  // through negative coordinates
                    SphereCase{{3.f, 3.f, 3.f}, 10.f},        // poles on tile borders
                    SphereCase{{-62.f, 63.f, -2.f}, 7.25f},   // borders of coarse tiles
                    SphereCase{{312.f, -313.f, 1562.f}, 5.f}));

// A translation is added as the file is written, where floats can be too coarse.
TEST(WrittenMesh, OfATranslatedFileKeepsItsVerticesApart) {
  Float3 const origin{1000.f, -20000.f, 300.f};
  CacheFolder const folder;
  ObjectBuilder const builder("ball");
  builder.sphere(builder.voxels(), 20.f);
  builder.object().dictionary().set("origin", origin);
  folder.write(builder.object(), 1);
  eachWrittenMesh(folder, [&](nlohmann::json const&, WrittenVertices const& written) {
    EXPECT_LT(written.farthestFrom(origin, 2.f), 0.01 + 0.03 / 20);
  });
}

}  // namespace
}  // namespace Velmor::Test
