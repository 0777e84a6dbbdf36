#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

#include "files/vdb_grids.h"
#include "host/files/file_scenes.h"
#include "host/files/vdb_files.h"
#include "support/object_builder.h"

namespace Velmor::Test {
namespace {

using orlen::Math::vec;

/// Compares every voxel of a box with what the deepest tile there says.
template <class Grid, class T, class Equal>
void expectSameVoxels(Grid const& grid, API::Channel const& channel, openvdb::CoordBBox const& box,
                      Equal const& equal) {
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  auto const voxels = grid.getConstAccessor();
  std::map<std::pair<int, int>, Host::CellMask> masks;
  int wrong = 0;
  for (auto it = box.begin(); it != box.end() && wrong < 5; ++it) {
    auto const at = *it;
    auto const tile = accessor.tile(at.x(), at.y(), at.z(), 7);
    auto const edge = tile.info().extent / 5;
    auto const c = tile.coord();
    auto const cell =
        ((at.z() - c.k) / edge * 5 + (at.y() - c.j) / edge) * 5 + (at.x() - c.i) / edge;
    auto const value = channel.tileData<T>(tile.index()).data[cell];
    auto const key = std::pair{tile.index().depth, tile.index().slot};
    if (masks.count(key) == 0) masks[key] = Host::activeMask(channel, tile.index());
    if (!equal(voxels.getValue(at), value) || voxels.isValueOn(at) != masks[key].test(cell)) {
      ++wrong;
      ADD_FAILURE() << "voxel " << at << " holds " << voxels.getValue(at) << ", active "
                    << voxels.isValueOn(at) << " / " << masks[key].test(cell);
    }
  }
}

auto const sameFloat = [](float a, float b) { return std::memcmp(&a, &b, 4) == 0; };

TEST(ForeignFile, SphereKeepsValuesAndTheInsideStaysInside) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  auto const grid = sphereGrid(40.f, 0.1);
  writeGrids(file, {grid});
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  auto const channel = loaded.channel("distance");
  expectSameVoxels<openvdb::FloatGrid, float>(
      *grid, channel, openvdb::CoordBBox(openvdb::Coord(-48), openvdb::Coord(48)), sameFloat);
  EXPECT_EQ(Host::fieldClass(channel), Host::FieldClass::LevelSet);
  EXPECT_EQ(channel.backgroundValue<float>(), grid->background());
  // Deep inside, at every depth that has a cell there without a child.
  API::Layout const layout(channel.layout());
  auto const tile = layout.tileAccessor().tile(0, 0, 0, 7);
  EXPECT_EQ(channel.tileData<float>(tile.index()).data[62], -grid->background());
  EXPECT_LT(tile.index().depth, 7);
}

TEST(ForeignFile, TilesOfAllSizesActiveAndInactive) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/tiles.vdb";
  auto grid = openvdb::FloatGrid::create(0.f);
  grid->setName("density");
  grid->tree().addTile(1, openvdb::Coord(0), 3.f, true);
  grid->tree().addTile(1, openvdb::Coord(8, 0, 0), -2.f, false);
  grid->tree().addTile(2, openvdb::Coord(128, 0, 0), 5.f, true);
  grid->tree().setValueOn(openvdb::Coord(-3, -3, -3), 9.f);
  grid->tree().setValueOff(openvdb::Coord(-5, -3, -3), 8.f);
  writeGrids(file, {grid});
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  expectSameVoxels<openvdb::FloatGrid, float>(
      *grid, loaded.channel("density"),
      openvdb::CoordBBox(openvdb::Coord(-20, -20, -20), openvdb::Coord(262, 30, 30)), sameFloat);
  API::Layout const layout(loaded.channel("density").layout());
  EXPECT_LT(Host::tileCount(layout, 7), 5000u) << "the inside of tiles stays coarse";
}

