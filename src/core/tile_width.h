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

}  // namespace Velmor::Processing
