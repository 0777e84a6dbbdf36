#include "core/neighbourhood.h"

#include <algorithm>

namespace Velmor::API {

namespace {

Branch const noBranch{};

}  // namespace

void Neighbourhood::row(int y, int z, CellSource* to) noexcept {
  auto const ay = along(y), az = along(z);
  int const first = 3 * (ay.tile + 3 * az.tile), cell = cellOf(0, ay.cell, az.cell);
  for (int t = first; t < first + 3; ++t) {
    if ((known_ >> t & 1u) == 0) find(t);
  }
  // Neither what is there nor what is not decides a jump: none could be foreseen.
  auto const put = [this, &to](Parent const& parent, int at) {
    auto const child = LayoutItem::settled(parent.branch->children[index(at)]) - 1;
    auto const tile = ~static_cast<std::uintptr_t>(static_cast<std::intptr_t>(child >> 31));
    auto const* const values = childPool_->at(child & static_cast<std::int32_t>(tile));
    auto const* const value = parent.values + index(at) * parent.step;
    auto const* const data =
        reinterpret_cast<std::byte const*>(  // NOLINT(performance-no-int-to-ptr)
            (reinterpret_cast<std::uintptr_t>(values) & tile) |
            (reinterpret_cast<std::uintptr_t>(value) & ~tile));
    // Of a single value it is lines that are near already.
    for (int line = 0; line < 8; ++line) __builtin_prefetch(data + 64 * line);
    *to++ = {data, static_cast<std::uint32_t>(tile)};
  };
  put(parents_[index(first)], cell + tileWidth - 1);
  for (int x = 0; x < tileWidth; ++x) put(parents_[index(first + 1)], cell + x);
  put(parents_[index(first + 2)], cell);
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
