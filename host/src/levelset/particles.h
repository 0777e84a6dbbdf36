#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/channel_item.h"
#include "levelset/tile_grid.h"
#include "velmorapi/level_set.h"
#include "velmorhost/scene.h"

namespace Velmor::Host {

using Point = orlen::Math::vec<3, float>;

/// A particle that keeps its own shape. Position and radius in output voxels.
struct Droplet {
  Point centre;
  float radius;
};

/// What the construction works in: output voxels, of which there are `factor`
/// along a voxel of the points.
struct Scale {
  double factor;
  float surfaceRadius;  ///< in output voxels, as all lengths here
  float margin;         ///< how far beyond its radius a particle's field is needed
};

/// The particles in the order in which all sums run: by leaf tile of the points'
/// layout, by voxel in it, and by their place in the input. Tiles with nothing
/// but full voxels around them are left as they are.
class Particles {
 public:
  struct Tile {
    TilePlace place;
    std::size_t first = 0;  ///< of the input
    std::uint32_t count = 0;
    std::uint32_t bulk = 0;      ///< how many of them belong to the bulk
    CellMask occupied;           ///< voxels that hold a particle of the bulk
    float radius = 0.f;          ///< the largest, in output voxels
    std::int64_t sorted = -1;    ///< where its sorted particles start, -1 if they are not sorted
    std::size_t cellStarts = 0;  ///< where its table of 126 places relative to `sorted` starts
  };

  /// `droplets` may be null. Reads the positions as they are now, whatever tile
  /// they are stored in.
  Particles(API::PointChannelItem& positions, float const* droplets,
            API::LevelSetOptions const& options);

  Scale const& scale() const noexcept { return scale_; }
  TileGrid const& grid() const noexcept { return grid_; }
  std::vector<Tile> const& tiles() const noexcept { return tiles_; }
  /// The number of a place's tile, -1 if it has none.
  std::int32_t number(TilePlace const& place) const noexcept { return map_.find(place); }
  Tile const* find(TilePlace const& place) const noexcept {
    auto const number = map_.find(place);
    return number < 0 ? nullptr : &tiles_[static_cast<std::size_t>(number)];
  }
  std::vector<Droplet> const& droplets() const noexcept { return droplets_; }
  /// Where a droplet is in the input.
  std::vector<std::uint32_t> const& dropletIndices() const noexcept { return dropletIndices_; }
  /// Positions that are no numbers or lie outside the root.
  std::size_t leftOut() const noexcept { return leftOut_; }
  /// Of the others, those outside the root of an output, which is smaller than
  /// that of the points where `factor` is above 1.
  std::size_t beyond(TileGrid const& output) const;
  /// Of the points' layout, in world units.
  double voxelSize() const noexcept { return voxelSize_; }
  float largestRadius() const noexcept { return largestRadius_; }
  bool adaptive() const noexcept { return adaptive_; }

  /// Whether every voxel of the points in [low, high] holds a particle of the bulk.
  bool full(API::TileCoord const& low, API::TileCoord const& high) const noexcept;
  bool occupied(API::TileCoord const& voxel) const noexcept { return full(voxel, voxel); }

  /// Sorts the tiles for which `wanted` is set.
  void sort(std::vector<std::uint8_t> const& wanted);
  // Of the sorted particles: positions in voxels of the points, radii, input places.
  std::vector<float> x, y, z, radius;
  std::vector<std::uint32_t> index;
  std::vector<std::uint32_t> cellStarts;

 private:
  bool takeTiles(API::LayoutItem const& layout, API::PointRanges const& ranges);
  void takeSorted(API::LayoutItem const& layout);
  struct Survey {
    std::size_t bad = 0;
    bool strayed = false;
  };
  Survey survey(Tile& tile) const;
  std::size_t inputOf(std::size_t at) const noexcept { return order_.empty() ? at : order_[at]; }
  bool isDroplet(std::size_t input) const noexcept {
    return dropletValues_ != nullptr && dropletValues_[input] >= threshold_;
  }
  void collectDroplets(API::LevelSetOptions const& options);
  void adaptRadii();
  std::uint32_t countIn(API::TileCoord const& voxel) const noexcept;
  std::uint32_t countAround(float px, float py, float pz) const noexcept;
  float distanceToBulk(Point const& position, float limit) const noexcept;

  TileGrid grid_;
  Point const* positions_;
  std::size_t count_;
  float const* dropletValues_;
  float threshold_;
  double voxelSize_;
  Scale scale_;
  bool adaptive_;
  float largestRadius_;
  std::size_t leftOut_ = 0;
  std::vector<std::uint32_t> order_;  // empty while the input is in tile order
  std::vector<Tile> tiles_;
  TileMap map_;
  std::vector<Droplet> droplets_;
  std::vector<std::uint32_t> dropletIndices_;
};

}  // namespace Velmor::Host
