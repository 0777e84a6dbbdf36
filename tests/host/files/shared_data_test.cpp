#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <regex>

#include "host/files/file_scenes.h"

namespace Velmor::Test {
namespace {

namespace fs = std::filesystem;

/// What the list beside the data says about one grid.
struct Listed {
  fs::path file;
  std::string grid, type;
  std::size_t active = 0;
  std::optional<std::size_t> points;
  std::optional<std::pair<double, double>> range;
};

std::vector<Listed> list(fs::path const& data) {
  std::vector<Listed> all;
  std::ifstream in(data / "INDEX.md");
  std::string line;
  fs::path folder;
  std::regex const section("## ([a-z0-9-]+)"), row("\\| ([^ |]+\\.vdb) \\|.*");
  std::regex const grid("`([^`]*)` (float|int32|vec3s|ptdataidx32),? ?([^;|]*)");
  std::regex const active("([0-9]+) active/"), points("([0-9]+) points");
  std::regex const range("values ([-+.e0-9]+)\\.\\.([-+.e0-9]+)");
  while (std::getline(in, line)) {
    std::smatch match;
    if (std::regex_match(line, match, section)) folder = data / match[1].str();
    if (!std::regex_match(line, match, row)) continue;
    auto const file = folder / match[1].str();
    for (std::sregex_iterator at(line.begin(), line.end(), grid), end; at != end; ++at) {
      Listed one{file, (*at)[1], (*at)[2], 0, {}, {}};
      auto const rest = (*at)[3].str();
      std::smatch part;
      if (std::regex_search(rest, part, active)) one.active = std::stoul(part[1]);
      if (std::regex_search(rest, part, points)) one.points = std::stoul(part[1]);
      if (std::regex_search(rest, part, range)) {
        one.range = {std::stod(part[1]), std::stod(part[2])};
      }
      all.push_back(one);
    }
  }
  return all;
}

struct Active {
  std::size_t count = 0;
  double low = std::numeric_limits<double>::infinity();
  double high = -std::numeric_limits<double>::infinity();
};

template <class T>
Active activeOf(API::Channel const& channel) {
  Active active;
  API::Layout const layout(channel.layout());
  forTiles(layout, 0, layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const mask = Host::activeMask(channel, index);
    auto const cells = channel.tileData<T>(index);
    auto const edge = static_cast<std::size_t>(layout.tileDimInfo(index.depth).extent / 5);
    for (int c = 0; c < 125; ++c) {
      if (!mask.test(c)) continue;
      active.count += edge * edge * edge;
      if constexpr (std::is_arithmetic_v<T>) {
        active.low = std::min(active.low, static_cast<double>(cells.data[c]));
        active.high = std::max(active.high, static_cast<double>(cells.data[c]));
      }
    }
  });
  return active;
}

Active activeOf(API::Channel const& channel) {
  switch (channel.dataType()) {
    case API::DataType::Float:
      return activeOf<float>(channel);
    case API::DataType::Int:
      return activeOf<int>(channel);
    case API::DataType::Float3:
      return activeOf<Vec3>(channel);
    default:
      return {};
  }
}

TEST(SharedData, EveryFileLoadsWithTheListedCounts) {
  fs::path const data = VELMOR_SHARED_DATA;
  if (!fs::exists(data / "INDEX.md")) GTEST_SKIP() << "no data beside the project";
  std::map<fs::path, Loaded> files;
  int voxelGrids = 0, pointGrids = 0, refused = 0;
  for (auto const& listed : list(data)) {
    SCOPED_TRACE(listed.file.string() + " " + listed.grid);
    if (files.count(listed.file) == 0) {
      ASSERT_TRUE(fs::exists(listed.file));
      files[listed.file] = load(listed.file.string());
    }
    auto const& loaded = files[listed.file];
    if (listed.file.parent_path().filename() == "openusd") {
      // Its voxels are not cubes.
      EXPECT_NE(loaded.message.find("Grid 'density'"), std::string::npos);
      ++refused;
      continue;
    }
    ASSERT_EQ(loaded.message, "");
    if (listed.type == "ptdataidx32") {
      API::PointComponent const points(loaded.object.findComponent("particle"));
      EXPECT_EQ(points.elementCount(), listed.points.value());
      EXPECT_TRUE(points.findChannel("position").valid());
      ++pointGrids;
      continue;
    }
    auto const channel = loaded.channel(listed.grid.empty() ? "unnamed" : listed.grid.c_str());
    ASSERT_TRUE(channel.valid());
    auto const active = activeOf(channel);
    EXPECT_EQ(active.count, listed.active);
    ++voxelGrids;
    if (!listed.range || channel.dataType() == API::DataType::Float3) continue;
    auto const near = [](double a, double b) { return std::abs(a - b) <= 1e-5 * std::abs(b); };
    EXPECT_TRUE(near(active.low, listed.range->first)) << active.low;
    EXPECT_TRUE(near(active.high, listed.range->second)) << active.high;
  }
  EXPECT_EQ(files.size(), 24u);
  EXPECT_GT(voxelGrids, 100);
  EXPECT_EQ(pointGrids, 6);
  EXPECT_EQ(refused, 2);
}

TEST(SharedData, DistancesAreJudgedByTheirGradients) {
  fs::path const data = VELMOR_SHARED_DATA;
  if (!fs::exists(data / "INDEX.md")) GTEST_SKIP() << "no data beside the project";
  auto how = trusting();
  how.distance = Host::DistanceMode::Auto;
  auto const modeOf = [&](char const* file, char const* channel) {
    auto const loaded = load((data / file).string(), how);
    return loaded.channel(channel).dictionary().value<API::String>("distance_mode").str();
  };
  EXPECT_EQ(modeOf("cortex/sphere.vdb", "ls_sphere"), "keep");
  EXPECT_EQ(modeOf("c42-gas-cache/fluid_data_0001.vdb", "phi_out"), "keep");
  EXPECT_EQ(modeOf("c42-gas-cache/fluid_data_0001.vdb", "phi_obstacle"), "rebuild");
  EXPECT_EQ(modeOf("zeno/sphere.vdb", "unnamed"), "keep");
}

}  // namespace
}  // namespace Velmor::Test
