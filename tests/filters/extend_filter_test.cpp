#include "processing/extend_filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numeric>
#include <set>
#include <vector>

#include "filters/literal_ocean.h"
#include "processing/pointwise_filters.h"
#include "support/bits.h"
#include "support/mesh_checks.h"
#include "support/ocean_scenes.h"

namespace Velmor::Processing {
namespace {

using namespace Test;
using Float2 = orlen::Math::vec<2, float>;

float valueAt(API::Channel const& channel, int x, int y, int z, int depth = 7) {
  API::Layout const layout(channel.layout());
  auto const tile = layout.tileAccessor().tile(x, y, z, depth);
  auto const data = channel.tileData<float>(tile.index());
  int const cell = tile.info().extent / 5;
  auto const& o = tile.coord();
  return data.data[data.offset((x - o.i) / cell, (y - o.j) / cell, (z - o.k) / cell)];
}

/// The height of the surface in a column of voxels, found from above; NaN if
/// there is none in leaf tiles.
double surfaceHeight(API::Channel const& channel, int x, int z, int top = 12, int bottom = -20) {
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  double above = std::nan("");
  for (int y = top; y >= bottom; --y) {
    auto const tile = accessor.tile(x, y, z, 7);
    if (tile.index().depth != 7) {
      above = std::nan("");
      continue;
    }
    auto const data = channel.tileData<float>(tile.index());
    auto const& o = tile.coord();
    double const here = data.data[data.offset(x - o.i, y - o.j, z - o.k)];
    if (above > 0. && here <= 0.) return y + 0.5 + here / (here - above);
    above = here;
  }
  return std::nan("");
}

TEST(ExtendFilterTypes, IsAFilterAndAValue) {
  static_assert(std::is_base_of_v<Filter, ExtendFilter>);
  // A copy of the mask's name needs memory.
  static_assert(std::is_move_constructible_v<ExtendFilter> &&
                !std::is_nothrow_move_constructible_v<ExtendFilter> &&
                std::is_copy_assignable_v<ExtendFilter>);
}

TEST(ExtendFilter, MarksTheOpenWaterOfAnEmptyLayout) {
  auto const scene = emptyScene(0.1f, 0.5f);
  ExtendFilter(0.03f, {0.f, 0.f}, {20.f, 20.f}, 0.f, "mask").filter(scene.distance, scene.distance);
  EXPECT_EQ(Host::tileCount(scene.layout, 7), 5043u);
  EXPECT_EQ(Host::tileCount(scene.layout, 6), 81u);
  API::Channel const mask(scene.volume.findChannel("mask"));
  auto const accessor = scene.layout.tileAccessor();
  std::size_t wrong = 0, rows = 0;
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    auto const o = accessor.tile(index).coord();
    auto const data = mask.tileData<float>(index);
    for (int e = 0; e < 125; ++e) {
      int const y = o.j + e / 5 % 5;
      wrong += data.data[e] == (y <= 5 ? 1.f : 0.f) ? 0u : 1u;
      rows += y >= -7 && y <= 7 ? 1u : 0u;
    }
  });
  EXPECT_EQ(wrong, 0u);
  EXPECT_EQ(rows, 5043u * 125u);
}

