#include "processing/bounds.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "core/bulk_calls.h"
#include "core/tile_width.h"
#include "velmorapi/object_model.h"
#include "velmorapi/state_server.h"

namespace Velmor::Processing {

namespace {

using Voxel = orlen::Math::vec<3, int>;

class BBoxVisitor final : public API::Visitor {
 public:
  Voxel const& min() const noexcept { return min_; }
  Voxel const& max() const noexcept { return max_; }

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const tile = accessor.tile(index);
    Voxel const first(tile.coord().i, tile.coord().j, tile.coord().k);
    include(first, first + Voxel(tile.info().extent));
  }

  API::Visitor* copy() const override { return new BBoxVisitor(*this); }

  void join(API::Visitor const& visitor) override {
    auto const& other = static_cast<BBoxVisitor const&>(visitor);
    include(other.min_, other.max_);
  }

 private:
  void include(Voxel const& first, Voxel const& end) noexcept {
    for (int axis = 0; axis < 3; ++axis) {
      min_[axis] = std::min(min_[axis], first[axis]);
      max_[axis] = std::max(max_[axis], end[axis]);
    }
  }

  Voxel min_{std::numeric_limits<int>::max()};
  Voxel max_{std::numeric_limits<int>::min()};
};

// Has no copies: all tiles are added in one order.
class SurfaceFinderVisitor final : public API::Visitor {
 public:
  SurfaceFinderVisitor(API::VoxelChannel const& distance, API::Layout const& accel,
                       float voxelScale, int tileWidth)
      : distance_(distance), accel_(accel), voxelScale_(voxelScale), tileWidth_(tileWidth) {}

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const values = distance_.tileData<float>(index);
    if (!storesWidth(values, tileWidth_)) return;
    auto const coord = accessor.tile(index).coord();
    Voxel const width(tileWidth_);
    Voxel const origin = Voxel(coord.i, coord.j, coord.k) * width;
    float const near = voxelScale_ * 2.598076f;  // 1.5 diagonals
    auto const edge = static_cast<std::size_t>(tileWidth_);
    points_.resize(edge * edge * edge);
    std::size_t count = 0;
    for (int a = 0; a < tileWidth_; ++a) {
      for (int b = 0; b < tileWidth_; ++b) {
        auto const* const row = values.data + values.offset(a, b, 0);
        auto const step = values.offset(a, b, 1) - values.offset(a, b, 0);
        Voxel const first = origin + Voxel(a, b, 0) * width;
        for (int c = 0; c < tileWidth_; ++c) {
          // Written in any case: a jump would be foreseen wrongly too often.
          points_[count] = {first.x, first.y, (first + Voxel(0, 0, c) * width).z};
          count += std::abs(row[c * step]) < near ? 1u : 0u;
        }
      }
    }
    Bulk::addTiles(accel_, points_.data(), count, 7);
  }

 private:
  API::VoxelChannel distance_;
  API::Layout accel_;
  float voxelScale_;
  int tileWidth_;
  std::vector<API::TileCoord> points_;
};

}  // namespace

orlen::Math::bbox<orlen::Math::vec<3, float>> computeBBox(API::Layout const& layout) {
  BBoxVisitor visitor;
  layout.traverse(visitor, API::TraversalMode::Bounds, layout.maxDepth(), layout.maxDepth());
  auto const world = [scale = layout.voxelScale()](Voxel const& v) {
    return orlen::Math::vec<3, float>(static_cast<float>(v.x), static_cast<float>(v.y),
                                      static_cast<float>(v.z)) *
           scale;
  };
  return {world(visitor.min()), world(visitor.max())};
}

API::Layout createAccelLayout(API::VoxelChannel const& distance) {
  API::StateServer const server(API::ObjectModel::stateServer(distance.stateID()));
  API::Layout const source(distance.layout());
  int const width = source.tileDimInfo(0).width;
  API::Layout accel(server.createLayout("accel"));
  accel.setVoxelScale(source.voxelScale() / static_cast<float>(width));
  SurfaceFinderVisitor finder(distance, accel, source.voxelScale(), width);
  source.traverse(finder, API::TraversalMode::Serial, source.maxDepth(), source.maxDepth());
  return accel;
}

}  // namespace Velmor::Processing
