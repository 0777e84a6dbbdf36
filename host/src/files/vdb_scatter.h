#pragma once

#include <tbb/parallel_for.h>

#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "core/mask_rows.h"
#include "files/hot_loops.h"
#include "files/kept_values.h"
#include "files/keys.h"
#include "files/source_field.h"
#include "files/vdb_encode.h"

namespace Velmor::Host::Files {

/// Regroups a channel of `In` into a tree. `Convert{}(value)` makes the tree's
/// value out of the channel's.
template <class Grid, class In, class Convert>
class VoxelEncoder {
 public:
  VoxelEncoder(API::VoxelChannelItem const& channel, SourceField const& field) : field_(field) {
    // Far more than leaf tiles can need; coarse values may want any amount.
    auto const leaves = channel.layout().count(channel.layout().leafDepth());
    limit_ += 40 * static_cast<std::uint64_t>(leaves) * API::tileCells * sizeof(In);
  }

  EncodedGrid run() {
    empty_ = valueOf(field_.empty());
    delicate_ = anyDelicate(&empty_, 1);
    auto grid = Grid::create(empty_);
    if (auto const* const own = field_.otherBackground()) {
      grid->insertMeta(Keys::background, openvdb::StringMetadata(packValue(own, sizeof(In))));
    }
    auto& root = grid->tree().root();
    for (auto const& block : field_.blocks(field_.everything(), Upper::DIM)) {
      auto const origin = coordOf(block);
      typename SourceField::Value value;
      if (field_.uniform(SourceField::Box::cube(block.i, block.j, block.k, Upper::DIM), value)) {
        note(value);
        if (!isOutside(value)) root.addTile(origin, valueOf(value.bytes), value.active);
      } else {
        root.addChild(encodeUpper(origin).release());
      }
    }
    std::string cells;
    field_.forDetached([&](int depth, API::TileCoord const& tile, int cell, auto const& value) {
      appendCoarseCell(cells, field_.shape(), depth, tile, cell, value.active, value.bytes,
                       sizeof(In));
    });
    if (!cells.empty()) grid->insertMeta(Keys::coarse, openvdb::StringMetadata(cells));
    EncodedGrid result;
    result.grid = grid;
    result.delicate = delicate_;
    return result;
  }

 private:
  using Tree = typename Grid::TreeType;
  using Value = typename Tree::ValueType;
  using Leaf = typename Tree::LeafNodeType;
  using Upper = typename Tree::RootNodeType::ChildNodeType;
  using Lower = typename Upper::ChildNodeType;
  static constexpr int edge = static_cast<int>(Leaf::DIM);
  static_assert(edge == 8);
  static constexpr int blocks = 1 << Lower::LOG2DIM;  // of a lower node along an axis
  using Stretch = SourceField::Window::Stretch;
  using Stretches = SourceField::Window::Stretches;

  static openvdb::Coord coordOf(SourceField::Block const& b) {
    return {static_cast<int>(b.i), static_cast<int>(b.j), static_cast<int>(b.k)};
  }
  static Value valueOf(std::byte const* bytes) {
    In value;
    std::memcpy(&value, bytes, sizeof value);
    return Convert{}(value);
  }
  bool isOutside(SourceField::Value const& value) const {
    return !value.active && field_.isEmpty(value.bytes);
  }

  using Number = typename openvdb::VecTraits<Value>::ElementType;
  static constexpr std::size_t numbers = sizeof(Value) / sizeof(Number);

  /// Without branches: whole leaves are searched.
  static unsigned isDelicate(float v) {
    auto const bits = std::bit_cast<std::int32_t>(v);
    constexpr std::int32_t infinite = 0x7f800000;
    return static_cast<unsigned>((bits & std::numeric_limits<std::int32_t>::max()) > infinite) |
           isDelicate(bits);
  }
  static unsigned isDelicate(std::int32_t v) {
    return static_cast<unsigned>(v == std::numeric_limits<std::int32_t>::min());
  }
  static bool anyDelicate(Value const* values, std::size_t count) {
    auto const* const first = reinterpret_cast<Number const*>(values);
    unsigned any = 0;
    for (std::size_t n = 0; n < count * numbers; ++n) any |= isDelicate(first[n]);
    return any != 0;
  }
  void note(SourceField::Value const& value) {
    auto const converted = valueOf(value.bytes);
    if (!value.active && anyDelicate(&converted, 1)) delicate_ = true;
  }

