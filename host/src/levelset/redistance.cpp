#include "levelset/redistance.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <vector>

#include "levelset/bit_rows.h"
#include "levelset/lanes.h"
#include "levelset/parallel.h"

namespace Velmor::Host {

namespace {

using API::cellOf;
using API::cellPositions;
using API::tileCells;
using API::tileWidth;

constexpr float farAway = 8.f;

struct Vector {
  float x, y, z;
  friend Vector operator+(Vector a, Vector b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
  friend Vector operator-(Vector a, Vector b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
  friend Vector operator*(Vector a, float s) { return {a.x * s, a.y * s, a.z * s}; }
};
float dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

Vector centreOf(int cell) {
  auto const p = cellPositions[static_cast<std::size_t>(cell)];
  return {static_cast<float>(p.x) + 0.5f, static_cast<float>(p.y) + 0.5f,
          static_cast<float>(p.z) + 0.5f};
}

Lanes lanesOf(Vector v) { return Lanes{v.x, v.y, v.z, 0.f}; }

// From the tile in the middle to each of the 27.
constexpr auto tileShifts = [] {
  std::array<Lanes, 27> shifts{};
  for (int n = 0; n < 27; ++n) {
    shifts[static_cast<std::size_t>(n)] = Lanes{static_cast<float>(tileWidth * (n % 3 - 1)),
                                                static_cast<float>(tileWidth * (n / 3 % 3 - 1)),
                                                static_cast<float>(tileWidth * (n / 9 - 1)), 0.f};
  }
  return shifts;
}();

constexpr CellMask everyCell{{~std::uint64_t{0}, (std::uint64_t{1} << (tileCells - 64)) - 1}};

// The voxels with a neighbour of the other sign.
CellMask besideSurface(BitRows const& inside) {
  CellMask mask;
  if (inside.isUniform()) return mask;
  for (int z = 0; z < tileWidth; ++z) {
    for (int y = 0; y < tileWidth; ++y) {
      unsigned const own = inside.row(y, z);
      unsigned const differing = (own ^ own << 1) | (own ^ own >> 1) |
                                 (own ^ inside.row(y - 1, z)) | (own ^ inside.row(y + 1, z)) |
                                 (own ^ inside.row(y, z - 1)) | (own ^ inside.row(y, z + 1));
      setRow(mask, y, z, differing >> 1);
    }
  }
  return mask;
}

// Central differences where the sums gave no gradient.
void differenceRoughVoxels(FieldTile& tile, Around const& around) {
  forBits(tile.rough, [&](int cell) {
    auto const c = static_cast<std::size_t>(cell);
    auto const p = cellPositions[c];
    auto const along = [&](int dx, int dy, int dz) {
      float values[2] = {tile.samples[c].value, tile.samples[c].value};
      float steps = 0.f;
      for (int side = 0; side < 2; ++side) {
        int const s = 2 * side - 1;
        auto const next = cellAround(around, p.x + s * dx, p.y + s * dy, p.z + s * dz);
        if (next.tile == nullptr || !next.tile->known.test(next.cell)) continue;
        values[side] = next.tile->samples[static_cast<std::size_t>(next.cell)].value;
        steps += 1.f;
      }
      return steps > 0.f ? (values[1] - values[0]) / steps : 0.f;
    };
    tile.samples[c] = {tile.samples[c].value, along(1, 0, 0), along(0, 1, 0), along(0, 0, 1)};
  });
}

void findComplete(FieldTile& tile, Around const& around) {
  BitRows const known(
      around, [](FieldTile const& t) -> CellMask const& { return t.known; },
      [](int) { return false; });
  tile.complete = {};
  for (int z = 0; z < tileWidth; ++z) {
    for (int y = 0; y < tileWidth; ++y) {
      unsigned const all =
          known.row(y, z) & known.row(y + 1, z) & known.row(y, z + 1) & known.row(y + 1, z + 1);
      setRow(tile.complete, y, z, (all & all >> 1) >> 1);
    }
  }
}

struct Sample {
  float value;
  Vector gradient;
};

// Trilinear weights of each voxel's value and half its own linear continuation:
// the errors of both are of opposite sign and equal size, so that what remains
// is of third order. The eight voxels around lie in a tile or beside it. False
// where a voxel is not known.
bool interpolateNear(Around const& around, Vector const& from, Sample& sample) {
  int const i = floorOf(from.x), j = floorOf(from.y), k = floorOf(from.z);
  auto const first = cellAround(around, i, j, k);
  if (first.tile == nullptr || !first.tile->complete.test(first.cell)) return false;
  // The way to a voxel's neighbour: within the tile, or over to the next one.
  struct Step {
    int tile, cell;
  };
  auto const stepFrom = [](int a, int tiles, int cells) {
    bool const crosses = (a + 2 * tileWidth) % tileWidth == tileWidth - 1;
    return crosses ? Step{tiles, cells * (1 - tileWidth)} : Step{0, cells};
  };
  Step const sx = stepFrom(i, 1, 1), sy = stepFrom(j, 3, tileWidth),
             sz = stepFrom(k, 9, tileWidth * tileWidth);
  auto const tileAlong = [](int a) { return (a + tileWidth) / tileWidth; };
  int const tile = tileAlong(i) + 3 * (tileAlong(j) + 3 * tileAlong(k));
  auto const at = [&](int t, int c) {
    return loadAll(around[static_cast<std::size_t>(t)]->samples[static_cast<std::size_t>(c)]);
  };

  Vector const f{from.x - static_cast<float>(i), from.y - static_cast<float>(j),
                 from.z - static_cast<float>(k)};
  // Weighted sums over all voxels, and over the upper ones along each axis.
  Lanes sum{}, upper[3]{};
  for (int row = 0; row < 4; ++row) {
    int const y = row & 1, z = row >> 1;
    float const weight = (y != 0 ? f.y : 1.f - f.y) * (z != 0 ? f.z : 1.f - f.z);
    int const t = tile + y * sy.tile + z * sz.tile, c = first.cell + y * sy.cell + z * sz.cell;
    auto const high = at(t + sx.tile, c + sx.cell) * (f.x * weight);
    auto const both = at(t, c) * ((1.f - f.x) * weight) + high;
    sum += both;
    upper[0] += high;
    if (y != 0) upper[1] += both;
    if (z != 0) upper[2] += both;
  }
  sample.gradient = {sum[1], sum[2], sum[3]};
  Vector const ways{f.x * sum[1] - upper[0][1], f.y * sum[2] - upper[1][2],
                    f.z * sum[3] - upper[2][3]};
  sample.value = sum[0] + 0.5f * (ways.x + ways.y + ways.z);
  return true;
}

// The field at a point relative to the tile in the middle; false where it is not known.
bool interpolate(Field const& field, Around const& around, Vector const& at, Sample& sample) {
  Vector const from = at - Vector{0.5f, 0.5f, 0.5f};
  auto const isNear = [](float a) { return a >= -5.f && a < 9.f; };
  if (isNear(from.x) && isNear(from.y) && isNear(from.z)) {
    return interpolateNear(around, from, sample);
  }
  auto const isInReach = [](float a) { return a >= -10.f && a < 14.f; };
  if (!isInReach(from.x) || !isInReach(from.y) || !isInReach(from.z)) return false;
  auto const step = [&](float a) { return isNear(a) ? 0 : (a < 0.f ? -1 : 1); };
  int const i = step(from.x), j = step(from.y), k = step(from.z);
  auto const* const tile = around[static_cast<std::size_t>(13 + i + 3 * j + 9 * k)];
  if (tile == nullptr) return false;
  auto const shift = [](int a) { return static_cast<float>(tileWidth * a); };
  return interpolateNear(field.around(tile->number), from - Vector{shift(i), shift(j), shift(k)},
                         sample);
}

constexpr float leastSquaredSlope = 0.04f;  // below it a Newton step leads anywhere

// Follows the gradient from a point to the surface; false if it does not lead
// there within `most` voxels.
bool descend(Field const& field, Around const& around, Sample at, float most, Vector& y) {
  auto const start = y;
  for (int n = 0; n < 4; ++n) {
    float const slope = dot(at.gradient, at.gradient);
    if (!(slope > leastSquaredSlope)) return false;
    y = y - at.gradient * (at.value / slope);
    auto const way = y - start;
    if (!(dot(way, way) < most * most) || !interpolate(field, around, y, at)) return false;
    if (std::abs(at.value) < 1e-3f) return true;
  }
  return std::abs(at.value) < 0.02f;
}

// The nearest crossing on the way to a neighbour of the other sign.
Vector crossingOf(FieldTile const& tile, Around const& around, int cell) {
  auto const c = static_cast<std::size_t>(cell);
  auto const start = centreOf(cell);
  auto const p = cellPositions[c];
  bool const inside = tile.inside.test(cell);
  float const own = std::abs(tile.samples[c].value);
  Vector best = start;
  float shortest = 2.f;
  for (int n = 0; n < 6; ++n) {
    int const s = 2 * (n & 1) - 1;
    int const dx = n / 2 == 0 ? s : 0, dy = n / 2 == 1 ? s : 0, dz = n / 2 == 2 ? s : 0;
    auto const next = cellAround(around, p.x + dx, p.y + dy, p.z + dz);
    if (next.tile == nullptr || next.tile->inside.test(next.cell) == inside) continue;
    float const other = std::abs(next.tile->samples[static_cast<std::size_t>(next.cell)].value);
    float const part = own + other > 0.f ? own / (own + other) : 0.f;
    if (part >= shortest) continue;
    shortest = part;
    best = start +
           Vector{static_cast<float>(dx), static_cast<float>(dy), static_cast<float>(dz)} * part;
  }
  return best;
}

// The nearest point of the surface to a voxel beside it. A crossing on the way
// to a neighbour bounds how far it is; the mesher relies on that.
Vector sourceOf(Field const& field, FieldTile const& tile, Around const& around, int cell) {
  auto const c = static_cast<std::size_t>(cell);
  auto const start = centreOf(cell);
  auto const squaredWay = [&](Vector const& y) { return dot(y - start, y - start); };
  auto best = crossingOf(tile, around, cell);
  auto corrected = best;
  Sample there;
  if (interpolate(field, around, best, there) && descend(field, around, there, 0.3f, corrected) &&
      squaredWay(corrected) < 1.f) {
    best = corrected;
  }
  auto y = start;
  auto const& own = tile.samples[c];
  Sample const here{own.value, {own.gx, own.gy, own.gz}};
  if (tile.known.test(cell) && descend(field, around, here, 1.75f, y) &&
      squaredWay(y) < squaredWay(best)) {
    best = y;
  }
  return best;
}

void store(FieldTile& tile, std::size_t c, Vector const& point) {
  tile.nearest[c] = {point.x, point.y, point.z, 0.f};
}

/// Where a row of cells from -1 to 5 lies: what it adds to the number of the tile
/// among the 27, and to that of the cell.
struct CellRow {
  int tile, cell;
};
constexpr auto cellRows = [] {
  std::array<CellRow, 49> rows{};
  for (int z = -1; z <= 5; ++z) {
    for (int y = -1; y <= 5; ++y) {
      int const ty = (y + 5) / 5, tz = (z + 5) / 5;
      rows[static_cast<std::size_t>(y + 1 + 7 * (z + 1))] = {
          3 * ty + 9 * tz, tileWidth * (y + 5 - 5 * ty + tileWidth * (z + 5 - 5 * tz))};
    }
  }
  return rows;
}();

// Hands on the nearest points to the voxels around those that are reached.
void arrive(FieldTile& tile, Around const& around) {
  tile.arriving = {};
  if (tile.reached == everyCell) return;
  BitRows const reached(
      around, [](FieldTile const& t) -> CellMask const& { return t.reached; },
      [](int) { return false; });
  if (reached.isEmpty()) return;
  for (int z = 0; z < tileWidth; ++z) {
    for (int y = 0; y < tileWidth; ++y) {
      unsigned beside = 0;
      for (int n = 0; n < 9; ++n) beside |= reached.row(y + n % 3 - 1, z + n / 3 - 1);
      beside = (beside | beside << 1 | beside >> 1) & ~reached.row(y, z);
      for (unsigned bits = beside >> 1 & 31u; bits != 0; bits &= bits - 1) {
        int const x = std::countr_zero(bits);
        int const cell = cellOf(x, y, z);
        auto const centre = lanesOf(centreOf(cell));
        Lanes best{};
        float shortest = 1e9f;
        for (int n = 0; n < 9; ++n) {
          int const dy = n % 3 - 1, dz = n / 3 - 1;
          auto const row = cellRows[static_cast<std::size_t>(y + dy + 1 + 7 * (z + dz + 1))];
          for (unsigned near = reached.row(y + dy, z + dz) >> x & 7u; near != 0; near &= near - 1) {
            int const along = x + std::countr_zero(near) - 1 + tileWidth, tx = along / tileWidth;
            auto const from = static_cast<std::size_t>(row.tile + tx);
            auto const c = static_cast<std::size_t>(row.cell + along - tx * tileWidth);
            auto const point = loadAll(around[from]->nearest[c]) + tileShifts[from];
            auto const way = centre - point;
            if (float const d = sumOf(way * way); d < shortest) {
              shortest = d;
              best = point;
            }
          }
        }
        store(tile, static_cast<std::size_t>(cell), {best[0], best[1], best[2]});
        tile.arriving.set(cell);
      }
    }
  }
}

// Moves a point beside the surface onto it; `there` is the field where it was last looked at.
bool land(Field const& field, Around const& around, Vector& y, Sample& there) {
  for (int n = 0; n < 2; ++n) {
    if (!interpolate(field, around, y, there)) return false;
    float const slope = dot(there.gradient, there.gradient);
    if (!(slope > leastSquaredSlope)) return false;
    y = y - there.gradient * (there.value / slope);
    // What is left is of the order of its square.
    if (std::abs(there.value) < 0.05f) break;
  }
  return true;
}

// What of a way does not lead along the gradient.
Vector tangentialPart(Vector const& way, Vector const& gradient) {
  return way - gradient * (dot(way, gradient) / dot(gradient, gradient));
}

// Walks along the surface from a point of it to the one nearest to `from`, and
// returns how far that is.
float shortestWay(Field const& field, Around const& around, Vector const& from, Vector y) {
  auto best = from - y;
  Sample at;
  if (!interpolate(field, around, y, at)) return std::sqrt(dot(best, best));
  for (int round = 0; round < 4; ++round) {
    if (!(dot(at.gradient, at.gradient) > leastSquaredSlope)) break;
    auto const along = tangentialPart(from - y, at.gradient);
    // What the way along the surface shortens the distance by is half its square,
    // divided by the distance.
    if (dot(along, along) < std::max(4e-4f, 0.004f * std::sqrt(dot(best, best)))) break;
    // A whole step is right where the surface is flat. Where it bends away, what is
    // left to go turns round, and says how far it should have been.
    auto const start = y;
    bool shorter = false;
    float part = 1.f;
    for (int attempt = 0; attempt < 3; ++attempt) {
      auto next = start + along * part;
      Sample there;
      bool const good = land(field, around, next, there);
      auto const found = from - next;
      if (good && dot(found, found) < dot(best, best)) {
        best = found;
        y = next;
        at = there;
        shorter = true;
      }
      float const left =
          good ? dot(tangentialPart(found, there.gradient), along) / dot(along, along) : 0.f;
      if (shorter && left > -0.2f * part) break;
      part *= left < 0.f ? std::clamp(part / (part - left), 0.15f, 0.8f) : 0.4f;
    }
    if (!shorter) break;
  }
  return std::sqrt(dot(best, best));
}

void measure(Field const& field, FieldTile& tile, Around const& around) {
  for (int cell = 0; cell < tileCells; ++cell) {
    auto const c = static_cast<std::size_t>(cell);
    float d = bandWidth;
    if (tile.reached.test(cell)) {
      Vector const point{tile.nearest[c].x, tile.nearest[c].y, tile.nearest[c].z};
      auto const way = centreOf(cell) - point;
      // What is far beyond the band does not come back into it.
      if (dot(way, way) < 6.f * 6.f) d = shortestWay(field, around, centreOf(cell), point);
    }
    tile.nearest[c].distance =
        tile.inside.test(cell) ? -std::min(d, bandWidth) : std::min(d, bandWidth);
  }
}

void addBand(Field& field, InsideAt const& insideAt) {
  auto const old = field.count();
  for (std::size_t t = 0; t < old; ++t) {
    if (isEmpty(field.tile(t).reached)) continue;
    auto const p = field.tile(t).place;
    for (int n = 0; n < 27; ++n) field.add({p.x + n % 3 - 1, p.y + n / 3 % 3 - 1, p.z + n / 9 - 1});
  }
  forEach(field.count() - old, [&](std::size_t n) {
    auto& tile = field.tile(old + n);
    bool const inside = insideAt(tile.place);
    tile.samples.fill({inside ? -farAway : farAway, 0.f, 0.f, 0.f});
    tile.inside = inside ? everyCell : CellMask{};
  });
}

}  // namespace

void redistance(Field& field, InsideAt const& insideAt) {
  auto const findSources = [&](std::size_t begin) {
    forEach(field.count() - begin, [&](std::size_t n) {
      auto& tile = field.tile(begin + n);
      auto const& around = field.around(begin + n);
      auto const p = tile.place;
      tile.reached = besideSurface(BitRows(
          around, [](FieldTile const& t) -> CellMask const& { return t.inside; },
          [&](int k) {
            return insideAt({p.x + k % 3 - 1, p.y + k / 3 % 3 - 1, p.z + k / 9 - 1});
          }));
    });
  };
  auto const summed = field.count();
  field.link();
  findSources(0);
  addBand(field, insideAt);
  field.link();
  findSources(summed);

  forEach(summed, [&](std::size_t t) {
    differenceRoughVoxels(field.tile(t), field.around(t));
    findComplete(field.tile(t), field.around(t));
  });
  forEach(field.count(), [&](std::size_t t) {
    auto& tile = field.tile(t);
    forBits(tile.reached, [&](int cell) {
      store(tile, static_cast<std::size_t>(cell), sourceOf(field, tile, field.around(t), cell));
    });
  });
  // A voxel less than the band's width from the surface has a voxel beside the surface
  // on its own side, which is a step nearer.
  for (int ring = 1; ring < static_cast<int>(bandWidth); ++ring) {
    forEach(field.count(), [&](std::size_t t) { arrive(field.tile(t), field.around(t)); });
    forEach(field.count(), [&](std::size_t t) {
      auto& tile = field.tile(t);
      for (std::size_t w = 0; w < 2; ++w) tile.reached.words[w] |= tile.arriving.words[w];
    });
  }
  forEach(field.count(), [&](std::size_t t) { measure(field, field.tile(t), field.around(t)); });
  forEach(field.count(), [&](std::size_t t) {
    auto& tile = field.tile(t);
    for (std::size_t c = 0; c < tile.samples.size(); ++c) {
      tile.samples[c].value = tile.nearest[c].distance;
    }
  });
}

bool isInBand(FieldTile const& tile) noexcept {
  return std::any_of(tile.samples.begin(), tile.samples.end(),
                     [](FieldTile::Sample const& s) { return std::abs(s.value) < bandWidth; });
}

}  // namespace Velmor::Host
