#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "processing/sampler.h"
#include "support/cache_folder.h"
#include "support/object_builder.h"
#include "support/seed.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

using Json = nlohmann::json;
using Row = std::vector<std::string>;
using Rows = std::vector<Row>;
using Int2 = orlen::Math::vec<2, int>;

Rows rowsOf(std::string const& text) {
  Rows rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    Row row;
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, ',');) row.push_back(cell);
    rows.push_back(row);
  }
  return rows;
}

float floatOf(std::string const& text) {
  float value = std::nanf("");
  auto const end = text.data() + text.size();
  return std::from_chars(text.data(), end, value).ptr == end ? value : std::nanf("");
}

// Voxels -7 to 7 of size 0.1 with values that are linear in the place, which
// splines keep: 2 x + 3 y - z of the voxel's centre, and the like.
class SampleVerbTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    cache_ = new CacheFolder;
    builder_ = new ObjectBuilder("field");
    auto const volume = builder_->voxels();
    std::vector<API::TileCoord> leaves;
    for (int t = 0; t < 27; ++t) {
      leaves.push_back({t % 3 * 5 - 7, t / 3 % 3 * 5 - 7, t / 9 * 5 - 7});
    }
    Host::addLeafTiles(API::Layout(volume.layout()), leaves);
    fill<float>("ramp", [](double x, double y, double z) { return 2 * x + 3 * y - z; });
    fill<float>("wind_u", [](double x, double, double) { return x; });
    fill<float>("wind_v", [](double, double y, double) { return y; });
    fill<float>("wind_w", [](double, double, double z) { return z; });
    fill<float>("map_x", [](double x, double, double) { return x; });
    fill<float>("map_y", [](double, double y, double) { return y; });
    fill<int>("column", [](double x, double, double) { return std::floor(x); });
    fill<Float3>("velocity", [](double, double, double) { return Float3(1.f, 2.f, 3.f); });
    fill<Int2>("cell", [](double, double, double) { return Int2(7, -8); });
    cache_->write(builder_->object(), 1);
    // The same elsewhere.
    builder_->object().dictionary().set("origin", Float3(100.f, 0.f, -50.f));
    cache_->writeTo(builder_->object(), cache_->fileOf("moved", 1));
  }
  // Leaf tiles only: a file spells out what coarse ones hold, which takes long.
  template <class T, class Function>
  static void fill(char const* name, Function const& value) {
    API::VoxelComponent const volume(builder_->object().findComponent("volume"));
    auto const channel = addChannel<T>(builder_->server(), volume, name);
    API::Layout const layout(volume.layout());
    auto const accessor = layout.tileAccessor();
    forTiles(layout, layout.maxDepth(), layout.maxDepth(), [&](API::TreeIndex const& index) {
      auto const first = accessor.tile(index).coord();
      auto const cells = channel.template tileData<T>(index);
      for (int c = 0; c < 125; ++c) {
        cells.data[cells.offset(c % 5, c / 5 % 5, c / 25)] = static_cast<T>(
            value(first.i + c % 5 + 0.5, first.j + c / 5 % 5 + 0.5, first.k + c / 25 + 0.5));
      }
    });
  }
  static void TearDownTestSuite() {
    delete builder_;
    delete cache_;
  }

  std::string at(std::string const& name) const { return folder_.path().str() + "/" + name; }

  // Runs the verb on points that are given as the text of a CSV file.
  Velmor::Test::Run sample(std::string const& points, std::string const& channel,
                           std::vector<std::string> const& more = {}) const {
    writeFile(at("points.csv"), points);
    return sampleFile(at("points.csv"), channel, more);
  }
  Velmor::Test::Run sampleFile(std::string const& points, std::string const& channel,
                               std::vector<std::string> const& more = {}) const {
    std::vector<std::string> arguments{"sample", object_, "--channel", channel, "--points", points};
    arguments.insert(arguments.end(), more.begin(), more.end());
    if (std::find(more.begin(), more.end(), "--output") == more.end()) {
      arguments.insert(arguments.end(), {"--output", at("values.csv")});
    }
    return runCommand(arguments);
  }
  std::string values() const { return readFile(at("values.csv")); }
  bool wrote() const { return std::filesystem::exists(at("values.csv")); }

  static inline ObjectBuilder* builder_ = nullptr;
  static inline CacheFolder* cache_ = nullptr;
  std::string object_ = cache_->fileOf("field", 1).string();

 private:
  CacheFolder const folder_;
};

TEST_F(SampleVerbTest, ColumnsAreThePlaceAndTheValue) {
  auto const run = sample("z,x,heat,y\n0.3,0.1,9,0.2\n0,0,9,0\n-0.25,0.5,9,1e-1\n", "ramp");
  ASSERT_EQ(run.exit, 0) << run.err;
  auto const rows = rowsOf(values());
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(rows[0], (Row{"x", "y", "z", "value"}));
  EXPECT_EQ(Row(rows[1].begin(), rows[1].end() - 1), (Row{"0.1", "0.2", "0.3"}));
  EXPECT_EQ(Row(rows[3].begin(), rows[3].end() - 1), (Row{"0.5", "0.1", "-0.25"}));
  EXPECT_NEAR(floatOf(rows[1][3]), 5.f, 1e-5f);
  EXPECT_NEAR(floatOf(rows[2][3]), 0.f, 1e-5f);
  EXPECT_NEAR(floatOf(rows[3][3]), 15.5f, 1e-5f);
}

