#include <cmath>
#include <limits>

#include "core/sampler_item.h"
#include "velmorapi/channel.h"

namespace Velmor::API {

namespace {

using orlen::Math::vec;
using Position = vec<3, float>;

// Beyond every tree, and exact in float together with its halves.
constexpr float farAway = 4194304.f;

/// The taps along one axis: voxels `first` to `first + count - 1`, with the
/// weights of value and derivative. A position on the border of two voxels has
/// two taps, as the third weight is zero: an infinite value there must not matter.
struct Axis {
  std::int32_t first;
  int count;
  float weight[3];
  float slope[3];
};

Axis axisAt(float x) {
  auto const floor = std::floor(x);
  float r = x - (floor + 0.5f);
  auto b = static_cast<std::int32_t>(floor);
  if (r >= 0.5f) {  // just below an integer, rounded onto it
    r = -0.5f;
    ++b;
  }
  float const below = 0.5f - r, above = 0.5f + r;
  return {b - 1,
          above == 0.f ? 2 : 3,
          {0.5f * (below * below), 0.75f - r * r, 0.5f * (above * above)},
          {-below, -2.f * r, above}};
}

float clampFar(float x) { return x > farAway ? farAway : x < -farAway ? -farAway : x; }

/// Voxel coordinates of a position in the sampler's space; false if not finite.
bool toIndex(SamplerItem const& sampler, Position const& position, Position& x) {
  x = position;
  if (sampler.space() == SamplerSpace::World) {
    auto const scale = sampler.channel().layout().voxelScale();
    x = {x.x / scale, x.y / scale, x.z / scale};
  }
  if (!std::isfinite(x.x) || !std::isfinite(x.y) || !std::isfinite(x.z)) return false;
  x = {clampFar(x.x), clampFar(x.y), clampFar(x.z)};
  return true;
}

/// The taps' values, in a block of nx * ny * nz.
template <class T>
void gather(SamplerItem& sampler, Axis const (&axes)[3], T* taps) {
  sampler.moveTo({axes[0].first + 1, axes[1].first + 1, axes[2].first + 1});
  auto const& origin = sampler.origin();
  int const lx = axes[0].first - origin.i, ly = axes[1].first - origin.j,
            lz = axes[2].first - origin.k;
  for (int z = lz; z < lz + axes[2].count; ++z) {
    int const nz = z < 0 ? 0 : (z < tileWidth ? 1 : 2);
    for (int y = ly; y < ly + axes[1].count; ++y) {
      int const ny = y < 0 ? 0 : (y < tileWidth ? 1 : 2);
      for (int x = lx; x < lx + axes[0].count; ++x) {
        int const nx = x < 0 ? 0 : (x < tileWidth ? 1 : 2);
        auto const& block = sampler.block(nx + 3 * (ny + 3 * nz));
        auto const cell = static_cast<std::uint32_t>(
            cellOf(x - tileWidth * (nx - 1), y - tileWidth * (ny - 1), z - tileWidth * (nz - 1)));
        *taps++ = reinterpret_cast<T const*>(block.data)[cell & block.mask];
      }
    }
  }
}

template <class T>
T weighted(T const* values, float const (&weights)[3], int count) {
  T sum = values[0] * weights[0] + values[1] * weights[1];
  if (count == 3) sum = sum + values[2] * weights[2];
  return sum;
}

// Along x first, then y, then z, each from the lowest tap up; `wx` to `wz` are
// the weights or, along the axis of a derivative, the slopes.
template <class T>
T sum(T const* taps, Axis const (&axes)[3], float const (&wx)[3], float const (&wy)[3],
      float const (&wz)[3]) {
  T planes[3]{};
  for (int z = 0; z < axes[2].count; ++z) {
    T rows[3]{};
    for (int y = 0; y < axes[1].count; ++y) {
      rows[y] = weighted(taps, wx, axes[0].count);
      taps += axes[0].count;
    }
    planes[z] = weighted(rows, wy, axes[1].count);
  }
  return weighted(planes, wz, axes[2].count);
}

template <class T>
T notANumber() {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  return T(nan);
}

template <class T>
void sampleAt(SamplerItem* sampler, Position const& position, T& value, Position* gradient) {
  value = T();
  if (gradient != nullptr) *gradient = Position();
  if (sampler == nullptr || sampler->channel().type() != dataTypeOf<T>) return;
  Position x;
  if (!toIndex(*sampler, position, x)) {
    value = notANumber<T>();
    if (gradient != nullptr) *gradient = notANumber<Position>();
    return;
  }
  Axis const axes[3] = {axisAt(x.x), axisAt(x.y), axisAt(x.z)};
  T taps[27];
  gather(*sampler, axes, taps);
  value = sum(taps, axes, axes[0].weight, axes[1].weight, axes[2].weight);
  if constexpr (std::is_same_v<T, float>) {
    if (gradient == nullptr) return;
    *gradient = {sum(taps, axes, axes[0].slope, axes[1].weight, axes[2].weight),
                 sum(taps, axes, axes[0].weight, axes[1].slope, axes[2].weight),
                 sum(taps, axes, axes[0].weight, axes[1].weight, axes[2].slope)};
    if (sampler->space() == SamplerSpace::World) {
      auto const scale = sampler->channel().layout().voxelScale();
      *gradient = {gradient->x / scale, gradient->y / scale, gradient->z / scale};
    }
  }
}

SamplerItem* samplerOf(Ref const& ref) { return static_cast<SamplerItem*>(ref.item()); }

}  // namespace

VoxelSampler::VoxelSampler(Ref const& ref) noexcept : Ref(refAs<SamplerItem>(ref)) {}

void VoxelSampler::sampleValue(Position const& position, float& value) const {
  sampleAt(samplerOf(*this), position, value, nullptr);
}

void VoxelSampler::sampleValue(Position const& position, vec<2, float>& value) const {
  sampleAt(samplerOf(*this), position, value, nullptr);
}

void VoxelSampler::sampleValue(Position const& position, vec<3, float>& value) const {
  sampleAt(samplerOf(*this), position, value, nullptr);
}

void VoxelSampler::sampleValueAndGradient(Position const& position, float& value,
                                          Position& gradient) const {
  sampleAt(samplerOf(*this), position, value, &gradient);
}

}  // namespace Velmor::API
