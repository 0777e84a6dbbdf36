#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "support/cache_folder.h"
#include "support/object_builder.h"
#include "tools/pictures.h"
#include "tools/run.h"

namespace Velmor::Test {
namespace {

using Json = nlohmann::json;

// A ball of radius 0.8 around the origin of the world, as a distance and as a
// density.
class RenderVerbTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    cache_ = new CacheFolder;
    for (auto const* name : {"ball", "smoke"}) {
      ObjectBuilder const builder(name);
      auto const volume = builder.voxels();
      auto const distance = builder.sphere(volume, 8.f);
      auto const density = builder.channel<float>(volume, "density", 0.f);
      API::Layout const layout(volume.layout());
      forTiles(layout, layout.maxDepth(), layout.maxDepth(), [&](API::TreeIndex const& index) {
        auto const from = distance.tileData<float>(index);
        auto const to = density.tileData<float>(index);
        for (int c = 0; c < 125; ++c) to.data[c] = from.data[c] < 0.f ? 1.f : 0.f;
      });
      Host::setFieldClass(density, Host::FieldClass::FogVolume);
      if (name == std::string("smoke")) builder.server().removeChannel(distance.fullPathName());
      cache_->write(builder.object(), 1);
    }
  }
  static void TearDownTestSuite() { delete cache_; }

  std::string out(std::string const& name) const { return outputs_.path().str() + "/" + name; }

  // From (0, 0, 3) on the origin, 33 pixels square, so that a ray goes through
  // the very middle.
  Velmor::Test::Run render(std::string const& object, std::string const& output,
                           std::vector<std::string> const& more = {}) const {
    std::vector<std::string> arguments{"render",   cache_->path().str(),
                                       "--object", object,
                                       "--eye",    "0,0,3",
                                       "--target", "0,0,0",
                                       "--size",   "33x33",
                                       "-o",       output,
                                       "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runCommand(arguments);
  }
  Json reportOf(Velmor::Test::Run const& run) const {
    EXPECT_EQ(run.exit, 0) << run.err;
    return run.exit == 0 ? Json::parse(run.out) : Json();
  }

 private:
  static inline CacheFolder* cache_ = nullptr;
  CacheFolder const outputs_;
};

TEST_F(RenderVerbTest, ShowsADistanceAsALitSurface) {
  auto const report = reportOf(render("ball", out("a.exr")));
  EXPECT_EQ(report["channel"], "distance");
  EXPECT_EQ(report["as"], "surface");
  EXPECT_EQ(report["shade"], "matte");
  auto const picture = readExr(out("a.exr"));
  EXPECT_EQ(picture.at("A", 16, 16), 1.f);
  EXPECT_GT(picture.at("B", 16, 16), picture.at("R", 16, 16));
  EXPECT_EQ(picture.at("A", 0, 0), 0.f);
  // The disc under which a ball of radius 0.8 is seen from a distance of 3.
  double const radius = 0.5 * std::tan(std::asin(0.8 / 3.)) / std::tan(20. * std::acos(-1.) / 180.);
  EXPECT_NEAR(report["covered"].get<double>(), std::acos(-1.) * radius * radius, 0.03);
}

TEST_F(RenderVerbTest, ShowsWhatIsNoDistanceAsFog) {
  auto const other = reportOf(render("smoke", out("a.exr")));
  EXPECT_EQ(other["channel"], "density");
  EXPECT_EQ(other["as"], "fog");
  EXPECT_EQ(other["shade"], "density");
  auto const named = reportOf(render("ball", out("b.exr"), {"--channel", "density"}));
  EXPECT_EQ(named["as"], "fog");
  EXPECT_EQ(readFile(out("a.exr")), readFile(out("b.exr")));
  auto const asked = reportOf(render("ball", out("b.exr"), {"--shade", "density"}));
  EXPECT_EQ(asked["channel"], "density");
  EXPECT_EQ(readFile(out("a.exr")), readFile(out("b.exr")));
  auto const picture = readExr(out("a.exr"));
  EXPECT_GT(picture.at("A", 16, 16), 0.3f);
  EXPECT_LT(picture.at("A", 16, 16), 1.f);
  EXPECT_EQ(picture.at("A", 0, 0), 0.f);
}

TEST_F(RenderVerbTest, ShadesNormalsAsColours) {
  reportOf(render("ball", out("a.exr"), {"--shade", "normal"}));
  auto const picture = readExr(out("a.exr"));
  EXPECT_NEAR(picture.at("R", 16, 16), 0.5f, 0.01f);
  EXPECT_NEAR(picture.at("G", 16, 16), 0.5f, 0.01f);
  EXPECT_NEAR(picture.at("B", 16, 16), 1.f, 0.01f);
  EXPECT_GT(picture.at("R", 20, 16), 0.6f);
  EXPECT_GT(picture.at("G", 16, 12), 0.6f);
}

TEST_F(RenderVerbTest, ShadesDepthAsTheDistanceAlongTheRay) {
  reportOf(render("ball", out("a.exr"), {"--shade", "depth"}));
  auto const picture = readExr(out("a.exr"));
  EXPECT_EQ(picture.names(), std::vector<std::string>{"Z"});
  EXPECT_NEAR(picture.at("Z", 16, 16), 2.2f, 0.01f);
  EXPECT_GT(picture.at("Z", 20, 16), picture.at("Z", 16, 16));
  EXPECT_EQ(picture.at("Z", 0, 0), 0.f);
}

TEST_F(RenderVerbTest, MoreRaysPerPixelSoftenTheEdge) {
  auto const softened = [this](char const* samples) {
    auto const report = reportOf(render("ball", out("a.exr"), {"--samples", samples}));
    EXPECT_EQ(report["rays"], 33. * 33. * std::stod(samples));
    auto const picture = readExr(out("a.exr"));
    long partial = 0;
    for (float const alpha : picture.channels.at("A").values) {
      partial += alpha > 0.f && alpha < 1.f ? 1 : 0;
    }
    return partial;
  };
  EXPECT_EQ(softened("1"), 0);
  EXPECT_GT(softened("4"), 20);
}

TEST_F(RenderVerbTest, BytesDoNotDependOnThreads) {
  for (auto const* extension : {"png", "exr"}) {
    std::vector<std::string> pictures;
    for (auto const* threads : {"1", "2", "5"}) {
      auto const path = out(std::string("a.") + extension);
      reportOf(render("ball", path, {"--threads", threads, "--samples", "2"}));
      pictures.push_back(readFile(path));
    }
    EXPECT_TRUE(pictures[1] == pictures[0] && pictures[2] == pictures[0]) << extension;
  }
}

TEST_F(RenderVerbTest, ThePictureOnStandardOutputIsThatOfAFile) {
  reportOf(render("ball", out("a.png")));
  auto const run = render("ball", "-");
  EXPECT_EQ(run.exit, 0) << run.err;
  EXPECT_TRUE(run.out == readFile(out("a.png")));
  EXPECT_EQ(Json::parse(run.err)["format"], "PNG");
  auto const picture = readPng(out("a.png"));
  EXPECT_EQ(picture.pixels[16 * 33 + 16][3], 255);
  EXPECT_EQ(picture.pixels[0][3], 0);
}

TEST_F(RenderVerbTest, AnUnknownExtensionIsWrongUsage) {
  auto const run = render("ball", out("a.jpg"));
  EXPECT_EQ(run.exit, 2);
  EXPECT_NE(run.err.find("unknown extension '.jpg'; known are .png, .exr"), std::string::npos)
      << run.err;
}

}  // namespace
}  // namespace Velmor::Test
