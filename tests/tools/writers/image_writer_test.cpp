#include "writers/image_writer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "failure.h"
#include "support/cache_folder.h"
#include "tools/pictures.h"

namespace Velmor::Tool {
namespace {

using Pixel = std::array<std::uint8_t, 4>;
using Names = std::vector<std::string>;

class ImageWriterTest : public testing::Test {
 protected:
  std::string written(Render::Image const& image, std::string const& extension) const {
    auto const path = folder_.path().str() + "/picture." + extension;
    OutputFile out(path);
    imageFormat(path).write(image, out);
    out.commit();
    return path;
  }
  std::vector<Pixel> pngOf(Render::Image const& image) const {
    return Velmor::Test::readPng(written(image, "png")).pixels;
  }

 private:
  Velmor::Test::CacheFolder const folder_;
};

/// One row of pixels, as many as there are values for.
Render::Image rowOf(std::vector<float> const& rgba) {
  return {static_cast<int>(rgba.size() / 4), 1, rgba, {}};
}
Render::Image depthRow(std::vector<float> const& depth) {
  return {static_cast<int>(depth.size()), 1, {}, depth};
}

TEST_F(ImageWriterTest, PngHoldsColoursThatAreNotMultiplied) {
  auto const pixels = pngOf(rowOf({1.f, 0.f, 0.25f, 1.f, 0.f, 0.25f, 0.5f, 0.5f}));
  ASSERT_EQ(pixels.size(), 2u);
  // A quarter is 137 in sRGB, half of the light 188.
  EXPECT_EQ(pixels[0], (Pixel{255, 0, 137, 255}));
  EXPECT_EQ(pixels[1], (Pixel{0, 188, 255, 128}));
}

TEST_F(ImageWriterTest, PngCutsOffWhatIsTooBrightAndMakesNaNBlack) {
  auto const nan = std::nanf("");
  auto const pixels = pngOf(rowOf({7.f, -1.f, nan, 1.f, 2.f, 0.f, 0.f, nan}));
  EXPECT_EQ(pixels[0], (Pixel{255, 0, 0, 255}));
  EXPECT_EQ(pixels[1][3], 0);
}

TEST_F(ImageWriterTest, PngHasOneColourForAllThatIsTransparent) {
  auto const pixels = pngOf(rowOf({0.f, 0.f, 0.f, 0.f, 0.001f, 0.f, 0.f, 0.001f}));
  EXPECT_EQ(pixels[0][3], 0);
  EXPECT_EQ(pixels[1], pixels[0]);
}

TEST_F(ImageWriterTest, PngOfDepthsIsWhiteAtTheNearestAndNeverBlack) {
  auto const pixels = pngOf(depthRow({0.f, 2.f, 3.f, 4.f}));
  EXPECT_EQ(pixels[0][3], 0);
  EXPECT_EQ(pixels[1], (Pixel{255, 255, 255, 255}));
  EXPECT_EQ(pixels[3][3], 255);
  EXPECT_GT(pixels[3][0], 40);
  EXPECT_GT(pixels[2][0], pixels[3][0]);
  EXPECT_LT(pixels[2][0], 255);
}

TEST_F(ImageWriterTest, PngOfOneDepthIsWhite) {
  EXPECT_EQ(pngOf(depthRow({5.f, 5.f})),
            (std::vector<Pixel>{{255, 255, 255, 255}, {255, 255, 255, 255}}));
}

TEST_F(ImageWriterTest, ExrHoldsMultipliedHalvesRowByRow) {
  Render::Image const image{1, 2, {0.25f, 0.5f, 7.f, 0.75f, 1.f, 2.f, 3.f, 1.f}, {}};
  auto const picture = Velmor::Test::readExr(written(image, "exr"));
  EXPECT_EQ(picture.width, 1);
  EXPECT_EQ(picture.height, 2);
  EXPECT_EQ(picture.names(), (Names{"A", "B", "G", "R"}));
  std::size_t component = 0;
  for (auto const* name : {"R", "G", "B", "A"}) {
    EXPECT_TRUE(picture.channels.at(name).half) << name;
    EXPECT_EQ(picture.at(name, 0, 0), image.rgba[component]) << name;
    EXPECT_EQ(picture.at(name, 0, 1), image.rgba[4 + component++]) << name;
  }
}

TEST_F(ImageWriterTest, ExrOfDepthsIsOneFloatChannelWithZeroWhereNothingIsHit) {
  auto const picture = Velmor::Test::readExr(written(depthRow({0.f, 0.1f, 70000.f}), "exr"));
  EXPECT_EQ(picture.names(), Names{"Z"});
  EXPECT_FALSE(picture.channels.at("Z").half);
  EXPECT_EQ(picture.channels.at("Z").values, (std::vector<float>{0.f, 0.1f, 70000.f}));
}

TEST(ImageFormat, IsThatOfTheExtension) {
  EXPECT_STREQ(imageFormat("a.PNG").name, "PNG");
  EXPECT_STREQ(imageFormat("a.b.exr").name, "EXR");
  EXPECT_STREQ(imageFormat("/dev/null").name, "PNG");
  EXPECT_STREQ(imageFormat("-").name, "PNG");
  for (auto const* path : {"a.jpg", "a", "png", "a.png/b"}) {
    try {
      imageFormat(path);
      ADD_FAILURE() << path;
    } catch (Failure const& failure) {
      EXPECT_EQ(failure.code(), ExitCode::Usage) << path;
      EXPECT_NE(std::string(failure.what()).find("known are .png, .exr"), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace Velmor::Tool