TEST(ExtendFilter, WritesThePlaneAtEveryDepth) {
  for (float const vs : {1.f, 0.1f}) {
    float const height = 0.3f * vs;
    auto const scene = emptyScene(vs, 5.f);
    // The liquid and its background are those of the source.
    auto const out = addChannel<float>(scene.server, scene.volume, "out", 4.f);
    // Far above the plane the liquid is 5 everywhere and does not touch it; where
    // it is background at depth 6 the plane stands for it.
    ExtendFilter(height, {0.f, 0.f}, {30.f * vs, 30.f * vs}, 0.f, "mask")
        .filter(scene.distance, out);
    API::Channel const mask(scene.volume.findChannel("mask"));
    auto const plane = [&](float centre) { return (centre - height / vs) * vs; };
    auto const joined = [](float p, float l) { return (p + l) - std::sqrt(p * p + l * l); };
    for (int depth = 0; depth <= 7; ++depth) {
      auto const tile = scene.layout.tileAccessor().tile(0, 0, 0, depth);
      ASSERT_EQ(tile.index().depth, depth);
      int const cell = tile.info().extent / 5;
      for (int y = 0; y < 5; ++y) {
        float const p =
            plane(static_cast<float>(y * cell + tile.coord().j) + static_cast<float>(cell) * 0.5f);
        float const l = depth == 6 ? p : 5.f;
        float const m = mask.tileData<float>(tile.index()).data[5 * y];
        EXPECT_EQ(out.tileData<float>(tile.index()).data[5 * y],
                  joined(m == 0.f ? std::max(p, l) : p, l))
            << "depth " << depth << " row " << y;
      }
    }
    // A tile of depth 6 begins at -12: its lowest cell is centred on -9.5.
    auto const six = scene.layout.tileAccessor().tile(0, 0, 0, 6);
    EXPECT_EQ(six.coord().j, -12);
    EXPECT_EQ(out.tileData<float>(six.index()).data[0], joined(plane(-9.5f), plane(-9.5f)));
  }
}

TEST(ExtendFilter, FindsTheOceanInWhatTheDestinationHolds) {
  auto const scene = wavyPool();
  auto const out = addChannel<float>(scene.server, scene.volume, "out", 5.f);
  IdentityFilter<float>().filter(scene.distance, out);
  auto const open = addChannel<float>(scene.server, scene.volume, "open", 1.f);
  ExtendFilter(0.3f, {0.f, 0.f}, {40.f, 40.f}, 0.f, "blind").filter(scene.distance, open);
  ExtendFilter(0.3f, {0.f, 0.f}, {40.f, 40.f}, 0.f, "seeing").filter(scene.distance, out);
  // Two voxels deep in the middle of the pool, in a leaf tile.
  EXPECT_EQ(valueAt(API::Channel(scene.volume.findChannel("blind")), 0, -2, 0), 1.f);
  EXPECT_EQ(valueAt(API::Channel(scene.volume.findChannel("seeing")), 0, -2, 0), 0.f);
}

TEST(ExtendFilter, UsesNoneOfItsTraversalSettings) {
  auto const filtered = [](bool restricted) {
    auto const scene = wavyPool();
    ExtendFilter filter(0.3f, {0.f, 0.f}, {160.f, 160.f}, 4.f, "mask");
    if (restricted) {
      filter.setDepths(2, 2);
      filter.setTraversalMode(API::TraversalMode::Serial);
    }
    filter.filter(scene.distance, scene.distance);
    return allValues(scene.distance);
  };
  EXPECT_EQ(filtered(true), filtered(false));
}

TEST(ExtendFilter, InPlaceAndIntoACopyGiveTheSameBits) {
  for (auto const* const maskName : {"", "mask"}) {
    auto const scene = wavyPool();
    auto const out = addChannel<float>(scene.server, scene.volume, "out", 5.f);
    IdentityFilter<float>().filter(scene.distance, out);
    ExtendFilter const filter(0.3f, {0.f, 0.f}, {160.f, 160.f}, 6.f, maskName);
    // Both layouts must hold the same tiles, so the copy goes first.
    filter.filter(scene.distance, out);
    filter.filter(scene.distance, scene.distance);
    expectSameBits(allValues(out), allValues(scene.distance));
    EXPECT_FALSE(scene.volume.findChannel("oceanTmp").valid());
    EXPECT_FALSE(scene.volume.findChannel("tmp").valid());
    EXPECT_EQ(scene.volume.findChannel("mask").valid(), maskName[0] != '\0');
  }
}

