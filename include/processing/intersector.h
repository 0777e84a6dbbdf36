#pragma once

#include "velmorapi/layout.h"

namespace Velmor::Processing {

/// A stretch of a ray, as parameters of the ray.
struct VELMOR_EXPORT Interval {
  /// (-1, -2), which is not valid.
  Interval();
  Interval(float t0_, float t1_);
  /// True when `t0` is at least 0 and `t1` above it; false for NaN.
  bool valid() const;

  float t0;
  float t1;
};

/// Walks a ray through the tile tree of a layout and hands out the intervals in
/// which it runs through leaf tiles. Leaf tiles that follow each other are
/// merged; empty space is crossed a coarse cell at a time by one grid walker per
/// tree depth (a hierarchy of the traversal of Amanatides and Woo, "A Fast Voxel
/// Traversal Algorithm for Ray Tracing", Eurographics 1987).
///
/// Tiles are taken to be centred on voxel 0. Where the walk enters a coarse cell
/// from an emptier one, the first leaf cell behind the face is not looked at; in
/// a layout whose tiles are some cells thick, such as an acceleration layout,
/// nothing is lost by that. A ray that starts outside the layout's root ends at
/// once: clip rays to it first.
///
/// One object serves one thread. Copies go on independently from where the
/// original is. `next` does not allocate.
class VELMOR_EXPORT Intersector {
 public:
  /// Empty: `next` returns the invalid interval, `init` must not be called.
  Intersector();
  /// For a layout of at least depth 1.
  explicit Intersector(API::Layout const& layout);
  Intersector(Intersector const& other);
  Intersector(Intersector&& other) noexcept;
  Intersector& operator=(Intersector const& other);
  Intersector& operator=(Intersector&& other) noexcept;
  virtual ~Intersector();

  /// Starts on origin + t * direction, t from `tmin` to `tmax`, in world units.
  /// The direction need not have length 1. Intervals that start before 0 are
  /// never valid. With a direction of 0 and a `tmax` that is no number the walk
  /// never gets anywhere, nor does `next` return: rule that out first. A walk ends
  /// where a float `t` no longer tells two cells apart, 10^8 voxels from the origin
  /// and beyond: start such a ray nearer.
  void init(orlen::Math::vec<3, float> const& origin, orlen::Math::vec<3, float> const& direction,
            float tmin, float tmax);
  /// The next interval along the ray; one that is not valid ends the walk.
  Interval next();

 private:
  struct VELMOR_LOCAL Impl;
  Impl* impl_ = nullptr;
};

}  // namespace Velmor::Processing
