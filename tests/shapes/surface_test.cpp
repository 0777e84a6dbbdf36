#include "processing/surface.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "processing/extend_filter.h"
#include "processing/intersector.h"
#include "processing/pointwise_filters.h"
#include "processing/sampler.h"
#include "processing/smooth_filter.h"
#include "processing/stencil_filters.h"
#include "shapes/shape_case.h"
#include "support/mesh_checks.h"

namespace Velmor::Processing {
namespace {

using Test::addChannel;
using Test::errorOf;
using Test::Float2;
using Test::Float3;
using Test::forTiles;
using Test::meshOf;
using Test::ObjectBuilder;
using Test::valuesOf;
using Test::voxelScaleOf;
using Test::warningsOf;

static_assert(std::is_base_of_v<Shape, Surface> && std::is_copy_constructible_v<Surface> &&
              std::is_copy_assignable_v<Surface>);

class SurfaceTest : public Test::ShapeCase {
 protected:
  static ObjectBuilder sphere() {
    ObjectBuilder builder("liquid");
    builder.sphere(builder.voxels(), 4.f);
    return builder;
  }

  SurfaceParameters parametersOf(ObjectBuilder const& builder) const {
    folder.write(builder.object(), 1);
    auto parameters = parametersFor<SurfaceParameters>("name=liquid, frame=1");
    parameters.point_component = "";
    return parameters;
  }
  SurfaceParameters sphereParameters() const { return parametersOf(sphere()); }

  static std::vector<float> distancesOf(Surface const& surface) {
    return valuesOf<float>(surface.distance());
  }

  /// The values of all tiles above the leaves.
  static std::vector<float> coarseValues(API::VoxelChannel const& channel) {
    std::vector<float> values;
    API::Layout const layout(channel.layout());
    forTiles(layout, 0, layout.maxDepth() - 1, [&](API::TreeIndex const& index) {
      auto const tile = channel.tileData<float>(index);
      values.insert(values.end(), tile.data, tile.data + tile.count);
    });
    return values;
  }

