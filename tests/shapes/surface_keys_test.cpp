// Every key of the surface's parameters, away from its default, and what it does.

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "processing/sampler.h"
#include "processing/surface.h"
#include "shapes/shape_case.h"
#include "support/mesh_checks.h"

namespace Velmor::Processing {
namespace {

using Test::CacheFolder;
using Test::errorOf;
using Test::Float2;
using Test::Float3;
using Test::forTiles;
using Test::Mesh;
using Test::meshOf;
using Test::ObjectBuilder;
using Test::valuesOf;
using Test::voxelScaleOf;

constexpr float kVoxel = 0.1f;

/// A surface and what can be seen of it.
struct View {
  explicit View(SurfaceParameters const& parameters)
      : surface(parameters), mesh(meshOf(surface.distance())) {}

  float lowest(int axis) const { return bound(axis, -1.f); }
  float highest(int axis) const { return bound(axis, 1.f); }

  /// The distance at a place in voxels of the cache.
  float at(Float3 const& voxel) const {
    Sample out;
    Sampler(surface.distance()).sample(voxel * kVoxel, out);
    return out.as<float>();
  }

  /// How far the stored distances are from those of a sphere, in its narrow band.
  float roughness(float radius) const {
    double sum = 0;
    int count = 0;
    API::Layout const layout(surface.distance().layout());
    auto const accessor = layout.tileAccessor();
    forTiles(layout, 7, 7, [&](API::TreeIndex const& index) {
      auto const o = accessor.tile(index).coord();
      auto const data = surface.distance().tileData<float>(index);
      for (int c = 0; c < 125; ++c) {
        double const exact =
            (std::hypot(o.i + c % 5 + 0.5, o.j + c / 5 % 5 + 0.5, o.k + c / 25 + 0.5) - radius) *
            double{kVoxel};
        if (std::abs(exact) > 0.1) continue;
        sum += (data.data[c] - exact) * (data.data[c] - exact);
        ++count;
      }
    });
    return static_cast<float>(std::sqrt(sum / count));
  }

  /// The mean height of the mesh between the sphere and the rim of a square of 3.
  float waterLevel() const {
    double sum = 0;
    int count = 0;
    for (auto const& p : mesh.points) {
      if (std::hypot(p.x, p.z) < 1.2f || std::max(std::abs(p.x), std::abs(p.z)) > 1.4f) continue;
      sum += p.y;
      ++count;
    }
    return count == 0 ? std::nanf("") : static_cast<float>(sum / count);
  }

  template <class T>
  std::vector<T> values(char const* channel) const {
    return valuesOf<T>(API::Channel(surface.voxels().findChannel(channel)));
  }
  template <class T>
  bool holds(char const* channel, T const& value) const {
    auto const all = values<T>(channel);
    return std::find(all.begin(), all.end(), value) != all.end();
  }
  float velocity(char const* channel) const { return values<Float3>(channel).at(0).x; }

  Surface surface;
  Mesh mesh;

