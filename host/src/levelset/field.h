#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "levelset/parallel.h"
#include "levelset/tile_grid.h"
#include "velmorhost/scene.h"

namespace Velmor::Host {

/// The field in one leaf tile of the output while it is made. Lengths are in
/// voxels, points relative to the tile's first voxel's lower corner.
struct FieldTile {
  /// Four floats, to be taken together.
  struct alignas(16) Sample {
    float value;       ///< the field, later the signed distance
    float gx, gy, gz;  ///< its gradient, where it is known
  };
  struct alignas(16) Nearest {
    float x, y, z;   ///< the nearest point of the surface, where `reached`
    float distance;  ///< signed, once it is measured
  };

  explicit FieldTile(TilePlace const& at) noexcept : place(at) {}

  TilePlace place;
  std::uint32_t number = 0;  ///< among the tiles of the field, once it is linked
  std::array<Sample, API::tileCells> samples;
  std::array<Nearest, API::tileCells> nearest;
  CellMask known;     ///< voxels whose field was summed up; the others only have a sign
  CellMask complete;  ///< voxels that are known with the seven next to them on the upper sides
  CellMask rough;     ///< voxels where the gradient of the sums is not that of the field
  CellMask inside;
  CellMask reached, arriving;
};

using Around = std::array<FieldTile*, 27>;

/// The tiles of a field and the way from one to another.
class Field {
 public:
  explicit Field(TileGrid const& grid) : grid_(grid) {}

  TileGrid const& grid() const noexcept { return grid_; }
  std::size_t count() const noexcept { return tiles_.size(); }
  FieldTile& tile(std::size_t t) noexcept { return tiles_[t]; }
  FieldTile const& tile(std::size_t t) const noexcept { return tiles_[t]; }
  /// The number of a place's tile, -1 if it has none.
  std::int32_t number(TilePlace const& place) const noexcept { return map_.find(place); }
  FieldTile const* find(TilePlace const& place) const noexcept {
    auto const number = map_.find(place);
    return number < 0 ? nullptr : &tiles_[static_cast<std::size_t>(number)];
  }
  /// Adds a tile without values unless there is one or the place is outside the root.
  void add(TilePlace const& place) {
    if (!grid_.inRoot(place)) return;
    auto const number = static_cast<std::int32_t>(tiles_.size());
    if (map_.insert(place, number) == number) tiles_.emplace_back(place);
  }

  /// Finds the tiles around each; needed after tiles were added.
  void link() {
    around_.resize(tiles_.size());
    forEach(tiles_.size(), [this](std::size_t t) {
      auto& found = around_[t];
      tiles_[t].number = static_cast<std::uint32_t>(t);
      auto const p = tiles_[t].place;
      for (int n = 0; n < 27; ++n) {
        auto& tile = found[static_cast<std::size_t>(n)];
        if (tile != nullptr) continue;
        auto const at = number({p.x + n % 3 - 1, p.y + n / 3 % 3 - 1, p.z + n / 9 - 1});
        if (at >= 0) tile = &tiles_[static_cast<std::size_t>(at)];
      }
    });
  }
  /// A tile and those around it, x fastest, null where there is none.
  Around const& around(std::size_t t) const noexcept { return around_[t]; }

 private:
  TileGrid grid_;
  std::deque<FieldTile> tiles_;  // never moves them
  std::vector<Around> around_;
  TileMap map_;
};

/// What lies at a cell from -5 to 9 along each axis of the tile in the middle of 27.
struct FieldCell {
  FieldTile* tile;
  int cell;
};
inline FieldCell cellAround(Around const& tiles, int x, int y, int z) noexcept {
  auto const tileAlong = [](int a) { return (a + API::tileWidth) / API::tileWidth; };
  int const tx = tileAlong(x), ty = tileAlong(y), tz = tileAlong(z);
  auto const in = [](int a, int tile) { return a - API::tileWidth * (tile - 1); };
  return {tiles[static_cast<std::size_t>(tx + 3 * (ty + 3 * tz))],
          API::cellOf(in(x, tx), in(y, ty), in(z, tz))};
}

}  // namespace Velmor::Host
