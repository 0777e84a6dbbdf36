#pragma once

#include "files/vdb_grids.h"

namespace Velmor::Host::Files {

/// Makes the distances of a level set anew from its signs and the values next to
/// its sign changes, which it takes for a distance in any unit: voxels up to
/// `width` of them from the surface get their distance times `voxelSize`, and are
/// active; all else is inactive and has `width` times `voxelSize`, or minus that
/// where `signs` is not positive. Nothing is made dense but the band.
///
/// Expects no active voxels, and a leaf voxel to at least one side of each sign
/// change. Within two voxels of a smooth surface the distance is off by less than a
/// tenth of a voxel, further out in rare places by most of one. The result does not
/// depend on the number of threads. Closest points are carried from voxel to voxel
/// as in Danielsson, "Euclidean distance mapping" (1980).
openvdb::FloatTree::Ptr narrowBand(openvdb::FloatTree const& signs, float voxelSize, int width);

}  // namespace Velmor::Host::Files
