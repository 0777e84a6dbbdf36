#include <gtest/gtest.h>

#include <algorithm>
#include <locale>
#include <type_traits>
#include <vector>

#include "processing/points.h"
#include "processing/surface.h"
#include "processing/volume.h"

namespace Velmor::Processing {
namespace {

char const* const baseText =
    "\n"
    "    object = \n"
    "    cache_folder = \n"
    "    channels = \n"
    "    velocity_channel = velocity\n"
    "    uv_channel = uv\n"
    "    velocity_scale = 1\n"
    "    space_scale = 1\n"
    "    fps = 24\n"
    "    clip = 0\n"
    "    clip_bbox = min=-1 -1 -1 max=1 1 1\n";

std::string behindTheBase(char const* fields) {
  std::string text = baseText;
  return text.append(fields);
}

template <class Parameters>
constexpr bool isPlainValue = std::is_default_constructible_v<Parameters>&&
    std::is_copy_constructible_v<Parameters>&& std::is_move_constructible_v<Parameters>&&
        std::is_copy_assignable_v<Parameters>&& std::has_virtual_destructor_v<Parameters>;
static_assert(isPlainValue<ShapeParameters> && isPlainValue<PointsParameters> &&
              isPlainValue<SurfaceParameters>);
static_assert(std::is_base_of_v<ShapeParameters, PointsParameters> &&
              std::is_base_of_v<ShapeParameters, SurfaceParameters>);

TEST(ShapeParameters, StartFromTheirDefaults) {
  ShapeParameters const p;
  EXPECT_EQ(p.cache_folder, "");
  EXPECT_EQ(p.object, "");
  EXPECT_EQ(p.point_component, "particle");
  EXPECT_EQ(p.voxel_component, "volume");
  EXPECT_TRUE(p.channels.empty());
  EXPECT_EQ(p.velocity_channel, "velocity");
  EXPECT_EQ(p.uv_channel, "uv");
  EXPECT_EQ(p.velocity_scale, 1.f);
  EXPECT_EQ(p.space_scale, 1.f);
  EXPECT_EQ(p.fps, 24.f);
  EXPECT_FALSE(p.clip);
  EXPECT_EQ(p.clip_bbox, (orlen::Math::bbox<orlen::Math::vec<3, float>>({-1, -1, -1}, {1, 1, 1})));
}

TEST(ShapeParameters, PrintEveryKeyedFieldButNoComponentName) {
  EXPECT_STREQ(ShapeParameters().str().c_str(), baseText);
}

TEST(ShapeParameters, PrintChannelNamesOnLinesOfTheirOwn) {
  ShapeParameters p;
  p.object = "name=liquid, frame=12";
  p.cache_folder = "caches/pool";
  p.channels = {"density", "temperature"};
  p.velocity_scale = 0.1f;
  p.space_scale = 1e7f;
  p.clip = true;
  p.clip_bbox = {{-0.5f, 0.f, 1e-5f}, {2.f, 3.25f, 1234567.f}};
  EXPECT_STREQ(p.str().c_str(),
               "\n"
               "    object = name=liquid, frame=12\n"
               "    cache_folder = caches/pool\n"
               "    channels = \n"
               "        density\n"
               "        temperature\n"
               "    velocity_channel = velocity\n"
               "    uv_channel = uv\n"
               "    velocity_scale = 0.1\n"
               "    space_scale = 1e+07\n"
               "    fps = 24\n"
               "    clip = 1\n"
               "    clip_bbox = min=-0.5 0 1e-05 max=2 3.25 1.23457e+06\n");
}

TEST(PointsParameters, StartFromTheirDefaults) {
  PointsParameters const p;
  EXPECT_EQ(p.position_channel, "position");
  EXPECT_EQ(p.radius, 0.1f);
  EXPECT_FALSE(p.enable_radius_channel);
  EXPECT_EQ(p.radius_channel, "density");
}

TEST(PointsParameters, PrintTheirFieldsBehindTheBase) {
  PointsParameters p;
  EXPECT_STREQ(p.str().c_str(), behindTheBase("    position_channel = position\n"
                                              "    radius = 0.1\n"
                                              "    enable_radius_channel = 0\n"
                                              "    radius_channel = density\n")
                                    .c_str());
  p.enable_radius_channel = true;
  EXPECT_NE(p.str().str().find("    enable_radius_channel = 1\n"), std::string::npos);
}

TEST(SurfaceParameters, StartFromTheirDefaults) {
  using Float2 = orlen::Math::vec<2, float>;
  SurfaceParameters const p;
  EXPECT_EQ(p.render_component, 0);
  EXPECT_EQ(p.distance_channel, "distance");
  EXPECT_EQ(p.levelset_resolution_factor, 1.f);
  EXPECT_EQ(p.levelset_droplet_reveal_factor, 3.f);
  EXPECT_EQ(p.levelset_surface_radius, 1.4f);
  EXPECT_EQ(p.levelset_droplet_radius, 1.2f);
  EXPECT_EQ(p.levelset_max_volume_of_holes_to_close, 0.f);
  EXPECT_EQ(p.dilate, 0.f);
  EXPECT_EQ(p.smooth, 0.f);
  EXPECT_EQ(p.smooth_mode, 0);
  EXPECT_EQ(p.smooth_iterations, 1);
  EXPECT_EQ(p.erode, 0.f);
  EXPECT_FALSE(p.enable_ocean_blending);
  EXPECT_EQ(p.ocean_blending_height, 0.f);
  EXPECT_EQ(p.ocean_blending_center, Float2(0.f, 0.f));
  EXPECT_EQ(p.ocean_blending_dimension, Float2(10.f, 10.f));
  EXPECT_EQ(p.ocean_blending_radius, 1.f);
  EXPECT_EQ(p.ocean_blending_out_channel, "");
  EXPECT_TRUE(p.enable_ocean_blending_uvs);
  EXPECT_FALSE(p.compute_laplacian);
  EXPECT_FALSE(p.compute_curvature);
}

TEST(SurfaceParameters, PrintTheirFieldsInAnOrderOfTheirOwn) {
  EXPECT_STREQ(SurfaceParameters().str().c_str(),
               behindTheBase("    distance_channel = distance\n"
                             "    render_component = Volume\n"
                             "    levelset_droplet_reveal_factor = 3\n"
                             "    levelset_surface_radius = 1.4\n"
                             "    levelset_droplet_radius = 1.2\n"
                             "    levelset_resolution_factor = 1\n"
                             "    levelset_max_volume_of_holes_to_close = 0\n"
                             "    dilate = 0\n"
                             "    erode = 0\n"
                             "    smooth = 0\n"
                             "    smooth_mode = Laplacian\n"
                             "    smooth_iterations = 1\n"
                             "    enable_ocean_blending = 0\n"
                             "    ocean_blending_height = 0\n"
                             "    ocean_blending_center = 0 0\n"
                             "    ocean_blending_dimension = 10 10\n"
                             "    ocean_blending_radius = 1\n"
                             "    ocean_blending_out_channel = \n"
                             "    enable_ocean_blending_uvs = 1\n")
                   .c_str());
}

TEST(SurfaceParameters, PrintTheOtherEnumeratorsAndNegativeCounts) {
  SurfaceParameters p;
  p.render_component = SurfaceParameters::Particle;
  p.smooth_mode = SurfaceParameters::Curvature;
  p.smooth_iterations = -3;
  p.ocean_blending_center = {-1.5f, 2.f};
  auto const text = p.str().str();
  EXPECT_NE(text.find("    render_component = Particle\n"), std::string::npos);
  EXPECT_NE(text.find("    smooth_mode = Curvature\n"), std::string::npos);
  EXPECT_NE(text.find("    smooth_iterations = -3\n"), std::string::npos);
  EXPECT_NE(text.find("    ocean_blending_center = -1.5 2\n"), std::string::npos);
}

TEST(SurfaceParameters, PrintUnknownEnumeratorsAsNothing) {
  SurfaceParameters p;
  p.render_component = static_cast<SurfaceParameters::RenderComponent>(7);
  p.smooth_mode = static_cast<SurfaceParameters::SmoothMode>(-1);
  auto const text = p.str().str();
  EXPECT_NE(text.find("    render_component = \n"), std::string::npos);
  EXPECT_NE(text.find("    smooth_mode = \n"), std::string::npos);
}

TEST(SurfaceParameters, PrintThroughTheBase) {
  SurfaceParameters const p;
  ShapeParameters const& base = p;
  EXPECT_EQ(base.str(), p.str());
}

// The addresses of members, which must ascend.
template <class... Member>
void expectAscending(Member const&... member) {
  std::vector<void const*> const places{static_cast<void const*>(&member)...};
  EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
}

TEST(SurfaceParameters, LieInTheOrderOfTheirDeclaration) {
  SurfaceParameters const p;
  expectAscending(p.cache_folder, p.object, p.point_component, p.voxel_component, p.channels,
                  p.velocity_channel, p.uv_channel, p.velocity_scale, p.space_scale, p.fps, p.clip,
                  p.clip_bbox, p.render_component, p.distance_channel, p.levelset_resolution_factor,
                  p.levelset_droplet_reveal_factor, p.levelset_surface_radius,
                  p.levelset_droplet_radius, p.levelset_max_volume_of_holes_to_close, p.dilate,
                  p.smooth, p.smooth_mode, p.smooth_iterations, p.erode, p.enable_ocean_blending,
                  p.ocean_blending_height, p.ocean_blending_center, p.ocean_blending_dimension,
                  p.ocean_blending_radius, p.ocean_blending_out_channel,
                  p.enable_ocean_blending_uvs, p.compute_laplacian, p.compute_curvature);
}

TEST(PointsParameters, LieInTheOrderOfTheirDeclaration) {
  PointsParameters const p;
  expectAscending(p.clip_bbox, p.position_channel, p.radius, p.enable_radius_channel,
                  p.radius_channel);
}

TEST(VolumeParameters, LieInTheOrderOfTheirDeclaration) {
  VolumeParameters const p;
  expectAscending(p.clip_bbox, p.density_channel, p.smooth, p.smooth_iterations);
}

class CommaDecimals : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
};

TEST(ShapeParameters, PrintTheSameInEveryLocale) {
  auto const old = std::locale::global(std::locale(std::locale::classic(), new CommaDecimals));
  PointsParameters const p;
  auto const text = p.str().str();
  std::locale::global(old);
  EXPECT_NE(text.find("    radius = 0.1\n"), std::string::npos);
}

template <class Parameters>
Parameters filled() {
  Parameters p;
  p.cache_folder = "folder";
  p.object = "name=x";
  p.point_component = "a";
  p.voxel_component = "b";
  p.channels = {"c", "d"};
  p.velocity_channel = "e";
  p.uv_channel = "f";
  p.velocity_scale = 2.f;
  p.space_scale = 3.f;
  p.fps = 25.f;
  p.clip = true;
  p.clip_bbox = {{0.f, 1.f, 2.f}, {3.f, 4.f, 5.f}};
  return p;
}

/// All fields of the base as `filled` sets them, those that are not printed included.
void expectFilled(ShapeParameters const& p) {
  EXPECT_EQ(p.ShapeParameters::str(), filled<ShapeParameters>().str());
  EXPECT_EQ(p.point_component, "a");
  EXPECT_EQ(p.voxel_component, "b");
}

TEST(ShapeParameters, MovingCopiesEveryFieldAndLeavesTheSourceIntact) {
  auto source = filled<ShapeParameters>();
  ShapeParameters const moved(static_cast<ShapeParameters&&>(source));
  expectFilled(moved);
  expectFilled(source);
}

TEST(PointsParameters, MovingCopiesEveryFieldAndLeavesTheSourceIntact) {
  auto source = filled<PointsParameters>();
  source.position_channel = "p";
  source.radius = 0.5f;
  source.enable_radius_channel = true;
  source.radius_channel = "r";
  auto const text = source.str();
  PointsParameters const moved(static_cast<PointsParameters&&>(source));
  EXPECT_EQ(moved.str(), text);
  EXPECT_EQ(source.str(), text);
  expectFilled(moved);
  expectFilled(source);
}

TEST(VolumeParameters, MovingCopiesEveryFieldAndLeavesTheSourceIntact) {
  auto source = filled<VolumeParameters>();
  source.density_channel = "fuel";
  source.smooth = 0.25f;
  source.smooth_iterations = 3;
  auto const text = source.str();
  VolumeParameters const moved(static_cast<VolumeParameters&&>(source));
  EXPECT_EQ(moved.str(), text);
  EXPECT_EQ(source.str(), text);
  expectFilled(moved);
  expectFilled(source);
}

TEST(SurfaceParameters, MovingCopiesEveryFieldAndLeavesTheSourceIntact) {
  auto source = filled<SurfaceParameters>();
  source.distance_channel = "phi";
  source.ocean_blending_out_channel = "mask";
  source.erode = 0.25f;
  source.compute_laplacian = true;
  source.compute_curvature = true;
  auto const text = source.str();
  SurfaceParameters const moved(static_cast<SurfaceParameters&&>(source));
  EXPECT_EQ(moved.str(), text);
  EXPECT_EQ(source.str(), text);
  EXPECT_TRUE(moved.compute_laplacian && moved.compute_curvature);
  EXPECT_TRUE(source.compute_laplacian && source.compute_curvature);
  expectFilled(moved);
  expectFilled(source);

  SurfaceParameters assigned;
  assigned = moved;
  EXPECT_EQ(assigned.str(), text);
  EXPECT_TRUE(assigned.compute_laplacian && assigned.compute_curvature);
}

}  // namespace
}  // namespace Velmor::Processing
