#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "processing/mesher.h"
#include "support/marching_cubes_reference.h"
#include "support/mesh_checks.h"
#include "support/scene.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using namespace Velmor::Test;
using Point = orlen::Math::vec<3, float>;

static_assert(std::is_abstract_v<Mesher> && std::has_virtual_destructor_v<Mesher>);
static_assert(std::is_base_of_v<Mesher, MarchingCubes>);
static_assert(!std::is_default_constructible_v<MarchingCubes> &&
              !std::is_convertible_v<unsigned, MarchingCubes>);
static_assert(std::is_copy_constructible_v<MarchingCubes> &&
              std::is_nothrow_move_constructible_v<MarchingCubes> &&
              std::is_copy_assignable_v<MarchingCubes> &&
              std::is_nothrow_move_assignable_v<MarchingCubes>);

Mesh referenceOf(API::VoxelChannel const& channel, unsigned subdivisions = 0) {
  return ReferenceMarchingCubes().mesh(channel, static_cast<int>(subdivisions) + 1);
}

// The number of tiles along each axis is odd, the middle one holds voxel 0.
std::vector<API::TileCoord> tileCube(int tilesEachWay) {
  std::vector<API::TileCoord> tiles;
  for (int k = -tilesEachWay; k <= tilesEachWay; ++k)
    for (int j = -tilesEachWay; j <= tilesEachWay; ++j)
      for (int i = -tilesEachWay; i <= tilesEachWay; ++i) tiles.push_back({5 * i, 5 * j, 5 * k});
  return tiles;
}

Scene tiledScene(std::vector<API::TileCoord> const& tiles, float voxelScale = 1.f) {
  auto scene = emptyScene(voxelScale, 5.f * voxelScale);
  Host::addLeafTiles(scene.layout, tiles);
  return scene;
}

// Sets each voxel of the leaf tiles from its coordinates.
template <class Function>
void setVoxels(API::VoxelChannel const& channel, Function const& value) {
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  forTiles(layout, layout.maxDepth(), layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const at = accessor.tile(index).coord();
    auto const data = channel.tileData<float>(index);
    for (int z = 0; z < 5; ++z)
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x)
          data.data[data.offset(x, y, z)] = value(at.i + x, at.j + y, at.k + z);
  });
}

void expectClosed(Mesh const& mesh) {
  EXPECT_FALSE(mesh.triangles.empty());
  EXPECT_EQ(unbalancedEdges(mesh), 0u);
  EXPECT_EQ(duplicatePoints(mesh), 0u);
  EXPECT_GT(volumeOf(mesh), 0.0);
}

TEST(MarchingCubes, MeshesASphereClosedAndOriented) {
  auto const scene = sphereScene(6.f, {0.37f, -0.21f, 0.13f});
  auto const mesh = meshOf(scene.distance);
  EXPECT_EQ(mesh.triangles.count(), 1332u);
  EXPECT_EQ(mesh.points.count(), 668u);
  EXPECT_NEAR(volumeOf(mesh), 871.10, 0.005);
  expectClosed(mesh);
}

TEST(MarchingCubes, SubdividesEachVoxel) {
  auto const scene = sphereScene(6.f, {0.37f, -0.21f, 0.13f});
  auto const mesh = meshOf(scene.distance, 1);
  EXPECT_EQ(mesh.triangles.count(), 5384u);
  EXPECT_EQ(mesh.points.count(), 2694u);
  EXPECT_NEAR(volumeOf(mesh), 882.21, 0.005);
  expectClosed(mesh);
}

TEST(MarchingCubes, SpheresCloseWhereverTheyLie) {
  std::vector<Point> const centres = {{0.f, 0.f, 0.f}, {0.5f, 0.5f, 0.5f},     {2.5f, 2.5f, 2.5f},
                                      {3.f, 3.f, 3.f}, {-40.f, -33.3f, -71.f}, {-2.f, 0.25f, 3.f}};
  for (auto const& centre : centres) {
    // Radii that put the surface onto tile borders (3 + 5k), and between them.
    for (float const radius : {5.f, 5.5f, 7.3f}) {
      auto const scene = sphereScene(radius, centre, 0.1f);
      for (unsigned const subdivisions : {0u, 1u, 3u}) {
        SCOPED_TRACE(testing::Message() << "centre " << centre.x << ", radius " << radius
                                        << ", subdivisions " << subdivisions);
        expectClosed(meshOf(scene.distance, subdivisions));
      }
    }
  }
}

TEST(MarchingCubes, VerticesLieOnTheZeroSetOfTheSpline) {
  auto const scene = sphereScene(9.f, {0.3f, 0.2f, -0.4f}, 0.1f);
  API::VoxelSampler const sampler(
      scene.distance.createSampler(API::VoxelSamplerQBSplineType, API::SamplerSpace::World));
  auto const mesh = meshOf(scene.distance, 1);
  for (auto const& p : mesh.points) EXPECT_NEAR(sampler.sample<float>(p), 0.f, 0.01f);
}

