#pragma once

#include "core/tile_kernel.h"

namespace Velmor::Processing {

/// The vector widths that the kernels are built for.
enum class VectorLevel { Baseline, Avx2, Avx512 };

/// The widest level that this processor and its operating system offer.
VectorLevel bestVectorLevel();

/// Whole-tile forms of the stencils. All levels give the same bits.
struct StencilKernels {
  using Kernel = TileKernel<HaloFilter<float>>;
  Kernel mean, median, laplacian, curvature;
};
StencilKernels stencilKernels(VectorLevel level);

}  // namespace Velmor::Processing
