#include "files/vdb_band.h"

#include <openvdb/tools/Morphology.h>
#include <openvdb/tools/Prune.h>
#include <openvdb/tree/ValueAccessor.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace Velmor::Host::Files {

namespace {

using openvdb::Coord;
using Tree = openvdb::FloatTree;
using Leaf = Tree::LeafNodeType;
using Way = openvdb::Vec3s;  // from the middle of a voxel to a point of the surface
using Ways = openvdb::Vec3STree;

constexpr float nowhere = std::numeric_limits<float>::max();
std::array<Coord, 6> const faces{Coord(1, 0, 0),  Coord(-1, 0, 0), Coord(0, 1, 0),
                                 Coord(0, -1, 0), Coord(0, 0, 1),  Coord(0, 0, -1)};

bool inside(float v) { return !(v > 0); }

template <class AnyTree, class Function>
void forLeaves(AnyTree& tree, Function const& function) {
  std::vector<typename AnyTree::LeafNodeType*> leaves;
  tree.getNodes(leaves);
  tbb::parallel_for(std::size_t{0}, leaves.size(), [&](std::size_t l) { function(*leaves[l], l); });
}

/// The voxels that have a neighbour of the other sign beyond a face.
openvdb::MaskTree crossings(Tree const& signs) {
  openvdb::MaskTree mask;
  openvdb::tree::ValueAccessor<Tree const> field(signs);
  openvdb::tree::ValueAccessor<openvdb::MaskTree> out(mask);
  for (auto leaf = signs.cbeginLeaf(); leaf; ++leaf) {
    auto const* const values = leaf->buffer().data();
    for (openvdb::Index n = 0; n < Leaf::SIZE; ++n) {
      auto const within = Leaf::offsetToLocalCoord(n);
      auto const at = leaf->origin() + within;
      bool const side = inside(values[n]);
      for (auto const& step : faces) {
        auto const next = within + step;
        bool const here = ((next.x() | next.y() | next.z()) & ~(leafEdge - 1)) == 0;
        auto const other = here ? values[Leaf::coordToOffset(next)] : field.getValue(at + step);
        if (inside(other) == side) continue;
        out.setValueOn(at);
        out.setValueOn(at + step);
      }
    }
  }
  return mask;
}

/// The way to where the field, taken on as a plane, is zero. Its slope is that
/// towards the surface: away from there values are cut off.
Way wayToPlane(openvdb::tree::ValueAccessor<Tree const>& field, Coord const& at) {
  auto const value = field.getValue(at);
  auto const side = inside(value) ? -1.f : 1.f;
  Way slope(0.f);
  for (std::size_t f = 0; f < faces.size(); ++f) {
    auto const drop = side * (value - field.getValue(at + faces[f]));
    auto& steepest = slope[static_cast<int>(f / 2)];
    if (drop > std::abs(steepest)) steepest = f % 2 == 0 ? drop : -drop;
  }
  return slope * (side * value / slope.lengthSqr());
}

/// The way to a piece of surface, a disc of radius `reach` across `normal`; `way`
/// leads to its middle.
Way toDisc(Way const& way, Way const& normal, float reach) {
  auto const square = normal.lengthSqr();
  if (!(square > 0)) return way;
  auto const straight = normal * (way.dot(normal) / square);
  auto const along = way - straight;
  auto const off = along.length();
  return off <= reach ? straight : way - along * (reach / off);
}

/// The ways of a leaf with one layer around it.
class Padded {
 public:
  static constexpr int edge = leafEdge + 2;

  void fill(Ways::LeafNodeType const& leaf, openvdb::tree::ValueAccessor<Ways const>& all) {
    auto const base = leaf.origin().offsetBy(-1);
    auto const* const own = leaf.buffer().data();
    auto const inner = [](int v) { return v > 0 && v < edge - 1; };
    auto* out = ways_.data();
    for (int x = 0; x < edge; ++x) {
      for (int y = 0; y < edge; ++y) {
        for (int z = 0; z < edge; ++z) {
          *out++ = inner(x) && inner(y) && inner(z) ? own[((x - 1) << 6) | ((y - 1) << 3) | (z - 1)]
                                                    : all.getValue(base.offsetBy(x, y, z));
        }
      }
    }
  }