TEST(ForeignFile, AnActiveRegionBeyondMemoryIsRefusedAndNamed) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/huge.vdb";
  auto grid = openvdb::FloatGrid::create(0.f);
  grid->setName("density");
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      if ((i + j) % 2 == 0) {
        grid->tree().addTile(3, openvdb::Coord(i * 4096, j * 4096, 0), 1.f, true);
      }
    }
  }
  writeGrids(file, {grid});
  auto how = trusting();
  how.memoryLimit = std::size_t{64} << 20;
  auto const loaded = load(file, how);
  EXPECT_FALSE(loaded.object.valid());
  EXPECT_NE(loaded.message.find("huge.vdb' needs more memory than the limit"), std::string::npos)
      << loaded.message;
}

TEST(ForeignFile, OtherNumbersAreConverted) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/types.vdb";
  auto doubles = openvdb::DoubleGrid::create(0.5);
  doubles->setName("doubles");
  doubles->tree().setValue(openvdb::Coord(1, 2, 3), 0.1);
  auto vectors = openvdb::Vec3DGrid::create(openvdb::Vec3d(0));
  vectors->setName("vectors");
  vectors->tree().setValue(openvdb::Coord(1, 2, 3), openvdb::Vec3d(0.1, 2, 3));
  vectors->setGridClass(openvdb::GRID_STAGGERED);
  auto half = openvdb::FloatGrid::create(0.f);
  half->setName("half");
  half->tree().setValue(openvdb::Coord(1, 2, 3), 0.1f);
  half->setSaveFloatAsHalf(true);
  auto whole = openvdb::Vec3IGrid::create(openvdb::Vec3i(0));
  whole->setName("whole");
  whole->tree().setValue(openvdb::Coord(1, 2, 3), openvdb::Vec3i(4, 5, 6));
  writeGrids(file, {doubles, vectors, half, whole});
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  auto const tile = API::Layout(loaded.channel("half").layout()).tileAccessor().tile(1, 2, 3, 7);
  auto const cell = ((3 - tile.coord().k) * 5 + 2 - tile.coord().j) * 5 + 1 - tile.coord().i;
  EXPECT_EQ(loaded.channel("doubles").tileData<float>(tile.index()).data[cell], 0.1f);
  EXPECT_EQ(loaded.channel("doubles").backgroundValue<float>(), 0.5f);
  EXPECT_EQ(loaded.channel("vectors").tileData<Vec3>(tile.index()).data[cell], (Vec3{0.1f, 2, 3}));
  EXPECT_EQ(Host::fieldClass(loaded.channel("vectors")), Host::FieldClass::Staggered);
  EXPECT_EQ(loaded.channel("vectors").dictionary().value<API::String>("class"), "staggered");
  EXPECT_EQ(loaded.channel("half").tileData<float>(tile.index()).data[cell], 0.0999755859375f);
  EXPECT_EQ((loaded.channel("whole").tileData<vec<3, int>>(tile.index()).data[cell]),
            (vec<3, int>{4, 5, 6}));
}

bool mentions(std::vector<std::string> const& warnings, std::string const& text) {
  for (auto const& warning : warnings) {
    if (warning.find(text) != std::string::npos) return true;
  }
  return false;
}

openvdb::FloatGrid::Ptr oneVoxel(char const* name, openvdb::math::Transform::Ptr const& transform) {
  auto grid = openvdb::FloatGrid::create(0.f);
  grid->setName(name);
  grid->tree().setValue(openvdb::Coord(1, 2, 3), 1.f);
  grid->setTransform(transform);
  return grid;
}

