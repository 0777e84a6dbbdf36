#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "render/camera.h"
#include "velmorapi/channel.h"

namespace Velmor::Render {

enum class Shading { Matte, Normal, Depth, Density };

struct Settings {
  int width = 1280;
  int height = 720;
  int samples = 1;  ///< rays per pixel
  Shading shading = Shading::Matte;
};

/// Rows from the top. Colours are linear and multiplied by alpha; where no ray
/// hits anything alpha is 0.
struct Image {
  int width = 0, height = 0;
  std::vector<float> rgba;   ///< four per pixel; empty for depth
  std::vector<float> depth;  ///< world units along the ray to the first hit, 0 without one;
                             ///< with several rays the mean over those that hit
};

/// Called now and then, from one thread at a time, with the share that is done.
using Progress = std::function<void(double)>;

/// The first hit of a ray with what is shown: a surface, or spheres.
struct Hit {
  bool found = false;
  double t = 0.;  ///< along the ray, in world units
  Vec3f normal;   ///< length 1, or zero where a surface's gradient is
};

/// Finds hits with the zero set of a float distance channel. It looks for them in
/// the leaf tiles of its acceleration layout, and where the sign differs from one
/// stretch of them to the next also between the two. It remembers where it was
/// last: give each thread a copy.
class SurfaceTracer {
 public:
  SurfaceTracer(API::VoxelChannel const& distance, API::Layout const& accel);
  SurfaceTracer(SurfaceTracer const& other);
  SurfaceTracer& operator=(SurfaceTracer const&) = delete;
  ~SurfaceTracer();

  /// The first sign change along the ray from `origin` on. `direction` has
  /// length 1. What is not finite hits nothing.
  Hit trace(Vec3d const& origin, Vec3d const& direction);

 private:
  struct Impl;
  Impl* impl_;
};

/// A picture of a surface, given as `SurfaceTracer` takes it. Uses all workers;
/// the pixels do not depend on how many there are.
Image renderSurface(API::VoxelChannel const& distance, API::Layout const& accel,
                    Camera const& camera, Settings const& settings, Progress const& progress);

/// A picture of a fog volume: absorption and single scattering, integrated
/// front to back; `Depth` gives the mean place of what hides the background.
/// `density` must be a float channel.
Image renderFog(API::VoxelChannel const& density, Camera const& camera, Settings const& settings,
                Progress const& progress);

/// The box that a layout's leaf tiles cover, widened by a voxel and cut to the
/// layout's root; empty without tiles.
Box reachOf(API::Layout const& layout);

/// The box of the finite values above 0 in a channel's leaf tiles, widened by a
/// voxel: what a picture of fog shows; empty without any.
Box reachOfFog(API::VoxelChannel const& density);

}  // namespace Velmor::Render
