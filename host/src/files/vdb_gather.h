#pragma once

#include <openvdb/tree/ValueAccessor.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "core/mask_rows.h"
#include "files/hot_loops.h"
#include "files/vdb_voxels.h"
#include "velmorhost/scene.h"

namespace Velmor::Host::Files {

/// Regroups one tree. `Out` is the channel's element, and `Convert{}(value)`
/// makes one out of the tree's value.
template <class Tree, class Out, class Convert>
class VoxelDecoder {
 public:
  VoxelDecoder(Tree const& tree, VoxelJob& job, ChannelRecord& channel)
      : tree_(tree), job_(job), channel_(channel), background_(tree.background()) {}

  void run() {
    auto const background = Convert{}(background_);
    static_assert(sizeof background <= sizeof channel_.background);
    std::memcpy(channel_.background, &background, sizeof background);
    listRoot();
    auto const origin = job_.shape.rootOrigin();
    levels_[0].tiles = {{{origin, origin, origin}, 0, 0}};
    for (int level = 0; level + 1 < job_.shape.depth; ++level) coarseLevel(level);
    leafLevels();
    for (int level = job_.shape.depth - 1; level > 0; --level) foldPlainTiles(level);
    for (int level = 0; level < job_.shape.depth; ++level) listTiles(level);
  }

 private:
  using Value = typename Tree::ValueType;
  using Leaf = typename Tree::LeafNodeType;
  using Upper = typename Tree::RootNodeType::ChildNodeType;
  using Lower = typename Upper::ChildNodeType;
  using Accessor = openvdb::tree::ValueAccessor<Tree const>;

  static constexpr int width = TreeShape::width;
  static constexpr int cells = TreeShape::cells;
  static constexpr int centre = 62;
  static_assert(Leaf::DIM == 8);

  /// What is known of a box so far: nothing, or one value and state.
  struct Uniform {
    Value value{};
    bool active = false;
    bool known = false;
    bool add(Value const& v, bool on) {
      if (!known) {
        value = v, active = on, known = true;
        return true;
      }
      return active == on && std::memcmp(&value, &v, sizeof v) == 0;
    }
  };
  struct RootEntry {
    openvdb::Coord origin;
    Upper const* child;  // null for a tile
    Value value;
    bool active;
  };
  struct Block {
    Out values[cells];
  };

  void listRoot() {
    auto const& root = tree_.root();
    for (auto it = root.cbeginChildOn(); it; ++it) {
      entries_.push_back({it.getCoord(), &*it, background_, false});
    }
    for (auto it = root.cbeginValueAll(); it; ++it) {
      entries_.push_back({it.getCoord(), nullptr, *it, it.isValueOn()});
    }
    for (auto const& e : entries_) {
      bool const matters =
          e.child != nullptr ? !e.child->isEmpty() || e.child->onTileCount() > 0 : e.active;
      if (matters && !rootHolds(e)) job_.cut = true;
    }
  }

  bool rootHolds(RootEntry const& e) const {
    auto const reach = openvdb::CoordBBox::createCube(e.origin, Upper::DIM);
    if (inRoot(reach)) return true;
    openvdb::CoordBBox box;
    if (e.child != nullptr) {
      e.child->evalActiveBoundingBox(box, /*visitVoxels=*/true);
    } else {
      box = reach;
    }
    return box.empty() || inRoot(box);
  }
  bool inRoot(openvdb::CoordBBox const& box) const {
    return job_.shape.inRoot(box.min().x(), box.min().y(), box.min().z()) &&
           job_.shape.inRoot(box.max().x(), box.max().y(), box.max().z());
  }

  static bool touches(openvdb::CoordBBox const& box, openvdb::Coord const& origin,
                      std::int64_t extent) {
    for (std::size_t a = 0; a < 3; ++a) {
      if (box.min()[a] > origin[a] + (extent - 1) || box.max()[a] < origin[a]) return false;
    }
    return true;
  }

  /// Whether a box holds one value and state throughout; `out` says which.
  bool uniform(openvdb::CoordBBox const& box, Uniform& out) const {
    std::int64_t covered = 0;
    for (auto const& e : entries_) {
      if (!touches(box, e.origin, Upper::DIM)) continue;
      ++covered;
      if (e.child != nullptr ? !uniformIn(*e.child, box, out) : !out.add(e.value, e.active)) {
        return false;
      }
    }
    std::int64_t keys = 1;
    for (std::size_t a = 0; a < 3; ++a) {
      keys *= (box.max()[a] >> Upper::TOTAL) - (box.min()[a] >> Upper::TOTAL) + 1;
    }
    return covered == keys || out.add(background_, false);
  }