TEST(ForeignFile, WhatCannotBeRepresentedIsSkippedWithItsNameAndTheReason) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/skipped.vdb";
  using openvdb::Vec3d;
  using openvdb::math::Transform;
  auto const plain = [] { return Transform::createLinearTransform(0.5); };
  std::vector<std::pair<std::string, std::string>> reasons;
  openvdb::GridPtrVec grids;
  auto const add = [&](char const* name, Transform::Ptr const& transform, char const* reason) {
    grids.push_back(oneVoxel(name, transform));
    reasons.emplace_back(name, reason);
  };
  for (auto const& [name, axis] :
       {std::pair{"turned x", openvdb::math::X_AXIS}, std::pair{"turned y", openvdb::math::Y_AXIS},
        std::pair{"turned z", openvdb::math::Z_AXIS}}) {
    auto const turned = plain();
    turned->postRotate(0.3, axis);
    add(name, turned, "its transform is rotated or sheared");
  }
  auto const upsideDown = plain();
  upsideDown->postRotate(3., openvdb::math::Z_AXIS);
  add("upside down", upsideDown, "its transform is rotated or sheared");
  auto const sheared = plain();
  sheared->postShear(0.2, openvdb::math::X_AXIS, openvdb::math::Y_AXIS);
  add("sheared", sheared, "its transform is rotated or sheared");
  auto const flat = plain();
  flat->postScale(Vec3d(1, 1, 1.002));
  add("flat", flat, "its voxels are not cubes");
  auto const mirrored = plain();
  mirrored->postScale(Vec3d(-1, 1, 1));
  add("mirrored", mirrored, "its voxel size is not a positive number");
  // OpenVDB keeps no place that is far away in voxels, but one that no float can hold.
  add("vast", Transform::createLinearTransform(1e39), "its voxel size is not a positive number");
  auto const beyond = Transform::createLinearTransform(1e35);
  beyond->postTranslate(Vec3d(1e39, 0, 0));
  add("beyond", beyond, "its translation is not finite");
  add("frustum", Transform::createFrustumTransform(openvdb::BBoxd(Vec3d(0), Vec3d(9)), 0.5, 2., 1.),
      "its transform is not linear");
  auto const flags = openvdb::BoolGrid::create(false);
  flags->setName("flags");
  flags->tree().setValue(openvdb::Coord(0), true);
  grids.push_back(flags);
  reasons.emplace_back("flags", "values of type 'bool' are not supported");
  grids.push_back(oneVoxel("good", plain()));
  writeGrids(file, grids);
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  std::vector<std::string> expected;
  for (auto const& [name, reason] : reasons) {
    expected.push_back("Grid '" + name + "' of '" + file + "' is skipped: " + reason);
    EXPECT_FALSE(loaded.channel(name.c_str()).valid()) << name;
  }
  EXPECT_EQ(loaded.warnings, expected);
  EXPECT_TRUE(loaded.channel("good").valid());

  writeGrids(file, {grids.front()});
  auto const nothing = load(file);
  EXPECT_FALSE(nothing.object.valid());
  EXPECT_EQ(nothing.message, expected.front());
}

TEST(ForeignFile, WithoutAnyGridThatIsSaid) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/empty.vdb";
  writeGrids(file, {});
  auto const loaded = load(file);
  EXPECT_FALSE(loaded.object.valid());
  EXPECT_EQ(loaded.message, "'" + file + "' holds no grids");
}

TEST(ForeignFile, VoxelsBeyondAnyLayoutAreLeftOutWithAWarning) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/far.vdb";
  auto const far = oneVoxel("far", openvdb::math::Transform::createLinearTransform(0.5));
  far->tree().setValue(openvdb::Coord(195313, 0, 0), 2.f);
  auto const near = oneVoxel("near", openvdb::math::Transform::createLinearTransform(0.5));
  near->tree().setValue(openvdb::Coord(195312, 0, 0), 2.f);
  writeGrids(file, {far, near});
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  EXPECT_EQ(loaded.warnings,
            std::vector<std::string>{"Grid 'far' of '" + file +
                                     "' reaches beyond the voxels that a layout can hold; what "
                                     "lies there is left out"});
  expectSameVoxels<openvdb::FloatGrid, float>(
      *far, loaded.channel("far"), openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(5)),
      sameFloat);
}