 private:
  float bound(int axis, float side) const {
    float most = -1e9f;
    for (auto const& p : mesh.points) most = std::max(most, side * p[axis]);
    return side * most;
  }
};

using Change = std::function<void(SurfaceParameters&)>;
using Check = std::function<void(View const& before, View const& after)>;

class SurfaceKeys : public Test::ShapeCase {
 protected:
  SurfaceKeys() {
    ObjectBuilder const liquid("liquid");
    auto const voxels = liquid.voxels("volume", kVoxel);
    liquid.sphere(voxels, 8.f);
    liquid.sphere(voxels, 5.f, "phi");
    auto const rough = liquid.sphere(voxels, 8.f, "rough");
    std::mt19937 random(5);
    std::uniform_real_distribution<float> bump(-0.5f * kVoxel, 0.5f * kVoxel);
    forTiles(API::Layout(voxels.layout()), 7, 7, [&](API::TreeIndex const& index) {
      auto const data = rough.tileData<float>(index);
      for (int c = 0; c < 125; ++c) data.data[c] += bump(random);
    });
    for (char const* name : {"velocity", "v"}) liquid.channel<Float3>(voxels, name, Float3(24.f));
    for (char const* name : {"uv", "st"}) liquid.channel<Float2>(voxels, name, Float2(9.f));
    liquid.sphere(liquid.voxels("fine", 0.5f * kVoxel), 8.f);
    folder.write(liquid.object(), 1);

    ObjectBuilder const small("small");
    small.sphere(small.voxels("volume", kVoxel), 3.f);
    folder.write(small.object(), 1);
    ObjectBuilder const elsewhere("liquid");
    elsewhere.sphere(elsewhere.voxels("volume", kVoxel), 3.f);
    otherFolder.write(elsewhere.object(), 1);
    writeSpray();

    level = parametersFor<SurfaceParameters>("name=liquid, frame=1");
    level.point_component = "";
    ocean = level;
    ocean.enable_ocean_blending = true;
    ocean.ocean_blending_dimension = {3.f, 3.f};
    ocean.ocean_blending_radius = 0.3f;
    spray = parametersFor<SurfaceParameters>("name=spray, frame=1");
    spray.voxel_component = "";
    spray.render_component = SurfaceParameters::Particle;
  }

  /// A ball with a pocket in it, a droplet nearby and another far off; and foam elsewhere.
  void writeSpray() const {
    ObjectBuilder const builder("spray");
    std::vector<Float3> places;
    for (int k = -10; k < 10; ++k)
      for (int j = -10; j < 10; ++j)
        for (int i = -10; i < 10; ++i) {
          Float3 const p(static_cast<float>(i) + 0.5f, static_cast<float>(j) + 0.5f,
                         static_cast<float>(k) + 0.5f);
          float const r = std::hypot(p.x, p.y, p.z);
          if (r > 5.f && r < 10.f) places.push_back(p);
        }
    auto const bulk = places.size();
    places.push_back({kNear, 0.5f, 0.5f});
    places.push_back({kFar, 0.5f, 0.5f});
    auto const points = builder.points(places, "particle", kVoxel);
    auto const channel = builder.pointChannel<float>(points, "droplet", 0.f);
    auto const* const at =
        Host::pointData<Float3>(API::PointChannel(points.findChannel("position")));
    auto* const droplet = Host::pointData<float>(channel);
    for (std::size_t p = 0; p < bulk + 2; ++p) droplet[p] = at[p].x > 12.f ? 1.f : 0.f;
    builder.points({{-30.5f, 0.5f, 0.5f}}, "foam", kVoxel);
    folder.write(builder.object(), 1);
  }

  static constexpr float kNear = 13.5f, kFar = 30.5f;

  struct Row {
    char const* key;
    SurfaceParameters base;
    Change change;
    Check check;
  };
  std::vector<Row> rowsOfLoading() const;
  std::vector<Row> rowsOfShaping() const;
  std::vector<Row> rowsOfOceans() const;
  std::vector<Row> rowsOfParticles() const;

  static void run(std::vector<Row> const& rows) {
    for (auto const& row : rows) {
      SCOPED_TRACE(row.key);
      auto changed = row.base;
      row.change(changed);
      row.check(View(row.base), View(changed));
    }
  }
  static SurfaceParameters with(SurfaceParameters parameters, Change const& change) {
    change(parameters);
    return parameters;
  }

