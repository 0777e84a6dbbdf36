#include "core/neighbourhood.h"

#include <algorithm>
#include <bit>

namespace Velmor::API {

namespace {

Branch const noBranch{};

// The parents, one bit each, that hold the three cells around a cell of the
// middle one: products of an x, a y and a z set.
constexpr std::array<std::uint32_t, tileWidth> xParents{0b11, 0b10, 0b10, 0b10, 0b110};
constexpr std::array<std::uint32_t, tileWidth> yParents{0b1001, 0b1000, 0b1000, 0b1000, 0b1001000};
constexpr std::array<std::uint32_t, tileWidth> zParents{1 | 1 << 9, 1 << 9, 1 << 9, 1 << 9,
                                                        1 << 9 | 1 << 18};

}  // namespace

Neighbourhood::Sources const& Neighbourhood::sources(int cell) noexcept {
  if (cell == sourcesCell_) return sources_;
  auto const at = cellPositions[index(cell)];
  auto const needed = xParents[index(at.x)] * yParents[index(at.y)] * zParents[index(at.z)];
  for (auto missing = needed & ~known_; missing != 0; missing &= missing - 1) {
    find(std::countr_zero(missing));
  }
  // Most often the cell before was the last one: two thirds are known.
  bool const next = cell == sourcesCell_ + 1 && at.x != 0 && sourcesCell_ >= 0;
  sourcesCell_ = cell;
  auto const along1 = along(at.x - 1), along2 = along(at.x), along3 = along(at.x + 1);
  auto* to = sources_.data();
  for (int z = at.z - 1; z <= at.z + 1; ++z) {
    auto const az = along(z);
    for (int y = at.y - 1; y <= at.y + 1; ++y, to += 3) {
      auto const ay = along(y);
      int const tile = 3 * (ay.tile + 3 * az.tile), first = cellOf(0, ay.cell, az.cell);
      if (next) {
        to[0] = to[1];
        to[1] = to[2];
      } else {
        to[0] = source(tile + along1.tile, first + along1.cell);
        to[1] = source(tile + along2.tile, first + along2.cell);
      }
      to[2] = source(tile + along3.tile, first + along3.cell);
    }
  }
  return sources_;
}

void Neighbourhood::find(int tile) noexcept {
  auto const& layout = channel_->layout();
  auto const extent = layout.extent(depth_);
  TileCoord const voxel{origin_.i + (tile % 3 - 1) * extent,
                        origin_.j + (tile / 3 % 3 - 1) * extent,
                        origin_.k + (tile / 9 - 1) * extent};
  int const from = layout.ascend(slots_.data(), std::min(pathDepth_, depth_), voxel);
  pathDepth_ = layout.descend(slots_.data(), from, voxel, depth_);
  auto& parent = parents_[index(tile)];
  parent = {&noBranch, channel_->background(), 0};
  known_ |= std::uint32_t{1} << tile;
  if (pathDepth_ < 0) return;
  auto const slot = slots_[index(pathDepth_)];
  auto const& branch = layout.branch(pathDepth_, slot);
  parent.values = channel_->values(pathDepth_, slot);
  if (pathDepth_ == depth_) {
    parent.branch = &branch;
    parent.step = channel_->size();
  } else {
    parent.values += index(layout.cellAt(pathDepth_, branch.coord, voxel)) * channel_->size();
  }
}

}  // namespace Velmor::API