  /// The shortest of a voxel's own way and those by way of its neighbours.
  Way shortest(Coord const& within, float reach) const {
    auto const* const middle =
        ways_.data() + ((within.x() + 1) * edge + within.y() + 1) * edge + within.z() + 1;
    auto best = *middle;
    auto length = squared(best);
    for (int x = -1; x <= 1; ++x) {
      for (int y = -1; y <= 1; ++y) {
        for (int z = -1; z <= 1; ++z) {
          auto const& next = middle[(x * edge + y) * edge + z];
          if (next[0] == nowhere) continue;
          Way way(next[0] + static_cast<float>(x), next[1] + static_cast<float>(y),
                  next[2] + static_cast<float>(z));
          if (reach > 0) way = toDisc(way, next, reach);
          auto const other = squared(way);
          if (other < length) best = way, length = other;
        }
      }
    }
    return best;
  }

  static float squared(Way const& way) {
    return way[0] == nowhere ? nowhere : way[0] * way[0] + way[1] * way[1] + way[2] * way[2];
  }

 private:
  std::array<Way, edge * edge * edge> ways_;
};

enum class Which { New, All };

/// Gives active voxels, those without a way or all, the shortest that their
/// neighbourhood knew before.
void shorten(Ways& ways, Which which, float reach) {
  std::vector<std::vector<std::pair<openvdb::Index, Way>>> found(ways.leafCount());
  forLeaves(ways, [&](Ways::LeafNodeType const& leaf, std::size_t l) {
    auto const* const own = leaf.buffer().data();
    Padded padded;
    for (auto it = leaf.cbeginValueOn(); it; ++it) {
      if (which == Which::New && own[it.pos()][0] != nowhere) continue;
      if (found[l].empty()) {
        openvdb::tree::ValueAccessor<Ways const> all(ways);
        padded.fill(leaf, all);
      }
      found[l].emplace_back(it.pos(), padded.shortest(Leaf::offsetToLocalCoord(it.pos()), reach));
    }
  });
  forLeaves(ways, [&](Ways::LeafNodeType& leaf, std::size_t l) {
    for (auto const& [n, way] : found[l]) leaf.setValueOnly(n, way);
  });
}

/// Ways that start next to the surface, taken on from voxel to voxel.
Ways waysToSurface(Tree const& signs, int width) {
  Ways ways{Way(nowhere)};
  auto mask = crossings(signs);
  ways.topologyUnion(mask);
  forLeaves(ways, [&](Ways::LeafNodeType& leaf, std::size_t) {
    openvdb::tree::ValueAccessor<Tree const> field(signs);
    for (auto it = leaf.beginValueOn(); it; ++it) {
      it.setValue(wayToPlane(field, it.getCoord()));
    }
  });
  shorten(ways, Which::All, 0);
  for (int n = 0; n < width; ++n) {
    using namespace openvdb::tools;
    dilateActiveValues(mask, 1, NN_FACE_EDGE_VERTEX, IGNORE_TILES);
    ways.topologyUnion(mask);
    // Next to the surface its points lie too far apart to tell the distance.
    shorten(ways, Which::New, n == 0 ? 0.5f : 0.f);
  }
  // The shortest way to a voxel may come from beside it, not from below.
  shorten(ways, Which::All, 0);
  return ways;
}

}  // namespace

Tree::Ptr narrowBand(Tree const& signs, float voxelSize, int width) {
  auto const far = static_cast<float>(width) * voxelSize;
  auto const ways = waysToSurface(signs, width);
  auto result = std::make_shared<Tree>(signs);
  result->root().setBackground(far, /*updateChildNodes=*/false);
  for (auto it = result->beginValueAll(); it; ++it) it.setValue(inside(*it) ? -far : far);
  result->topologyUnion(ways);
  forLeaves(*result, [&](Leaf& leaf, std::size_t) {
    auto const* const own = ways.probeConstLeaf(leaf.origin());
    if (own == nullptr) return;
    for (auto value = leaf.beginValueOn(); value; ++value) {
      auto const distance = std::sqrt(Padded::squared(own->getValue(value.pos()))) * voxelSize;
      if (distance < far) {
        value.setValue(std::copysign(distance, *value));
      } else {
        value.setValueOff();
      }
    }
  });
  openvdb::tools::prune(*result);
  return result;
}

}  // namespace Velmor::Host::Files
