#include "host/files/vdb_files.h"

#include <openvdb/tools/LevelSetSphere.h>

namespace Velmor::Test {

void writeGrids(std::string const& path, openvdb::GridPtrVec const& grids,
                openvdb::MetaMap const& metadata) {
  openvdb::initialize();
  openvdb::io::File file(path);
  file.write(grids, metadata);
}

openvdb::GridPtrVec readGrids(std::string const& path) {
  openvdb::initialize();
  openvdb::io::File file(path);
  file.open(/*delayLoad=*/false);
  return *file.getGrids();
}

openvdb::FloatGrid::Ptr sphereGrid(float radius, double voxelSize,
                                   openvdb::Vec3d const& translation,
                                   openvdb::Vec3f const& centre) {
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

}  // namespace Velmor::Test
