#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>
#include <tbb/task_group.h>

#include <cmath>
#include <cstdint>

#include "core/to_int.h"
#include "filters/ocean_mask.h"

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
        seedColumns(accessor, tile, std::uint32_t{1} << (ix * columnsPerAxis + iz));
        return;
      }
      auto const child = tile.child(ix, y, iz);
      if (child.valid()) {
        if (child.index().depth == scene_.maxDepth) {
          // The columns of a leaf are too short to be tasks of their own.
          if (child.coord().j <= level_) seedColumns(accessor, child, allColumns);
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

  // `open` has a bit for each column of the leaf that is still going up.
  void seedColumns(API::TileAccessor const& accessor, API::Tile leaf, std::uint32_t open) const {
    int const width = scene_.width;
    for (; leaf.valid() && open != 0; leaf = tileAbove(accessor, leaf)) {
      auto const liquid = scene_.liquid.tileData<float>(leaf.index());
      auto const mask = scene_.mask.tileData<float>(leaf.index());
      if (liquid.data == nullptr || mask.data == nullptr) return;
      for (int y = 0; y < width; ++y) {
        if (leaf.coord().j + y > level_) return;
        for (int x = 0; x < width; ++x) {
          for (int z = 0; z < width; ++z) {
            auto const column = std::uint32_t{1} << (x * columnsPerAxis + z);
            if ((open & column) == 0) continue;
            if (liquid.data[liquid.offset(x, y, z)] >= 0.f) {
              mask.data[mask.offset(x, y, z)] = 1.f;
            } else {
              open &= ~column;
            }
          }
        }
      }
    }
  }

  static constexpr std::uint32_t allColumns = (std::uint32_t{1} << 25) - 1;

  OceanScene const& scene_;
  int level_;  // the highest voxel that is seeded
};

}  // namespace

void seedOcean(OceanScene const& scene) { Seeding(scene).run(); }

}  // namespace Velmor::Processing