TEST(MarchingCubes, HasTheBytesOfThePlainAlgorithmOnRandomFields) {
  unsigned const seed = Velmor::Test::newSeed();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(-2.f, 2.f);
  std::uniform_int_distribution<int> step(-4, 4);
  // The last cuts too finely for one block per tile.
  for (unsigned const subdivisions : {0u, 1u, 2u, 5u, 7u}) {
    SCOPED_TRACE(testing::Message() << "subdivisions " << subdivisions);
    auto const scene = tiledScene(tileCube(subdivisions > 2 ? 0 : 1), 0.75f);
    setVoxels(scene.distance, [&](int, int, int) { return value(random); });
    EXPECT_TRUE(
        sameBytes(meshOf(scene.distance, subdivisions), referenceOf(scene.distance, subdivisions)));
    // Few distinct values: samples of exactly 0, vertices of many edges in one place.
    setVoxels(scene.distance,
              [&](int, int, int) { return 0.25f * static_cast<float>(step(random)); });
    EXPECT_TRUE(
        sameBytes(meshOf(scene.distance, subdivisions), referenceOf(scene.distance, subdivisions)));
  }
}

TEST(MarchingCubes, HasTheBytesOfThePlainAlgorithmOnSpheresNearAndFar) {
  for (float const away : {0.f, 900.f, 30000.f}) {
    for (float const voxelScale : {1.f, 0.037f, 1e-30f, 3e20f}) {
      SCOPED_TRACE(testing::Message() << away << ", voxel scale " << voxelScale);
      auto const scene = sphereScene(8.f, {away, 0.25f, -away}, voxelScale);
      EXPECT_TRUE(sameBytes(meshOf(scene.distance), referenceOf(scene.distance)));
      EXPECT_TRUE(sameBytes(meshOf(scene.distance, 2), referenceOf(scene.distance, 2)));
    }
  }
}

TEST(MarchingCubes, GivesTheSameBytesForAnyNumberOfThreads) {
  auto const scene = sphereScene(17.f, {0.37f, -0.21f, 0.13f}, 0.1f);
  for (unsigned const subdivisions : {0u, 2u}) {
    auto const expected = referenceOf(scene.distance, subdivisions);
    for (int const threads : {1, 2, 3, 8, 64}) {
      Threads const limit(threads);
      EXPECT_TRUE(sameBytes(meshOf(scene.distance, subdivisions), expected)) << threads;
    }
  }
}

TEST(MarchingCubes, ConstantFieldsGiveNothing) {
  for (float const value : {0.f, 0.5f, -0.5f, 1.f, -1.f}) {
    auto const scene = emptyScene(1.f, value);
    Host::addLeafTiles(scene.layout, {{0, 0, 0}});
    auto const mesh = meshOf(scene.distance);
    EXPECT_TRUE(mesh.points.empty()) << value;
    EXPECT_TRUE(mesh.triangles.empty()) << value;
  }
}

TEST(MarchingCubes, KeepsVoxelsAsFarAsOneVoxelSizeAndNoFurther) {
  float const voxelScale = 0.3f;
  auto const trianglesWith = [&](float stored) {
    // A plane steep enough to cross next to the stored value.
    auto const scene = tiledScene(tileCube(1), voxelScale);
    setVoxels(scene.distance, [&](int x, int, int) { return x < 0 ? -stored : stored; });
    return meshOf(scene.distance).triangles.count();
  };
  EXPECT_GT(trianglesWith(voxelScale), 0u);
  EXPECT_EQ(trianglesWith(std::nextafter(voxelScale, 1.f)), 0u);
}

TEST(MarchingCubes, ZeroCountsWithTheNegative) {
  // Samples at integer positions average eight voxels; x = 0 lies between -1 and 1.
  auto const scene = tiledScene(tileCube(1), 1.f);
  setVoxels(scene.distance, [](int x, int, int) { return static_cast<float>(x) + 0.5f; });
  auto const mesh = meshOf(scene.distance);
  ASSERT_FALSE(mesh.points.empty());
  // The corner at 0 belongs below, so the crossing edges start there, at t = 0.
  std::size_t onPlane = 0;
  for (auto const& p : mesh.points) onPlane += p.x == 0.f ? 1u : 0u;
  EXPECT_GT(onPlane, 0u);
  EXPECT_TRUE(sameBytes(mesh, referenceOf(scene.distance)));
}

TEST(MarchingCubes, NearlyEqualValuesPutTheVertexOnTheFirstCorner) {
  // The difference stays below the smallest that is divided by.
  auto const scene = tiledScene(tileCube(1), 1.f);
  setVoxels(scene.distance, [](int x, int, int) { return x < 1 ? -2e-8f : 3e-8f; });
  auto const mesh = meshOf(scene.distance);
  std::size_t inside = 0;
  for (auto const& p : mesh.points) {
    EXPECT_EQ(p, Point(std::floor(p.x), std::floor(p.y), std::floor(p.z)));
    if (std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}) > 5.f) continue;
    // Between the samples -2e-8 at 0 and 5e-9 at 1.
    EXPECT_EQ(p.x, 0.f);
    ++inside;
  }
  EXPECT_GT(inside, 0u);
  EXPECT_TRUE(sameBytes(mesh, referenceOf(scene.distance)));
}

