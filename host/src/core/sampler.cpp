#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "core/sampler_item.h"
#include "velmorapi/channel.h"

// The order of operations, whatever the position: products and sums along y for
// each of the three x, then along z, then along x, each from the lowest tap up.
// A position on the border of two voxels has two taps on that axis instead of
// three, as the third weight is zero: an infinite value there must not matter.

namespace Velmor::API {

namespace {

using orlen::Math::vec;
using Position = vec<3, float>;

// Beyond every tree, and exact in float together with its halves.
constexpr float farAway = 4194304.f;

/// Three values that lie side by side along x, as one.
template <class T>
struct Row {
  T x[3];
  friend Row operator*(Row const& a, float b) { return {{a.x[0] * b, a.x[1] * b, a.x[2] * b}}; }
  friend Row operator+(Row const& a, Row const& b) {
    return {{a.x[0] + b.x[0], a.x[1] + b.x[1], a.x[2] + b.x[2]}};
  }
};
using FloatLanes = float __attribute__((vector_size(16)));
template <>
struct Row<float> {
  FloatLanes x;
  friend Row operator*(Row const& a, float b) { return {a.x * b}; }
  friend Row operator+(Row const& a, Row const& b) { return {a.x + b.x}; }
};

template <class T>
Row<T> makeRow(T const& a, T const& b, T const& c) {
  if constexpr (std::is_same_v<T, float>) {
    return {FloatLanes{a, b, c, 0.f}};
  } else {
    return {{a, b, c}};
  }
}

struct Axis {
  std::int32_t voxel;  // the one that holds the position
  float r;             // from its centre, in [-0.5, 0.5)