/// The values of an ocean and its mask, made by a number of threads in a
/// rectangle of some size.
std::vector<float> oceanBy(int threads, Scene const& scene, float size) {
  Threads const limit(threads);
  ExtendFilter(0.3f, {0.f, 0.f}, {size, size}, 7.f, "mask").filter(scene.distance, scene.distance);
  auto values = allValues(scene.distance);
  auto const mask = allValues(API::Channel(scene.volume.findChannel("mask")));
  values.insert(values.end(), mask.begin(), mask.end());
  return values;
}

TEST(ExtendFilter, GivesTheSameBitsForAnyNumberOfThreads) {
  auto const one = oceanBy(1, poolWithHull(15., 12., 8.), 150.f);
  for (int const threads : {2, 3, 8, 64}) {
    SCOPED_TRACE(threads);
    expectSameBits(oceanBy(threads, poolWithHull(15., 12., 8.), 150.f), one);
  }
}

// Fewer tiles than these no worker is woken for.
TEST(ExtendFilter, GivesTheSameBitsTimeAndAgain) {
  auto const tub = [] {
    return liquidScene(
        [](double x, double y, double z) {
          double const water = std::max({y - 0.3, std::abs(x) - 72., std::abs(z) - 72., -14. - y});
          return std::max(water, -hull(x, y, z, 8., 6., 5.));
        },
        {-80, -20, -80}, {85, 10, 85});
  };
  auto const one = oceanBy(1, tub(), 110.f);
  for (int round = 0; round < 3; ++round) {
    for (int const threads : {1, 2, 8}) {
      SCOPED_TRACE(threads);
      expectSameBits(oceanBy(threads, tub(), 110.f), one);
    }
  }
}

TEST(ExtendFilter, MaskHasTheBitsOfItsDefinitionInAScene) {
  auto const scene = poolWithHull(15., 12., 8.);
  auto const liquid = addChannel<float>(scene.server, scene.volume, "liquid", 5.f);
  IdentityFilter<float>().filter(scene.distance, liquid);
  ExtendFilter(0.3f, {0.f, 0.f}, {140.f, 140.f}, 0.f, "flooded")
      .filter(scene.distance, scene.distance);
  // Tiles that the filter added took on what the liquid's copy held above them.
  auto const literal = addChannel<float>(scene.server, scene.volume, "literal", 0.f);
  LiteralOcean reference(liquid, literal, 0.3f);
  reference.seed();
  reference.flood();
  EXPECT_EQ(valuesOf<float>(literal),
            valuesOf<float>(API::Channel(scene.volume.findChannel("flooded"))));
  reference.widen(6.5f);
  auto const again = poolWithHull(15., 12., 8.);
  ExtendFilter(0.3f, {0.f, 0.f}, {140.f, 140.f}, 6.5f, "mask")
      .filter(again.distance, again.distance);
  EXPECT_EQ(valuesOf<float>(literal),
            valuesOf<float>(API::Channel(again.volume.findChannel("mask"))));
}

/// Checks the mesh of an ocean: how many pieces, and where its open edges are.
struct MeshReport {
  std::size_t pieces = 0, openEdges = 0, openInside = 0;
};

