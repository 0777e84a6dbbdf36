#pragma once

#include "processing/shape.h"

namespace Velmor::Processing {

/// What `Volume` is made from.
struct VELMOR_EXPORT VolumeParameters : ShapeParameters {
  VolumeParameters();
  VolumeParameters(VolumeParameters const& other);
  VolumeParameters(VolumeParameters&& other);
  VolumeParameters& operator=(VolumeParameters const& other);
  ~VolumeParameters() override;
  API::String str() const override;

  API::String density_channel;
  float smooth;                    ///< step of the smoothing; 0 or less turns it off
  unsigned int smooth_iterations;  ///< 0 turns smoothing off
};

/// A density field: a single-float voxel channel, smoothed if asked for.
///
/// If the channel is missing or of another type, `status()` says so and lists
/// the float channels there are, behind what loading had to say.
class VELMOR_EXPORT Volume : public Shape {
 public:
  explicit Volume(VolumeParameters const& parameters);
  Volume(Volume const& other);
  Volume& operator=(Volume const& other);
  ~Volume() override;

 private:
  API::String densityChannelName_;
};

}  // namespace Velmor::Processing