TEST(ForeignFile, AGridWhoseSharedVoxelsAreMissingDoesNotLoseTheOthers) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/shared.vdb";
  auto const parent = oneVoxel("parent", openvdb::math::Transform::createLinearTransform(0.5));
  auto const child = parent->copy();  // of the same tree
  child->setName("child");
  writeGrids(file, {parent, child});
  auto const whole = load(file);
  EXPECT_EQ(whole.message, "");
  EXPECT_EQ(whole.warnings, std::vector<std::string>{});
  EXPECT_TRUE(whole.channel("child").valid());

  std::fstream bytes(file, std::ios::in | std::ios::out | std::ios::binary);
  std::string const text((std::istreambuf_iterator<char>(bytes)), {});
  auto const named = text.find("parent", text.find("child"));
  ASSERT_NE(named, std::string::npos);
  bytes.seekp(static_cast<std::streamoff>(named));
  bytes.write("nobody", 6);
  bytes.close();
  auto const loaded = load(file);
  EXPECT_EQ(loaded.message, "");
  EXPECT_TRUE(loaded.channel("parent").valid());
  EXPECT_FALSE(loaded.channel("child").valid());
  ASSERT_EQ(loaded.warnings.size(), 1u);
  EXPECT_TRUE(mentions(loaded.warnings, "Grid 'child' of '" + file + "' is skipped: "));
  EXPECT_TRUE(mentions(loaded.warnings, "the grid that it shares its voxels with is missing"))
      << loaded.warnings[0];
}

TEST(ForeignFile, NamesBecomeDistinct) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/names.vdb";
  auto const plain = openvdb::math::Transform::createLinearTransform(0.5);
  writeGrids(file, {oneVoxel("", plain), oneVoxel("d", plain), oneVoxel("d", plain),
                    oneVoxel("", plain), oneVoxel("a/b", plain)});
  auto const loaded = load(file);
  for (char const* name : {"unnamed", "unnamed-2", "d", "d-2", "a_b"}) {
    EXPECT_TRUE(loaded.channel(name).valid()) << name;
  }
  auto const again = folder.path().str() + "/again.vdb";
  ASSERT_EQ(Host::writeObject(loaded.object, again).message(), "");
  std::multiset<std::string> names;
  for (auto const& grid : readGrids(again)) names.insert(grid->getName());
  EXPECT_EQ(names, (std::multiset<std::string>{"", "", "a/b", "d", "d"}));
}

TEST(ForeignFile, OtherPlacementsBecomeFurtherComponents) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/places.vdb";
  using openvdb::math::Transform;
  auto const first = Transform::createLinearTransform(0.1);
  auto const shifted = Transform::createLinearTransform(0.1);
  shifted->postTranslate(openvdb::Vec3d(1.25, 0, -3.7));
  auto const coarse = Transform::createLinearTransform(0.3);
  writeGrids(file, {oneVoxel("one", first), oneVoxel("two", shifted), oneVoxel("three", coarse),
                    oneVoxel("four", first)});
  auto const loaded = load(file);
  EXPECT_TRUE(loaded.channel("one", "volume").valid());
  EXPECT_TRUE(loaded.channel("four", "volume").valid());
  EXPECT_TRUE(loaded.channel("two", "volume-2").valid());
  EXPECT_TRUE(loaded.channel("three", "volume-3").valid());
  API::Component const second(loaded.object.findComponent("volume-2"));
  EXPECT_EQ(second.dictionary().value<Vec3>("origin"), (Vec3{1.2f, -0.05f, -3.75f}));
  EXPECT_EQ(loaded.object.dictionary().value<Vec3>("origin"), Vec3(-0.05f));

  auto const again = folder.path().str() + "/again.vdb";
  ASSERT_EQ(Host::writeObject(loaded.object, again).message(), "");
  auto const before = readGrids(file), after = readGrids(again);
  ASSERT_EQ(before.size(), after.size());
  for (auto const& grid : before) {
    for (auto const& other : after) {
      if (grid->getName() != other->getName()) continue;
      EXPECT_EQ(grid->transform(), other->transform()) << grid->getName();
      EXPECT_EQ(grid->activeVoxelCount(), other->activeVoxelCount());
    }
  }
}

