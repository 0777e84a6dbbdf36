#include <gtest/gtest.h>
#include <openvdb/tools/ChangeBackground.h>

#include <cmath>
#include <limits>

#include "files/vdb_grids.h"
#include "host/files/file_scenes.h"
#include "host/files/vdb_files.h"
#include "processing/extend_filter.h"
#include "support/mesh_checks.h"

namespace Velmor::Test {
namespace {

Host::ReadOptions with(Host::DistanceMode mode) {
  auto how = trusting();
  how.distance = mode;
  return how;
}

/// A dense field in a box of 60 voxels of 0.2: `value` of the distance to a
/// sphere of radius 15 around `centre`, in voxels; level set, background 0.
template <class Function>
openvdb::FloatGrid::Ptr denseSphere(openvdb::Vec3d const& centre, Function const& value) {
  openvdb::initialize();
  auto grid = openvdb::FloatGrid::create(0.f);
  grid->setName("phi");
  grid->setGridClass(openvdb::GRID_LEVEL_SET);
  grid->setTransform(openvdb::math::Transform::createLinearTransform(0.2));
  auto accessor = grid->getAccessor();
  for (auto it = openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(59)).begin(); it; ++it) {
    auto const distance = ((*it).asVec3d() - centre).length() - 15;
    accessor.setValue(*it, static_cast<float>(value(distance)));
  }
  return grid;
}

struct Treated {
  Loaded loaded;
  std::string mode;
  float factor;
  float at(int i, int j, int k) const {
    auto const channel = loaded.channel("phi");
    auto const tile = API::Layout(channel.layout()).tileAccessor().tile(i, j, k, 7);
    auto const c = tile.coord();
    auto const edge = tile.info().extent / 5;
    return channel.tileData<float>(tile.index())
        .data[((k - c.k) / edge * 5 + (j - c.j) / edge) * 5 + (i - c.i) / edge];
  }
};

Treated treat(openvdb::FloatGrid::Ptr const& grid, Host::DistanceMode mode) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/phi.vdb";
  writeGrids(file, {grid});
  Treated treated{load(file, with(mode)), {}, 0};
  auto const dictionary = treated.loaded.channel("phi").dictionary();
  treated.mode = dictionary.value<API::String>("distance_mode").str();
  treated.factor = dictionary.value<float>("distance_factor");
  EXPECT_NE(dictionary.value<API::String>("distance_reason"), "");
  return treated;
}

openvdb::Vec3d const middle(29.5, 29.5, 29.5);
auto const same = [](double d) { return d; };

TEST(Distance, WorldUnitsAreKeptBitForBit) {
  auto const grid = denseSphere(middle, [](double d) { return 0.2 * d; });
  auto const treated = treat(grid, Host::DistanceMode::Auto);
  EXPECT_EQ(treated.mode, "keep");
  EXPECT_EQ(treated.at(20, 20, 20), grid->getConstAccessor().getValue(openvdb::Coord(20)));
}

TEST(Distance, CellsAreScaledByExactlyTheVoxelSize) {
  auto const grid = denseSphere(middle, same);
  auto const treated = treat(grid, Host::DistanceMode::Auto);
  EXPECT_EQ(treated.mode, "scale");
  EXPECT_EQ(treated.factor, 0.2f);
  EXPECT_EQ(treated.at(20, 20, 20), grid->getConstAccessor().getValue(openvdb::Coord(20)) * 0.2f);
  EXPECT_EQ(treated.at(-9, 0, 0), 1.f) << "outside stays five voxels";
}

TEST(Distance, AnyOtherConstantFactorIsFound) {
  auto const treated =
      treat(denseSphere(middle, [](double d) { return 7.3 * d; }), Host::DistanceMode::Auto);
  EXPECT_EQ(treated.mode, "scale");
  EXPECT_NEAR(treated.factor, 0.2 / 7.3, 0.01 * 0.2 / 7.3);
}

