#pragma once

#include <algorithm>
#include <array>
#include <cmath>

/// The value of each stencil at one voxel. `c` points to the voxel in a block
/// of 7 values per axis, x fastest; sums are formed in the order written, which
/// is part of every result. Free of branches, and always inlined, so that a
/// loop over voxels becomes vector code for the processor its caller is built
/// for.
namespace Velmor::Processing::StencilRules {

inline constexpr int sx = 1, sy = 7, sz = 49;

[[gnu::always_inline]] inline float mean(float const* c) {
  // Written out: the order, x outermost, cannot be lost to a loop transformation.
  float const* const a = c - sx;
  float const* const b = c + sx;
  float sum = 0.f;
  sum += a[-sy - sz], sum += a[-sy], sum += a[-sy + sz];
  sum += a[-sz], sum += a[0], sum += a[sz];
  sum += a[sy - sz], sum += a[sy], sum += a[sy + sz];
  sum += c[-sy - sz], sum += c[-sy], sum += c[-sy + sz];
  sum += c[-sz], sum += c[0], sum += c[sz];
  sum += c[sy - sz], sum += c[sy], sum += c[sy + sz];
  sum += b[-sy - sz], sum += b[-sy], sum += b[-sy + sz];
  sum += b[-sz], sum += b[0], sum += b[sz];
  sum += b[sy - sz], sum += b[sy], sum += b[sy + sz];
  return sum * 0.037037037f;
}

[[gnu::always_inline]] inline float laplacian(float const* c) {
  float const sum = (((((c[-sx] - 6.f * c[0]) + c[sx]) + c[-sy]) + c[sy]) + c[-sz]) + c[sz];
  return sum * 0.16666667f;
}

/// The squared length of the gradient, and what is divided by it.
struct CurvatureTerms {
  float squared, numerator;
};

[[gnu::always_inline]] inline CurvatureTerms curvatureTerms(float const* c) {
  float const dx = (c[sx] - c[-sx]) * 0.5f;
  float const dy = (c[sy] - c[-sy]) * 0.5f;
  float const dz = (c[sz] - c[-sz]) * 0.5f;
  float const squared = (dy * dy + dx * dx) + dz * dz;
  float const dxx = c[sx] - 2.f * c[0] + c[-sx];
  float const dyy = c[sy] - 2.f * c[0] + c[-sy];
  float const dzz = c[sz] - 2.f * c[0] + c[-sz];
  float const dxy = (c[sx + sy] - c[sx - sy] + c[-sx - sy] - c[-sx + sy]) * 0.25f;
  float const dxz = (c[sx + sz] - c[sx - sz] + c[-sx - sz] - c[-sx + sz]) * 0.25f;
  float const dyz = (c[sy + sz] - c[sy - sz] + c[-sy - sz] - c[-sy + sz]) * 0.25f;
  float const n = dy * dy * (dxx + dzz) + dx * dx * (dyy + dzz) + dz * dz * (dxx + dyy) -
                  2.f * ((dxy * dy + dxz * dz) * dx + dyz * dy * dz);
  return {squared, n};
}

[[gnu::always_inline]] inline float curvature(CurvatureTerms const& terms) {
  float const g = std::sqrt(terms.squared);
  // Twice the square, not the cube, and a third: the flow's own scaling.
  float const result = terms.numerator / (2.f * g * g) * 0.33333334f;
  // A NaN gradient is not "no gradient": it must come out as NaN.
  return 0.f >= terms.squared ? 0.f : result;
}

[[gnu::always_inline]] inline float curvature(float const* c) {
  return curvature(curvatureTerms(c));
}

/// Ascending, NaN last.
inline bool ranksBefore(float a, float b) { return a < b || (std::isnan(b) && !std::isnan(a)); }

inline float median(float const* c) {
  std::array<float, 27> values;
  auto* next = values.data();
  for (int x = -sx; x <= sx; x += sx) {
    for (int y = -sy; y <= sy; y += sy) {
      for (int z = -sz; z <= sz; z += sz) *next++ = c[x + y + z];
    }
  }
  std::nth_element(values.begin(), values.begin() + 13, values.end(), ranksBefore);
  return values[13];
}

}  // namespace Velmor::Processing::StencilRules
