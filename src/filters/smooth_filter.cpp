#include "processing/smooth_filter.h"

#include <cassert>
#include <memory>

#include "processing/mixer.h"
#include "processing/pointwise_filters.h"
#include "processing/stencil_filters.h"
#include "velmorapi/object_model.h"
#include "velmorapi/state_server.h"

namespace Velmor::Processing {

namespace {

std::unique_ptr<Filter> speedFilter(SmoothFilter<float>::Mode mode) {
  switch (mode) {
    case SmoothFilter<float>::Laplacian:
      return std::make_unique<LaplacianFilter<float>>();
    case SmoothFilter<float>::Curvature:
      return std::make_unique<CurvatureFilter<float>>();
  }
  return nullptr;
}

}  // namespace

SmoothFilter<float>::SmoothFilter(Mode mode, unsigned int iterations, float step)
    : mode_(mode), iterations_(iterations), step_(step) {}
SmoothFilter<float>::SmoothFilter(SmoothFilter const&) = default;
SmoothFilter<float>::SmoothFilter(SmoothFilter&&) noexcept = default;
SmoothFilter<float>& SmoothFilter<float>::operator=(SmoothFilter const&) = default;
SmoothFilter<float>& SmoothFilter<float>::operator=(SmoothFilter&&) noexcept = default;
SmoothFilter<float>::~SmoothFilter() = default;

void SmoothFilter<float>::filter(API::Channel src, API::Channel dst) const {
  if (src != dst) IdentityFilter<float>().filter(src, dst);

  API::Layout const layout(dst.layout());
  auto const speed = speedFilter(mode_);
  assert(speed != nullptr || iterations_ == 0);

  API::StateServer const server(API::ObjectModel::stateServer(dst.stateID()));
  API::VoxelChannel tmp(server.createChannel(dst.component(), dst.dataType(), "tmp"));
  tmp.setBackgroundValue(0.f);

  StepMixer<float> mixer(step_);
  mixer.setDepths(layout.maxDepth(), layout.maxDepth());
  if (speed != nullptr) {
    for (unsigned int i = 0; i < iterations_; ++i) {
      speed->filter(dst, tmp);
      mixer.mix(dst, tmp, dst);
    }
  }

  // The server must hold the last reference when it lets go of the channel.
  tmp = {};
  server.removeChannel("tmp");
}

}  // namespace Velmor::Processing
