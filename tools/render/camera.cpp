#include "render/camera.h"

#include <cmath>
#include <numbers>

namespace Velmor::Render {

double length(Vec3d const& v) { return std::sqrt(dot(v, v)); }

Vec3d normalized(Vec3d const& v) { return v * (1. / length(v)); }

Camera::Camera(Vec3d const& eye, Vec3d const& target, double fovDegrees)
    : eye_(eye), target_(target), halfHeight_(std::tan(fovDegrees * std::numbers::pi / 360.)) {
  backward_ = normalized(eye - target);
  // Straight up or down there is no horizon; z then points to the lower edge.
  bool const upright = std::abs(backward_.y) < 0.999999;
  right_ = normalized(cross(upright ? Vec3d(0., 1., 0.) : Vec3d(0., 0., -1.), backward_));
  up_ = cross(backward_, right_);
}

Camera Camera::framing(Box const& box, double fovDegrees, double aspect) {
  Vec3d const centre = (box.min + box.max) * 0.5;
  Vec3d const toEye = normalized({0.55, 0.45, 1.});
  Camera camera(centre + toEye, centre, fovDegrees);
  double distance = 0.;
  for (int corner = 0; corner < 8; ++corner) {
    Vec3d const p =
        Vec3d((corner & 1) != 0 ? box.max.x : box.min.x, (corner & 2) != 0 ? box.max.y : box.min.y,
              (corner & 4) != 0 ? box.max.z : box.min.z) -
        centre;
    double const forward = dot(p, camera.backward_);
    distance = std::max(distance, forward + std::abs(dot(p, camera.up_)) / camera.halfHeight_);
    distance = std::max(distance,
                        forward + std::abs(dot(p, camera.right_)) / (camera.halfHeight_ * aspect));
  }
  camera.eye_ = centre + toEye * (distance > 0. ? distance * 1.03 : 1.);
  return camera;
}

Vec3d Camera::direction(double u, double v, double aspect) const {
  return normalized(right_ * ((2. * u - 1.) * halfHeight_ * aspect) +
                    up_ * ((1. - 2. * v) * halfHeight_) - backward_);
}

}  // namespace Velmor::Render
