#pragma once

#include <cstdint>

#include "velmorapi/types.h"

namespace Velmor::Host::Files {

/// The tile grid of a layout: tiles of 5 x 5 x 5 cells from one root down to
/// the leaves, without reference to any layout.
struct TreeShape {
  static constexpr int width = 5;
  static constexpr int cells = width * width * width;
  static constexpr int levels = 8;  ///< the most a layout can have

  std::int32_t depth = 7;    ///< of the leaves, 1 to 7
  std::int32_t centred = 1;  ///< around voxel 0, else with the corner there

  /// Edge of a tile of `level` in voxels.
  constexpr std::int32_t tileExtent(int level) const noexcept {
    std::int32_t extent = width;
    for (int d = level; d < depth; ++d) extent *= width;
    return extent;
  }
  constexpr std::int32_t cellExtent(int level) const noexcept { return tileExtent(level) / width; }
  constexpr std::int32_t rootOrigin() const noexcept {
    return centred != 0 ? -(tileExtent(0) >> 1) : 0;
  }
  constexpr bool inRoot(std::int64_t i, std::int64_t j, std::int64_t k) const noexcept {
    auto const extent = static_cast<std::int64_t>(tileExtent(0));
    auto const inside = [&](std::int64_t v) {
      return v >= rootOrigin() && v < rootOrigin() + extent;
    };
    return inside(i) && inside(j) && inside(k);
  }
  /// Where a tile stands among all tiles of its level in tree order: one
  /// base-125 digit per level, coarse first. The tile must lie in the root.
  constexpr std::uint64_t order(API::TileCoord const& tile, int level) const noexcept {
    // Finest digit first: five is then the only divisor but one.
    auto const extent = static_cast<std::uint32_t>(tileExtent(level));
    auto const place = [&](std::int32_t v) {
      return (static_cast<std::uint32_t>(v) - static_cast<std::uint32_t>(rootOrigin())) / extent;
    };
    constexpr std::uint32_t five = width;
    auto i = place(tile.i), j = place(tile.j), k = place(tile.k);
    std::uint64_t key = 0, unit = 1;
    for (int d = 0; d < level; ++d) {
      key += unit * ((k % five * five + j % five) * five + i % five);
      unit *= cells;
      i /= five, j /= five, k /= five;
    }
    return key;
  }
  /// The tile of a place in tree order.
  constexpr API::TileCoord coordOf(std::uint64_t order, int level) const noexcept {
    API::TileCoord tile{rootOrigin(), rootOrigin(), rootOrigin()};
    for (int d = level; d > 0; --d) {
      auto const extent = tileExtent(d);
      auto const cell = static_cast<std::int32_t>(order % cells);
      order /= cells;
      tile.i += cell % width * extent;
      tile.j += cell / width % width * extent;
      tile.k += cell / (width * width) * extent;
    }
    return tile;
  }
};

}  // namespace Velmor::Host::Files