  /// Counts memory: the rim of a coarse cell that OpenVDB's nodes do not match
  /// becomes leaves, millions of them for the coarsest cells.
  void use(std::size_t bytes) {
    if ((used_ += bytes) > limit_) throw RimsTooLarge{};
  }

  std::unique_ptr<Upper> encodeUpper(openvdb::Coord const& origin) {
    auto upper = std::make_unique<Upper>(origin, empty_, false);
    auto const box = SourceField::Box::cube(origin.x(), origin.y(), origin.z(), Upper::DIM);
    auto const parts = field_.blocks(box, Lower::DIM);
    std::vector<std::unique_ptr<Lower>> nodes(parts.size());
    std::vector<SourceField::Value> tiles(parts.size());
    tbb::parallel_for(std::size_t{0}, parts.size(), [&](std::size_t b) {
      auto const& block = parts[b];
      auto const part = SourceField::Box::cube(block.i, block.j, block.k, Lower::DIM);
      if (!field_.uniform(part, tiles[b])) nodes[b] = encodeLower(coordOf(block), part);
    });
    for (std::size_t b = 0; b < parts.size(); ++b) {
      if (nodes[b]) {
        upper->addChild(nodes[b].release());
      } else {
        note(tiles[b]);
        upper->addTile(Upper::coordToOffset(coordOf(parts[b])), valueOf(tiles[b].bytes),
                       tiles[b].active);
      }
    }
    return upper;
  }

  std::unique_ptr<Lower> encodeLower(openvdb::Coord const& origin, SourceField::Box const& box) {
    use(sizeof(Lower));
    auto lower = std::make_unique<Lower>(origin, empty_, false);
    SourceField::Window const window(field_, box);
    std::array<std::array<Stretches, blocks>, 3> along;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      for (int b = 0; b < blocks; ++b) {
        along[axis][static_cast<std::size_t>(b)] =
            window.stretches(static_cast<int>(axis), origin[axis] + b * edge);
      }
    }
    std::unique_ptr<Leaf> leaf;
    for (openvdb::Index n = 0; n < Lower::NUM_VALUES; ++n) {
      auto const& is = along[0][n >> (2 * Lower::LOG2DIM)];
      auto const& js = along[1][(n >> Lower::LOG2DIM) % blocks];
      auto const& ks = along[2][n % blocks];
      SourceField::Value value;
      if (window.uniform(is, js, ks, value)) {
        note(value);
        if (!isOutside(value)) lower->addTile(n, valueOf(value.bytes), value.active);
        continue;
      }
      auto const next = n + 1;
      if (next % blocks != 0) prefetchBlock(window, is, js, along[2][next % blocks]);
      auto const at = lower->offsetToGlobalCoord(n);
      if (!leaf) leaf = std::make_unique<Leaf>(openvdb::PartialCreate(), at, empty_, false);
      leaf->setOrigin(at);
      gather(window, is, js, ks, *leaf);
      auto const* const data = leaf->buffer().data();
      auto const& mask = leaf->getValueMask();
      if ((mask.isOn() || mask.isOff()) &&
          std::memcmp(data, data + 1, (Leaf::SIZE - 1) * sizeof(Value)) == 0) {
        lower->addTile(n, data[0], mask.isOn());  // the next block reuses the leaf
      } else {
        use(sizeof(Leaf) + Leaf::SIZE * sizeof(Value));
        lower->addLeaf(leaf.release());
      }
    }
    return lower;
  }

