#pragma once

#include <functional>

#include "levelset/field.h"

namespace Velmor::Host {

/// Half the width of the band, in voxels.
inline constexpr float bandWidth = 5.f;

/// Whether a place where the field has no tile is inside.
using InsideAt = std::function<bool(TilePlace const&)>;

/// Turns a field into a signed distance, within `bandWidth` voxels of its zero,
/// and plus or minus that beyond. Adds the tiles that the band needs.
///
/// Every voxel beside the surface finds the nearest point of the surface by
/// Newton steps on an interpolant of values and gradients. From there nearest
/// points spread from voxel to voxel, as in a vector distance transform
/// (Danielsson, "Euclidean distance mapping", Computer Graphics and Image
/// Processing 1980), and at last move along the surface to where the way to the
/// voxel is shortest. Runs on the arena around it; no result depends on its size.
void redistance(Field& field, InsideAt const& insideAt);

/// Whether the tile has a voxel in the band; after `redistance`.
bool isInBand(FieldTile const& tile) noexcept;

}  // namespace Velmor::Host
