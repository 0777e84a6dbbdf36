#pragma once

#include "velmorapi/array.h"
#include "velmorapi/channel.h"

namespace Velmor::Processing {

/// Turns the zero level set of a distance channel into a triangle mesh.
///
/// Meshers are configured once; one may serve several threads that mesh channels
/// nobody writes to.
class VELMOR_EXPORT Mesher {
 public:
  Mesher();
  Mesher(Mesher const& other);
  Mesher& operator=(Mesher const& other);
  virtual ~Mesher();

  /// Replaces both arrays: vertices in world units (voxel position times voxel
  /// scale) and triangles as indices into them, counter-clockwise as seen from
  /// where the distance is positive. Reports nothing; for a channel that is
  /// invalid or does not hold floats both arrays are empty.
  virtual void mesh(API::VoxelChannel const& channel,
                    API::Array<orlen::Math::vec<3, float>>& points,
                    API::Array<orlen::Math::vec<3, int>>& triangles) const = 0;
};

/// Marching cubes over the B-spline-interpolated field (Lorensen and Cline,
/// "Marching Cubes", SIGGRAPH 1987).
///
/// Visits the voxels of leaf tiles whose stored distance is at most one voxel
/// size in magnitude, so the channel should hold distances in world units: where
/// the field's gradient along the surface is steeper than about 1.15, crossed
/// voxels can be missed and leave holes. A sample of exactly 0 counts with the negative.
/// Vertices are welded where their three coordinates compare equal, not by a
/// tolerance; triangles without area can occur and keep the mesh closed. The same
/// channel gives the same bytes whatever the number of threads.
///
/// Values that are not finite give vertices that are not finite, or none; such
/// vertices are not welded.
class VELMOR_EXPORT MarchingCubes : public Mesher {
 public:
  /// Cuts each voxel into `subdivisions + 1` cells per axis. At most 2^31 - 3,
  /// which is a precondition; the work grows with the cube of the cells.
  explicit MarchingCubes(unsigned int subdivisions);
  MarchingCubes(MarchingCubes const& other);
  MarchingCubes(MarchingCubes&& other) noexcept;
  MarchingCubes& operator=(MarchingCubes const& other);
  MarchingCubes& operator=(MarchingCubes&& other) noexcept;
  ~MarchingCubes() override;

  void mesh(API::VoxelChannel const& channel, API::Array<orlen::Math::vec<3, float>>& points,
            API::Array<orlen::Math::vec<3, int>>& triangles) const override;

 private:
  unsigned int subdivisions_;
};

}  // namespace Velmor::Processing
