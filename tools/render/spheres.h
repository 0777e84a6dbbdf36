#pragma once

#include <cstddef>
#include <memory>

#include "render/render.h"
#include "velmorapi/component.h"

namespace Velmor::Render {

/// The box of the points of a component, widened by `radius` voxels; empty where
/// it has no positions. In the space of the data.
Box reachOf(API::PointComponent const& points, double radius);

/// How many spheres the points are: those whose positions are finite.
std::size_t sphereCount(API::PointComponent const& points);

/// Finds hits with spheres of one radius around points. Copies share what they
/// search; one may serve many threads.
class SphereTracer {
 public:
  /// `radius` is in voxels of the points' layout and above 0. Positions that are
  /// not finite are left out.
  SphereTracer(API::PointComponent const& points, double radius);

  /// Where the ray first passes through the outside of a sphere, or from within
  /// one its inside. `direction` has length 1. What is not finite hits nothing.
  Hit trace(Vec3d const& origin, Vec3d const& direction) const;

 private:
  struct Tree;
  std::shared_ptr<Tree const> tree_;
};

/// A picture of points as spheres, lit as `renderSurface` lights surfaces.
Image renderSpheres(API::PointComponent const& points, double radius, Camera const& camera,
                    Settings const& settings, Progress const& progress);

}  // namespace Velmor::Render
