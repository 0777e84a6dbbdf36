#include "processing/stencil_filters.h"

#include "filters/stencil_kernels.h"
#include "filters/stencil_rules.h"

namespace Velmor::Processing {

namespace {

using Block = API::VoxelTile<float, 1, 5>;

float const* voxel(Block const& tile, int i, int j, int k) {
  return tile.values + Block::offset(i, j, k);
}

}  // namespace

MeanFilter<float>::MeanFilter() = default;
MeanFilter<float>::MeanFilter(MeanFilter const&) = default;
MeanFilter<float>::MeanFilter(MeanFilter&&) noexcept = default;
MeanFilter<float>& MeanFilter<float>::operator=(MeanFilter const&) = default;
MeanFilter<float>& MeanFilter<float>::operator=(MeanFilter&&) noexcept = default;
MeanFilter<float>::~MeanFilter() = default;

float MeanFilter<float>::compute(Block const& tile, int i, int j, int k) const {
  return StencilRules::mean(voxel(tile, i, j, k));
}

MedianFilter<float>::MedianFilter() = default;
MedianFilter<float>::MedianFilter(MedianFilter const&) = default;
MedianFilter<float>::MedianFilter(MedianFilter&&) noexcept = default;
MedianFilter<float>& MedianFilter<float>::operator=(MedianFilter const&) = default;
MedianFilter<float>& MedianFilter<float>::operator=(MedianFilter&&) noexcept = default;
MedianFilter<float>::~MedianFilter() = default;

float MedianFilter<float>::compute(Block const& tile, int i, int j, int k) const {
  return StencilRules::median(voxel(tile, i, j, k));
}

LaplacianFilter<float>::LaplacianFilter() = default;
LaplacianFilter<float>::LaplacianFilter(LaplacianFilter const&) = default;
LaplacianFilter<float>::LaplacianFilter(LaplacianFilter&&) noexcept = default;
LaplacianFilter<float>& LaplacianFilter<float>::operator=(LaplacianFilter const&) = default;
LaplacianFilter<float>& LaplacianFilter<float>::operator=(LaplacianFilter&&) noexcept = default;
LaplacianFilter<float>::~LaplacianFilter() = default;

float LaplacianFilter<float>::compute(Block const& tile, int i, int j, int k) const {
  return StencilRules::laplacian(voxel(tile, i, j, k));
}

CurvatureFilter<float>::CurvatureFilter() = default;
CurvatureFilter<float>::CurvatureFilter(CurvatureFilter const&) = default;
CurvatureFilter<float>::CurvatureFilter(CurvatureFilter&&) noexcept = default;
CurvatureFilter<float>& CurvatureFilter<float>::operator=(CurvatureFilter const&) = default;
CurvatureFilter<float>& CurvatureFilter<float>::operator=(CurvatureFilter&&) noexcept = default;
CurvatureFilter<float>::~CurvatureFilter() = default;

float CurvatureFilter<float>::compute(Block const& tile, int i, int j, int k) const {
  return StencilRules::curvature(voxel(tile, i, j, k));
}

std::span<TileKernelEntry<HaloFilter<float>> const> TileKernels<HaloFilter<float>>::all() {
  static auto const kernels = stencilKernels(bestVectorLevel());
  static TileKernelEntry<HaloFilter<float>> const entries[] = {
      {&typeid(MeanFilter<float>), kernels.mean},
      {&typeid(MedianFilter<float>), kernels.median},
      {&typeid(LaplacianFilter<float>), kernels.laplacian},
      {&typeid(CurvatureFilter<float>), kernels.curvature},
  };
  return entries;
}

}  // namespace Velmor::Processing
