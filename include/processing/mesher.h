#pragma once

#include "velmorapi/array.h"
#include "velmorapi/channel.h"

namespace Velmor::Processing {

/// Turns the zero level set of a distance channel into a triangle mesh.
class VELMOR_EXPORT Mesher {
 public:
  Mesher();
  Mesher(Mesher const& other);
  Mesher& operator=(Mesher const& other);
  virtual ~Mesher();

  /// Replaces both arrays: vertices in world units (voxel position times voxel
  /// scale) and triangles as indices into them.
  virtual void mesh(API::VoxelChannel const& channel,
                    API::Array<orlen::Math::vec<3, float>>& points,
                    API::Array<orlen::Math::vec<3, int>>& triangles) const = 0;
};

/// Marching cubes over the B-spline-interpolated field (Lorensen and Cline,
/// "Marching Cubes", SIGGRAPH 1987).
class VELMOR_EXPORT MarchingCubes : public Mesher {
 public:
  /// Cuts each voxel into `subdivisions + 1` cells per axis; at most 2^31 - 2.
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