TEST(ForeignFile, WorldPositionsAgreeWithAndWithoutTranslation) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  for (auto const& translation : {openvdb::Vec3d(0), openvdb::Vec3d(10.02, -3.3, 0.05)}) {
    auto const grid = sphereGrid(20.f, 0.1, translation, openvdb::Vec3f(3, 1, 2));
    writeGrids(file, {grid});
    auto const loaded = load(file);
    auto const channel = loaded.channel("distance");
    API::Layout const layout(channel.layout());
    auto const origin = loaded.object.dictionary().value<Vec3>("origin");
    auto const accessor = layout.tileAccessor();
    forTiles(layout, 7, 7, [&](API::TreeIndex const& index) {
      auto const at = accessor.tile(index).coord();
      float const centre = channel.tileData<float>(index).data[0];
      if (std::abs(centre) > 0.25f) return;
      double square = 0;
      double const ours[3] = {at.i + 0.5, at.j + 0.5, at.k + 0.5};
      double const middle[3] = {3, 1, 2};
      for (int a = 0; a < 3; ++a) {
        auto const world = ours[a] * 0.1 + static_cast<double>(origin[a]);
        auto const d = world - (middle[a] * 0.1 + translation[a]);
        square += d * d;
      }
      EXPECT_NEAR(std::sqrt(square) - 2.0, static_cast<double>(centre), 1e-5);
    });
  }
}

TEST(ForeignFile, OurFilesCarryHalfAVoxel) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/ours.vdb";
  auto const scene = sphereScene(10.f, Vec3(0.f), 0.25f);
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");
  auto const grids = readGrids(file);
  ASSERT_EQ(grids.size(), 1u);
  EXPECT_EQ(grids[0]->indexToWorld(openvdb::Coord(0)), openvdb::Vec3d(0.125));
  EXPECT_EQ(grids[0]->getGridClass(), openvdb::GRID_LEVEL_SET);
  auto const loaded = load(file);
  EXPECT_EQ(loaded.object.dictionary().value<Vec3>("origin"), Vec3(0.f));
  // OpenVDB sees the distance of each place, not of the corner of its cell.
  auto const values = openvdb::gridPtrCast<openvdb::FloatGrid>(grids[0]);
  for (auto it = values->cbeginValueOn(); it; ++it) {
    auto const world = grids[0]->indexToWorld(it.getCoord());
    if (std::abs(*it) > 1.f) continue;
    EXPECT_NEAR(world.length() - 2.5, static_cast<double>(*it), 1e-5);
  }
}

TEST(ForeignFile, ALevelSetWithoutBackgroundGetsFiveVoxelsOutside) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/phi.vdb";
  auto grid = openvdb::FloatGrid::create(0.f);
  grid->setName("phi");
  grid->setGridClass(openvdb::GRID_LEVEL_SET);
  grid->setTransform(openvdb::math::Transform::createLinearTransform(0.2));
  grid->fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(9)), -0.1f);
  writeGrids(file, {grid});
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  EXPECT_EQ(loaded.channel("phi").backgroundValue<float>(), 1.f);
  EXPECT_TRUE(mentions(loaded.warnings, "'phi'"));
  auto const tile = API::Layout(loaded.channel("phi").layout()).tileAccessor().tile(-1, 0, 0, 7);
  EXPECT_EQ(loaded.channel("phi").tileData<float>(tile.index()).data[0], 1.f);
}

