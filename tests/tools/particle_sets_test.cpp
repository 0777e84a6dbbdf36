#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "support/cache_folder.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

using Json = nlohmann::json;

// Files of these kinds hold particles, but for .vdb, of which only some do.
std::vector<std::string> particleFiles(std::string const& folder) {
  std::set<std::string> const kinds{".bgeo", ".vtk", ".vtu", ".ply", ".vdb"};
  std::vector<std::string> files;
  std::error_code ignored;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(folder, ignored)) {
    if (kinds.count(entry.path().extension().string()) == 0) continue;
    files.push_back(std::filesystem::relative(entry.path(), folder).string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

class ParticleSet : public testing::TestWithParam<std::string> {};

TEST_P(ParticleSet, GivesAClosedMeshByDefaultOrIsSaidToHoldNoParticles) {
  CacheFolder const folder;
  auto const root = folder.path().str();
  bool const mayHoldNone = GetParam().ends_with(".vdb");
  auto const imported = runCommand({"import", std::string(VELMOR_SHARED_DATA) + "/" + GetParam(),
                                    "--object", "set", "--cache", root});
  if (mayHoldNone && imported.exit == 3) {
    EXPECT_TRUE(imported.err.find("no points") != std::string::npos ||
                imported.err.find("is skipped") != std::string::npos)
        << imported.err;
    EXPECT_FALSE(std::filesystem::exists(root + "/set")) << "left behind";
    return;
  }
  ASSERT_EQ(imported.exit, 0) << imported.err;
  // Without --allow-open a mesh with open edges is a failure, too.
  auto const run = runCommand({"surface", root, "--object", "set", "--render-component", "Particle",
                               "--mesh", root + "/set.####.ply", "--json"});
  EXPECT_EQ(run.exit, 0) << run.err;
  auto const report = Json::parse(run.out);
  ASSERT_EQ(report["frames"].size(), 1u);
  EXPECT_EQ(report["frames"][0]["open_edges"], 0);
  EXPECT_GT(report["frames"][0]["triangles"], 0);
}

std::string testName(testing::TestParamInfo<std::string> const& info) {
  std::string name = info.param;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(SharedData, ParticleSet,
                         testing::ValuesIn(particleFiles(VELMOR_SHARED_DATA)), testName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ParticleSet);

}  // namespace
}  // namespace Velmor::Test
