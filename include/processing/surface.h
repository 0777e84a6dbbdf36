#pragma once

#include "processing/shape.h"

namespace Velmor::Processing {

/// What `Surface` is made from.
struct VELMOR_EXPORT SurfaceParameters : ShapeParameters {
  enum RenderComponent : int { Volume = 0, Particle = 1 };
  enum SmoothMode : int { Laplacian = 0, Curvature = 1 };

  SurfaceParameters();
  SurfaceParameters(SurfaceParameters const& other);
  SurfaceParameters(SurfaceParameters&& other);
  SurfaceParameters& operator=(SurfaceParameters const& other);
  ~SurfaceParameters() override;
  API::String str() const override;

  RenderComponent
      render_component;  ///< take the distance from the voxels or build it from the points
  API::String distance_channel;
  float levelset_resolution_factor;
  float levelset_droplet_reveal_factor;
  float levelset_surface_radius;
  float levelset_droplet_radius;
  float levelset_max_volume_of_holes_to_close;
  float dilate;
  float smooth;
  SmoothMode smooth_mode;
  int smooth_iterations;
  float erode;
  bool enable_ocean_blending;
  float ocean_blending_height;
  orlen::Math::vec<2, float> ocean_blending_center;
  orlen::Math::vec<2, float> ocean_blending_dimension;
  float ocean_blending_radius;
  API::String ocean_blending_out_channel;
  bool enable_ocean_blending_uvs;
  bool compute_laplacian;
  bool compute_curvature;
};

/// A liquid surface: a signed distance channel, prepared, and the acceleration
/// layout for ray queries.
class VELMOR_EXPORT Surface : public Shape {
 public:
  explicit Surface(SurfaceParameters const& parameters);
  Surface(Surface const& other);
  Surface& operator=(Surface const& other);
  ~Surface() override;

  API::VoxelChannel const& distance() const;
  API::Layout const& accel() const;

 private:
  API::VoxelChannel distance_;
  API::Layout accel_;
};

}  // namespace Velmor::Processing