TEST(MarchingCubes, SamplesCellCentredVoxelsInIndexSpace) {
  // A field of 2 x - 1: the crossing is at x = 0.5 voxels.
  auto const scene = tiledScene(tileCube(2), 0.25f);
  setVoxels(scene.distance,
            [](int x, int, int) { return 0.1f * (2.f * (static_cast<float>(x) + 0.5f) - 1.f); });
  API::VoxelSampler const sampler(
      scene.distance.createSampler(API::VoxelSamplerQBSplineType, API::SamplerSpace::Index));
  EXPECT_NEAR(sampler.sample<float>({3.f, 0.f, 0.f}), 0.1f * 5.f, 1e-6f);
  auto const mesh = meshOf(scene.distance);
  ASSERT_FALSE(mesh.points.empty());
  std::size_t inside = 0;
  for (auto const& p : mesh.points) {
    if (std::max(std::abs(p.y), std::abs(p.z)) > 6 * 0.25f) continue;
    EXPECT_FLOAT_EQ(p.x, 0.5f * 0.25f);
    ++inside;
  }
  EXPECT_GT(inside, 0u);
}

TEST(MarchingCubes, ReplacesWhatTheArraysHeld) {
  auto const scene = sphereScene(4.f);
  auto mesh = meshOf(scene.distance);
  auto const once = mesh;
  MarchingCubes(0).mesh(scene.distance, mesh.points, mesh.triangles);
  EXPECT_TRUE(sameBytes(mesh, once));
  MarchingCubes(0).mesh(emptyScene().distance, mesh.points, mesh.triangles);
  EXPECT_TRUE(mesh.points.empty() && mesh.triangles.empty());
}

TEST(MarchingCubes, GivesNothingWithoutAFloatChannel) {
  Mesh mesh{{Point(1.f)}, {{1, 2, 3}}};
  MarchingCubes(0).mesh({}, mesh.points, mesh.triangles);
  EXPECT_TRUE(mesh.points.empty() && mesh.triangles.empty());

  auto const scene = tiledScene({{0, 0, 0}}, 1.f);
  API::VoxelChannel const ids(addChannel<int>(scene.server, scene.volume, "id"));
  mesh = meshOf(ids);
  EXPECT_TRUE(mesh.points.empty() && mesh.triangles.empty());
}

TEST(MarchingCubes, SurvivesValuesThatAreNotFinite) {
  unsigned const seed = Velmor::Test::newSeed();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(-1.f, 1.f);
  std::uniform_int_distribution<int> one(0, 19);
  constexpr float inf = std::numeric_limits<float>::infinity();
  float const nan = std::numeric_limits<float>::quiet_NaN();
  auto const scene = tiledScene(tileCube(1));
  setVoxels(scene.distance, [&](int, int, int) {
    switch (one(random)) {
      case 0:
        return inf;
      case 1:
        return -inf;
      case 2:
        return nan;
      case 3:
        return std::numeric_limits<float>::max();
      default:
        return value(random);
    }
  });
  for (unsigned const subdivisions : {0u, 1u}) {
    auto const expected = referenceOf(scene.distance, subdivisions);
    for (int const threads : {1, 3}) {
      Threads const limit(threads);
      EXPECT_TRUE(sameBytes(meshOf(scene.distance, subdivisions), expected)) << subdivisions;
    }
  }
}

TEST(MarchingCubes, ReadsOnlyTheReportedWidth) {
  for (int const width : {0, 4, 8}) {
    LayoutShape const shape({.reportedWidth = width});
    auto const scene = sphereScene(6.f);
    auto const mesh = meshOf(scene.distance);
    // A width that the tiles do not have gives nothing.
    EXPECT_EQ(mesh.triangles.empty(), width != 4) << width;
    if (width == 4) {
      EXPECT_TRUE(sameBytes(mesh, referenceOf(scene.distance)));
    }
  }
}

TEST(MarchingCubes, CopiesAndMovesKeepTheSubdivisions) {
  auto const scene = sphereScene(3.f);
  auto const expected = meshOf(scene.distance, 1);
  auto const meshBy = [&](MarchingCubes const& mesher) {
    Mesh mesh;
    mesher.mesh(scene.distance, mesh.points, mesh.triangles);
    return mesh;
  };
  MarchingCubes const original(1);
  MarchingCubes copy(original), assigned(0), moveAssigned(0);
  assigned = original;
  EXPECT_TRUE(sameBytes(meshBy(copy), expected));
  EXPECT_TRUE(sameBytes(meshBy(assigned), expected));
  MarchingCubes const moved(std::move(copy));
  EXPECT_TRUE(sameBytes(meshBy(moved), expected));
  moveAssigned = std::move(assigned);
  EXPECT_TRUE(sameBytes(meshBy(moveAssigned), expected));
}

}  // namespace
}  // namespace Velmor::Processing
