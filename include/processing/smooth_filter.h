#pragma once

#include "processing/filter.h"

namespace Velmor::Processing {

template <class T>
class SmoothFilter;

/// Smooths a float channel by steps of a flow: repeats
/// dst = dst + step * speed(dst) on the leaf tiles, where the speed is the
/// `LaplacianFilter` or the `CurvatureFilter` of all of dst.
///
/// Starts from a copy of `src`, of all depths, unless both channels are one.
/// Coarse values are read, never smoothed. Uses none of its own traversal
/// settings. While it runs, the component of `dst` has a channel "tmp"; one of
/// that name that was there before is lost. Reports nothing; if "tmp" cannot be
/// made, `dst` is left as the copy. Not while another thread works on the
/// component.
template <>
class VELMOR_EXPORT SmoothFilter<float> : public Filter {
 public:
  enum Mode : int { Laplacian = 0, Curvature = 1 };

  /// `step` is in units of the speed: up to 1 for the Laplacian, which is the
  /// mean of the six neighbours less the voxel. Other modes than the two named
  /// must not be used; they do not smooth.
  SmoothFilter(Mode mode, unsigned int iterations, float step);
  SmoothFilter(SmoothFilter const& other);
  SmoothFilter(SmoothFilter&& other) noexcept;
  SmoothFilter& operator=(SmoothFilter const& other);
  SmoothFilter& operator=(SmoothFilter&& other) noexcept;
  ~SmoothFilter() override;

  void filter(API::Channel src, API::Channel dst) const override;

 private:
  Mode mode_;
  unsigned int iterations_;
  float step_;
};

}  // namespace Velmor::Processing
