#pragma once

#include <tbb/parallel_for.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

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
    delicate_ = isDelicate(empty_);
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

  static bool isDelicate(float v) { return std::isnan(v) || (v == 0 && std::signbit(v)); }
  static bool isDelicate(std::int32_t v) { return v == std::numeric_limits<std::int32_t>::min(); }
  template <class T>
  static bool isDelicate(openvdb::math::Vec3<T> const& v) {
    return isDelicate(v.x()) || isDelicate(v.y()) || isDelicate(v.z());
  }
  void note(SourceField::Value const& value) {
    if (!value.active && isDelicate(valueOf(value.bytes))) delicate_ = true;
  }

  /// Counts memory: the rim of a coarse cell that OpenVDB's nodes do not match
  /// becomes leaves, millions of them for the coarsest cells.
  void use(std::size_t bytes) {
    if ((used_ += bytes) > limit_) throw RimsTooLarge{};
  }

  std::unique_ptr<Upper> encodeUpper(openvdb::Coord const& origin) {
    auto upper = std::make_unique<Upper>(origin, empty_, false);
    auto const box = SourceField::Box::cube(origin.x(), origin.y(), origin.z(), Upper::DIM);
    auto const blocks = field_.blocks(box, Lower::DIM);
    std::vector<std::unique_ptr<Lower>> nodes(blocks.size());
    std::vector<SourceField::Value> tiles(blocks.size());
    tbb::parallel_for(std::size_t{0}, blocks.size(), [&](std::size_t b) {
      auto const& block = blocks[b];
      auto const part = SourceField::Box::cube(block.i, block.j, block.k, Lower::DIM);
      if (!field_.uniform(part, tiles[b])) nodes[b] = encodeLower(coordOf(block), part);
    });
    for (std::size_t b = 0; b < blocks.size(); ++b) {
      if (nodes[b]) {
        upper->addChild(nodes[b].release());
      } else {
        note(tiles[b]);
        upper->addTile(Upper::coordToOffset(coordOf(blocks[b])), valueOf(tiles[b].bytes),
                       tiles[b].active);
      }
    }
    return upper;
  }

  std::unique_ptr<Lower> encodeLower(openvdb::Coord const& origin, SourceField::Box const& box) {
    use(sizeof(Lower));
    auto lower = std::make_unique<Lower>(origin, empty_, false);
    SourceField::Window const window(field_, box);
    std::unique_ptr<Leaf> leaf;
    for (openvdb::Index n = 0; n < Lower::NUM_VALUES; ++n) {
      auto const at = lower->offsetToGlobalCoord(n);
      SourceField::Value value;
      if (window.uniform(at.x(), at.y(), at.z(), value)) {
        note(value);
        if (!isOutside(value)) lower->addTile(n, valueOf(value.bytes), value.active);
        continue;
      }
      if (!leaf) leaf = std::make_unique<Leaf>(at, empty_, false);
      leaf->setOrigin(at);
      gather(window, *leaf);
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

  void gather(SourceField::Window const& window, Leaf& leaf) {
    auto* const out = leaf.buffer().data();
    auto const origin = leaf.origin();
    typename Leaf::NodeMaskType mask;
    bool delicate = false;
    for (int x = 0; x < edge; ++x) {
      auto const i = origin.x() + x;
      std::uint64_t plane = 0;
      for (int y = 0; y < edge; ++y) {
        auto const j = origin.y() + y;
        auto const column = window.within(j) * 5 + window.within(i);
        for (int z = 0; z < edge;) {
          auto const k = origin.z() + z;
          auto const& cell = window.at(i, j, k);
          auto const row = window.within(k);
          auto const run = std::min(edge - z, 5 - row);
          auto* const to = out + ((x << 6) | (y << 3) | z);
          std::uint64_t bits = 0;
          if (cell.leaf) {
            auto const* const from = cell.values + static_cast<std::size_t>(column) * sizeof(In);
            for (int n = 0; n < run; ++n) {
              auto const c = (row + n) * 25;
              to[n] = valueOf(from + static_cast<std::size_t>(c) * sizeof(In));
              bits |= std::uint64_t{cell.mask.test(c + column)} << n;
            }
          } else {
            std::fill_n(to, run, valueOf(cell.values));
            if (cell.mask.test(0)) bits = (std::uint64_t{1} << run) - 1;
          }
          plane |= bits << ((y << 3) | z);
          z += run;
        }
      }
      mask.template getWord<std::uint64_t>(static_cast<openvdb::Index>(x)) = plane;
      for (int n = 0; n < edge * edge; ++n) {
        delicate |= isDelicate(out[(x << 6) | n]) && ((plane >> n) & 1u) == 0;
      }
    }
    leaf.setValueMask(mask);
    if (delicate) delicate_ = true;
  }

  SourceField const& field_;
  std::uint64_t limit_ = std::uint64_t{64} << 20;
  std::atomic<std::uint64_t> used_{0};
  Value empty_{};
  std::atomic<bool> delicate_{false};
};

}  // namespace Velmor::Host::Files
