#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "processing/mesher.h"
#include "support/cache_folder.h"
#include "support/scene.h"

namespace Velmor {
namespace {

using Test::CacheFolder;
using Test::sphereScene;
using Test::Vec3;

struct Outcome {
  int exitCode = -1;
  std::string output;
};

// Runs the example; what it says on standard error comes with the output.
Outcome run(std::string const& arguments) {
  Outcome outcome;
  std::string const command = "'" VELMOR_PLUGIN_EXAMPLE "' " + arguments + " 2>&1";
  std::FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return outcome;
  std::array<char, 256> line{};
  while (std::fgets(line.data(), line.size(), pipe) != nullptr) outcome.output += line.data();
  int const status = ::pclose(pipe);
  if (WIFEXITED(status)) outcome.exitCode = WEXITSTATUS(status);
  return outcome;
}

TEST(PluginExample, CountsWhatTheMesherMakes) {
  auto const scene = sphereScene(6.f, {0.37f, -0.21f, 0.13f});
  API::Array<Vec3> vertices;
  API::Array<orlen::Math::vec<3, int>> triangles;
  Processing::MarchingCubes(0).mesh(scene.distance, vertices, triangles);
  ASSERT_GT(triangles.count(), 0u);

  CacheFolder const folder;
  folder.write(scene.object, 3);
  auto const outcome = run("'" + folder.path().str() + "' 'name=object, frame=3'");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, std::to_string(vertices.count()) + " vertices, " +
                                std::to_string(triangles.count()) + " triangles\n");
}

TEST(PluginExample, PrintsTheErrorOfTheSurface) {
  CacheFolder const folder;
  auto const outcome = run("'" + folder.path().str() + "' 'name=object, frame=3'");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.output,
            "error: Could not find object 'object' in path '" + folder.path().str() + "/object'\n");
}

TEST(PluginExample, ExplainsItself) {
  auto const outcome = run("");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_EQ(outcome.output, "usage: surface-counts <cache folder> <query>\n");
}

}  // namespace
}  // namespace Velmor
