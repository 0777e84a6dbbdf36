#include "files/vdb_gradient.h"

#include <openvdb/tree/ValueAccessor.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace Velmor::Host::Files {

namespace {

using Leaf = openvdb::FloatTree::LeafNodeType;
using Accessor = openvdb::tree::ValueAccessor<openvdb::FloatTree const>;

/// The values of a leaf with one layer around it.
class Padded {
 public:
  static constexpr int edge = 10;

  void fill(Leaf const& leaf, Accessor& accessor) {
    auto const base = leaf.origin().offsetBy(-1);
    for (int x = 0; x < edge; ++x) {
      for (int y = 0; y < edge; ++y) {
        bool const border = x == 0 || y == 0 || x == edge - 1 || y == edge - 1;
        for (int z = 0; z < edge; ++z) {
          bool const outer = border || z == 0 || z == edge - 1;
          values_[at(x, y, z)] =
              outer ? accessor.getValue(base.offsetBy(x, y, z))
                    : leaf.buffer().data()[((x - 1) << 6) | ((y - 1) << 3) | (z - 1)];
        }
      }
    }
  }
  static constexpr std::size_t at(int x, int y, int z) {
    return static_cast<std::size_t>((x * edge + y) * edge + z);
  }
  float operator[](std::size_t n) const { return values_[n]; }
  static constexpr std::array<std::size_t, 3> steps{edge * edge, edge, 1};

 private:
  std::array<float, edge * edge * edge> values_;
};

bool inside(float v) { return !(v > 0); }

/// Whether all of a leaf lies on one side.
bool oneSided(Leaf const& leaf, bool side) {
  auto const* const values = leaf.buffer().data();
  return std::all_of(values, values + Leaf::SIZE, [=](float v) { return inside(v) == side; });
}

/// Whether all of a leaf and of what touches its faces lies on one side. A file
/// may be mostly leaves of this kind, far from any surface.
bool farFromSurface(Leaf const& leaf, Accessor& accessor) {
  bool const side = inside(leaf.getFirstValue());
  if (!oneSided(leaf, side)) return false;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    for (auto const step : {-1, 1}) {
      auto at = leaf.origin();
      at[axis] += step * leafEdge;
      auto const* const next = accessor.probeConstLeaf(at);
      if (next != nullptr ? !oneSided(*next, side) : inside(accessor.getValue(at)) != side) {
        return false;
      }
    }
  }
  return true;
}

/// Calls `function(padded, place)` for the leaf voxels that have a neighbour of
/// the other sign.
template <class Function>
void alongSurface(Leaf const& leaf, Accessor& accessor, Padded& padded, Function const& function) {
  if (farFromSurface(leaf, accessor)) return;
  padded.fill(leaf, accessor);
  for (int x = 1; x <= 8; ++x) {
    for (int y = 1; y <= 8; ++y) {
      for (int z = 1; z <= 8; ++z) {
        auto const n = Padded::at(x, y, z);
        bool const side = inside(padded[n]);
        bool crossing = false;
        for (auto const step : Padded::steps) {
          crossing =
              crossing || inside(padded[n + step]) != side || inside(padded[n - step]) != side;
        }
        if (crossing) function(padded, n);
      }
    }
  }
}

std::vector<Leaf const*> leavesOf(openvdb::FloatTree const& tree) {
  std::vector<Leaf const*> leaves;
  tree.getNodes(leaves);
  return leaves;
}

/// Counts by size, so that the sum over many leaves does not depend on their order.
struct Histogram {
  static constexpr int bins = 4096;
  double width;  // of a bin
  std::vector<std::uint64_t> counts = std::vector<std::uint64_t>(bins + 1, 0);
  std::uint64_t total = 0;
  std::uint64_t jumps = 0;
  double largest = 0;

  explicit Histogram(double top) : width(top / bins) {}
  void add(double value) {
    ++total;
    largest = std::max(largest, value);
    ++counts[static_cast<std::size_t>(std::min<double>(value / width, bins))];
  }
  void add(Histogram const& other) {
    total += other.total;
    jumps += other.jumps;
    largest = std::max(largest, other.largest);
    for (std::size_t b = 0; b < counts.size(); ++b) counts[b] += other.counts[b];
  }
  double quantile(double part) const {
    auto left = static_cast<std::uint64_t>(part * static_cast<double>(total));
    for (std::size_t b = 0; b < counts.size(); ++b) {
      if (counts[b] > left) return (static_cast<double>(b) + 0.5) * width;
      left -= counts[b];
    }
    return 0;
  }
};

