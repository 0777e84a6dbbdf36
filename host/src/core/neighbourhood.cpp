#include "core/neighbourhood.h"

#include <algorithm>

namespace Velmor::API {

void Neighbourhood::find(int tile) noexcept {
  auto const& layout = channel_->layout();
  auto const extent = layout.extent(depth_);
  TileCoord const voxel{origin_.i + (tile % 3 - 1) * extent,
                        origin_.j + (tile / 3 % 3 - 1) * extent,
                        origin_.k + (tile / 9 - 1) * extent};
  int const from = layout.ascend(slots_.data(), std::min(pathDepth_, depth_), voxel);
  pathDepth_ = layout.descend(slots_.data(), from, voxel, depth_);
  auto& parent = parents_[index(tile)];
  parent = {nullptr, channel_->background(), true};
  if (pathDepth_ < 0) return;
  auto const slot = slots_[index(pathDepth_)];
  auto const& branch = layout.branch(pathDepth_, slot);
  parent.values = channel_->values(pathDepth_, slot);
  if (pathDepth_ == depth_) {
    parent.branch = &branch;
  } else {
    parent.values += index(layout.cellAt(pathDepth_, branch.coord, voxel)) * channel_->size();
  }
}

}  // namespace Velmor::API
