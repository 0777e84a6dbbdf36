#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "core/to_int.h"
#include "filters/ocean_mask.h"
#include "filters/tile_bits.h"
#include "velmorapi/halo.h"

namespace Velmor::Processing {

namespace {

/// A voxel of the plane's layer at the border of the mask.
struct BorderVoxel {
  int x, z;
  bool operator==(BorderVoxel const& o) const { return x == o.x && z == o.z; }
  bool operator<(BorderVoxel const& o) const { return x != o.x ? x < o.x : z < o.z; }
};

/// Collects the border; nothing is written while neighbours are being read.
class FloodRadiusVisitor final : public API::Visitor {
 public:
  FloodRadiusVisitor(OceanScene const& scene, int layerY) : scene_(&scene), layerY_(layerY) {
    cache_.init(API::VoxelChannel(scene.mask));
  }

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const origin = accessor.tile(index).coord();
    int const width = scene_->width;
    // The layer of a height that is no number lies at the end of all voxels.
    auto const above = std::int64_t{layerY_} - origin.j;
    // Also the row above the tile's last, which is row 0 of the tile above: its
    // voxels are found twice, and that changes nothing.
    if (above < 0 || above > width) return;
    auto const y = static_cast<int>(above);

    auto liquidTile = index;
    int row = y;
    if (y == width) {
      liquidTile = accessor.index({origin.i, layerY_, origin.k}, scene_->maxDepth);
      row = 0;
      if (liquidTile.depth != scene_->maxDepth) return;
    }
    auto const liquid = scene_->liquid.tileData<float>(liquidTile);
    if (liquid.data == nullptr || !cache_.update(index).succeeded()) return;
    auto const& mask = cache_.tile(index);
    for (int x = 0; x < width; ++x) {
      for (int z = 0; z < width; ++z) {
        if (mask.at(x, y, z) != 1.f || liquid.data[liquid.offset(x, row, z)] < 0.f) continue;
        if (mask.at(x - 1, y, z - 1) != 1.f || mask.at(x - 1, y, z + 1) != 1.f ||
            mask.at(x + 1, y, z - 1) != 1.f || mask.at(x + 1, y, z + 1) != 1.f) {
          border_.push_back({origin.i + x, origin.k + z});
        }
      }
    }
  }

  API::Visitor* copy() const override { return new FloodRadiusVisitor(*scene_, layerY_); }

  void join(API::Visitor const& other) override {
    auto const& more = static_cast<FloodRadiusVisitor const&>(other).border_;
    border_.insert(border_.end(), more.begin(), more.end());
  }

  std::vector<BorderVoxel> take() { return std::move(border_); }

 private:
  OceanScene const* scene_;
  int layerY_;
  API::HaloedCache<float> cache_;
  std::vector<BorderVoxel> border_;
};

/// Finds the nearest border voxel within the plane's layer.
class Border {
 public:
  static constexpr std::int64_t far = std::numeric_limits<std::int64_t>::max();

  explicit Border(std::vector<BorderVoxel> voxels) : voxels_(std::move(voxels)) {
    std::sort(voxels_.begin(), voxels_.end());
    voxels_.erase(std::unique(voxels_.begin(), voxels_.end()), voxels_.end());
    if (voxels_.empty()) return;
    firstX_ = voxels_.front().x;
    auto const columns = static_cast<std::size_t>(voxels_.back().x - firstX_ + 1);
    columns_.assign(columns + 1, 0);
    for (auto const& voxel : voxels_) ++columns_[static_cast<std::size_t>(voxel.x - firstX_) + 1];
    for (std::size_t c = 0; c < columns; ++c) columns_[c + 1] += columns_[c];
  }

  bool empty() const { return voxels_.empty(); }

