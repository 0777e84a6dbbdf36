#pragma once

#include "processing/shape.h"

namespace Velmor::Processing {

/// What `Points` is made from. The radius fields are carried for the caller.
struct VELMOR_EXPORT PointsParameters : ShapeParameters {
  PointsParameters();
  PointsParameters(PointsParameters const& other);
  PointsParameters(PointsParameters&& other);
  PointsParameters& operator=(PointsParameters const& other);
  ~PointsParameters() override;
  API::String str() const override;

  API::String position_channel;
  float radius;
  bool enable_radius_channel;
  API::String radius_channel;
};

/// The particles of an object.
class VELMOR_EXPORT Points : public Shape {
 public:
  explicit Points(PointsParameters const& parameters);
  Points(Points const& other);
  Points& operator=(Points const& other);
  ~Points() override;

  /// Positions in voxel units; invalid if there is no channel of that name.
  API::PointChannel const& positionChannel() const;
  /// Replaces `out` with the world positions of all points, tile by tile. False,
  /// and `out` untouched, without points or position channel.
  bool positions(API::Array<orlen::Math::vec<3, float>>& out) const;

 private:
  API::PointChannel positionChannel_;
};

}  // namespace Velmor::Processing
