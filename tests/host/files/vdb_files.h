#pragma once

#include <string>

#include "files/vdb_grids.h"

namespace Velmor::Test {

/// Writes grids as any other program would.
void writeGrids(std::string const& path, openvdb::GridPtrVec const& grids,
                openvdb::MetaMap const& metadata = {});

/// All grids of a file, whole.
openvdb::GridPtrVec readGrids(std::string const& path);

/// A level set named "distance"; the radius is in voxels, the centre too.
openvdb::FloatGrid::Ptr sphereGrid(float radius, double voxelSize,
                                   openvdb::Vec3d const& translation = openvdb::Vec3d(0),
                                   openvdb::Vec3f const& centre = openvdb::Vec3f(0));

}  // namespace Velmor::Test