void expectBand(Treated const& treated, openvdb::Vec3d const& centre) {
  EXPECT_EQ(treated.mode, "rebuild");
  EXPECT_FLOAT_EQ(treated.loaded.channel("phi").backgroundValue<float>(), 1.f);
  int checked = 0;
  for (int i = 0; i < 60; ++i) {
    auto const distance = 0.2 * ((openvdb::Vec3d(i, 30, 30) - centre).length() - 15);
    if (std::abs(distance) > 0.8) continue;
    EXPECT_NEAR(static_cast<double>(treated.at(i, 30, 30)), distance, 0.1) << i;
    ++checked;
  }
  EXPECT_GE(checked, 14);
  EXPECT_LT(treated.at(30, 30, 30), -0.99f);
}

TEST(Distance, JumpsAreRebuilt) {
  expectBand(treat(denseSphere(middle, [](double d) { return d > 0 ? 10000.0 : d; }),
                   Host::DistanceMode::Auto),
             middle);
}

TEST(Distance, ValuesThatAreNoNumbersAreSaidToBe) {
  auto const nan = std::numeric_limits<float>::quiet_NaN();
  auto const grid = denseSphere(middle, same);
  for (int x = 20; x < 23; ++x) grid->tree().setValueOn(openvdb::Coord(x, 30, 30), nan);
  grid->tree().setValueOff(openvdb::Coord(24, 30, 30), nan);
  for (auto const mode : {Host::DistanceMode::Keep, Host::DistanceMode::Auto}) {
    auto const treated = treat(grid, mode);
    bool said = false;
    for (auto const& text : treated.loaded.warnings) {
      said = said || text.find("' has 3 active values that are no numbers") != text.npos;
    }
    EXPECT_EQ(said, mode == Host::DistanceMode::Auto);
  }
}

TEST(Distance, SomethingThatIsNoDistanceIsRebuilt) {
  expectBand(treat(denseSphere(middle, [](double d) { return d < 0 ? d : 0.2 * d + 0.01; }),
                   Host::DistanceMode::Auto),
             middle);
}

TEST(Distance, ASurfaceCutByTheBorderIsClosed) {
  openvdb::Vec3d const low(29.5, 29.5, 5);
  auto const treated = treat(denseSphere(low, same), Host::DistanceMode::Auto);
  EXPECT_EQ(treated.mode, "rebuild");
  EXPECT_LT(treated.at(30, 30, 1), 0.f);
  EXPECT_GT(treated.at(30, 30, -2), 0.f);
  EXPECT_NEAR(treated.at(30, 30, 0), -0.1f, 0.11f) << "a true distance to the border";
}

// Most of a filtered level set is: a filter adds tiles, and knows of no band.
TEST(Distance, ASignChangeIsSurfaceWhetherItsVoxelsAreActiveOrNot) {
  for (bool const active : {false, true}) {
    auto grid = denseSphere(middle, same);
    grid->clear();
    openvdb::tools::changeBackground(grid->tree(), 1.f);
    grid->fill(openvdb::CoordBBox(openvdb::Coord(3), openvdb::Coord(26)), -1.f, active);
    ASSERT_EQ(grid->tree().activeTileCount() > 0, active);
    ASSERT_GT(grid->tree().leafCount(), 0u);
    auto const treated = treat(grid, Host::DistanceMode::Auto);
    EXPECT_EQ(treated.mode, "rebuild");
    EXPECT_FLOAT_EQ(treated.at(15, 15, 15), -1.f);
    EXPECT_FLOAT_EQ(treated.at(15, 15, -9), 1.f);
    for (int const at : {3, 27}) {
      EXPECT_NEAR(std::abs(treated.at(15, at, 15)), 0.1f, 0.01f);
      EXPECT_LT(treated.at(15, at, 15) * treated.at(15, at - 1, 15), 0.f);
    }
  }
}

TEST(Distance, ARebuildIsAsCloseToATiltedPlaneAsToASphere) {
  openvdb::Vec3d const normal = openvdb::Vec3d(1, 0.55, 0.3).unit();
  for (bool const flat : {false, true}) {
    auto const grid = denseSphere(middle, same);
    auto const distance = [&](openvdb::Coord const& at) {
      auto const way = at.asVec3d() - middle;
      return flat ? way.dot(normal) : way.length() - 15;
    };
    auto accessor = grid->getAccessor();
    for (auto it = openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(59)).begin(); it; ++it) {
      accessor.setValue(*it, static_cast<float>(distance(*it)));
    }
    auto const treated = treat(grid, Host::DistanceMode::Rebuild);
    int checked = 0;
    for (auto it = openvdb::CoordBBox(openvdb::Coord(12), openvdb::Coord(47)).begin(); it; ++it) {
      auto const expected = distance(*it);
      if (std::abs(expected) > 2) continue;
      EXPECT_NEAR(treated.at((*it).x(), (*it).y(), (*it).z()) / 0.2, expected, 0.1) << *it;
      ++checked;
    }
    EXPECT_GT(checked, 100);
  }
}