MeshReport inspect(API::Channel const& channel) {
  auto const mesh = meshOf(API::VoxelChannel(channel));
  API::Layout const layout(channel.layout());
  // The box of the leaf tiles, in voxels.
  auto const accessor = layout.tileAccessor();
  API::TileCoord low{1 << 30, 1 << 30, 1 << 30}, high{-(1 << 30), -(1 << 30), -(1 << 30)};
  forTiles(layout, 7, 7, [&](API::TreeIndex const& index) {
    auto const o = accessor.tile(index).coord();
    low = {std::min(low.i, o.i), std::min(low.j, o.j), std::min(low.k, o.k)};
    high = {std::max(high.i, o.i + 5), std::max(high.j, o.j + 5), std::max(high.k, o.k + 5)};
  });
  std::vector<int> parent(mesh.points.count());
  std::iota(parent.begin(), parent.end(), 0);
  auto const root = [&](int v) {
    while (parent[static_cast<std::size_t>(v)] != v) {
      v = parent[static_cast<std::size_t>(v)] =
          parent[static_cast<std::size_t>(parent[static_cast<std::size_t>(v)])];
    }
    return v;
  };
  std::map<std::pair<int, int>, int> balance;
  for (auto const& t : mesh.triangles) {
    parent[static_cast<std::size_t>(root(t.x))] = root(t.y);
    parent[static_cast<std::size_t>(root(t.y))] = root(t.z);
    for (auto const& [a, b] : {std::pair(t.x, t.y), std::pair(t.y, t.z), std::pair(t.z, t.x)}) {
      if (a != b) balance[std::minmax(a, b)] += a < b ? 1 : -1;
    }
  }
  MeshReport report;
  std::set<int> roots;
  for (auto const& t : mesh.triangles) roots.insert(root(t.x));
  report.pieces = roots.size();
  float const scale = layout.voxelScale();
  for (auto const& [edge, uses] : balance) {
    if (uses == 0) continue;
    ++report.openEdges;
    for (int const v : {edge.first, edge.second}) {
      auto const p = mesh.points[static_cast<std::size_t>(v)] * (1.f / scale);
      bool const outermost =
          p.x < static_cast<float>(low.i + 1) || p.x > static_cast<float>(high.i - 1) ||
          p.z < static_cast<float>(low.k + 1) || p.z > static_cast<float>(high.k - 1);
      if (!outermost) {
        ++report.openInside;
        break;
      }
    }
  }
  return report;
}

TEST(Ocean, JoinsAWavyPoolIntoOneSheet) {
  for (bool const dilated : {false, true}) {
    auto const scene = wavyPool(dilated ? 0.05 : 0.3);
    if (dilated) DilateFilter<float>(0.25f).filter(scene.distance, scene.distance);
    ExtendFilter(0.3f, {0.f, 0.f}, {200.f, 200.f}, 0.f, "").filter(scene.distance, scene.distance);
    for (int x = -95; x < 95; ++x) {
      for (int const z : {-80, -59, 0, 7, 33, 60}) {
        double const here = surfaceHeight(scene.distance, x, z);
        ASSERT_FALSE(std::isnan(here)) << x << ", " << z;
        double const next = surfaceHeight(scene.distance, x + 1, z);
        EXPECT_LT(std::abs(here - next), 1.) << "a step at " << x << ", " << z;
        bool const far = std::abs(x) > 70 || std::abs(z) > 70;
        if (far) {
          EXPECT_NEAR(here, 0.3, 0.1) << x << ", " << z;
        }
        if (std::hypot(x, z) < 40.) {
          EXPECT_NEAR(here, 0.3 + waveHeight(x + 0.5, z + 0.5), 0.6);
        }
      }
    }
    auto const report = inspect(scene.distance);
    EXPECT_EQ(report.pieces, 1u);
    EXPECT_GT(report.openEdges, 0u);
    EXPECT_EQ(report.openInside, 0u);
  }
}

