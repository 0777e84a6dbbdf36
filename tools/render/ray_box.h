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

}  // namespace Velmor::Render
