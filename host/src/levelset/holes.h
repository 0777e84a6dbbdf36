#pragma once

#include "levelset/field.h"
#include "levelset/redistance.h"

namespace Velmor::Host {

/// Closes pockets of air: turns the sign of every connected set of voxels outside,
/// voxels connected by faces, that no way leads out of and that has at most
/// `mostVoxels` of them. Puts the places without a tile that belong to such a
/// pocket into `filled`. Work and memory grow with the field and `mostVoxels`,
/// whatever lies between distant parts of the field.
void closeHoles(Field& field, InsideAt const& insideAt, double mostVoxels, TileMap& filled);

}  // namespace Velmor::Host
