#include "processing/volume.h"

#include "processing/smooth_filter.h"
#include "shapes/candidates.h"
#include "shapes/parameter_lines.h"

namespace Velmor::Processing {

VolumeParameters::VolumeParameters()
    : density_channel("density"), smooth(0.f), smooth_iterations(1) {}

VolumeParameters::VolumeParameters(VolumeParameters const&) = default;
VolumeParameters::VolumeParameters(VolumeParameters&& other)
    : VolumeParameters(static_cast<VolumeParameters const&>(other)) {}
VolumeParameters& VolumeParameters::operator=(VolumeParameters const&) = default;
VolumeParameters::~VolumeParameters() = default;

API::String VolumeParameters::str() const {
  Stream out;
  out << ShapeParameters::str();
  writeParameter(out, "density_channel", density_channel);
  writeParameter(out, "smooth", smooth);
  writeParameter(out, "smooth_iterations", smooth_iterations);
  return out.str();
}

Volume::Volume(VolumeParameters const& parameters)
    : Shape(parameters), densityChannelName_(parameters.density_channel) {
  // Also after a failed load: the error then lists no channels.
  API::VoxelChannel const density(voxels_.findChannel(densityChannelName_));
  if (!isFloatChannel(density)) {
    // The word for surfaces, also here: clients know this text.
    writeInvalidChannel(status_.fail(), "distance", densityChannelName_, voxels_);
    return;
  }
  if (parameters.smooth > 0.f && parameters.smooth_iterations != 0) {
    SmoothFilter<float>(SmoothFilter<float>::Laplacian, parameters.smooth_iterations,
                        parameters.smooth)
        .filter(density, density);
  }
}

Volume::Volume(Volume const&) = default;
Volume& Volume::operator=(Volume const&) = default;
Volume::~Volume() = default;

}  // namespace Velmor::Processing
