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

  /// Voxel channel that holds the density, "density" by default.
  API::String density_channel;
  /// Step of the smoothing, 0 by default. Off at 0 and below. Smoothing uses a
  /// voxel channel "tmp" and removes it; one that had this name is lost.
  float smooth;
  /// Smoothing passes, 1 by default. Off at 0.
  unsigned int smooth_iterations;
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
