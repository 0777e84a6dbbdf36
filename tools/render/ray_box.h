#pragma once

#include <algorithm>
#include <cmath>

#include "render/camera.h"

namespace Velmor::Render {

/// Cuts [near, far] to the part of the ray inside the box. False if nothing is
/// left or the ray is not finite.
inline bool clipToBox(Box const& box, Vec3d const& origin, Vec3d const& direction, double& near,
                      double& far) {
  for (int a = 0; a < 3; ++a) {
    if (!std::isfinite(origin[a]) || !std::isfinite(direction[a])) return false;
    if (direction[a] == 0.) {
      if (origin[a] < box.min[a] || origin[a] >= box.max[a]) return false;
      continue;
    }
    double const t0 = (box.min[a] - origin[a]) / direction[a];
    double const t1 = (box.max[a] - origin[a]) / direction[a];
    near = std::max(near, std::min(t0, t1));
    far = std::min(far, std::max(t0, t1));
  }
  // A direction of zero length would leave the interval endless.
  return far > near && dot(direction, direction) > 0.;
}

/// A ray that is to be held against many boxes.
class BoxRay {
 public:
  /// A finite ray with a direction that is not 0.
  BoxRay(Vec3d const& origin, Vec3d const& direction)
      : origin_(origin), inverse_(1. / direction.x, 1. / direction.y, 1. / direction.z) {}

  /// Where the ray, from its origin on, enters the box, whose faces belong to it;
  /// `end` where it does so behind that or not at all.
  double entry(Box const& box, double end) const {
    double near = 0., far = end;
    for (int a = 0; a < 3; ++a) {
      bool const backward = std::signbit(inverse_[a]);
      double const in = ((backward ? box.max : box.min)[a] - origin_[a]) * inverse_[a];
      double const out = ((backward ? box.min : box.max)[a] - origin_[a]) * inverse_[a];
      // A ray within the plane of a face has 0 times infinity for it, which is no
      // number and in this order of arguments cuts nothing.
      near = std::max(near, in);
      far = std::min(far, out);
    }
    return near <= far ? near : end;
  }

 private:
  Vec3d origin_, inverse_;  // 1 / direction, infinite where that is 0
};

}  // namespace Velmor::Render