// More lines than one worker writes at a time.
TEST_F(SampleVerbTest, LinesKeepTheOrderOfThePointsAndReadBackToTheSameFloats) {
  auto const seed = newSeed();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> place(-0.9f, 0.9f);
  std::vector<Float3> places;
  std::ostringstream points;
  points.precision(9);
  points << "x,y,z\n";
  for (int n = 0; n < 9000; ++n) {
    auto const& p = places.emplace_back(place(random), place(random), place(random));
    points << p.x << ',' << p.y << ',' << p.z << '\n';
  }
  ASSERT_EQ(sample(points.str(), "ramp", {"--threads", "3", "--gradient"}).exit, 0);
  auto const rows = rowsOf(values());
  ASSERT_EQ(rows.size(), places.size() + 1);
  API::VoxelComponent const volume(builder_->object().findComponent("volume"));
  Processing::Sampler const ramp(API::VoxelChannel(volume.findChannel("ramp")));
  for (std::size_t n = 0; n < places.size(); ++n) {
    Processing::Sample value;
    Float3 gradient;
    ramp.sample(places[n], value);
    ramp.sampleGradient(places[n], gradient);
    std::vector<float> const expected{places[n].x, places[n].y, places[n].z, value.as<float>(),
                                      gradient.x,  gradient.y,  gradient.z};
    std::vector<float> read;
    for (auto const& cell : rows[n + 1]) read.push_back(floatOf(cell));
    ASSERT_EQ(read, expected) << "line " << n;
  }
}

TEST_F(SampleVerbTest, GradientsArePerWorldUnit) {
  ASSERT_EQ(sample("x,y,z\n0.1,0.2,0.3\n", "ramp", {"--gradient"}).exit, 0);
  auto const rows = rowsOf(values());
  EXPECT_EQ(rows[0], (Row{"x", "y", "z", "value", "gradient_x", "gradient_y", "gradient_z"}));
  EXPECT_NEAR(floatOf(rows[1][4]), 20.f, 1e-3f);
  EXPECT_NEAR(floatOf(rows[1][5]), 30.f, 1e-3f);
  EXPECT_NEAR(floatOf(rows[1][6]), -10.f, 1e-3f);
}

TEST_F(SampleVerbTest, OnlySingleFloatsHaveGradients) {
  for (auto const* channel : {"velocity", "wind", "column"}) {
    auto const run = sample("x,y,z\n0,0,0\n", channel, {"--gradient"});
    EXPECT_EQ(run.exit, 3) << channel;
    EXPECT_NE(run.err.find("--gradient needs a channel of single floats"), std::string::npos)
        << run.err;
  }
  EXPECT_FALSE(wrote());
}

TEST_F(SampleVerbTest, PositionsAreThoseOfTheWorld) {
  object_ = cache_->fileOf("moved", 1).string();
  ASSERT_EQ(sample("x,y,z\n100.1,0.2,-49.7\n", "ramp").exit, 0);
  auto const rows = rowsOf(values());
  EXPECT_EQ(Row(rows[1].begin(), rows[1].end() - 1), (Row{"100.1", "0.2", "-49.7"}));
  EXPECT_NEAR(floatOf(rows[1][3]), 5.f, 1e-4f);
}

TEST_F(SampleVerbTest, ChannelsOfAGroupAreOneVector) {
  ASSERT_EQ(sample("x,y,z\n0.1,0.2,0.3\n", "volume/wind").exit, 0);
  auto const wind = rowsOf(values());
  EXPECT_EQ(wind[0], (Row{"x", "y", "z", "value_0", "value_1", "value_2"}));
  for (std::size_t c = 0; c < 3; ++c) {
    EXPECT_NEAR(floatOf(wind[1][3 + c]), static_cast<float>(c + 1), 1e-5f);
  }
  auto const run = sample("x,y,z\n0.1,0.2,0.3\n", "map", {"--json"});
  ASSERT_EQ(run.exit, 0) << run.err;
  EXPECT_EQ(Json::parse(run.out)["type"], "float2");
  EXPECT_EQ(rowsOf(values())[0], (Row{"x", "y", "z", "value_0", "value_1"}));
}

TEST_F(SampleVerbTest, VectorsAndIntegersAreWrittenAsTheyAre) {
  ASSERT_EQ(sample("x,y,z\n0.1,0.2,0.3\n", "velocity").exit, 0);
  auto const velocity = rowsOf(values());
  EXPECT_EQ(velocity[1], (Row{"0.1", "0.2", "0.3", "1", "2", "3"}));
  ASSERT_EQ(sample("x,y,z\n0.1,0.2,0.3\n", "cell").exit, 0);
  EXPECT_EQ(values(), "x,y,z,value_0,value_1\n0.1,0.2,0.3,7,-8\n");
  ASSERT_EQ(sample("x,y,z\n0.35,0,0\n0.45,0,0\n", "column").exit, 0);
  EXPECT_EQ(values(), "x,y,z,value\n0.35,0,0,3\n0.45,0,0,4\n");
}

