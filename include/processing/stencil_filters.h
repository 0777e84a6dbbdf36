#pragma once

#include "processing/filter.h"

/// The stencils among the filters (`MeanFilter` and those after it) look at a
/// voxel and its 26 neighbours, on float channels only: the other value types have
/// no definition. Derivatives are per voxel, not per world unit. Sums are formed
/// in the order given, in single precision, so that results are the same bits on
/// every processor. As with every stencil, source and destination must be
/// different channels.
namespace Velmor::Processing {

template <class T>
class MeanFilter;

/// The mean of the 27 values: their sum, x offset outermost and z innermost,
/// times the float nearest to 1/27.
template <>
class VELMOR_EXPORT MeanFilter<float> : public HaloFilter<float> {
 public:
  MeanFilter();
  MeanFilter(MeanFilter const& other);
  MeanFilter(MeanFilter&& other) noexcept;
  MeanFilter& operator=(MeanFilter const& other);
  MeanFilter& operator=(MeanFilter&& other) noexcept;
  ~MeanFilter() override;
  float compute(API::VoxelTile<float, 1, 5> const& tile, int i, int j, int k) const override;
};

template <class T>
class MedianFilter;

/// The median of the 27 values: the 14th smallest. NaN counts as larger than
/// every number; which zero comes back where both signs occur is not defined.
template <>
class VELMOR_EXPORT MedianFilter<float> : public HaloFilter<float> {
 public:
  MedianFilter();
  MedianFilter(MedianFilter const& other);
  MedianFilter(MedianFilter&& other) noexcept;
  MedianFilter& operator=(MedianFilter const& other);
  MedianFilter& operator=(MedianFilter&& other) noexcept;
  ~MedianFilter() override;
  float compute(API::VoxelTile<float, 1, 5> const& tile, int i, int j, int k) const override;
};

template <class T>
class LaplacianFilter;

/// A sixth of the Laplacian: the six face neighbours less six times the voxel,
/// -x first and +z last, times the float nearest to 1/6.
template <>
class VELMOR_EXPORT LaplacianFilter<float> : public HaloFilter<float> {
 public:
  LaplacianFilter();
  LaplacianFilter(LaplacianFilter const& other);
  LaplacianFilter(LaplacianFilter&& other) noexcept;
  LaplacianFilter& operator=(LaplacianFilter const& other);
  LaplacianFilter& operator=(LaplacianFilter&& other) noexcept;
  ~LaplacianFilter() override;
  float compute(API::VoxelTile<float, 1, 5> const& tile, int i, int j, int k) const override;
};

template <class T>
class CurvatureFilter;

/// The curvature of the level set through the voxel, by central differences.
///
/// The numerator of the mean curvature over twice the squared gradient, and a
/// third of that: with gradient 1, a third of the mean curvature (1/(3r) on a
/// sphere of r voxels, positive where the inside is convex); scaled with the
/// field otherwise. 0 where there is no gradient.
template <>
class VELMOR_EXPORT CurvatureFilter<float> : public HaloFilter<float> {
 public:
  CurvatureFilter();
  CurvatureFilter(CurvatureFilter const& other);
  CurvatureFilter(CurvatureFilter&& other) noexcept;
  CurvatureFilter& operator=(CurvatureFilter const& other);
  CurvatureFilter& operator=(CurvatureFilter&& other) noexcept;
  ~CurvatureFilter() override;
  float compute(API::VoxelTile<float, 1, 5> const& tile, int i, int j, int k) const override;
};

}  // namespace Velmor::Processing