  template <class Node>
  static bool uniformIn(Node const& node, openvdb::CoordBBox const& box, Uniform& out) {
    using Child = typename Node::ChildNodeType;
    auto const reach = openvdb::CoordBBox::createCube(node.origin(), Node::DIM);
    auto part = box;
    part.intersect(reach);
    auto const from = (part.min() - node.origin()) >> Child::TOTAL;
    auto const to = (part.max() - node.origin()) >> Child::TOTAL;
    auto const& children = node.getChildMask();
    for (auto x = from.x(); x <= to.x(); ++x) {
      for (auto y = from.y(); y <= to.y(); ++y) {
        for (auto z = from.z(); z <= to.z(); ++z) {
          auto const n =
              static_cast<openvdb::Index>((((x << Node::LOG2DIM) + y) << Node::LOG2DIM) + z);
          if (children.isOn(n)) {
            if constexpr (Child::LEVEL == 0) {  // NOLINT(bugprone-branch-clone)
              return false;
            } else if (!uniformIn(*node.getTable()[n].getChild(), part, out)) {
              return false;
            }
          } else if (!out.add(node.getTable()[n].getValue(), node.isValueMaskOn(n))) {
            return false;
          }
        }
      }
    }
    return true;
  }

  static openvdb::CoordBBox cellBox(API::TileCoord const& tile, int cell, std::int32_t extent) {
    openvdb::Coord const lo(tile.i + cell % width * extent, tile.j + cell / width % width * extent,
                            tile.k + cell / (width * width) * extent);
    return openvdb::CoordBBox::createCube(lo, static_cast<openvdb::Coord::ValueType>(extent));
  }
  bool clipped(openvdb::CoordBBox const& box) const {
    auto const& lo = box.min();
    return job_.clip != nullptr && !job_.clip->touches({lo.x(), lo.y(), lo.z()}, box.dim().x());
  }
  /// What stands for a cell that is left out: nothing active, and of a level
  /// set the value in its middle, so that the inside stays inside.
  Out leftOut(Accessor& accessor, openvdb::CoordBBox const& box) const {
    if (!job_.levelSet) return Convert{}(background_);
    auto const half = (box.max() - box.min()) >> 1;
    return Convert{}(accessor.getValue(box.min() + half));
  }

  /// A tile of a level above the leaves, and where it hangs.
  struct Tile {
    API::TileCoord coord;
    std::uint32_t parent;
    int cell;
  };
  struct Level {
    std::vector<Tile> tiles;
    std::vector<CellMask> children;
    std::vector<bool> folded;
    Block* blocks = nullptr;
    std::uint64_t* masks = nullptr;  // two words per block
  };

  static void setBit(std::uint64_t* words, int bit) {
    words[bit >> 6] |= std::uint64_t{1} << (bit & 63);
  }

  void allocateBlocks(int level) {
    auto& here = levels_[static_cast<std::size_t>(level)];
    auto& record = channel_.levels[level];
    auto const count = here.tiles.size();
    here.blocks = job_.image.template allocate<Block>(count, record.values);
    here.masks =
        reinterpret_cast<std::uint64_t*>(job_.image.allocateBytes(count, 16, record.masks));
    here.children.resize(count);
    here.folded.resize(count);
  }

  /// Fills the blocks of a level above the two finest and lists the tiles below.
  void coarseLevel(int level) {
    allocateBlocks(level);
    auto& here = levels_[static_cast<std::size_t>(level)];
    auto const extent = job_.shape.cellExtent(level);
    tbb::parallel_for(std::size_t{0}, here.tiles.size(), [&](std::size_t t) {
      Accessor accessor(tree_);
      for (int c = 0; c < cells; ++c) {
        auto const box = cellBox(here.tiles[t].coord, c, extent);
        auto& value = here.blocks[t].values[c];
        if (clipped(box)) {
          value = leftOut(accessor, box);
          continue;
        }
        Uniform found;
        if (uniform(box, found)) {
          value = Convert{}(found.value);
          if (found.active) setBit(here.masks + 2 * t, c);
        } else {
          here.children[t].set(c);
        }
      }
    });
    std::uint64_t count = 0;
    for (auto const& children : here.children) count += population(children);
    if (count > job_.image.room() / sizeof(Block)) throw ImageFull{};
    auto& below = levels_[static_cast<std::size_t>(level) + 1].tiles;
    below.reserve(count);
    for (std::size_t t = 0; t < here.tiles.size(); ++t) {
      for (int c = 0; c < cells; ++c) {
        if (!here.children[t].test(c)) continue;
        auto const lo = cellBox(here.tiles[t].coord, c, extent).min();
        below.push_back({{lo.x(), lo.y(), lo.z()}, static_cast<std::uint32_t>(t), c});
      }
    }
  }