  CacheFolder otherFolder;
  SurfaceParameters level, ocean, spray;
};

std::vector<SurfaceKeys::Row> SurfaceKeys::rowsOfLoading() const {
  auto const smaller = [](View const& before, View const& after) {
    EXPECT_NEAR(before.highest(0), 0.8f, 0.02f);
    EXPECT_NEAR(after.highest(0), 0.3f, 0.02f);
  };
  auto const twiceAsFast = [](View const& before, View const& after) {
    EXPECT_FLOAT_EQ(before.velocity("velocity"), 1.f);
    EXPECT_FLOAT_EQ(after.velocity("velocity"), 2.f);
  };
  auto const halved = [](View const& before, View const& after) {
    EXPECT_LT(before.lowest(0), -0.75f);
    EXPECT_GT(after.lowest(0), -0.45f);
    EXPECT_FLOAT_EQ(after.highest(0), before.highest(0));
  };
  orlen::Math::bbox<Float3> const right({0.f, -2.f, -2.f}, {2.f, 2.f, 2.f});
  orlen::Math::bbox<Float3> const all({-2.f, -2.f, -2.f}, {2.f, 2.f, 2.f});
  return {
      {"object", level, [](auto& p) { p.object = "name=small, frame=1"; }, smaller},
      {"cache_folder", level, [this](auto& p) { p.cache_folder = otherFolder.path(); }, smaller},
      {"voxel_component", level, [](auto& p) { p.voxel_component = "fine"; },
       [](View const& before, View const& after) {
         EXPECT_NEAR(after.highest(0), 0.5f * before.highest(0), 0.02f);
       }},
      {"point_component", spray, [](auto& p) { p.point_component = "foam"; },
       [](View const& before, View const& after) {
         EXPECT_GT(before.lowest(0), -1.3f);
         EXPECT_NEAR(after.lowest(0), (-30.5f - 1.4f) * kVoxel, 0.05f);
       }},
      {"velocity_channel", level, [](auto& p) { p.velocity_channel = "v"; },
       [](View const& before, View const& after) {
         EXPECT_EQ(before.velocity("v"), 24.f);
         EXPECT_FLOAT_EQ(after.velocity("v"), 1.f);
         EXPECT_EQ(after.velocity("velocity"), 24.f);
       }},
      {"velocity_scale", level, [](auto& p) { p.velocity_scale = 2.f; }, twiceAsFast},
      {"fps", level, [](auto& p) { p.fps = 12.f; }, twiceAsFast},
      {"space_scale", level, [](auto& p) { p.space_scale = 2.f; },
       [=](View const& before, View const& after) {
         twiceAsFast(before, after);
         EXPECT_FLOAT_EQ(after.highest(0), 2.f * before.highest(0));
         EXPECT_EQ(after.mesh.triangles.count(), before.mesh.triangles.count());
         EXPECT_EQ(after.surface.accel().voxelScale(), 2.f * before.surface.accel().voxelScale());
       }},
      {"clip", with(level, [=](auto& p) { p.clip_bbox = right; }), [](auto& p) { p.clip = true; },
       halved},
      {"clip_bbox",
       with(level,
            [=](auto& p) {
              p.clip = true;
              p.clip_bbox = all;
            }),
       [=](auto& p) { p.clip_bbox = right; }, halved},
      {"render_component", with(spray, [](auto& p) { p.render_component = {}; }),
       [](auto& p) { p.render_component = SurfaceParameters::Particle; },
       [](View const& before, View const& after) {
         EXPECT_EQ(errorOf(before.surface), "Invalid voxel component.");
         EXPECT_EQ(errorOf(after.surface), "");
         EXPECT_GT(after.highest(0), 3.f);
       }},
      {"distance_channel", level, [](auto& p) { p.distance_channel = "phi"; },
       [](View const&, View const& after) { EXPECT_NEAR(after.highest(0), 0.5f, 0.02f); }},
  };
}

std::vector<SurfaceKeys::Row> SurfaceKeys::rowsOfShaping() const {
  auto const rough = with(level, [](auto& p) { p.distance_channel = "rough"; });
  auto const smoothed = with(rough, [](auto& p) { p.smooth = 0.2f; });
  auto const hasValues = [](char const* name) {
    return [name](View const& before, View const& after) {
      EXPECT_FALSE(before.surface.voxels().findChannel(name).valid());
      auto const values = after.values<float>(name);
      // Of a sphere: one sign near the surface, so the mean is far from zero.
      double sum = 0;
      for (float v : values) sum += v;
      EXPECT_GT(std::abs(sum) / static_cast<double>(values.size()), 1e-3) << name;
    };
  };
  return {
      {"dilate", level, [](auto& p) { p.dilate = 0.1f; },
       [](View const& before, View const& after) {
         EXPECT_NEAR(after.highest(0) - before.highest(0), 0.1f, 0.01f);
       }},
      {"erode", level, [](auto& p) { p.erode = 0.1f; },
       [](View const& before, View const& after) {
         EXPECT_NEAR(after.highest(0) - before.highest(0), -0.1f, 0.01f);
       }},
      {"smooth", rough, [](auto& p) { p.smooth = 0.5f; },
       [](View const& before, View const& after) {
         EXPECT_GT(before.roughness(8.f), 0.02f);
         EXPECT_LT(after.roughness(8.f), 0.7f * before.roughness(8.f));
       }},
      {"smooth_iterations", smoothed, [](auto& p) { p.smooth_iterations = 4; },
       [](View const& before, View const& after) {
         EXPECT_LT(after.roughness(8.f), 0.8f * before.roughness(8.f));
       }},
      {"smooth_mode", smoothed, [](auto& p) { p.smooth_mode = SurfaceParameters::Curvature; },
       [](View const& before, View const& after) {
         EXPECT_GT(std::abs(after.roughness(8.f) - before.roughness(8.f)), 1e-4f);
       }},
      {"compute_laplacian", level, [](auto& p) { p.compute_laplacian = true; },
       hasValues("laplacian")},
      {"compute_curvature", level, [](auto& p) { p.compute_curvature = true; },
       hasValues("curvature")},
  };
}

std::vector<SurfaceKeys::Row> SurfaceKeys::rowsOfOceans() const {
  auto const masked = with(ocean, [](auto& p) { p.ocean_blending_out_channel = "mask"; });
  auto const fallsOff = [](View const& view) {
    auto const mask = view.values<float>("mask");
    return std::any_of(mask.begin(), mask.end(), [](float m) { return m > 0.f && m < 1.f; });
  };
  return {
      {"enable_ocean_blending", with(ocean, [](auto& p) { p.enable_ocean_blending = false; }),
       [](auto& p) { p.enable_ocean_blending = true; },
       [](View const& before, View const& after) {
         EXPECT_TRUE(std::isnan(before.waterLevel()));
         EXPECT_NEAR(after.waterLevel(), 0.f, 0.02f);
       }},
      {"ocean_blending_height", ocean, [](auto& p) { p.ocean_blending_height = 0.23f; },
       [](View const&, View const& after) { EXPECT_NEAR(after.waterLevel(), 0.23f, 0.02f); }},
      {"ocean_blending_center", ocean,
       [](auto& p) {
         p.ocean_blending_center = {1.f, -2.f};
       },
       [](View const& before, View const& after) {
         EXPECT_NEAR(after.highest(0) - before.highest(0), 1.f, 0.3f);
         EXPECT_NEAR(after.lowest(2) - before.lowest(2), -2.f, 0.3f);
       }},
      {"ocean_blending_dimension", ocean,
       [](auto& p) {
         p.ocean_blending_dimension = {5.f, 3.f};
       },
       [](View const& before, View const& after) {
         EXPECT_NEAR(after.highest(0) - before.highest(0), 1.f, 0.3f);
         EXPECT_NEAR(after.highest(2) - before.highest(2), 0.f, 0.01f);
       }},
      {"ocean_blending_radius", masked, [](auto& p) { p.ocean_blending_radius = 0.f; },
       [=](View const& before, View const& after) {
         EXPECT_TRUE(fallsOff(before));
         EXPECT_FALSE(fallsOff(after));
         EXPECT_TRUE(after.holds("mask", 1.f));
       }},
      {"ocean_blending_out_channel", ocean, [](auto& p) { p.ocean_blending_out_channel = "water"; },
       [](View const& before, View const& after) {
         EXPECT_FALSE(before.surface.voxels().findChannel("water").valid());
         EXPECT_TRUE(after.holds("water", 1.f));
       }},
      {"enable_ocean_blending_uvs", ocean, [](auto& p) { p.enable_ocean_blending_uvs = false; },
       [](View const& before, View const& after) {
         EXPECT_FALSE(before.holds("uv", Float2(9.f)));
         EXPECT_TRUE(after.holds("uv", Float2(9.f)));
       }},
      {"uv_channel", ocean, [](auto& p) { p.uv_channel = "st"; },
       [](View const& before, View const& after) {
         EXPECT_TRUE(before.holds("st", Float2(9.f)));
         EXPECT_FALSE(after.holds("st", Float2(9.f)));
         EXPECT_TRUE(after.holds("uv", Float2(9.f)));
       }},
  };
}

std::vector<SurfaceKeys::Row> SurfaceKeys::rowsOfParticles() const {
  Float3 const pocket(0.5f, 0.5f, 0.5f), near(kNear, 0.5f, 0.5f);
  return {
      {"levelset_resolution_factor", spray, [](auto& p) { p.levelset_resolution_factor = 2.f; },
       [](View const& before, View const& after) {
         EXPECT_EQ(voxelScaleOf(before.surface.voxels()), kVoxel);
         EXPECT_EQ(voxelScaleOf(after.surface.voxels()), 0.5f * kVoxel);
         EXPECT_NEAR(after.lowest(0), before.lowest(0), 0.5f * kVoxel);
       }},
      {"levelset_surface_radius", spray, [](auto& p) { p.levelset_surface_radius = 2.4f; },
       [](View const& before, View const& after) {
         EXPECT_NEAR(after.lowest(0) - before.lowest(0), -kVoxel, 0.3f * kVoxel);
       }},
      {"levelset_droplet_radius", spray, [](auto& p) { p.levelset_droplet_radius = 2.2f; },
       [](View const& before, View const& after) {
         EXPECT_NEAR(after.highest(0) - before.highest(0), kVoxel, 0.5f * kVoxel);
       }},
      {"levelset_droplet_reveal_factor", spray,
       [](auto& p) { p.levelset_droplet_reveal_factor = 0.5f; },
       [=](View const& before, View const& after) {
         EXPECT_LT(after.at(near), before.at(near) - 0.1f * kVoxel);
         EXPECT_FLOAT_EQ(after.highest(0), before.highest(0));
       }},
      {"levelset_max_volume_of_holes_to_close", spray,
       [](auto& p) { p.levelset_max_volume_of_holes_to_close = 1.f; },
       [=](View const& before, View const& after) {
         EXPECT_GT(before.at(pocket), 0.f);
         EXPECT_LT(after.at(pocket), 0.f);
       }},
  };
}

TEST_F(SurfaceKeys, OfLoadingHaveTheirEffects) { run(rowsOfLoading()); }
TEST_F(SurfaceKeys, OfShapingHaveTheirEffects) { run(rowsOfShaping()); }
TEST_F(SurfaceKeys, OfOceansHaveTheirEffects) { run(rowsOfOceans()); }
TEST_F(SurfaceKeys, OfParticlesHaveTheirEffects) { run(rowsOfParticles()); }

TEST_F(SurfaceKeys, AreAllTested) {
  std::set<std::string> tested;
  for (auto const& rows : {rowsOfLoading(), rowsOfShaping(), rowsOfOceans(), rowsOfParticles()}) {
    for (auto const& row : rows) EXPECT_TRUE(tested.insert(row.key).second) << row.key;
  }
  // The list of channels is only printed; four fields are not.
  std::set<std::string> keys = {"point_component", "voxel_component", "compute_laplacian",
                                "compute_curvature"};
  auto const text = SurfaceParameters().str().str();
  for (auto line = text.find("\n    "); line != std::string::npos;
       line = text.find("\n    ", line + 1)) {
    keys.insert(text.substr(line + 5, text.find(" = ", line) - line - 5));
  }
  keys.erase("channels");
  EXPECT_EQ(tested, keys);
}

}  // namespace
}  // namespace Velmor::Processing
