#pragma once

#include <cstddef>
#include <vector>

#include "core/neighbourhood.h"

namespace Velmor::API {

/// The edge of a block of a tile and its border of one cell.
inline constexpr int blockEdge = tileWidth + 2;

/// Copies a tile's values and those around it into a block, x fastest. The 27
/// sources start at `near`, x fastest, and lie there as the cells of a block do:
/// 7 apart along y and 49 along z.
using FillBlock = void (*)(CellSource const* near, void* block);

/// The ways that this processor has for values of `size` bytes, the fastest first.
/// All give the same bits.
std::vector<FillBlock> blockFillers(std::size_t size);

}  // namespace Velmor::API