  template <class Rule>
  static void expectEach(std::vector<float> const& before, std::vector<float> const& after,
                         Rule const& rule) {
    ASSERT_FALSE(before.empty());
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t v = 0; v < before.size(); ++v) ASSERT_EQ(after[v], rule(before[v])) << v;
  }
};

TEST_F(SurfaceTest, TakesTheDistanceAsItIsByDefault) {
  auto const builder = sphere();
  Surface const surface(parametersOf(builder));
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_EQ(warningsOf(surface), std::vector<std::string>{});
  EXPECT_EQ(surface.distance().name(), "distance");
  EXPECT_EQ(
      distancesOf(surface),
      valuesOf<float>(
          API::VoxelComponent(builder.object().findComponent("volume")).findChannel("distance")));
  EXPECT_EQ(surface.accel().name(), "accel");
  EXPECT_EQ(surface.accel().voxelScale(), 0.1f / 5.f);
  EXPECT_GT(Host::tileCount(surface.accel(), 7), 0u);
  EXPECT_EQ(surface.accel().stateID(), surface.distance().stateID());
}

TEST_F(SurfaceTest, TakesTheChannelOfTheGivenName) {
  ObjectBuilder const builder("liquid");
  builder.sphere(builder.voxels(), 4.f, "phi");
  auto parameters = parametersOf(builder);
  parameters.distance_channel = "phi";
  Surface const surface(parameters);
  EXPECT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_EQ(surface.distance().name(), "phi");
}

TEST_F(SurfaceTest, DilatesByAmountsBeyondTheEpsilonOfEitherSign) {
  auto parameters = sphereParameters();
  auto const before = distancesOf(Surface(parameters));
  for (float amount : {1e-8f, std::numeric_limits<float>::epsilon()}) {
    parameters.dilate = amount;
    expectEach(before, distancesOf(Surface(parameters)), [](float d) { return d; });
  }
  for (float amount : {0.5f, -0.5f}) {
    parameters.dilate = amount;
    expectEach(before, distancesOf(Surface(parameters)), [&](float d) { return -amount + d; });
  }
}

TEST_F(SurfaceTest, ErodesAfterItDilates) {
  auto parameters = sphereParameters();
  auto const before = distancesOf(Surface(parameters));
  parameters.erode = -1e-8f;
  expectEach(before, distancesOf(Surface(parameters)), [](float d) { return d; });
  parameters.dilate = 0.3f;
  parameters.erode = 0.1f;
  expectEach(before, distancesOf(Surface(parameters)), [](float d) { return 0.1f + (-0.3f + d); });
  // The other order rounds many of these otherwise.
  EXPECT_GT(std::count_if(before.begin(), before.end(),
                          [](float d) { return 0.1f + (-0.3f + d) != -0.3f + (0.1f + d); }),
            100);
}

TEST_F(SurfaceTest, TakesAmountsThatAreNoNumbersForOff) {
  auto parameters = sphereParameters();
  auto const before = distancesOf(Surface(parameters));
  for (auto amount :
       {&SurfaceParameters::dilate, &SurfaceParameters::smooth, &SurfaceParameters::erode}) {
    auto changed = parameters;
    changed.*amount = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(distancesOf(Surface(changed)), before);
  }
}

TEST_F(SurfaceTest, SmoothsBetweenDilationAndErosion) {
  auto parameters = sphereParameters();
  for (auto mode : {SurfaceParameters::Laplacian, SurfaceParameters::Curvature}) {
    Surface const plain(parametersOf(sphere()));
    auto const& d = plain.distance();
    DilateFilter<float>(0.05f).filter(d, d);
    SmoothFilter<float>(static_cast<SmoothFilter<float>::Mode>(mode), 3, 0.3f).filter(d, d);
    ErodeFilter<float>(0.02f).filter(d, d);
    parameters.dilate = 0.05f;
    parameters.smooth = 0.3f;
    parameters.smooth_mode = mode;
    parameters.smooth_iterations = 3;
    parameters.erode = 0.02f;
    Surface const surface(parameters);
    EXPECT_EQ(distancesOf(surface), valuesOf<float>(d));
    EXPECT_FALSE(surface.voxels().findChannel("tmp").valid());
  }
}

TEST_F(SurfaceTest, SmoothsOnlyWithAStepAndPassesAboveZero) {
  auto parameters = sphereParameters();
  auto const before = distancesOf(Surface(parameters));
  struct Case {
    float smooth;
    int iterations;
  };
  for (auto const& c : {Case{0.3f, 0}, Case{0.3f, -2}, Case{0.f, 1}, Case{-0.3f, 1}}) {
    parameters.smooth = c.smooth;
    parameters.smooth_iterations = c.iterations;
    EXPECT_EQ(distancesOf(Surface(parameters)), before);
  }
}

TEST_F(SurfaceTest, DerivesChannelsFromTheDistanceOfTheCache) {
  auto parameters = sphereParameters();
  EXPECT_FALSE(Surface(parameters).voxels().findChannel("laplacian").valid());
  parameters.space_scale = 2.f;
  parameters.compute_laplacian = true;
  parameters.compute_curvature = true;
  Surface const surface(parameters);
  ASSERT_TRUE(surface.status()) << errorOf(surface);

  Surface const plain(sphereParameters());
  auto const expected = [&](Filter const& filter, char const* name) {
    API::StateServer const server(API::ObjectModel::stateServer(plain.voxels().stateID()));
    auto const channel = addChannel<float>(server, plain.voxels(), name);
    filter.filter(plain.distance(), channel);
    return valuesOf<float>(channel);
  };
  API::VoxelChannel const laplacian(surface.voxels().findChannel("laplacian"));
  API::VoxelChannel const curvature(surface.voxels().findChannel("curvature"));
  EXPECT_EQ(valuesOf<float>(laplacian), expected(LaplacianFilter<float>(), "l"));
  EXPECT_EQ(valuesOf<float>(curvature), expected(CurvatureFilter<float>(), "c"));
  EXPECT_EQ(laplacian.backgroundValue<float>(), 0.f);
  EXPECT_EQ(curvature.backgroundValue<float>(), 0.f);
}

TEST_F(SurfaceTest, FiltersInCacheUnitsAndThenScalesAllDepths) {
  auto parameters = sphereParameters();
  Surface const plain(parameters);
  auto const leaves = distancesOf(plain);
  auto const coarse = coarseValues(plain.distance());
  auto const background = plain.distance().backgroundValue<float>();
  parameters.space_scale = 2.f;
  parameters.dilate = 0.1f;
  Surface const surface(parameters);
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  auto const rule = [](float d) { return 2.f * (-0.1f + d); };
  expectEach(leaves, distancesOf(surface), rule);
  expectEach(coarse, coarseValues(surface.distance()), rule);
  EXPECT_EQ(surface.distance().backgroundValue<float>(), background);
  EXPECT_EQ(voxelScaleOf(surface.voxels()), 2.f * 0.1f);
}

TEST_F(SurfaceTest, ScalesDistancesFromTheFirstSpaceScaleBeyondTheEpsilon) {
  auto parameters = sphereParameters();
  auto const before = distancesOf(Surface(parameters));
  float const epsilon = std::numeric_limits<float>::epsilon();
  parameters.space_scale = 1.f + epsilon;
  expectEach(before, distancesOf(Surface(parameters)), [](float d) { return d; });
  parameters.space_scale = 1.f + 2.f * epsilon;
  expectEach(before, distancesOf(Surface(parameters)),
             [&](float d) { return (1.f + 2.f * epsilon) * d; });
}

TEST_F(SurfaceTest, HasNoSurfaceAtASpaceScaleOfZero) {
  auto parameters = sphereParameters();
  parameters.space_scale = 0.f;
  Surface const surface(parameters);
  EXPECT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_TRUE(std::isnan(voxelScaleOf(surface.voxels())));
  EXPECT_EQ(Host::tileCount(surface.accel(), 7), 0u);
  EXPECT_TRUE(meshOf(surface.distance()).triangles.empty());
}

TEST_F(SurfaceTest, SpaceScaleChangesTheAccelerationsScaleButNotItsTiles) {
  auto parameters = sphereParameters();
  Surface const plain(parameters);
  parameters.space_scale = 2.f;
  Surface const surface(parameters);
  EXPECT_EQ(surface.accel().voxelScale(), 2.f * 0.1f / 5.f);
  auto const tilesOf = [](API::Layout const& layout) {
    std::vector<API::TileCoord> coords;
    auto const accessor = layout.tileAccessor();
    forTiles(layout, 0, 7,
             [&](API::TreeIndex const& index) { coords.push_back(accessor.tile(index).coord()); });
    return coords;
  };
  EXPECT_EQ(tilesOf(surface.accel()), tilesOf(plain.accel()));
}

TEST_F(SurfaceTest, NeedsAVoxelComponent) {
  ObjectBuilder const builder("liquid");
  builder.points({{0.5f, 0.5f, 0.5f}}, "particle", 0.2f);
  folder.write(builder.object(), 1);
  auto parameters = parametersFor<SurfaceParameters>("name=liquid, frame=1");
  parameters.space_scale = 4.f;
  Surface const surface(parameters);
  EXPECT_EQ(errorOf(surface), "Invalid voxel component.");
  EXPECT_EQ(warningsOf(surface),
            std::vector<std::string>{"Could not find component named 'volume'."});
  EXPECT_FALSE(surface.distance().valid());
  EXPECT_FALSE(surface.accel().valid());
  // The voxel size is back at that of the cache by then.
  EXPECT_EQ(voxelScaleOf(surface.points()), 0.2f);
}

TEST_F(SurfaceTest, KeepsADistanceOfAnotherTypeButBuildsNothingOnIt) {
  ObjectBuilder const builder("liquid");
  auto const voxels = builder.voxels();
  builder.sphere(voxels, 2.f, "phi");
  builder.channel<Float3>(voxels, "distance", Float3(1.f));
  auto parameters = parametersOf(builder);
  parameters.space_scale = 4.f;
  parameters.dilate = 0.5f;
  Surface const surface(parameters);
  EXPECT_EQ(errorOf(surface),
            "Invalid distance channel 'distance'. Available channels are:\n    phi\n");
  ASSERT_TRUE(surface.distance().valid());
  EXPECT_EQ(surface.distance().dataType(), API::DataType::Float3);
  EXPECT_EQ(valuesOf<Float3>(surface.distance()).at(0), Float3(1.f));
  EXPECT_FALSE(surface.accel().valid());
  EXPECT_EQ(voxelScaleOf(surface.voxels()), 0.1f);
}

TEST_F(SurfaceTest, StopsAfterAFailedLoad) {
  SurfaceParameters parameters;
  parameters.render_component = SurfaceParameters::Particle;
  Surface const surface(parameters);
  EXPECT_EQ(errorOf(surface), "Invalid object query: ''.");
  EXPECT_FALSE(surface.distance().valid());
  EXPECT_FALSE(surface.accel().valid());
}

TEST_F(SurfaceTest, SurfacesOfOneFileServeTheirThreads) {
  auto parameters = parametersOf(sphere());
  parameters.dilate = 0.05f;
  auto const expected = distancesOf(Surface(parameters));
  std::vector<std::thread> threads;
  std::vector<std::string> errors(6);
  for (auto& error : errors) {
    threads.emplace_back([&] {
      for (int n = 0; n < 4; ++n) {
        Surface const surface(parameters);
        if (!surface.status()) error += errorOf(surface);
        if (distancesOf(surface) != expected) error += "other distances";
        if (!surface.accel().valid()) error += "no acceleration";
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(errors, std::vector<std::string>(errors.size()));
}

TEST_F(SurfaceTest, CopiesShareDistanceAndAcceleration) {
  auto surface = std::make_unique<Surface>(sphereParameters());
  Surface const copy(*surface);
  Surface assigned{SurfaceParameters()};
  assigned = *surface;
  auto const distance = surface->distance();
  auto const accel = surface->accel();
  surface.reset();
  for (auto const* other : {&copy, &static_cast<Surface const&>(assigned)}) {
    EXPECT_EQ(other->distance(), distance);
    EXPECT_EQ(other->accel(), accel);
    EXPECT_TRUE(other->status());
  }
}

class SurfaceInOcean : public SurfaceTest {
 protected:
  SurfaceParameters oceanOf(ObjectBuilder const& builder) const {
    auto parameters = parametersOf(builder);
    parameters.enable_ocean_blending = true;
    parameters.ocean_blending_height = 0.03f;
    parameters.ocean_blending_dimension = {3.f, 3.f};
    parameters.ocean_blending_radius = 0.3f;
    return parameters;
  }

  static ExtendFilter filterOf(SurfaceParameters const& p) {
    return ExtendFilter(p.ocean_blending_height, p.ocean_blending_center,
                        p.ocean_blending_dimension, p.ocean_blending_radius,
                        p.ocean_blending_out_channel);
  }
};

TEST_F(SurfaceInOcean, BlendsInCacheUnitsAndKeepsANamedMask) {
  auto parameters = oceanOf(sphere());
  parameters.enable_ocean_blending_uvs = false;
  parameters.ocean_blending_out_channel = "mask";
  Surface const plain(parametersOf(sphere()));
  filterOf(parameters).filter(plain.distance(), plain.distance());

  parameters.space_scale = 2.f;
  Surface const surface(parameters);
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  EXPECT_EQ(warningsOf(surface), std::vector<std::string>{});
  expectEach(valuesOf<float>(plain.distance()), distancesOf(surface),
             [](float d) { return 2.f * d; });
  EXPECT_EQ(valuesOf<float>(surface.voxels().findChannel("mask")),
            valuesOf<float>(plain.voxels().findChannel("mask")));
  EXPECT_FALSE(surface.voxels().findChannel("oceanTmp").valid());
}

TEST_F(SurfaceInOcean, TakesItsParametersInCacheUnits) {
  auto parameters = oceanOf(sphere());
  parameters.enable_ocean_blending_uvs = false;
  parameters.ocean_blending_height = 0.53f;
  parameters.space_scale = 2.f;
  Surface const surface(parameters);
  ASSERT_TRUE(surface.status()) << errorOf(surface);
  auto const mesh = meshOf(surface.distance());
  int count = 0;
  for (auto const& p : mesh.points) {
    // Outside the sphere, inside the rectangle.
    if (std::hypot(p.x, p.z) < 1.6f || std::max(std::abs(p.x), std::abs(p.z)) > 2.6f) continue;
    EXPECT_NEAR(p.y, 2.f * 0.53f, 0.02f);
    ++count;
  }
  EXPECT_GT(count, 100);
}

TEST_F(SurfaceInOcean, IsDilatedAndErodedBeforeItIsBlended) {
  auto parameters = oceanOf(sphere());
  parameters.enable_ocean_blending_uvs = false;
  parameters.dilate = 0.05f;
  parameters.erode = 0.02f;
  DilateFilter<float> const dilate(parameters.dilate);
  ErodeFilter<float> const erode(parameters.erode);
  auto const ocean = filterOf(parameters);
  auto const inOrder = [&](std::initializer_list<Filter const*> filters) {
    Surface const plain(parametersOf(sphere()));
    for (auto const* filter : filters) filter->filter(plain.distance(), plain.distance());
    return distancesOf(plain);
  };
  auto const distances = distancesOf(Surface(parameters));
  EXPECT_EQ(distances, inOrder({&dilate, &erode, &ocean}));
  EXPECT_NE(distances, inOrder({&dilate, &ocean, &erode}));
  EXPECT_NE(distances, inOrder({&erode, &ocean, &dilate}));
}

TEST_F(SurfaceInOcean, LosesChannelsOfTheNamesThatSmoothingAndBlendingUse) {
  auto const builder = sphere();
  API::VoxelComponent const voxels(builder.object().findComponent("volume"));
  for (char const* name : {"tmp", "oceanTmp"}) builder.channel(voxels, name, 1.f);
  auto const namesOf = [](SurfaceParameters const& parameters) {
    std::vector<std::string> names;
    for (auto const& channel : Surface(parameters).voxels().channels()) {
      names.push_back(channel.name().str());
    }
    std::sort(names.begin(), names.end());
    return names;
  };
  using Names = std::vector<std::string>;
  auto parameters = parametersOf(builder);
  EXPECT_EQ(namesOf(parameters), (Names{"distance", "oceanTmp", "tmp"}));
  parameters.smooth = 0.3f;
  EXPECT_EQ(namesOf(parameters), (Names{"distance", "oceanTmp"}));
  parameters = oceanOf(builder);
  EXPECT_EQ(namesOf(parameters), Names{"distance"});
  parameters.ocean_blending_out_channel = "mask";
  EXPECT_EQ(namesOf(parameters), (Names{"distance", "mask", "oceanTmp"}));
}

TEST_F(SurfaceInOcean, DerivesChannelsAfterTheOceanAndBeforeTheSpaceScale) {
  auto parameters = oceanOf(sphere());
  parameters.enable_ocean_blending_uvs = false;
  Surface const plain(parameters);
  API::StateServer const server(API::ObjectModel::stateServer(plain.voxels().stateID()));
  auto const expected = [&](Filter const& filter, char const* name) {
    auto const channel = addChannel<float>(server, plain.voxels(), name);
    filter.filter(plain.distance(), channel);
    return valuesOf<float>(channel);
  };
  parameters.space_scale = 2.f;
  parameters.compute_laplacian = true;
  parameters.compute_curvature = true;
  Surface const surface(parameters);
  EXPECT_EQ(valuesOf<float>(surface.voxels().findChannel("laplacian")),
            expected(LaplacianFilter<float>(), "l"));
  EXPECT_EQ(valuesOf<float>(surface.voxels().findChannel("curvature")),
            expected(CurvatureFilter<float>(), "c"));
}

TEST_F(SurfaceInOcean, OfANarrowBandHasNoFalseSurfaces) {
  // As most files come: distances end at three voxels.
  for (float const halfWidth : {3.f, 5.f}) {
    SCOPED_TRACE(testing::Message() << "half width " << halfWidth);
    ObjectBuilder const builder("liquid");
    auto const sphere = builder.sphere(builder.voxels(), 12.f);
    float const band = halfWidth * 0.1f;
    forTiles(API::Layout(sphere.layout()), 0, 7, [&](API::TreeIndex const& index) {
      auto const data = sphere.tileData<float>(index);
      for (std::size_t c = 0; c < data.count; ++c)
        data.data[c] = std::clamp(data.data[c], -band, band);
    });
    sphere.setBackgroundValue(band);
    auto parameters = oceanOf(builder);
    parameters.ocean_blending_dimension = {8.f, 8.f};
    parameters.ocean_blending_radius = 0.f;
    parameters.enable_ocean_blending_uvs = false;
    Surface const surface(parameters);
    ASSERT_TRUE(surface.status()) << errorOf(surface);
    Intersector tiles(surface.accel());
    Sampler const sampler(surface.distance());
    auto const at = [&](Float3 const& p) {
      Sample out;
      sampler.sample(p, out);
      return out.as<float>();
    };
    int crossings = 0;
    for (float x = -3.f; x <= 3.f; x += 0.17f) {
      for (float z = -3.f; z <= 3.f; z += 0.17f) {
        Float3 const from(x, 4.f, z), along(0.3f, -1.f, -0.2f);
        tiles.init(from, along, 0.f, 6.f);
        for (auto i = tiles.next(); i.valid(); i = tiles.next()) {
          for (float t = i.t0; t + 0.02f < i.t1; t += 0.02f) {
            Float3 const p = from + along * t;
            if (std::abs(p.x) > 3.5f || std::abs(p.z) > 3.5f) continue;
            if ((at(p) > 0.f) == (at(from + along * (t + 0.02f)) > 0.f)) continue;
            // Either the water's plane or the sphere.
            float const off = std::min(std::abs(p.y - parameters.ocean_blending_height),
                                       std::abs(std::hypot(p.x, p.y, p.z) - 1.2f));
            EXPECT_LT(off, 0.1f) << p.x << ' ' << p.y << ' ' << p.z;
            ++crossings;
          }
        }
      }
    }
    EXPECT_GT(crossings, 1000);
    for (auto const& p : meshOf(surface.distance()).points) {
      if (std::abs(p.x) > 3.5f || std::abs(p.z) > 3.5f) continue;
      EXPECT_LT(std::min(std::abs(p.y - parameters.ocean_blending_height),
                         std::abs(std::hypot(p.x, p.y, p.z) - 1.2f)),
                0.1f);
    }
  }
}

TEST_F(SurfaceInOcean, WarnsOfMissingTextureCoordinatesAndGoesOn) {
  auto const builder = sphere();
  API::VoxelComponent const voxels(builder.object().findComponent("volume"));
  builder.channel<Float3>(voxels, "velocity", Float3(1.f));
  Surface const surface(oceanOf(builder));
  EXPECT_TRUE(surface.status());
  EXPECT_EQ(
      warningsOf(surface),
      std::vector<std::string>{"Invalid uv channel 'uv'. Available channels are:\n    distance\n"});
  EXPECT_TRUE(surface.accel().valid());
}

TEST_F(SurfaceInOcean, ExtendsTextureCoordinatesOfTheGivenName) {
  auto const builder = sphere();
  API::VoxelComponent const voxels(builder.object().findComponent("volume"));
  builder.channel<Float2>(voxels, "st", Float2(9.f));
  auto parameters = oceanOf(builder);
  parameters.uv_channel = "st";
  Surface const surface(parameters);
  EXPECT_EQ(warningsOf(surface), std::vector<std::string>{});
  API::VoxelChannel const st(surface.voxels().findChannel("st"));
  auto const extended = valuesOf<Float2>(st);
  filterOf(parameters).uvs(st);
  EXPECT_EQ(extended, valuesOf<Float2>(st));
  EXPECT_EQ(std::count(extended.begin(), extended.end(), Float2(9.f)), 0);
}

TEST_F(SurfaceInOcean, ExtendsTextureCoordinatesInCacheUnits) {
  auto const builder = sphere();
  API::VoxelComponent const voxels(builder.object().findComponent("volume"));
  builder.channel<Float2>(voxels, "uv", Float2(9.f));
  auto parameters = oceanOf(builder);
  Surface const unscaled(parameters);
  parameters.space_scale = 2.f;
  Surface const scaled(parameters);
  ASSERT_TRUE(scaled.status()) << errorOf(scaled);
  auto const uvs = valuesOf<Float2>(scaled.voxels().findChannel("uv"));
  EXPECT_EQ(uvs, valuesOf<Float2>(unscaled.voxels().findChannel("uv")));
  EXPECT_EQ(std::count(uvs.begin(), uvs.end(), Float2(9.f)), 0);
}

TEST_F(SurfaceInOcean, AcceptsTextureCoordinatesOfAnotherTypeWithoutAWord) {
  auto const builder = sphere();
  API::VoxelComponent const voxels(builder.object().findComponent("volume"));
  builder.channel<Float3>(voxels, "uv", Float3(9.f));
  Surface const surface(oceanOf(builder));
  EXPECT_TRUE(surface.status());
  EXPECT_EQ(warningsOf(surface), std::vector<std::string>{});
}

TEST_F(SurfaceInOcean, LeavesTextureCoordinatesAloneWithoutARectangle) {
  auto const builder = sphere();
  API::VoxelComponent const voxels(builder.object().findComponent("volume"));
  builder.channel<Float2>(voxels, "uv", Float2(9.f));
  auto parameters = oceanOf(builder);
  float const nan = std::numeric_limits<float>::quiet_NaN();
  for (Float2 dimension : {Float2(0.f, 3.f), Float2(3.f, 0.f), Float2(3.f, -1.f), Float2(nan, 3.f),
                           Float2(3.f, nan)}) {
    parameters.ocean_blending_dimension = dimension;
    Surface const surface(parameters);
    EXPECT_TRUE(surface.status());
    EXPECT_EQ(warningsOf(surface), std::vector<std::string>{});
    auto const uvs = valuesOf<Float2>(surface.voxels().findChannel("uv"));
    ASSERT_FALSE(uvs.empty());
    EXPECT_EQ(uvs, std::vector<Float2>(uvs.size(), Float2(9.f)))
        << dimension.x << ", " << dimension.y;
  }
}

TEST_F(SurfaceInOcean, IsBlendedAlsoWithoutARectangle) {
  auto parameters = oceanOf(sphere());
  Surface const plain(parametersOf(sphere()));
  auto const before = distancesOf(plain);
  parameters.ocean_blending_dimension = {0.f, 3.f};
  filterOf(parameters).filter(plain.distance(), plain.distance());
  EXPECT_NE(valuesOf<float>(plain.distance()), before);
  EXPECT_EQ(distancesOf(Surface(parameters)), valuesOf<float>(plain.distance()));
}

}  // namespace
}  // namespace Velmor::Processing