  /// Turns tiles of one value back into a cell: where a leaf of the tree only
  /// touches a cell, the cell was refined to no end.
  void foldPlainTiles(int level) {
    auto& here = levels_[static_cast<std::size_t>(level)];
    auto& above = levels_[static_cast<std::size_t>(level) - 1];
    for (std::size_t t = 0; t < here.tiles.size(); ++t) {
      auto const* const mask = here.masks + 2 * t;
      if (population(here.children[t]) != 0 || !allEqual(here.blocks[t].values, mask)) continue;
      auto const [coord, parent, cell] = here.tiles[t];
      here.folded[t] = true;
      above.blocks[parent].values[cell] = here.blocks[t].values[0];
      if (mask[0] != 0) setBit(above.masks + std::size_t{2} * parent, cell);
      above.children[parent].reset(cell);
    }
  }

  void listTiles(int level) {
    auto const& here = levels_[static_cast<std::size_t>(level)];
    auto& record = channel_.levels[level];
    auto const count =
        static_cast<std::uint64_t>(std::count(here.folded.begin(), here.folded.end(), false));
    auto* coords = job_.image.template allocate<API::TileCoord>(count, record.coords);
    auto* slots = job_.image.template allocate<std::uint32_t>(count, record.slots);
    for (std::size_t t = 0; t < here.tiles.size(); ++t) {
      if (here.folded[t]) continue;
      *coords++ = here.tiles[t].coord;
      *slots++ = static_cast<std::uint32_t>(t);
    }
  }

  static unsigned population(CellMask const& mask) {
    return static_cast<unsigned>(std::popcount(mask.words[0]) + std::popcount(mask.words[1]));
  }

  /// The leaves and tiles of the tree around one tile of 25 voxels.
  struct Neighbourhood {
    static constexpr int edge = 4;  // 25 voxels meet at most four leaves
    struct Region {
      Leaf const* leaf = nullptr;
      Value value{};
      bool active = false;
      /// Active bits of a leaf: a word for each y, with a byte for each z that
      /// has the bits of a row along x, as cells have them.
      std::array<std::uint64_t, leafEdge> rows;
    };
    openvdb::Coord origin;
    std::array<Region, edge * edge * edge> regions;

    Neighbourhood(Accessor& accessor, API::TileCoord const& tile)
        : origin(tile.i & ~(leafEdge - 1), tile.j & ~(leafEdge - 1), tile.k & ~(leafEdge - 1)) {
      int const last[3] = {(tile.i + 24 - origin.x()) / leafEdge,
                           (tile.j + 24 - origin.y()) / leafEdge,
                           (tile.k + 24 - origin.z()) / leafEdge};
      for (int x = 0; x <= last[0]; ++x) {
        for (int y = 0; y <= last[1]; ++y) {
          for (int z = 0; z <= last[2]; ++z) {
            auto& region = regions[static_cast<std::size_t>((x * edge + y) * edge + z)];
            auto const at = origin.offsetBy(x * leafEdge, y * leafEdge, z * leafEdge);
            // Without a look at the leaf itself: it is in no cache yet.
            auto const* const node = accessor.template probeConstNode<Lower>(at);
            auto const n = Lower::coordToOffset(at);
            if (node != nullptr && node->getChildMask().isOn(n)) {
              region.leaf = node->getTable()[n].getChild();
            } else {
              region.active = accessor.probeValue(at, region.value);
            }
          }
        }
      }
    }
    /// Before voxels of leaves are read.
    void prepare() {
      for (auto const& region : regions) {
        if (region.leaf != nullptr) prefetch(region.leaf, sizeof(Leaf));
      }
      for (auto& region : regions) {
        if (region.leaf == nullptr) continue;
        prefetch(region.leaf->buffer().data(), Leaf::SIZE * sizeof(Value));
        region.rows = rowsOf(region.leaf->getValueMask());
      }
    }
    static std::array<std::uint64_t, leafEdge> rowsOf(typename Leaf::NodeMaskType const& mask) {
      std::array<std::uint64_t, leafEdge> rows{};
      for (int x = 0; x < leafEdge; ++x) {
        auto const plane = mask.template getWord<std::uint64_t>(static_cast<openvdb::Index>(x));
        for (int y = 0; y < leafEdge; ++y) {
          rows[static_cast<std::size_t>(y)] |= (plane >> (8 * y) & 255) << (8 * x);
        }
      }
      for (auto& row : rows) row = transposed(row);
      return rows;
    }
    Region const& at(int x, int y, int z) const {
      return regions[static_cast<std::size_t>((x * edge + y) * edge + z)];
    }
  };

