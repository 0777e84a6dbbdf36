#pragma once

#include "velmorapi/math.h"

namespace Velmor::Render {

using Vec3d = orlen::Math::vec<3, double>;
using Vec3f = orlen::Math::vec<3, float>;

inline double dot(Vec3d const& a, Vec3d const& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3d cross(Vec3d const& a, Vec3d const& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double length(Vec3d const& v);
Vec3d normalized(Vec3d const& v);
inline Vec3d toDouble(Vec3f const& v) { return {double{v.x}, double{v.y}, double{v.z}}; }
inline Vec3f toFloat(Vec3d const& v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

/// A box in double precision; empty if a minimum is above its maximum.
struct Box {
  Vec3d min, max;
};

/// A pinhole camera with y up. Positions are in the space of the data (world
/// units, a file's own origin taken off).
class Camera {
 public:
  /// Looks from `eye` to `target` with a vertical field of view in degrees,
  /// above 0 and below 180. The two points must differ.
  Camera(Vec3d const& eye, Vec3d const& target, double fovDegrees);
  /// Looks at a box from the front, the right and above, near enough that the
  /// box fills an image of this aspect (width / height).
  static Camera framing(Box const& box, double fovDegrees, double aspect);

  Vec3d const& eye() const { return eye_; }
  /// The place that the middle of the image shows.
  Vec3d const& target() const { return target_; }
  /// From the target back to the eye, length 1.
  Vec3d const& backward() const { return backward_; }
  Vec3d const& right() const { return right_; }
  Vec3d const& up() const { return up_; }
  /// The direction, of length 1, through a place of the image: (0, 0) is the
  /// upper left corner, (1, 1) the lower right one.
  Vec3d direction(double u, double v, double aspect) const;

 private:
  Vec3d eye_, target_, backward_, right_, up_;
  double halfHeight_;  // of the image plane at distance 1
};

}  // namespace Velmor::Render
