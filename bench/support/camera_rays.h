#pragma once

#include <cmath>
#include <vector>

#include "render/camera.h"

namespace Velmor::Bench {

struct CameraRay {
  Render::Vec3f origin, direction;
};

/// The rays of a picture of `edge` x `edge` pixels that a sphere around the
/// origin fills from border to border, pixel by pixel, of every `rowStep`-th row.
inline std::vector<CameraRay> cameraRays(float radius, int edge, int rowStep = 1) {
  Render::Vec3d const eye = Render::Vec3d(1.7, 1.2, 2.3) * double{radius};
  double const halfAngle = std::asin(radius / Render::length(eye));
  Render::Camera const camera(eye, Render::Vec3d(), halfAngle * 2. * 180. / std::acos(-1.));
  auto const at = [edge](int pixel) { return (pixel + 0.5) / edge; };
  std::vector<CameraRay> rays;
  for (int row = 0; row < edge; row += rowStep) {
    for (int column = 0; column < edge; ++column) {
      rays.push_back(
          {Render::toFloat(eye), Render::toFloat(camera.direction(at(column), at(row), 1.))});
    }
  }
  return rays;
}

}  // namespace Velmor::Bench
