#pragma once

#include <openvdb/tools/LevelSetSphere.h>

#include <string>

#include "files/vdb_grids.h"

namespace Velmor::Test {

/// Writes grids as any other program would.
inline void writeGrids(std::string const& path, openvdb::GridPtrVec const& grids,
                       openvdb::MetaMap const& metadata = {}) {
  openvdb::initialize();
  openvdb::io::File file(path);
  file.write(grids, metadata);
}

inline openvdb::FloatGrid::Ptr sphereGrid(float radius, double voxelSize,
                                          openvdb::Vec3d const& translation = openvdb::Vec3d(0),
                                          openvdb::Vec3f const& centre = openvdb::Vec3f(0)) {
  openvdb::initialize();
  auto const size = static_cast<float>(voxelSize);
  auto grid = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(radius * size, centre * size,
                                                                       size, 3.f);
  auto const transform = openvdb::math::Transform::createLinearTransform(voxelSize);
  transform->postTranslate(translation);
  grid->setTransform(transform);
  grid->setName("distance");
  return grid;
}

/// All grids of a file, whole.
inline openvdb::GridPtrVec readGrids(std::string const& path) {
  openvdb::initialize();
  openvdb::io::File file(path);
  file.open(/*delayLoad=*/false);
  return *file.getGrids();
}

}  // namespace Velmor::Test
