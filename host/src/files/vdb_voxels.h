#pragma once

#include "files/image.h"
#include "files/tree_shape.h"
#include "files/vdb_grids.h"

namespace Velmor::Host::Files {

/// A box of voxels, both corners included.
struct VoxelBox {
  std::int64_t lo[3];
  std::int64_t hi[3];

  /// Whether it holds voxels of a cube.
  constexpr bool touches(API::TileCoord const& origin, std::int32_t extent) const noexcept {
    auto const along = [&](int a, std::int64_t from) {
      return from <= hi[a] && from + extent > lo[a];
    };
    return along(0, origin.i) && along(1, origin.j) && along(2, origin.k);
  }
};

/// Regroups the voxels of one grid into the tiles of a layout.
struct VoxelJob {
  ImageBuilder& image;
  TreeShape shape;
  VoxelBox const* clip = nullptr;  ///< leaf tiles outside are not made; null: none are left out
  bool levelSet = false;           ///< the inside keeps its sign where tiles are left out
  bool cut = false;                ///< out: the grid reaches beyond the layout's root
};

/// Each fills the background and the levels of `channel` with the grid's values
/// and active states: a cell of any level that is uniform in the grid becomes
/// one coarse value, every other one a tile. Throw `ImageFull`.
void decodeFloat(openvdb::FloatGrid const& grid, VoxelJob& job, ChannelRecord& channel);
void decodeInt(openvdb::Int32Grid const& grid, VoxelJob& job, ChannelRecord& channel);
void decodeFloat3(openvdb::Vec3SGrid const& grid, VoxelJob& job, ChannelRecord& channel);
void decodeDouble3(openvdb::Vec3DGrid const& grid, VoxelJob& job, ChannelRecord& channel);
void decodeInt3(openvdb::Vec3IGrid const& grid, VoxelJob& job, ChannelRecord& channel);
/// The x and y of a vector grid.
void decodeFloat2(openvdb::Vec3SGrid const& grid, VoxelJob& job, ChannelRecord& channel);
void decodeInt2(openvdb::Vec3IGrid const& grid, VoxelJob& job, ChannelRecord& channel);

}  // namespace Velmor::Host::Files