  /// Whether a box of five voxels needs a look at its voxels; else `out` is its value.
  static bool unclear(Neighbourhood const& around, openvdb::CoordBBox const& box, Uniform& out) {
    auto const from = (box.min() - around.origin) >> 3;
    auto const to = (box.max() - around.origin) >> 3;
    for (auto x = from.x(); x <= to.x(); ++x) {
      for (auto y = from.y(); y <= to.y(); ++y) {
        for (auto z = from.z(); z <= to.z(); ++z) {
          auto const& region = around.at(x, y, z);
          if (region.leaf != nullptr || !out.add(region.value, region.active)) return true;
        }
      }
    }
    return false;
  }

  /// A stretch of a tile's voxels along an axis that lies in one region.
  struct Stretch {
    int region;
    int from;    // where it starts in the tile
    int within;  // and in the region
    int length;
  };
  struct Stretches {
    std::array<Stretch, 2> parts;
    std::size_t count = 0;
    explicit Stretches(int start) {
      for (int from = 0; from < width;) {
        auto const within = (start + from) % leafEdge;
        auto const length = std::min(width - from, leafEdge - within);
        parts[count++] = {(start + from) / leafEdge, from, within, length};
        from += length;
      }
    }
    Stretch const* begin() const noexcept { return parts.data(); }
    Stretch const* end() const noexcept { return parts.data() + count; }
  };

  static void copyPart(Leaf const& leaf, Out* values, Stretch const& i, Stretch const& j,
                       Stretch const& k) {
    auto const* const from = leaf.buffer().data() + ((i.within << 6) | (j.within << 3) | k.within);
    auto* const to = values + ((k.from * width + j.from) * width + i.from);
    withConstant(i.length, [&](auto run) {
      for (int z = 0; z < k.length; ++z) {
        for (int y = 0; y < j.length; ++y) {
          for (int x = 0; x < run; ++x) {
            to[(z * width + y) * width + x] = Convert{}(from[(x << 6) + (y << 3) + z]);
          }
        }
      }
    });
  }
  static void fillPart(Out const& value, Out* values, Stretch const& i, Stretch const& j,
                       Stretch const& k) {
    for (int z = k.from; z < k.from + k.length; ++z) {
      for (int y = j.from; y < j.from + j.length; ++y) {
        std::fill_n(values + (z * width + y) * width + i.from, i.length, value);
      }
    }
  }

  static void gather(Neighbourhood const& around, openvdb::Coord const& lo, Out* values,
                     std::uint64_t* mask) {
    auto const start = lo - around.origin;
    Stretches const is(start.x()), js(start.y()), ks(start.z());
    std::uint32_t planes[width] = {};
    for (auto const& k : ks) {
      for (auto const& j : js) {
        for (auto const& i : is) {
          auto const& region = around.at(i.region, j.region, k.region);
          if (region.leaf != nullptr) {
            copyPart(*region.leaf, values, i, j, k);
          } else {
            fillPart(Convert{}(region.value), values, i, j, k);
            if (!region.active) continue;
          }
          auto const some = (1u << i.length) - 1;
          auto const shift = 8 * k.within + i.within;
          for (int y = 0; y < j.length; ++y) {
            auto row = region.leaf != nullptr
                           ? region.rows[static_cast<std::size_t>(j.within + y)] >> shift
                           : ~std::uint64_t{0};
            auto const column = (j.from + y) * width + i.from;
            for (int z = 0; z < k.length; ++z, row >>= 8) {
              planes[k.from + z] |= (static_cast<std::uint32_t>(row) & some) << column;
            }
          }
        }
      }
    }
    auto const plane = [&](int k) { return std::uint64_t{planes[k]}; };
    mask[0] = plane(0) | plane(1) << 25 | plane(2) << 50;
    mask[1] = plane(2) >> 14 | plane(3) << 11 | plane(4) << 36;
  }