TEST(Distance, AnOceanIsClosedWithAWallAndABottom) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/ocean.vdb";
  auto const scene = sphereScene(6.f, Vec3(0.f), 0.1f);
  Processing::ExtendFilter(0.1f, {0.f, 0.f}, {1.5f, 1.5f}, 0.2f, "")
      .filter(scene.distance, scene.distance);
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  auto const distance = load(file, with(Host::DistanceMode::Auto)).channel("distance");
  EXPECT_EQ(distance.dictionary().value<API::String>("distance_mode"), "rebuild");
  auto const mesh = meshOf(API::VoxelChannel(distance));
  EXPECT_EQ(unbalancedEdges(mesh), 0u);
  EXPECT_GT(volumeOf(mesh), 1.5 * 1.5 * 0.5) << "as wide as was asked for, and deep";
}

TEST(Distance, NoSurfaceIsKept) {
  for (double const value : {10000.0, 3.0}) {
    auto const treated =
        treat(denseSphere(middle, [&](double) { return value; }), Host::DistanceMode::Auto);
    EXPECT_EQ(treated.mode, "keep");
    EXPECT_EQ(treated.at(5, 5, 5), static_cast<float>(value));
  }
}

// What is no number counts as inside; a rebuild takes it for outside.
TEST(Distance, WhereARebuildFindsNoSurfaceTheFieldIsKept) {
  auto const grid = denseSphere(
      middle, [](double d) { return d < 0 ? std::numeric_limits<double>::quiet_NaN() : 0.2 * d; });
  auto const treated = treat(grid, Host::DistanceMode::Rebuild);
  EXPECT_EQ(treated.mode, "keep");
  auto const reason =
      treated.loaded.channel("phi").dictionary().value<API::String>("distance_reason").str();
  std::string const ending = "; a rebuild finds no surface";
  ASSERT_GT(reason.size(), ending.size());
  EXPECT_EQ(reason.substr(reason.size() - ending.size()), ending);
  EXPECT_EQ(treated.at(5, 5, 5), grid->getConstAccessor().getValue(openvdb::Coord(5)));
}

TEST(Distance, OnlyTheChosenChannelIsTreated) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/two.vdb";
  auto const one = denseSphere(middle, same), two = denseSphere(middle, same);
  one->setName("one");
  two->setName("two");
  two->setGridClass(openvdb::GRID_UNKNOWN);
  writeGrids(file, {one, two});
  auto how = with(Host::DistanceMode::Auto);
  how.distanceChannel = "two";
  auto const loaded = load(file, how);
  EXPECT_FALSE(loaded.channel("one").dictionary().hasValue("distance_mode"));
  EXPECT_EQ(loaded.channel("two").dictionary().value<API::String>("distance_mode"), "scale");
}

TEST(Distance, ForcedModesAreTaken) {
  auto const cells = denseSphere(middle, same);
  EXPECT_EQ(treat(cells, Host::DistanceMode::Keep).mode, "keep");
  EXPECT_EQ(treat(cells, Host::DistanceMode::Scale).mode, "scale");
  EXPECT_EQ(treat(cells, Host::DistanceMode::Rebuild).mode, "rebuild");
}

TEST(Distance, ValuesThatAreNoNumbersDoNotStopARebuild) {
  auto const grid = denseSphere(middle, [](double d) {
    return d > 10 ? std::numeric_limits<double>::quiet_NaN() : d < -10 ? -INFINITY : 10 * d * d * d;
  });
  auto const treated = treat(grid, Host::DistanceMode::Rebuild);
  EXPECT_EQ(treated.mode, "rebuild");
  EXPECT_GT(treated.at(55, 55, 55), 0.f);
  EXPECT_LT(treated.at(30, 30, 30), 0.f);
}

}  // namespace
}  // namespace Velmor::Test