TEST(Ocean, OfADilatedPoolHasTheSameSurfaceThoughDepthSixIsNotFound) {
  struct Outcome {
    std::vector<float> leaves;
    std::vector<float> inner;  // mesh vertices but for the outermost voxels
    float deep;                // a cell of depth 6 below the open ocean
  };
  auto const surfaceOf = [](bool moveBackground) {
    auto const scene = wavyPool();
    DilateFilter<float>(0.25f).filter(scene.distance, scene.distance);
    // What the filter would find had the background moved with the values.
    if (moveBackground) scene.distance.setBackgroundValue(4.75f);
    ExtendFilter(0.55f, {0.f, 0.f}, {200.f, 200.f}, 0.f, "").filter(scene.distance, scene.distance);
    Outcome outcome{valuesOf<float>(scene.distance), {}, valueAt(scene.distance, 90, -10, 0, 6)};
    for (auto const& p : meshOf(scene.distance).points) {
      if (std::abs(p.x) > 98.f || std::abs(p.z) > 98.f) continue;
      outcome.inner.insert(outcome.inner.end(), {p.x, p.y, p.z});
    }
    return outcome;
  };
  auto const dilated = surfaceOf(false), moved = surfaceOf(true);
  EXPECT_EQ(dilated.leaves, moved.leaves);
  EXPECT_GT(dilated.inner.size(), 100000u);
  EXPECT_EQ(dilated.inner, moved.inner);
  EXPECT_NE(dilated.deep, moved.deep);
}

struct HullCase {
  double halfX, halfZ, draft;
};

TEST(Ocean, LeavesAHullDry) {
  for (auto const& boat : {HullCase{15., 12., 8.}, HullCase{50., 50., 30.}}) {
    auto const scene = poolWithHull(boat.halfX, boat.halfZ, boat.draft);
    ExtendFilter(0.3f, {0.f, 0.f}, {200.f, 200.f}, 0.f, "mask")
        .filter(scene.distance, scene.distance);
    auto const accessor = scene.layout.tileAccessor();
    API::Channel const mask(scene.volume.findChannel("mask"));
    std::size_t dry = 0, wet = 0, marked = 0;
    forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
      auto const o = accessor.tile(index).coord();
      auto const out = scene.distance.tileData<float>(index), m = mask.tileData<float>(index);
      for (int e = 0; e < 125; ++e) {
        double const x = o.i + e % 5 + 0.5, y = o.j + e / 5 % 5 + 0.5, z = o.k + e / 25 + 0.5;
        if (hull(x, y, z, boat.halfX, boat.halfZ, boat.draft) >= 0. || y > 0.3) continue;
        (out.data[e] > 0.f ? dry : wet) += 1;
        marked += m.data[e] == 1.f ? 1u : 0u;
      }
    });
    EXPECT_GT(dry, 5000u);
    EXPECT_EQ(wet, 0u) << boat.halfX;
    auto const report = inspect(scene.distance);
    EXPECT_EQ(report.openInside, 0u) << boat.halfX;
    EXPECT_GT(report.openEdges, 0u);
  }
}

TEST(Ocean, TakesCellsWithoutLeavesDeepInsideALargeHullForOpenWater) {
  auto const scene = poolWithHull(50., 50., 30.);
  ExtendFilter(0.3f, {0.f, 0.f}, {200.f, 200.f}, 0.f, "").filter(scene.distance, scene.distance);
  auto const tile = scene.layout.tileAccessor().tile(0, -15, 0, 7);
  ASSERT_EQ(tile.index().depth, 6);
  EXPECT_LT(valueAt(scene.distance, 0, -15, 0), 0.f);
}

TEST(Ocean, RunsOverALiquidWhoseLevelIsAVoxelCentreOnThePlane) {
  // Level and plane at 0.5, where the centres of the voxels y = 0 lie: nothing
  // tells the liquid's surface from open water there.
  auto const scene = poolWithHull(15., 12., 8., 0.5);
  ExtendFilter(0.5f, {0.f, 0.f}, {200.f, 200.f}, 0.f, "").filter(scene.distance, scene.distance);
  std::size_t wet = 0;
  for (int x = -14; x < 14; ++x) {
    for (int z = -11; z < 11; ++z) wet += valueAt(scene.distance, x, -3, z) <= 0.f ? 1u : 0u;
  }
  EXPECT_GT(wet, 0u);
}