template <class Sample>
Histogram overLeaves(openvdb::FloatTree const& tree, double top, Sample const& sample) {
  auto const leaves = leavesOf(tree);
  using Range = tbb::blocked_range<std::size_t>;
  return tbb::parallel_reduce(
      Range(0, leaves.size(), 64), Histogram(top),
      [&](Range const& range, Histogram sum) {
        Accessor accessor(tree);
        Padded padded;
        for (auto l = range.begin(); l != range.end(); ++l) {
          alongSurface(*leaves[l], accessor, padded,
                       [&](Padded const& p, std::size_t n) { sample(p, n, sum); });
        }
        return sum;
      },
      [](Histogram a, Histogram const& b) {
        a.add(b);
        return a;
      });
}

/// Tiles whose neighbour beyond a face is a tile of the other sign.
std::uint64_t bareSteps(openvdb::FloatTree const& tree) {
  std::uint64_t steps = 0;
  Accessor accessor(tree);
  auto it = tree.cbeginValueAll();
  it.setMaxDepth(openvdb::FloatTree::ValueAllCIter::LEAF_DEPTH - 1);
  for (; it; ++it) {
    if (!inside(*it)) continue;  // each such pair has an inside tile
    openvdb::CoordBBox box;
    if (!it.getBoundingBox(box)) continue;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      auto const u = (axis + 1) % 3, v = (axis + 2) % 3;
      for (auto const beyond : {box.min()[axis] - 1, box.max()[axis] + 1}) {
        openvdb::Coord at;
        at[axis] = beyond;
        for (at[u] = box.min()[u]; at[u] <= box.max()[u]; at[u] += 8) {
          for (at[v] = box.min()[v]; at[v] <= box.max()[v]; at[v] += 8) {
            if (!inside(accessor.getValue(at)) && accessor.probeConstLeaf(at) == nullptr) ++steps;
          }
        }
      }
    }
  }
  return steps;
}

}  // namespace

SurfaceGradients surfaceGradients(openvdb::FloatGrid const& grid, double voxelSize, double unit) {
  constexpr double jump = 1.75;
  auto const sample = [&](Padded const& p, std::size_t n, Histogram& sum) {
    double square = 0;
    for (auto const step : Padded::steps) {
      for (auto const other : {n + step, n - step}) {
        if (inside(p[other]) == inside(p[n])) continue;
        auto const height = std::abs(static_cast<double>(p[other]) - static_cast<double>(p[n]));
        if (!(height <= jump * unit)) {
          ++sum.jumps;
          return;
        }
      }
      auto const slope =
          (static_cast<double>(p[n + step]) - static_cast<double>(p[n - step])) / (2 * voxelSize);
      square += slope * slope;
    }
    sum.add(std::sqrt(square));
  };
  auto const lengths = overLeaves(grid.tree(), 4 * unit / voxelSize, sample);
  SurfaceGradients result;
  result.jumps = lengths.jumps + bareSteps(grid.tree());
  result.samples = lengths.total + result.jumps;
  result.median = lengths.quantile(0.5);
  result.steep = lengths.quantile(0.999);
  result.steepest = lengths.largest;
  return result;
}

double valuePerVoxel(openvdb::FloatGrid const& grid) {
  // Steps within one side of the surface, where even a field with a jump across
  // it goes on smoothly. Sizes are not known beforehand: logarithms.
  static constexpr double lowest = -60, highest = 60;
  auto const sample = [](Padded const& p, std::size_t n, Histogram& sum) {
    double largest = 0;
    for (auto const step : Padded::steps) {
      for (auto const other : {n + step, n - step}) {
        if (inside(p[other]) != inside(p[n])) continue;
        auto const height = std::abs(static_cast<double>(p[other]) - static_cast<double>(p[n]));
        if (std::isfinite(height)) largest = std::max(largest, height);
      }
    }
    if (inside(p[n]) && largest > 0) {
      sum.add(std::clamp(std::log(largest), lowest, highest) - lowest);
    }
  };
  auto const steps = overLeaves(grid.tree(), highest - lowest, sample);
  return steps.total > 0 ? std::exp(steps.quantile(0.5) + lowest) : 0.0;
}

}  // namespace Velmor::Host::Files
