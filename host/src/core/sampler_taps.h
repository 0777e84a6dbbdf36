#pragma once

#include "core/sampler_item.h"

// The order of operations, whatever the position: products and sums along y for
// each of the three x, then along z, then along x, each from the lowest tap up.
// A position on the border of two voxels has two taps on that axis instead of
// three, as the third weight is zero: an infinite value there must not matter.

namespace Velmor::API {

/// Beyond every tree, and exact in float together with its halves.
inline constexpr float farAway = 4194304.f;

using FloatLanes = float __attribute__((vector_size(16)));

/// Coordinates as the voxels that hold them, one per lane, and their distances
/// from the centres of those, in [-0.5, 0.5). At -0.5 there are two taps.
struct Axes {
  IntLanes voxel;
  FloatLanes r;
};

/// Of coordinates between -farAway and farAway.
inline Axes axesAt(FloatLanes x) noexcept {
  auto const toFloat = [](IntLanes a) { return __builtin_convertvector(a, FloatLanes); };
  auto voxel = __builtin_convertvector(x, IntLanes);
  voxel += toFloat(voxel) > x;  // truth is -1
  auto const r = x - (toFloat(voxel) + 0.5f);
  auto const above = r >= 0.5f;  // just below an integer, rounded onto it
  return {voxel - above, above ? FloatLanes{} - 0.5f : r};
}

/// The factors of the lowest, the middle and the highest tap of each coordinate.
struct Factors {
  FloatLanes low, middle, high;
};
inline Factors weightsAt(FloatLanes r) noexcept {
  auto const below = 0.5f - r, above = 0.5f + r;
  return {0.5f * (below * below), 0.75f - r * r, 0.5f * (above * above)};
}

}  // namespace Velmor::API
