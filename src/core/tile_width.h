#pragma once

#include <cstddef>

#include "velmorapi/types.h"

namespace Velmor::Processing {

/// Whether `tile` stores `width` voxels per axis: not for a channel of another
/// value type, nor where a layout reports a width that its tiles do not have.
template <class T>
bool storesWidth(API::TileData<T> const& tile, int width) noexcept {
  if (tile.data == nullptr || width < 1) return false;
  auto const last = tile.offset(width - 1, width - 1, width - 1);
  return last >= 0 && static_cast<std::size_t>(last) < tile.count;
}

/// The edge of the tiles that hosts make; loops over whole tiles know it.
inline constexpr int denseEdge = 5;

/// Whether the values of `tile`, `width` per axis, are `denseEdge` per axis and
/// lie one behind the other, x fastest, with nothing in between.
template <class T>
bool isDense(API::TileData<T> const& tile, int width) noexcept {
  return width == denseEdge && tile.halo == 0 && tile.strides[0] == 1 &&
         tile.strides[1] == denseEdge && tile.strides[2] == denseEdge * denseEdge;
}

}  // namespace Velmor::Processing