  static bool allEqual(Out const* values, std::uint64_t const* mask) {
    constexpr auto upper = (std::uint64_t{1} << (cells - 64)) - 1;
    bool const none = mask[0] == 0 && mask[1] == 0;
    bool const all = mask[0] == ~std::uint64_t{0} && mask[1] == upper;
    return (none || all) && std::memcmp(values, values + 1, (cells - 1) * sizeof(Out)) == 0;
  }

  /// Fills the last level of coarse cells and the leaves below them.
  void leafLevels() {
    auto const level = job_.shape.depth - 1;
    allocateBlocks(level);
    auto& here = levels_[static_cast<std::size_t>(level)];
    auto const count = here.tiles.size();
    std::vector<std::uint64_t> first(count + 1, 0);
    tbb::parallel_for(std::size_t{0}, count, [&](std::size_t t) {
      Accessor accessor(tree_);
      Neighbourhood const around(accessor, here.tiles[t].coord);
      for (int c = 0; c < cells; ++c) {
        auto const box = cellBox(here.tiles[t].coord, c, width);
        auto& value = here.blocks[t].values[c];
        Uniform found;
        if (clipped(box)) {
          value = leftOut(accessor, box);
        } else if (unclear(around, box, found)) {
          here.children[t].set(c);
        } else {
          value = Convert{}(found.value);
          if (found.active) setBit(here.masks + 2 * t, c);
        }
      }
      first[t + 1] = population(here.children[t]);
    });
    for (std::size_t t = 0; t < count; ++t) first[t + 1] += first[t];

    // Slots for all that may become leaves; a run of them per tile is filled
    // from its start, so that what stays unused is mostly whole pages.
    auto& record = channel_.levels[job_.shape.depth];
    auto* const leaves = job_.image.template allocate<Block>(first.back(), record.values);
    auto* const leafMasks =
        reinterpret_cast<std::uint64_t*>(job_.image.allocateBytes(first.back(), 16, record.masks));
    std::vector<std::uint64_t> kept(count + 1, 0);
    tbb::parallel_for(std::size_t{0}, count, [&](std::size_t t) {
      Accessor accessor(tree_);
      Neighbourhood around(accessor, here.tiles[t].coord);
      around.prepare();
      auto slot = first[t];
      for (int c = 0; c < cells; ++c) {
        if (!here.children[t].test(c)) continue;
        auto* const values = leaves[slot].values;
        auto* const mask = leafMasks + 2 * slot;
        gather(around, cellBox(here.tiles[t].coord, c, width).min(), values, mask);
        here.blocks[t].values[c] = values[centre];
        if (!allEqual(values, mask)) {
          ++slot;
          continue;
        }
        here.children[t].reset(c);
        if (mask[0] != 0) setBit(here.masks + 2 * t, c);
      }
      kept[t + 1] = slot - first[t];
    });
    for (std::size_t t = 0; t < count; ++t) kept[t + 1] += kept[t];
    auto* const coords = job_.image.template allocate<API::TileCoord>(kept.back(), record.coords);
    auto* const slots = job_.image.template allocate<std::uint32_t>(kept.back(), record.slots);
    tbb::parallel_for(std::size_t{0}, count, [&](std::size_t t) {
      auto at = kept[t];
      auto slot = first[t];
      for (int c = 0; c < cells; ++c) {
        if (!here.children[t].test(c)) continue;
        auto const lo = cellBox(here.tiles[t].coord, c, width).min();
        coords[at] = {lo.x(), lo.y(), lo.z()};
        slots[at++] = static_cast<std::uint32_t>(slot++);
      }
    });
  }

  Tree const& tree_;
  VoxelJob& job_;
  ChannelRecord& channel_;
  Value background_;
  std::vector<RootEntry> entries_;
  std::array<Level, TreeShape::levels> levels_;
};

}  // namespace Velmor::Host::Files
