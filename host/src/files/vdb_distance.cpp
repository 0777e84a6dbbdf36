#include "files/vdb_distance.h"

#include <openvdb/tools/Prune.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/number_text.h"
#include "files/vdb_band.h"
#include "files/vdb_gradient.h"

namespace Velmor::Host::Files {

namespace {

constexpr int bandVoxels = 5;  // what the rest of the system expects around a surface

using Tree = openvdb::FloatTree;

template <class Function>
void changeValues(Tree& tree, Function const& change) {
  for (auto leaf = tree.beginLeaf(); leaf; ++leaf) {
    for (auto it = leaf->beginValueAll(); it; ++it) it.setValue(change(*it, it.isValueOn()));
  }
  auto it = tree.beginValueAll();
  it.setMaxDepth(Tree::ValueAllIter::LEAF_DEPTH - 1);
  for (; it; ++it) it.setValue(change(*it, it.isValueOn()));
}

std::string number(double value) { return numberText(value, 4); }

std::string describe(SurfaceGradients const& g) {
  return "gradient length " + number(g.median) + " along the surface, at most " +
         number(g.steepest) + ", " + std::to_string(g.jumps) + " jumps at " +
         std::to_string(g.samples) + " voxels";
}

/// Steeper than this, cells with surface hold values beyond one voxel size, and
/// whoever looks for the surface by value misses them.
bool closes(SurfaceGradients const& g) {
  return g.jumps == 0 && g.median >= 0.85 && g.median <= 1.15 && g.steep <= 1.15 &&
         g.steepest <= 1.2;
}

void scaleBy(openvdb::FloatGrid& grid, float factor, bool mended) {
  auto const outside = grid.background();
  changeValues(grid.tree(), [&](float v, bool on) {
    return mended && !on && v == outside ? outside : v * factor;
  });
  if (!mended) grid.tree().root().setBackground(outside * factor, /*updateChildNodes=*/false);
}

/// Calls `function(place)` for the leaf places that touch a box of whole leaves
/// from outside, along faces, edges and corners.
template <class Function>
void forShell(openvdb::CoordBBox const& box, Function const& function) {
  auto const lo = box.min().offsetBy(-leafEdge), hi = box.max().offsetBy(1);
  for (auto x = lo.x(); x <= hi.x(); x += leafEdge) {
    for (auto y = lo.y(); y <= hi.y(); y += leafEdge) {
      bool const side = x == lo.x() || x == hi.x() || y == lo.y() || y == hi.y();
      auto const step = side ? leafEdge : hi.z() - lo.z();
      for (auto z = lo.z(); z <= hi.z(); z += step) function(openvdb::Coord(x, y, z));
    }
  }
}

/// Gives every leaf that holds inside voxels, and every inside tile, leaves all
/// around it, so that at each sign change there is a leaf voxel.
void surround(Tree& tree) {
  std::vector<openvdb::CoordBBox> boxes;
  for (auto leaf = tree.cbeginLeaf(); leaf; ++leaf) {
    auto const* const values = leaf->buffer().data();
    if (std::any_of(values, values + Tree::LeafNodeType::SIZE, [](float v) { return !(v > 0); })) {
      boxes.push_back(leaf->getNodeBoundingBox());
    }
  }
  auto it = tree.cbeginValueAll();
  it.setMaxDepth(Tree::ValueAllCIter::LEAF_DEPTH - 1);
  for (; it; ++it) {
    openvdb::CoordBBox box;
    if (!(*it > 0) && it.getBoundingBox(box)) boxes.push_back(box);
  }
  openvdb::tree::ValueAccessor<Tree> accessor(tree);
  for (auto const& box : boxes) {
    forShell(box, [&](openvdb::Coord const& at) {
      if (accessor.getValue(at) > 0) accessor.touchLeaf(at);
    });
  }
}

void deactivate(Tree& tree) {
  for (auto leaf = tree.beginLeaf(); leaf; ++leaf) leaf->setValuesOff();
  auto it = tree.beginValueOn();
  it.setMaxDepth(Tree::ValueOnIter::LEAF_DEPTH - 1);
  for (; it; ++it) it.setValueOff();
}

/// A narrow band around the zero crossing.
openvdb::FloatGrid::Ptr rebuilt(openvdb::FloatGrid const& grid, double voxelSize) {
  auto const size = static_cast<float>(voxelSize);
  auto const perVoxel = valuePerVoxel(grid);
  auto const scale = perVoxel > 0 ? static_cast<float>(voxelSize / perVoxel) : 1.f;
  auto work = grid.deepCopy();
  // Where the field jumps, the place of the surface is not in the data; cut off
  // at a voxel it comes to lie between the two voxels.
  changeValues(work->tree(), [&](float v, bool) {
    return std::isnan(v) ? size : std::clamp(v * scale, -size, size);
  });
  work->tree().root().setBackground(size, /*updateChildNodes=*/false);
  // Most of what a file holds can be far from any surface: what has one value
  // there, active or not, is no longer dense.
  deactivate(work->tree());
  openvdb::tools::prune(work->tree());
  surround(work->tree());
  auto result = openvdb::FloatGrid::create(narrowBand(work->tree(), size, bandVoxels));
  result->insertMeta(grid);
  result->setGridClass(openvdb::GRID_LEVEL_SET);
  result->setTransform(grid.transform().copy());
  return result;
}

/// The factor to world units: exactly the voxel size for values in cells.
double factorFor(openvdb::FloatGrid const& grid, double voxelSize) {
  auto const perVoxel = valuePerVoxel(grid);
  if (!(perVoxel > 0)) return 1;
  auto const lengths = surfaceGradients(grid, voxelSize, perVoxel);
  auto const inCells = lengths.median * voxelSize;
  if (!(inCells > 0)) return voxelSize / perVoxel;
  return inCells >= 0.85 && inCells <= 1.15 ? voxelSize : 1 / lengths.median;
}

/// Active values that are no numbers, tiles counted as one.
std::uint64_t notNumbers(Tree const& tree) {
  std::uint64_t count = 0;
  for (auto leaf = tree.cbeginLeaf(); leaf; ++leaf) {
    for (auto it = leaf->cbeginValueOn(); it; ++it) count += std::isnan(*it) ? 1u : 0u;
  }
  auto it = tree.cbeginValueOn();
  it.setMaxDepth(Tree::ValueOnCIter::LEAF_DEPTH - 1);
  for (; it; ++it) count += std::isnan(*it) ? 1u : 0u;
  return count;
}

DistanceOutcome treated(openvdb::FloatGrid::Ptr& grid, double voxelSize, DistanceMode mode,
                        bool mended) {
  auto const before = surfaceGradients(*grid, voxelSize, voxelSize);
  if (before.samples == 0) return {DistanceMode::Keep, 1, "there is no surface"};
  auto const found = describe(before);
  if (mode == DistanceMode::Auto && closes(before)) return {DistanceMode::Keep, 1, found};

  if (mode != DistanceMode::Rebuild) {
    auto const factor = static_cast<float>(factorFor(*grid, voxelSize));
    auto scaled = mode == DistanceMode::Scale ? grid : grid->deepCopy();
    scaleBy(*scaled, factor, mended);
    auto const after = surfaceGradients(*scaled, voxelSize, voxelSize);
    if (mode == DistanceMode::Scale || closes(after)) {
      grid = scaled;
      return {DistanceMode::Scale, factor, found + "; scaled: " + describe(after)};
    }
  }
  auto result = rebuilt(*grid, voxelSize);
  if (surfaceGradients(*result, voxelSize, voxelSize).samples == 0) {
    return {DistanceMode::Keep, 1, found + "; a rebuild finds no surface"};
  }
  grid = result;
  return {DistanceMode::Rebuild, 1, found};
}

}  // namespace

bool mendBackground(openvdb::FloatGrid& grid, double voxelSize) {
  auto const before = grid.background();
  if (before > 0) return false;
  auto const outside = static_cast<float>(bandVoxels * voxelSize);
  // OpenVDB's own change of children would turn the outside of a negative one inside.
  changeValues(grid.tree(), [&](float v, bool on) {
    return !on && (v == before || (std::isnan(v) && std::isnan(before))) ? outside : v;
  });
  grid.tree().root().setBackground(outside, /*updateChildNodes=*/false);
  return true;
}

DistanceOutcome treatDistance(openvdb::FloatGrid::Ptr& grid, double voxelSize, DistanceMode mode,
                              bool mended) {
  if (mode == DistanceMode::Keep) return {DistanceMode::Keep, 1, "as asked for"};
  auto const lost = notNumbers(grid->tree());
  auto outcome = treated(grid, voxelSize, mode, mended);
  outcome.notNumbers = lost;
  return outcome;
}

}  // namespace Velmor::Host::Files
