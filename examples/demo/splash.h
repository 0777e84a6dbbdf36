#pragma once

namespace Velmor::Demo {

/// The signed distance, in voxels, to the surface of a pool into which a drop
/// has just fallen: ripples, a crater, a crown with fingers, droplets and a jet.
/// Outside positive; y points up, the calm level is 0. Smooth unions keep the
/// gradient near 1 along the surface.
float splashDistance(float x, float y, float z);

/// Half the edge of the pool and its depth, in voxels.
inline constexpr float poolHalfWidth = 230.f;
inline constexpr float poolDepth = 70.f;
inline constexpr float splashHeight = 110.f;

}  // namespace Velmor::Demo