TEST(OceanMask, KeptUnderItsNameShowsTheOceanAndItsFalloff) {
  float const radius = 12.f;
  auto const scene = wavyPool();
  ExtendFilter(0.3f, {0.f, 0.f}, {200.f, 200.f}, radius, "mask")
      .filter(scene.distance, scene.distance);
  API::Channel const mask(scene.volume.findChannel("mask"));
  ASSERT_TRUE(mask.valid());
  for (int const x : {-98, -80, 75, 95}) EXPECT_EQ(valueAt(mask, x, 1, 3), 1.f) << x;
  // From the rim at 60 inwards: ocean, then falling to nothing over the radius.
  int edge = 60;
  while (edge > 40 && valueAt(mask, edge, 1, 3) == 1.f) --edge;
  ASSERT_GT(edge, 45);
  float before = 1.f;
  for (int x = edge; x > edge - 12; --x) {
    float const here = valueAt(mask, x, 1, 3);
    EXPECT_LT(here, before) << x;
    EXPECT_NEAR(here, 1.f - static_cast<float>(edge + 1 - x) / radius, 0.1f) << x;
    before = here;
  }
  for (int const x : {0, 10, 30}) EXPECT_EQ(valueAt(mask, x, 1, 3), 0.f) << x;
}

TEST(OceanUvs, RunFromCornerToCorner) {
  auto const scene = emptyScene(0.1f);
  std::vector<API::TileCoord> tiles;
  for (int const x : {-100, 0, 100}) {
    for (int const z : {-50, 0, 50}) tiles.push_back({x, 0, z});
  }
  Host::addLeafTiles(scene.layout, tiles);
  auto const uv = addChannel<Float2>(scene.server, scene.volume, "uv", Float2(9.f, 9.f));
  ExtendFilter(0.f, {0.f, 1.f}, {20.f, 10.f}, 1.f, "").uvs(uv);
  auto const at = [&](int x, int z) {
    auto const tile = scene.layout.tileAccessor().tile(x, 0, z, 7);
    auto const data = uv.tileData<Float2>(tile.index());
    auto const& o = tile.coord();
    return data.data[data.offset(x - o.i, 0 - o.j, z - o.k)];
  };
  EXPECT_EQ(at(0, 0).x, 0.5f);
  EXPECT_EQ(at(100, 0).x, 1.f);
  EXPECT_EQ(at(-100, 0).x, -5.96046448e-08f);
  EXPECT_NEAR(at(101, 0).x, 1.005f, 1e-6f);
  // z from -4 to 6.
  EXPECT_NEAR(at(0, -50).y, -0.1f, 1e-6f);
  EXPECT_NEAR(at(0, 50).y, 0.9f, 1e-6f);
  EXPECT_NEAR(at(0, 0).y, 0.4f, 1e-6f);
}

TEST(OceanUvs, AreWithinAMillionthAtTheCornersOfAnyRectangle) {
  for (float const vs : {0.1f, 0.5f, 0.03f}) {
    for (int const half : {7, 40, 333}) {
      auto const scene = emptyScene(vs);
      Host::addLeafTiles(scene.layout, {{-half, 0, -half}, {half, 0, half}});
      auto const uv = addChannel<Float2>(scene.server, scene.volume, "uv", Float2());
      float const size = 2.f * static_cast<float>(half) * vs;
      ExtendFilter(0.f, {0.f, 0.f}, {size, size}, 1.f, "").uvs(uv);
      for (int const corner : {-half, half}) {
        auto const tile = scene.layout.tileAccessor().tile(corner, 0, corner, 7);
        auto const data = uv.tileData<Float2>(tile.index());
        int const i = corner - tile.coord().i, k = corner - tile.coord().k;
        auto const value = data.data[data.offset(i, 0, k)];
        EXPECT_NEAR(value.x, corner > 0 ? 1.f : 0.f, 1e-6f);
        EXPECT_NEAR(value.y, corner > 0 ? 1.f : 0.f, 1e-6f);
      }
    }
  }
}

}  // namespace
}  // namespace Velmor::Processing
