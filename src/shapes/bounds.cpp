#include "processing/bounds.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
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
      : distance_(distance),
        accel_(accel),
        near_(voxelScale * 2.598076f),  // 1.5 diagonals
        tileWidth_(tileWidth) {}

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const values = distance_.tileData<float>(index);
    if (!storesWidth(values, tileWidth_)) return;
    if (places_.empty()) listPlaces();
    auto const coord = accessor.tile(index).coord();
    auto const origin = finer(coord.i, coord.j, coord.k);
    // With the numbers written out the loops of the usual tiles are unrolled.
    if (isDense(values, tileWidth_)) {
      addNear(values.data, origin, denseEdge, {1, denseEdge, denseEdge * denseEdge});
    } else {
      addNear(values.data + values.offset(0, 0, 0), origin, tileWidth_,
              {values.strides[0], values.strides[1], values.strides[2]});
    }
    if (points_.size() - count_ <= places_.size()) addTiles();
  }

  /// Adds the tiles of the voxels that were found since the last time: most of
  /// what a call costs is the way down the tree to where it begins.
  void addTiles() {
    Bulk::addTiles(accel_, points_.data(), count_, 7);
    count_ = 0;
  }

 private:
  // A voxel, and a number that means nothing; unsigned, so that far ones wrap.
  using Lanes = std::uint32_t __attribute__((vector_size(16)));
  Lanes finer(int x, int y, int z) const {
    return Lanes{static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y),
                 static_cast<std::uint32_t>(z)} *
           static_cast<std::uint32_t>(tileWidth_);
  }

  // x outermost, z innermost: the order in which their tiles are added.
  void listPlaces() {
    for (int a = 0; a < tileWidth_; ++a) {
      for (int b = 0; b < tileWidth_; ++b) {
        for (int c = 0; c < tileWidth_; ++c) {
          places_.push_back(finer(a, b, c));
        }
      }
    }
    points_.resize(8 * places_.size() + 1);  // one is for what is written behind the last
  }

  [[gnu::always_inline]] void addNear(float const* first, Lanes const& origin, int width,
                                      std::array<std::ptrdiff_t, 3> const& strides) {
    auto* const to = points_.data();
    auto const* place = places_.data();
    float const near = near_;
    auto count = count_;
    for (int a = 0; a < width; ++a) {
      for (int b = 0; b < width; ++b) {
        for (int c = 0; c < width; ++c, ++place) {
          // Written in any case: a jump would be foreseen wrongly too often.
          Lanes const voxel = origin + *place;
          std::memcpy(static_cast<void*>(to + count), &voxel, sizeof voxel);
          count += std::abs(first[a * strides[0] + b * strides[1] + c * strides[2]]) < near ? 1 : 0;
        }
      }
    }
    count_ = count;
  }

  API::VoxelChannel distance_;
  API::Layout accel_;
  float near_;
  int tileWidth_;
  std::vector<Lanes> places_;  // of a tile's voxels, counted in finer ones
  std::vector<API::TileCoord> points_;
  std::size_t count_ = 0;  // of points whose tiles are not added yet
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
  finder.addTiles();
  return accel;
}

}  // namespace Velmor::Processing
