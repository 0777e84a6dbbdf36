#pragma once

#include "processing/intersector.h"
#include "processing/sampler.h"
#include "render/camera.h"

namespace Velmor::Render {

/// What a ray through fog brings back.
struct Fog {
  double light = 0.;   ///< scattered towards the eye, multiplied by alpha
  double alpha = 0.;   ///< share of the background that is hidden
  double where = -1.;  ///< mean place of what hides it, in world units; below 0 without fog
};

/// Integrates one density channel along rays. It remembers where it was last:
/// give each thread a copy.
class FogTracer {
 public:
  /// `light` points towards the light and has length 1.
  FogTracer(API::VoxelChannel const& density, Vec3d const& light);

  /// Absorption and single scattering from `origin` on; `direction` has length
  /// 1. What is not finite meets no fog.
  Fog trace(Vec3d const& origin, Vec3d const& direction);

 private:
  double densityAt(Vec3f const& position) const;
  // The share of light that reaches a point.
  double lightAt(Vec3f const& position) const;

  Processing::Intersector tiles_;
  Processing::Sampler field_;
  Box reach_;
  Vec3f light_;
  double voxel_;
  double extinction_;  // per world unit and unit of density
};

}  // namespace Velmor::Render