TEST_F(SampleVerbTest, PointsMayBePly) {
  writeFile(at("points.ply"),
            "ply\nformat ascii 1.0\nelement vertex 1\nproperty float z\nproperty float x\n"
            "property float y\nend_header\n0.3 0.1 0.2\n");
  ASSERT_EQ(sampleFile(at("points.ply"), "cell").exit, 0);
  // Floats, as short as floats can be written.
  EXPECT_EQ(values(), "x,y,z,value_0,value_1\n0.1,0.2,0.3,7,-8\n");
}

TEST_F(SampleVerbTest, MissingColumnsAreNamed) {
  auto const run = sample("x,height,depth\n0,0,0\n", "ramp");
  EXPECT_EQ(run.exit, 3);
  EXPECT_NE(run.err.find("points.csv: no column 'y', 'z'"), std::string::npos) << run.err;
  EXPECT_FALSE(wrote());
}

TEST_F(SampleVerbTest, APointThatIsNoPlaceIsRefusedWithItsLine) {
  auto const run = sample("# places\nx,y,z,heat\n0,0,0,nan\n\n0,nan,0,1\n", "ramp");
  EXPECT_EQ(run.exit, 3);
  EXPECT_NE(run.err.find("points.csv: line 5: y is no finite float"), std::string::npos) << run.err;
  for (auto const* x : {"inf", "-inf", "1e300"}) {
    auto const far = sample(std::string("x,y,z\n") + x + ",0,0\n", "ramp");
    EXPECT_EQ(far.exit, 3);
    EXPECT_NE(far.err.find("line 2: x is"), std::string::npos) << far.err;
  }
  writeFile(at("points.ply"),
            "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\n"
            "property float z\nend_header\n0 0 0\n0 0 nan\n");
  auto const ply = sampleFile(at("points.ply"), "ramp");
  EXPECT_EQ(ply.exit, 3);
  EXPECT_NE(ply.err.find("points.ply: point 2: z is"), std::string::npos) << ply.err;
  EXPECT_FALSE(wrote());
}

TEST_F(SampleVerbTest, AWrongComponentIsAnsweredWithAllThatThereIs) {
  auto const run = sample("x,y,z\n0,0,0\n", "nowhere/ramp");
  EXPECT_EQ(run.exit, 3);
  EXPECT_NE(run.err.find("no voxel channel 'nowhere/ramp'; there is 'volume/"), std::string::npos)
      << run.err;
}

TEST_F(SampleVerbTest, AWrongChannelIsAnsweredWithTheNearestName) {
  auto const run = sample("x,y,z\n0,0,0\n", "volume/rmap");
  EXPECT_EQ(run.exit, 3);
  EXPECT_NE(run.err.find("no voxel channel 'volume/rmap'; there is 'ramp', "), std::string::npos)
      << run.err;
  EXPECT_NE(sample("x,y,z\n0,0,0\n", "rmap").err.find("did you mean 'ramp'?"), std::string::npos);
  EXPECT_FALSE(wrote());
}

TEST_F(SampleVerbTest, OtherFormatsAreWrongUsage) {
  EXPECT_EQ(sampleFile(at("points.obj"), "ramp").exit, 2);
  EXPECT_EQ(sample("x,y,z\n0,0,0\n", "ramp", {"--output", at("values.txt")}).exit, 2);
}

TEST_F(SampleVerbTest, TheListOfPointsIsNotWrittenOver) {
  auto const run = sample("x,y,z\n0,0,0\n", "ramp", {"--output", at("points.csv")});
  EXPECT_EQ(run.exit, 2);
  EXPECT_NE(run.err.find("points.csv: is the list of points itself"), std::string::npos) << run.err;
  EXPECT_EQ(readFile(at("points.csv")), "x,y,z\n0,0,0\n");
}

TEST_F(SampleVerbTest, NoPointsGiveTheColumnsAlone) {
  ASSERT_EQ(sample("x,y,z\n", "ramp").exit, 0);
  EXPECT_EQ(values(), "x,y,z,value\n");
}

TEST_F(SampleVerbTest, ValuesOnStandardOutputAreThoseOfAFile) {
  ASSERT_EQ(sample("x,y,z\n0.1,0.2,0.3\n", "ramp").exit, 0);
  auto const run =
      runCommand({"sample", object_, "--channel", "ramp", "--points", at("points.csv"), "-o", "-"});
  EXPECT_EQ(run.exit, 0);
  EXPECT_EQ(run.out, values());
  EXPECT_NE(run.err.find("points    1"), std::string::npos) << run.err;
}

}  // namespace
}  // namespace Velmor::Test
