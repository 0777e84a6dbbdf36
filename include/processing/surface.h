#pragma once

#include "processing/shape.h"

namespace Velmor::Processing {

/// What `Surface` is made from. Lengths are in world units of the cache, before
/// `space_scale`.
struct VELMOR_EXPORT SurfaceParameters : ShapeParameters {
  /// Where the distance comes from.
  enum RenderComponent : int { Volume = 0, Particle = 1 };
  /// The flow of the smoothing.
  enum SmoothMode : int { Laplacian = 0, Curvature = 1 };

  SurfaceParameters();
  SurfaceParameters(SurfaceParameters const& other);
  SurfaceParameters(SurfaceParameters&& other);
  SurfaceParameters& operator=(SurfaceParameters const& other);
  ~SurfaceParameters() override;
  API::String str() const override;

  /// Take the distance from the voxels (the default) or build it from the points.
  RenderComponent render_component;
  /// Voxel channel that holds the distance, "distance" by default. Of no
  /// interest where it is built from points.
  API::String distance_channel;
  /// Voxels of a built level set per voxel of the points along an edge, 1 by default.
  float levelset_resolution_factor;
  /// How far from the liquid a droplet grows to its full size, in droplet radii;
  /// 3 by default.
  float levelset_droplet_reveal_factor;
  /// Radius of a particle of the liquid's body in voxels, 1.4 by default.
  float levelset_surface_radius;
  /// Radius of a droplet in voxels, 1.2 by default.
  float levelset_droplet_radius;
  /// Enclosed holes up to this volume are filled; 0 by default.
  float levelset_max_volume_of_holes_to_close;
  /// Moves the surface outwards first, 0 by default. Off within 1.1920929e-07
  /// of 0; negative amounts move it inwards.
  float dilate;
  /// Step of the smoothing, 0 by default. Off at 0 and below.
  float smooth;
  SmoothMode smooth_mode;  ///< `Laplacian` by default
  /// Smoothing passes, 1 by default. Off at 0 and below.
  int smooth_iterations;
  /// Moves the surface inwards after dilation and smoothing, 0 by default. Off
  /// within 1.1920929e-07 of 0; negative amounts move it outwards.
  float erode;
  /// Whether to blend the liquid into a flat ocean; false by default.
  bool enable_ocean_blending;
  /// Height (y) of the ocean, 0 by default.
  float ocean_blending_height;
  /// Centre (x, z) of the ocean's rectangle, (0, 0) by default.
  orlen::Math::vec<2, float> ocean_blending_center;
  /// Size (x, z) of the ocean's rectangle, (10, 10) by default.
  orlen::Math::vec<2, float> ocean_blending_dimension;
  /// Width of the transition, 1 by default. None at 0 and below.
  float ocean_blending_radius;
  /// Voxel channel to keep the ocean's mask in; empty, the default, keeps none.
  API::String ocean_blending_out_channel;
  /// Whether the ocean also extends `uv_channel`; true by default.
  bool enable_ocean_blending_uvs;
  /// Whether to make a voxel channel "laplacian" of the distance; false by default.
  bool compute_laplacian;
  /// Whether to make a voxel channel "curvature" of the distance; false by default.
  bool compute_curvature;
};

/// A liquid surface: a signed distance channel, prepared, and the acceleration
/// layout for ray queries.
///
/// The distance is dilated, smoothed, eroded and blended into an ocean, in this
/// order and in place, while the voxels have their cache size; then the space
/// scale is applied to voxels and distances; the points keep their places. Errors
/// leave the acceleration layout empty; see `status()`.
///
/// Smoothing and the ocean use a voxel channel "tmp", and an ocean without a
/// channel for its mask "oceanTmp"; both are removed, and channels that had these
/// names are lost.
class VELMOR_EXPORT Surface : public Shape {
 public:
  explicit Surface(SurfaceParameters const& parameters);
  Surface(Surface const& other);
  Surface& operator=(Surface const& other);
  ~Surface() override;

  /// Signed distance in world units, negative inside; its background value is
  /// still that of the cache. After an error it may be invalid, or valid and of
  /// another type than float.
  API::VoxelChannel const& distance() const;
  /// The layout that `createAccelLayout` made from `distance()`; invalid after an error.
  API::Layout const& accel() const;

 private:
  API::VoxelChannel distance_;
  API::Layout accel_;
};

}  // namespace Velmor::Processing