  /// For the 5 x 5 columns from (x, z) on, place x + 5z: the squared distance to
  /// the nearest border voxel, at most `reach` away along each axis; else `far`.
  void squaredDistances(int x, int z, int reach, std::int64_t (&result)[25]) const {
    std::fill(std::begin(result), std::end(result), far);
    auto const from = std::max<std::int64_t>(std::int64_t{x} - reach, firstX_);
    auto const to = std::min<std::int64_t>(std::int64_t{x} + 4 + reach,
                                           firstX_ + std::int64_t(columns_.size()) - 2);
    for (auto column = from; column <= to; ++column) {
      auto const c = static_cast<std::size_t>(column - firstX_);
      auto const* const begin = voxels_.data() + columns_[c];
      auto const* const end = voxels_.data() + columns_[c + 1];
      if (begin == end) continue;
      auto const* next = std::lower_bound(begin, end, BorderVoxel{static_cast<int>(column), z});
      for (int dz = 0; dz < 5; ++dz) {
        while (next != end && next->z < z + dz) ++next;
        std::int64_t along = far;
        if (next != end) along = std::int64_t{next->z} - (z + dz);
        if (next != begin) along = std::min(along, std::int64_t{z} + dz - (next - 1)->z);
        if (along > reach) continue;
        for (int dx = 0; dx < 5; ++dx) {
          auto const across = column - (std::int64_t{x} + dx);
          if (across > reach || -across > reach) continue;
          auto& best = result[dx + 5 * dz];
          best = std::min(best, across * across + along * along);
        }
      }
    }
  }

 private:
  std::vector<BorderVoxel> voxels_;   // by x, then z
  std::vector<std::size_t> columns_;  // where each x begins in them
  std::int64_t firstX_ = 0;
};

/// Raises the mask of each tile to the weight of its nearest border voxel.
///
/// The weight of a border voxel does not grow with its distance, also after
/// rounding, so the largest is that of the nearest; and since the border lies in
/// one layer, that is the nearest within the layer for every row of a column.
class FalloffVisitor final : public API::Visitor {
 public:
  FalloffVisitor(OceanScene const& scene, int layerY, float radiusVox, Border const& border)
      : scene_(&scene),
        border_(&border),
        layerY_(layerY),
        reach_(toInt(std::ceil(radiusVox))),
        inverseSquare_(1.f / (radiusVox * radiusVox)) {}

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const origin = accessor.tile(index).coord();
    int const width = scene_->width;
    auto const lowest = std::int64_t{layerY_} - reach_;
    auto const highest = std::int64_t{layerY_} + reach_;
    if (origin.j > highest || std::int64_t{origin.j} + width - 1 < lowest) return;
    auto const data = scene_->mask.tileData<float>(index);
    TileView const mask(data, width);
    if (mask.where([](float m) { return m != 1.f; }) == 0) return;

    std::int64_t squares[25];
    border_->squaredDistances(origin.i, origin.k, reach_, squares);
    for (int z = 0; z < width; ++z) {
      for (int x = 0; x < width; ++x) {
        if (squares[x + 5 * z] == Border::far) continue;
        for (int y = 0; y < width; ++y) {
          auto const dy = std::int64_t{origin.j} + y - layerY_;
          if (dy > reach_ || -dy > reach_) continue;
          float const q = static_cast<float>(squares[x + 5 * z] + dy * dy) * inverseSquare_;
          if (q > 1.f) continue;
          float const weight = 1.f - std::sqrt(q);
          float& m = data.data[data.offset(x, y, z)];
          if (m != 1.f && (m == 0.f || weight > m)) m = weight;
        }
      }
    }
  }

  API::Visitor* copy() const override { return new FalloffVisitor(*this); }

 private:
  OceanScene const* scene_;
  Border const* border_;
  int layerY_;
  int reach_;
  float inverseSquare_;
};

}  // namespace

void widenOcean(OceanScene const& scene, float radius) {
  int const layerY =
      orlen::Math::detail::add(toInt(std::floor(scene.height / scene.voxelScale)), 1);
  FloodRadiusVisitor collect(scene, layerY);
  scene.layout.traverse(collect, API::TraversalMode::Tiles, scene.maxDepth, scene.maxDepth);
  Border const border(collect.take());
  if (border.empty()) return;
  FalloffVisitor fall(scene, layerY, radius / scene.voxelScale, border);
  scene.layout.traverse(fall, API::TraversalMode::Tiles, scene.maxDepth, scene.maxDepth);
}

}  // namespace Velmor::Processing