  static void copyPart(std::byte const* values, Value* out, Stretch const& i, Stretch const& j,
                       Stretch const& k) {
    auto const first = API::cellOf(i.within, j.within, k.within);
    auto const* const from = values + static_cast<std::size_t>(first) * sizeof(In);
    auto* const to = out + ((i.from << 6) | (j.from << 3) | k.from);
    withConstant(k.length, [&](auto run) {
      for (int y = 0; y < j.length; ++y) {
        for (int x = 0; x < i.length; ++x) {
          auto const* const row =
              from + static_cast<std::size_t>(API::cellOf(x, y, 0)) * sizeof(In);
          for (int z = 0; z < run; ++z) {
            to[(x << 6) + (y << 3) + z] =
                valueOf(row + static_cast<std::size_t>(API::cellOf(0, 0, z)) * sizeof(In));
          }
        }
      }
    });
  }
  static void prefetchBlock(SourceField::Window const& window, Stretches const& is,
                            Stretches const& js, Stretches const& ks) {
    for (auto const& k : ks) {
      for (auto const& j : js) {
        for (auto const& i : is) {
          auto const& cell = window.at(i, j, k);
          if (cell.leaf) prefetch(cell.values, API::tileCells * sizeof(In));
        }
      }
    }
  }
  static void fillPart(Value const& value, Value* out, Stretch const& i, Stretch const& j,
                       Stretch const& k) {
    for (int x = i.from; x < i.from + i.length; ++x) {
      for (int y = j.from; y < j.from + j.length; ++y) {
        std::fill_n(out + ((x << 6) | (y << 3) | k.from), k.length, value);
      }
    }
  }

  /// Adds the active bits of a cell's part: a word for each y, with a byte for
  /// each z that has the bits of a row along x, as cells have them.
  static void addRows(SourceField::Window::Cell const& cell, std::array<std::uint64_t, edge>& rows,
                      Stretch const& i, Stretch const& j, Stretch const& k) {
    if (cell.mask == CellMask{}) return;
    auto const some = (1u << i.length) - 1;
    for (int y = 0; y < j.length; ++y) {
      for (int z = 0; z < k.length; ++z) {
        auto const bits =
            cell.leaf ? rowOf(cell.mask, j.within + y + 5 * (k.within + z)) >> i.within : some;
        rows[static_cast<std::size_t>(j.from + y)] |= std::uint64_t{bits & some}
                                                      << (8 * (k.from + z) + i.from);
      }
    }
  }

  void gather(SourceField::Window const& window, Stretches const& is, Stretches const& js,
              Stretches const& ks, Leaf& leaf) {
    leaf.buffer().allocate();
    auto* const out = leaf.buffer().data();
    std::array<std::uint64_t, edge> rows{};
    for (auto const& k : ks) {
      for (auto const& j : js) {
        for (auto const& i : is) {
          auto const& cell = window.at(i, j, k);
          if (cell.leaf) {
            copyPart(cell.values, out, i, j, k);
          } else {
            fillPart(valueOf(cell.values), out, i, j, k);
          }
          addRows(cell, rows, i, j, k);
        }
      }
    }
    std::array<std::uint64_t, edge> planes{};
    for (int y = 0; y < edge; ++y) {
      auto const columns = transposed(rows[static_cast<std::size_t>(y)]);
      for (int x = 0; x < edge; ++x) {
        planes[static_cast<std::size_t>(x)] |= (columns >> (8 * x) & 255) << (8 * y);
      }
    }
    typename Leaf::NodeMaskType mask;
    for (std::size_t x = 0; x < planes.size(); ++x) {
      mask.template getWord<std::uint64_t>(static_cast<openvdb::Index>(x)) = planes[x];
    }
    leaf.setValueMask(mask);
    if (!delicate_.load(std::memory_order_relaxed) && delicateOff(out, planes)) delicate_ = true;
  }

  static bool delicateOff(Value const* values, std::array<std::uint64_t, edge> const& planes) {
    if (!anyDelicate(values, Leaf::SIZE)) return false;
    for (std::size_t n = 0; n < Leaf::SIZE; ++n) {
      if (((planes[n >> 6] >> (n & 63)) & 1u) == 0 && anyDelicate(values + n, 1)) return true;
    }
    return false;
  }

  SourceField const& field_;
  std::uint64_t limit_ = std::uint64_t{64} << 20;
  std::atomic<std::uint64_t> used_{0};
  Value empty_{};
  std::atomic<bool> delicate_{false};
};

}  // namespace Velmor::Host::Files