  bool twoTaps() const { return r == -0.5f; }
  void weights(float (&w)[3]) const {
    float const below = 0.5f - r, above = 0.5f + r;
    w[0] = 0.5f * (below * below);
    w[1] = 0.75f - r * r;
    w[2] = 0.5f * (above * above);
  }
  void slopes(float (&w)[3]) const {
    w[0] = r - 0.5f;
    w[1] = -2.f * r;
    w[2] = 0.5f + r;
  }
};

/// Of a coordinate between -farAway and farAway.
Axis axisAt(float x) {
  auto voxel = static_cast<std::int32_t>(x);
  voxel -= static_cast<std::int32_t>(static_cast<float>(voxel) > x);
  float r = x - (static_cast<float>(voxel) + 0.5f);
  if (r >= 0.5f) {  // just below an integer, rounded onto it
    r = -0.5f;
    ++voxel;
  }
  return {voxel, r};
}

/// For each voxel that taps can reach, from two before a block to two behind it:
/// which of three blocks holds it, and its number there.
constexpr int reach = 2;
constexpr std::array<int, tileWidth + 2 * reach> blockAlong{0, 0, 1, 1, 1, 1, 1, 2, 2};
constexpr std::array<int, tileWidth + 2 * reach> cellAlong{3, 4, 0, 1, 2, 3, 4, 0, 1};

/// Sets of blocks along an axis, one bit each, spread out so that products of
/// an x, a y and a z set are sets of the 27.
constexpr std::array<std::uint32_t, 8> ySets{0, 1, 8, 9, 64, 65, 72, 73};
constexpr std::array<std::uint32_t, 8> zSets{
    0, 1, 1 << 9, 1 | 1 << 9, 1 << 18, 1 | 1 << 18, 1 << 9 | 1 << 18, 1 | 1 << 9 | 1 << 18};

template <int Count>
using Constant = std::integral_constant<int, Count>;

/// Reads `ny` * `nz` rows of `nx` taps from voxel (x, y, z) of the block on.
template <class T, class X, class Y, class Z>
void gather(SamplerItem& sampler, int x, int y, int z, X nx, Y ny, Z nz, Row<T> (&rows)[3][3]) {
  auto const blockOf = [](int voxel) {
    return blockAlong[static_cast<std::size_t>(voxel + reach)];
  };
  auto const set = [&](int first, int count) {
    return std::size_t{1} << blockOf(first) | std::size_t{1} << blockOf(first + count - 1);
  };
  bool const tiles = sampler.prepare(static_cast<std::uint32_t>(set(x, nx)) * ySets[set(y, ny)] *
                                     zSets[set(z, nz)]);
  bool const oneAlongX = blockOf(x) == blockOf(x + nx - 1);
  int blocks[3][3], cells[3][3];  // by axis and tap
  auto const along = [&](std::size_t axis, int first, int count, int blockStep, int cellStep) {
    for (int t = 0; t < count; ++t) {
      auto const voxel = static_cast<std::size_t>(first + t + reach);
      blocks[axis][t] = blockStep * blockAlong[voxel];
      cells[axis][t] = cellStep * cellAlong[voxel];
    }
  };
  along(0, x, nx, 1, 1);
  along(1, y, ny, 3, tileWidth);
  along(2, z, nz, 9, tileWidth * tileWidth);
  auto const read = [&](auto const& row) {
    for (int k = 0; k < nz; ++k) {
      for (int j = 0; j < ny; ++j) {
        rows[k][j] = row(blocks[1][j] + blocks[2][k], cells[1][j] + cells[2][k]);
      }
    }
  };
  if (tiles && oneAlongX) {
    read([&](int block, int cell) {
      auto const* const first = sampler.values<T>(block + blocks[0][0]) + cell + cells[0][0];
      return makeRow(first[0], first[1], nx == 3 ? first[2] : T());
    });
  } else if (tiles) {
    read([&](int block, int cell) {
      auto const tap = [&](int i) {
        return sampler.values<T>(block + blocks[0][i])[cell + cells[0][i]];
      };
      return makeRow(tap(0), tap(1), nx == 3 ? tap(2) : T());
    });
  } else {
    read([&](int block, int cell) {
      auto const tap = [&](int i) {
        int const b = block + blocks[0][i];
        return sampler.values<T>(b)[sampler.isTile(b) ? cell + cells[0][i] : 0];
      };
      return makeRow(tap(0), tap(1), nx == 3 ? tap(2) : T());
    });
  }
}

template <class V, class Count>
V weighted(V const* values, float const (&w)[3], Count count) {
  V sum = values[0] * w[0] + values[1] * w[1];
  if (count == 3) sum = sum + values[2] * w[2];
  return sum;
}

template <class T, class Count>
T alongX(Row<T> const& row, float const (&w)[3], Count count) {
  T sum = row.x[0] * w[0] + row.x[1] * w[1];
  if (count == 3) sum = sum + row.x[2] * w[2];
  return sum;
}

template <class T, class X, class Y, class Z>
void evaluate(SamplerItem& sampler, Axis const (&axes)[3], X nx, Y ny, Z nz, T& value,
              Position* gradient) {
  auto const& origin = sampler.origin();
  Row<T> rows[3][3];
  gather<T>(sampler, axes[0].voxel - origin.i - 1, axes[1].voxel - origin.j - 1,
            axes[2].voxel - origin.k - 1, nx, ny, nz, rows);
  float wx[3], wy[3], wz[3];
  axes[0].weights(wx);
  axes[1].weights(wy);
  axes[2].weights(wz);
  Row<T> planes[3];
  for (int k = 0; k < nz; ++k) planes[k] = weighted(rows[k], wy, ny);
  auto const column = weighted(planes, wz, nz);
  value = alongX(column, wx, nx);
  if constexpr (std::is_same_v<T, float>) {
    if (gradient == nullptr) return;
    float sx[3], sy[3], sz[3];
    axes[0].slopes(sx);
    axes[1].slopes(sy);
    axes[2].slopes(sz);
    Row<T> slopes[3];
    for (int k = 0; k < nz; ++k) slopes[k] = weighted(rows[k], sy, ny);
    *gradient = {alongX(column, sx, nx), alongX(weighted(slopes, wz, nz), wx, nx),
                 alongX(weighted(planes, sz, nz), wx, nx)};
  }
}

template <class T>
void sampleFinite(SamplerItem& sampler, Position const& x, T& value, Position* gradient) {
  Axis const axes[3] = {axisAt(x.x), axisAt(x.y), axisAt(x.z)};
  sampler.moveTo({axes[0].voxel, axes[1].voxel, axes[2].voxel});
  int const two = axes[0].twoTaps() + axes[1].twoTaps() + axes[2].twoTaps();
  if (two == 3) {
    evaluate(sampler, axes, Constant<2>(), Constant<2>(), Constant<2>(), value, gradient);
  } else if (two == 0) {
    evaluate(sampler, axes, Constant<3>(), Constant<3>(), Constant<3>(), value, gradient);
  } else {
    auto const taps = [](Axis const& axis) { return axis.twoTaps() ? 2 : 3; };
    evaluate(sampler, axes, taps(axes[0]), taps(axes[1]), taps(axes[2]), value, gradient);
  }
}

template <class T>
void sampleAt(SamplerItem* sampler, Position const& position, T& value, Position* gradient) {
  if (sampler == nullptr || sampler->channel().type() != dataTypeOf<T>) {
    value = T();
    if (gradient != nullptr) *gradient = Position();
    return;
  }
  auto x = position;
  bool const world = sampler->space() == SamplerSpace::World;
  auto const scale = world ? sampler->layout().voxelScale() : 1.f;
  if (world) x = {x.x / scale, x.y / scale, x.z / scale};
  auto const isNear = [](float a) { return std::abs(a) < farAway; };  // false for NaN
  if (!isNear(x.x) || !isNear(x.y) || !isNear(x.z)) {
    if (!std::isfinite(x.x) || !std::isfinite(x.y) || !std::isfinite(x.z)) {
      constexpr float nan = std::numeric_limits<float>::quiet_NaN();
      value = T(nan);
      if (gradient != nullptr) *gradient = Position(nan);
      return;
    }
    auto const limit = [](float a) {
      return std::fmin(std::fmax(a, 1.f - farAway), farAway - 1.f);
    };
    x = {limit(x.x), limit(x.y), limit(x.z)};
  }
  sampleFinite(*sampler, x, value, gradient);
  if (world && gradient != nullptr) {
    *gradient = {gradient->x / scale, gradient->y / scale, gradient->z / scale};
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
