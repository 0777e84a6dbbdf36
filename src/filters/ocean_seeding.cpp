#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>
#include <tbb/task_group.h>

#include <cmath>

#include "core/to_int.h"
#include "filters/ocean_mask.h"
#include "filters/tile_bits.h"

namespace Velmor::Processing {

namespace {

// Hosts make tiles of five; only here the number is fixed, not asked for.
constexpr int columnsPerAxis = 5;

class Seeding {
 public:
  explicit Seeding(OceanScene const& scene)
      : scene_(scene),
        level_(orlen::Math::detail::add(toInt(std::floor(scene.height / scene.voxelScale)), 5)) {}

  void run() const {
    auto const accessor = scene_.layout.tileAccessor();
    seedColumnsOf(accessor, accessor.tile(0, 0, 0, 0), scene_.width * scene_.width);
  }

 private:
  void seedColumnsOf(API::TileAccessor const& accessor, API::Tile const& tile, int count) const {
    tbb::task_group_context context;
    tbb::parallel_for(
        tbb::blocked_range<int>(0, count, 1),
        [&](tbb::blocked_range<int> const& columns) {
          // An accessor remembers where it was: each task has its own.
          API::TileAccessor const own(accessor);
          for (int i = columns.begin(); i < columns.end(); ++i) {
            walk(own, tile, i / columnsPerAxis, i % columnsPerAxis);
          }
        },
        tbb::auto_partitioner(), context);
  }

  // Goes up the column of cells (ix, iz) to the lowest existing child, and ends
  // there: going on above it would mark the inside of a hull as water.
  void walk(API::TileAccessor const& accessor, API::Tile tile, int ix, int iz) const {
    int y = 0;
    while (tile.valid() && tile.coord().j <= level_) {
      if (tile.index().depth == scene_.maxDepth) {
        seedColumns(accessor, tile, tileBit(ix, 0, iz));
        return;
      }
      auto const child = tile.child(ix, y, iz);
      if (child.valid()) {
        if (child.index().depth == scene_.maxDepth) {
          // The columns of a leaf are too short to be tasks of their own.
          if (child.coord().j <= level_) seedColumns(accessor, child, tileLayers[1][0]);
        } else {
          seedColumnsOf(accessor, child, columnsPerAxis * columnsPerAxis);
        }
        return;
      }
      y = (y + 1) % columnsPerAxis;
      if (y == 0) tile = tileAbove(accessor, tile);
    }
  }

  // A tile of the same depth; others do not continue a column.
  static API::Tile tileAbove(API::TileAccessor const& accessor, API::Tile const& tile) {
    auto const& at = tile.coord();
    auto const depth = tile.index().depth;
    auto const above = accessor.tile(at.i, at.j + tile.info().extent, at.k, depth);
    return above.index().depth == depth ? above : API::Tile();
  }

  // `open` has the lowest voxel of each of the leaf's columns that is going up.
  void seedColumns(API::TileAccessor const& accessor, API::Tile leaf, TileBits open) const {
    for (; leaf.valid() && open != 0; leaf = tileAbove(accessor, leaf)) {
      TileView const liquid(scene_.liquid.tileData<float>(leaf.index()), scene_.width);
      TileView const mask(scene_.mask.tileData<float>(leaf.index()), scene_.width);
      if (!liquid.valid() || !mask.valid()) return;
      auto const outside = liquid.where([](float l) { return l >= 0.f; });
      TileBits seeded = 0;
      for (int y = 0; y < scene_.width && leaf.coord().j + y <= level_; ++y) {
        auto const row = (open << (y * tileStride(1))) & outside;
        seeded |= row;
        open = row >> (y * tileStride(1));
      }
      mask.set(seeded, 1.f);
      if (leaf.coord().j + scene_.width > level_) return;
    }
  }

  OceanScene const& scene_;
  int level_;  // the highest voxel that is seeded
};

}  // namespace

void seedOcean(OceanScene const& scene) { Seeding(scene).run(); }

}  // namespace Velmor::Processing