// A negative background is no outside, but its opposite may stand there.
TEST(ForeignFile, MendingANegativeBackgroundTurnsNoOutsideInside) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/phi.vdb";
  auto grid = openvdb::FloatGrid::create(-0.4f);
  grid->setName("phi");
  grid->setGridClass(openvdb::GRID_LEVEL_SET);
  grid->setTransform(openvdb::math::Transform::createLinearTransform(0.2));
  grid->fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(3)), -0.1f);
  grid->tree().setValueOff(openvdb::Coord(4, 0, 0), 0.4f);
  grid->tree().setValueOff(openvdb::Coord(5, 0, 0), -0.4f);
  writeGrids(file, {grid});
  auto const loaded = load(file);
  ASSERT_EQ(loaded.message, "");
  EXPECT_EQ(loaded.warnings, std::vector<std::string>{"Level set 'phi' of '" + file +
                                                      "' has background -0.4; +5 voxels is taken "
                                                      "outside"});
  auto const channel = loaded.channel("phi");
  EXPECT_EQ(channel.backgroundValue<float>(), 1.f);
  auto const tile = API::Layout(channel.layout()).tileAccessor().tile(4, 0, 0, 7);
  auto const values = channel.tileData<float>(tile.index());
  auto const at = [&](int x) { return values.data[x - tile.coord().i + 5 * 2 + 25 * 2]; };
  EXPECT_EQ(at(3), -0.1f);
  EXPECT_EQ(at(4), 0.4f);
  EXPECT_EQ(at(5), 1.f);
}

TEST(ForeignFile, FogThatIsTakenForADistanceIsKeptAsItIs) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/smoke.vdb";
  auto grid = openvdb::FloatGrid::create(0.f);
  grid->setGridClass(openvdb::GRID_FOG_VOLUME);
  grid->fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(9)), 0.5f);
  writeGrids(file, {grid});
  auto how = trusting();
  how.distanceChannel = "unnamed";
  auto const kept = load(file, how);
  EXPECT_EQ(kept.warnings, std::vector<std::string>{});
  EXPECT_EQ(kept.channel("unnamed").backgroundValue<float>(), 0.f);
  how.distance = Host::DistanceMode::Scale;
  auto const treated = load(file, how);
  EXPECT_EQ(treated.warnings,
            std::vector<std::string>{"Grid 'unnamed' of '" + file +
                                     "' has background 0; +5 voxels is taken outside"});
  EXPECT_EQ(treated.channel("unnamed").backgroundValue<float>(), 5.f);
}

// Some solvers begin names of their own as OpenVDB begins those that it derives.
TEST(ForeignFile, MetadataThatOpenVdbDoesNotDeriveIsKept) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/a.vdb", again = folder.path().str() + "/b.vdb";
  auto grid = openvdb::FloatGrid::create(0.f);
  grid->setName("density");
  grid->fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(9)), 0.5f);
  grid->insertMeta("file_voxel_size", openvdb::FloatMetadata(0.25f));
  ObjectBuilder const spray("spray");
  spray.points({{1.f, 2.f, 3.f}});
  ASSERT_EQ(Host::writeObject(spray.object(), again).message(), "");
  auto const points = readGrids(again).front();
  points->insertMeta("solver", openvdb::StringMetadata("of mine"));
  writeGrids(file, {grid, points});
  auto const loaded = load(file);
  EXPECT_EQ(loaded.channel("density").dictionary().value<float>("file_voxel_size"), 0.25f);
  EXPECT_EQ(loaded.channel("position", "particle").dictionary().value<API::String>("solver").str(),
            "of mine");
  ASSERT_EQ(Host::writeObject(loaded.object, again).message(), "");
  auto const grids = readGrids(again);
  ASSERT_EQ(grids.size(), 2u);
  for (auto const& written : grids) {
    bool const fog = written->getName() == "density";
    EXPECT_EQ(fog ? written->getMetadata<openvdb::FloatMetadata>("file_voxel_size") != nullptr
                  : written->getMetadata<openvdb::StringMetadata>("solver") != nullptr,
              true)
        << written->getName();
  }
}

TEST(ForeignFile, WarningsMayBeAskedForOneChannelAlone) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/two.vdb";
  openvdb::GridPtrVec grids;
  for (auto const* name : {"one", "two"}) {
    auto grid = openvdb::FloatGrid::create(0.f);
    grid->setName(name);
    grid->setGridClass(openvdb::GRID_LEVEL_SET);
    grid->fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(9)), -0.1f);
    grids.push_back(grid);
  }
  writeGrids(file, grids);
  for (bool const isolate : {false, true}) {
    Host::ReadOptions how;
    how.isolate = isolate;
    EXPECT_EQ(load(file, how).warnings.size(), 2u);
    how.messagesAbout = "two";
    auto const warnings = load(file, how).warnings;
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_TRUE(mentions(warnings, "Level set 'two'"));
    how.messagesAbout = "three";
    EXPECT_TRUE(load(file, how).warnings.empty());
  }
}

