#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "core/sampler_item.h"
#include "core/sampler_taps.h"
#include "velmorapi/channel.h"

namespace Velmor::API {

namespace {

using orlen::Math::vec;
using Position = vec<3, float>;

/// Three values that lie side by side along x, as one.
template <class T>
struct Row {
  T x[3];
  friend Row operator*(Row const& a, float b) { return {{a.x[0] * b, a.x[1] * b, a.x[2] * b}}; }
  friend Row operator+(Row const& a, Row const& b) {
    return {{a.x[0] + b.x[0], a.x[1] + b.x[1], a.x[2] + b.x[2]}};
  }
};
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

using LongLanes = std::int64_t __attribute__((vector_size(16)));

template <class U>
U load(void const* from) {
  U value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

/// `count` values that follow each other.
template <class T>
Row<T> loadRow(T const* from, int count) {
  if constexpr (std::is_same_v<T, float>) {
    auto const third = count == 3 ? std::int64_t{load<std::uint32_t>(from + 2)} : 0;
    return {reinterpret_cast<FloatLanes>(LongLanes{load<std::int64_t>(from), third})};
  } else {
    return makeRow(from[0], from[1], count == 3 ? from[2] : T());
  }
}

Factors slopesAt(FloatLanes r) { return {r - 0.5f, -2.f * r, 0.5f + r}; }

/// Taps reach from two voxels before a block to two behind it; `first` is the
/// lowest tap's voxel, counted from there. Which of three blocks holds a voxel:
constexpr int reach = 2;
constexpr std::array<std::size_t, tileWidth + 2 * reach> blockAlong{0, 0, 1, 1, 1, 1, 1, 2, 2};

/// The blocks that two or three taps from a voxel on need, one bit each, spread
/// out so that products of an x, a y and a z set are sets of the 27.
constexpr auto tapSets = [] {
  std::array<std::array<std::array<std::uint32_t, 8>, 2>, 3> sets{};
  for (std::size_t axis = 0, step = 1; axis < 3; ++axis, step *= 3) {
    for (std::size_t three = 0; three < 2; ++three) {
      for (std::size_t first = 0; first < 8 - three; ++first) {
        for (std::size_t tap = first; tap < first + 2 + three; ++tap) {
          sets[axis][three][first] |= std::uint32_t{1} << (step * blockAlong[tap]);
        }
      }
    }
  }
  return sets;
}();

template <int Count>
using Constant = std::integral_constant<int, Count>;

/// Reads `ny` * `nz` rows of `nx` taps from voxel `first` of the block on.
template <class T, class X, class Y, class Z>
[[gnu::always_inline]] inline void gather(SamplerItem& sampler, IntLanes first, X nx, Y ny, Z nz,
                                          Row<T> (&rows)[3][3]) {
  int const cell = cellOf(first[0], first[1], first[2]);
  auto const at = [&first](int axis) { return static_cast<std::size_t>(first[axis] + reach); };
  auto const set = [&at](int axis, int count) {
    return tapSets[static_cast<std::size_t>(axis)][count == 3 ? 1 : 0][at(axis)];
  };
  bool const tiles = sampler.prepare(set(0, nx) * set(1, ny) * set(2, nz));
  auto const* const bx = &blockAlong[at(0)];
  auto const* const by = &blockAlong[at(1)];
  auto const* const bz = &blockAlong[at(2)];
  auto const read = [&](auto const& row) {
    for (int k = 0; k < nz; ++k) {
      for (int j = 0; j < ny; ++j) {
        rows[k][j] = row(3 * by[j] + 9 * bz[k], cell + cellOf(0, j, k));
      }
    }
  };
  if (tiles && bx[0] == bx[nx - 1]) {
    read([&](std::size_t block, int from) {
      return loadRow(sampler.tileValues<T>(block + bx[0], from), nx);
    });
  } else if (tiles) {
    read([&](std::size_t block, int from) {
      auto const tap = [&](int i) { return *sampler.tileValues<T>(block + bx[i], from + i); };
      return makeRow(tap(0), tap(1), nx == 3 ? tap(2) : T());
    });
  } else {
    read([&](std::size_t block, int from) {
      auto const tap = [&](int i) { return *sampler.values<T>(block + bx[i], from + i); };
      return makeRow(tap(0), tap(1), nx == 3 ? tap(2) : T());
    });
  }
}

template <class V, class Count>
V weighted(V const* values, Factors const& w, int axis, Count count) {
  V sum = values[0] * w.low[axis] + values[1] * w.middle[axis];
  if (count == 3) sum = sum + values[2] * w.high[axis];
  return sum;
}

template <class T, class Count>
T alongX(Row<T> const& row, Factors const& w, Count count) {
  T sum = row.x[0] * w.low[0] + row.x[1] * w.middle[0];
  if (count == 3) sum = sum + row.x[2] * w.high[0];
  return sum;
}

/// `gradient` is a null pointer or a `Position*`.
template <class T, class Gradient, class X, class Y, class Z>
[[gnu::noinline]] void evaluate(SamplerItem& sampler, IntLanes first, FloatLanes r, X nx, Y ny,
                                Z nz, T& value, Gradient gradient) {
  Row<T> rows[3][3];
  gather<T>(sampler, first, nx, ny, nz, rows);
  auto const w = weightsAt(r);
  Row<T> planes[3]{};
  for (int k = 0; k < nz; ++k) planes[k] = weighted(rows[k], w, 1, ny);
  auto const column = weighted(planes, w, 2, nz);
  value = alongX(column, w, nx);
  if constexpr (std::is_same_v<Gradient, Position*>) {
    auto const s = slopesAt(r);
    Row<T> slopes[3]{};
    for (int k = 0; k < nz; ++k) slopes[k] = weighted(rows[k], s, 1, ny);
    *gradient = {alongX(column, s, nx), alongX(weighted(slopes, w, 2, nz), w, nx),
                 alongX(weighted(planes, s, 2, nz), w, nx)};
  }
}

/// The value at the corner of eight voxels that lie in one tile: the same as
/// `evaluate` would give, all weights being a half.
inline float cornerValue(float const* low) {
  auto const pair = [low](int y, int z) { return load<std::int64_t>(low + cellOf(0, y, z)); };
  auto const planes = reinterpret_cast<FloatLanes>(LongLanes{pair(0, 0), pair(0, 1)}) * 0.5f +
                      reinterpret_cast<FloatLanes>(LongLanes{pair(1, 0), pair(1, 1)}) * 0.5f;
  auto const halves = planes * 0.5f;
  return (halves[0] + halves[2]) * 0.5f + (halves[1] + halves[3]) * 0.5f;
}

/// `at` is the voxel that holds the position, counted from the current block's first.
template <class T, class Gradient>
[[gnu::always_inline]] inline void sampleNear(SamplerItem& sampler, IntLanes at, FloatLanes r,
                                              T& value, Gradient gradient) {
  auto const first = at - 1;
  auto const isTwo = reinterpret_cast<LongLanes>(r == -0.5f);
  if (isTwo[0] == -1 && static_cast<std::int32_t>(isTwo[1]) == -1) {
    if constexpr (std::is_same_v<T, float> && !std::is_same_v<Gradient, Position*>) {
      constexpr int middle = 13;
      auto const isInside = [&first](int axis) {
        return static_cast<std::uint32_t>(first[axis]) < tileWidth - 1;
      };
      if (isInside(0) && isInside(1) && isInside(2) && sampler.prepare(1u << middle)) {
        value =
            cornerValue(sampler.tileValues<float>(middle, cellOf(first[0], first[1], first[2])));
        return;
      }
    }
    evaluate(sampler, first, r, Constant<2>(), Constant<2>(), Constant<2>(), value, gradient);
  } else if ((isTwo[0] | (isTwo[1] << 32)) == 0) {
    evaluate(sampler, first, r, Constant<3>(), Constant<3>(), Constant<3>(), value, gradient);
  } else {
    auto const two = r == -0.5f;  // truth is -1
    evaluate(sampler, first, r, 3 + two[0], 3 + two[1], 3 + two[2], value, gradient);
  }
}

template <class T, class Gradient>
[[gnu::noinline]] void sampleElsewhere(SamplerItem& sampler, Axes const& axes, T& value,
                                       Gradient gradient) {
  sampler.enter({axes.voxel[0], axes.voxel[1], axes.voxel[2]});
  sampleNear(sampler, axes.voxel - sampler.origin(), axes.r, value, gradient);
}

template <class T, class Gradient>
[[gnu::always_inline]] inline void sampleFinite(SamplerItem& sampler, FloatLanes x, T& value,
                                                Gradient gradient) {
  auto const axes = axesAt(x);
  auto const at = axes.voxel - sampler.origin();
  if (!sampler.isNear(at)) return sampleElsewhere(sampler, axes, value, gradient);
  sampleNear(sampler, at, axes.r, value, gradient);
}

/// A position that is not finite or beyond every tree.
template <class T, class Gradient>
[[gnu::noinline]] void sampleFar(SamplerItem& sampler, FloatLanes x, T& value, Gradient gradient) {
  if (!std::isfinite(x[0]) || !std::isfinite(x[1]) || !std::isfinite(x[2])) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    value = T(nan);
    if constexpr (std::is_same_v<Gradient, Position*>) *gradient = Position(nan);
    return;
  }
  auto const limit = [](float a) { return std::fmin(std::fmax(a, 1.f - farAway), farAway - 1.f); };
  sampleFinite(sampler, FloatLanes{limit(x[0]), limit(x[1]), limit(x[2])}, value, gradient);
}

template <class T, class Gradient>
void sampleAt(SamplerItem* sampler, Position const& position, T& value, Gradient gradient) {
  constexpr bool hasGradient = std::is_same_v<Gradient, Position*>;
  if (sampler == nullptr || sampler->type() != dataTypeOf<T>) {
    value = T();
    if constexpr (hasGradient) *gradient = Position();
    return;
  }
  auto x = loadRow(&position.x, 3).x;
  bool const world = sampler->space() == SamplerSpace::World;
  auto const scale = world ? sampler->layout().voxelScale() : 1.f;
  if (world) x = FloatLanes{x[0] / scale, x[1] / scale, x[2] / scale, 0.f};
  // Truth is -1; false for NaN. The fourth lane is 0.
  auto const isNear = reinterpret_cast<LongLanes>((x < farAway) & (x > -farAway));
  if ((isNear[0] & isNear[1]) == -1) {
    sampleFinite(*sampler, x, value, gradient);
  } else {
    sampleFar(*sampler, x, value, gradient);
  }
  if constexpr (hasGradient) {
    if (world) *gradient = {gradient->x / scale, gradient->y / scale, gradient->z / scale};
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
