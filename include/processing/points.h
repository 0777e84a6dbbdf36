#pragma once

#include "processing/shape.h"

namespace Velmor::Processing {

/// What `Points` is made from.
struct VELMOR_EXPORT PointsParameters : ShapeParameters {
  PointsParameters();
  PointsParameters(PointsParameters const& other);
  PointsParameters(PointsParameters&& other);
  PointsParameters& operator=(PointsParameters const& other);
  ~PointsParameters() override;
  API::String str() const override;

  /// Point channel of three floats that holds the positions, "position" by default.
  API::String position_channel;
  /// Radius of every point, 0.1 by default. This and the next two are carried
  /// for the caller: `Points` does not read them.
  float radius;
  /// Whether radii come from `radius_channel`; false by default.
  bool enable_radius_channel;
  /// Point channel that holds radii, "density" by default.
  API::String radius_channel;
};

/// The particles of an object.
class VELMOR_EXPORT Points : public Shape {
 public:
  explicit Points(PointsParameters const& parameters);
  Points(Points const& other);
  Points& operator=(Points const& other);
  ~Points() override;

  /// Positions in voxel units. Invalid, without a message, if the points have
  /// no channel of that name.
  API::PointChannel const& positionChannel() const;
  /// Replaces `out` with the world positions of all points, in the order in
  /// which the host iterates its leaf tiles: voxel units times the voxel scale
  /// of the points' layout. False, and `out` untouched, without points or
  /// position channel; all zero if that channel does not hold three floats.
  bool positions(API::Array<orlen::Math::vec<3, float>>& out) const;

 private:
  API::PointChannel positionChannel_;
};

}  // namespace Velmor::Processing