TEST(ForeignFile, OneGridOfAnUnknownTypeDoesNotLoseTheOthers) {
  openvdb::initialize();
  CacheFolder const folder;
  auto const file = folder.path().str() + "/unknown.vdb";
  auto const plain = openvdb::math::Transform::createLinearTransform(0.5);
  writeGrids(file, {oneVoxel("one", plain), oneVoxel("two", plain)});
  std::fstream bytes(file, std::ios::in | std::ios::out | std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(bytes)), {});
  auto const type = text.find("Tree_float_5_4_3");
  ASSERT_NE(type, std::string::npos);
  bytes.seekp(static_cast<std::streamoff>(type + 5));
  bytes.write("gloat", 5);
  bytes.close();
  auto const loaded = load(file);
  EXPECT_EQ(loaded.message, "");
  EXPECT_FALSE(loaded.channel("one").valid());
  EXPECT_TRUE(loaded.channel("two").valid());
  EXPECT_TRUE(mentions(loaded.warnings, "Grid 'one'"));
}

TEST(ForeignFile, LoadOptionsPickChannelsKindsAndBoxes) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/some.vdb";
  auto const scene = sphereScene(20.f, Vec3(0.f), 0.1f);
  addChannel<int>(scene.server, scene.volume, "flags", 3);
  API::PointComponent const points(
      scene.server.createComponent(API::PointComponentType, "particle", 0.1f));
  scene.object.addComponent(points);
  Host::setPoints(points, {{1.f, 1.f, 1.f}, {15.f, 0.f, 0.f}, {-15.f, 0.f, 0.f}});
  ASSERT_EQ(Host::writeObject(scene.object, file).message(), "");

  API::Runtime::CacheResource::LoadOptions some;
  some.channels.add("flags");
  some.points = false;
  auto const chosen = load(file, trusting(), some);
  EXPECT_TRUE(chosen.channel("flags").valid());
  EXPECT_FALSE(chosen.channel("distance").valid());
  EXPECT_FALSE(API::Component(chosen.object.findComponent("particle")).valid());

  API::Runtime::CacheResource::LoadOptions box;
  box.bounds = {{0.f, -3.f, -3.f}, {3.f, 3.f, 3.f}};
  auto const right = load(file, trusting(), box);
  EXPECT_EQ(API::PointComponent(right.object.findComponent("particle")).elementCount(), 2u);
  API::Layout const layout(right.channel("distance").layout());
  auto const accessor = layout.tileAccessor();
  forTiles(layout, 7, 7,
           [&](API::TreeIndex const& index) { EXPECT_GE(accessor.tile(index).coord().i + 5, 0); });
  auto const inside = accessor.tile(-10, 0, 0, 7);
  EXPECT_LT(inside.index().depth, 7);
  EXPECT_LT(right.channel("distance").tileData<float>(inside.index()).data[62], 0.f);
}

TEST(ForeignFile, NothingIsPrintedOnStandardOutput) {
  CacheFolder const folder;
  auto const file = folder.path().str() + "/sphere.vdb";
  writeGrids(file, {sphereGrid(8.f, 0.1)});
  std::string bytes;
  {
    std::ifstream in(file, std::ios::binary);
    bytes.assign((std::istreambuf_iterator<char>(in)), {});
  }
  std::ofstream(file, std::ios::binary)
      .write(bytes.data(), static_cast<long>(bytes.size() * 3 / 4));
  testing::internal::CaptureStdout();
  auto const damaged = load(file);
  auto const missing = load(folder.path().str() + "/none.vdb");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(damaged.object.valid());
  EXPECT_NE(missing.message.find("none.vdb': No such file or directory"), std::string::npos);
}

}  // namespace
}  // namespace Velmor::Test
