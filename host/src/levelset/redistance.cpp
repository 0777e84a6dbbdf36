#include "levelset/redistance.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <vector>

#include "levelset/bit_rows.h"
#include "levelset/parallel.h"

namespace Velmor::Host {

namespace {

using API::cellOf;
using API::cellPositions;
using API::tileCells;
using API::tileWidth;
using Around = std::array<FieldTile*, 27>;

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

void setTo(CellMask& mask, bool value) {
  mask.words = {value ? ~std::uint64_t{0} : 0,
                value ? (std::uint64_t{1} << (tileCells - 64)) - 1 : 0};
}

// The voxels with a neighbour of the other sign.
CellMask besideSurface(BitRows const& inside) {
  CellMask mask;
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
      float values[2] = {tile.phi[c], tile.phi[c]};
      float steps = 0.f;
      for (int side = 0; side < 2; ++side) {
        int const s = 2 * side - 1;
        auto const next = cellAround(around, p.x + s * dx, p.y + s * dy, p.z + s * dz);
        if (next.tile == nullptr || !next.tile->known.test(next.cell)) continue;
        values[side] = next.tile->phi[static_cast<std::size_t>(next.cell)];
        steps += 1.f;
      }
      return steps > 0.f ? (values[1] - values[0]) / steps : 0.f;
    };
    tile.gx[c] = along(1, 0, 0);
    tile.gy[c] = along(0, 1, 0);
    tile.gz[c] = along(0, 0, 1);
  });
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
  Vector const f{from.x - static_cast<float>(i), from.y - static_cast<float>(j),
                 from.z - static_cast<float>(k)};
  // For both voxels along each axis: what it adds to the number of the tile among the 27
  // and to that of the cell, the way to it, and its weight.
  int tiles[3][2], cells[3][2];
  float ways[3][2], weights[3][2];
  int const firsts[3] = {i, j, k};
  float const parts[3] = {f.x, f.y, f.z};
  constexpr int tileSteps[3] = {1, 3, 9}, cellSteps[3] = {1, tileWidth, tileWidth * tileWidth};
  for (int a = 0; a < 3; ++a) {
    for (int d = 0; d < 2; ++d) {
      int const at = firsts[a] + d + tileWidth, tile = at / tileWidth;
      tiles[a][d] = tile * tileSteps[a];
      cells[a][d] = (at - tile * tileWidth) * cellSteps[a];
      ways[a][d] = parts[a] - static_cast<float>(d);
      weights[a][d] = 1.f - std::abs(ways[a][d]);
    }
  }
  sample = {0.f, {0.f, 0.f, 0.f}};
  for (int n = 0; n < 8; ++n) {
    int const dx = n & 1, dy = n >> 1 & 1, dz = n >> 2;
    auto const* const tile =
        around[static_cast<std::size_t>(tiles[0][dx] + tiles[1][dy] + tiles[2][dz])];
    int const cell = cells[0][dx] + cells[1][dy] + cells[2][dz];
    if (tile == nullptr || !tile->known.test(cell)) return false;
    auto const c = static_cast<std::size_t>(cell);
    float const weight = weights[0][dx] * weights[1][dy] * weights[2][dz];
    Vector const g{tile->gx[c], tile->gy[c], tile->gz[c]};
    sample.value +=
        weight * (tile->phi[c] + 0.5f * dot(g, {ways[0][dx], ways[1][dy], ways[2][dz]}));
    sample.gradient = sample.gradient + g * weight;
  }
  return true;
}

/// All tiles with those around them.
class Neighbourhoods {
 public:
  explicit Neighbourhoods(Field& field) : around_(field.count()) {
    forEach(field.count(), [&](std::size_t t) {
      field.tile(t).number = static_cast<std::uint32_t>(t);
      around_[t] = field.around(t);
    });
  }
  Around const& operator[](std::size_t t) const noexcept { return around_[t]; }

  /// The field at a point relative to the tile in the middle; false where it is not known.
  bool interpolate(Around const& around, Vector const& at, Sample& sample) const {
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
    return interpolateNear(around_[tile->number], from - Vector{shift(i), shift(j), shift(k)},
                           sample);
  }

 private:
  std::vector<Around> around_;
};

constexpr float leastSquaredSlope = 0.04f;  // below it a Newton step leads anywhere

// Follows the gradient from a point to the surface; false if it does not lead
// there within `most` voxels.
bool descend(Neighbourhoods const& all, Around const& around, Sample at, float most, Vector& y) {
  auto const start = y;
  for (int n = 0; n < 4; ++n) {
    float const slope = dot(at.gradient, at.gradient);
    if (!(slope > leastSquaredSlope)) return false;
    y = y - at.gradient * (at.value / slope);
    auto const way = y - start;
    if (!(dot(way, way) < most * most) || !all.interpolate(around, y, at)) return false;
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
  float const own = std::abs(tile.phi[c]);
  Vector best = start;
  float shortest = 2.f;
  for (int n = 0; n < 6; ++n) {
    int const s = 2 * (n & 1) - 1;
    int const dx = n / 2 == 0 ? s : 0, dy = n / 2 == 1 ? s : 0, dz = n / 2 == 2 ? s : 0;
    auto const next = cellAround(around, p.x + dx, p.y + dy, p.z + dz);
    if (next.tile == nullptr || next.tile->inside.test(next.cell) == inside) continue;
    float const other = std::abs(next.tile->phi[static_cast<std::size_t>(next.cell)]);
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
Vector sourceOf(Neighbourhoods const& all, FieldTile const& tile, Around const& around, int cell) {
  auto const c = static_cast<std::size_t>(cell);
  auto const start = centreOf(cell);
  auto const squaredWay = [&](Vector const& y) { return dot(y - start, y - start); };
  auto best = crossingOf(tile, around, cell);
  auto corrected = best;
  Sample there;
  if (all.interpolate(around, best, there) && descend(all, around, there, 0.3f, corrected) &&
      squaredWay(corrected) < 1.f) {
    best = corrected;
  }
  auto y = start;
  Sample const here{tile.phi[c], {tile.gx[c], tile.gy[c], tile.gz[c]}};
  if (tile.known.test(cell) && descend(all, around, here, 1.75f, y) &&
      squaredWay(y) < squaredWay(best)) {
    best = y;
  }
  return best;
}

void store(FieldTile& tile, std::size_t c, Vector const& point) {
  tile.cx[c] = point.x;
  tile.cy[c] = point.y;
  tile.cz[c] = point.z;
}

// Hands on the nearest points to the voxels around those that are reached.
void arrive(FieldTile& tile, Around const& around) {
  tile.arriving = {};
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
        auto const centre = centreOf(cell);
        Vector best{};
        float shortest = 1e9f;
        for (int n = 0; n < 9; ++n) {
          int const dy = n % 3 - 1, dz = n / 3 - 1;
          for (unsigned near = reached.row(y + dy, z + dz) >> x & 7u; near != 0; near &= near - 1) {
            int const nx = x + std::countr_zero(near) - 1;
            auto const from = cellAround(around, nx, y + dy, z + dz);
            auto const c = static_cast<std::size_t>(from.cell);
            auto const offset = cellPositions[c];
            Vector const point{from.tile->cx[c] + static_cast<float>(nx - offset.x),
                               from.tile->cy[c] + static_cast<float>(y + dy - offset.y),
                               from.tile->cz[c] + static_cast<float>(z + dz - offset.z)};
            auto const way = centre - point;
            if (float const d = dot(way, way); d < shortest) {
              shortest = d;
              best = point;
            }
          }
        }
        store(tile, static_cast<std::size_t>(cell), best);
        tile.arriving.set(cell);
      }
    }
  }
}

// Moves a point beside the surface onto it; `there` is the field where it was last looked at.
bool land(Neighbourhoods const& all, Around const& around, Vector& y, Sample& there) {
  for (int n = 0; n < 2; ++n) {
    if (!all.interpolate(around, y, there)) return false;
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
float shortestWay(Neighbourhoods const& all, Around const& around, Vector const& from, Vector y) {
  auto best = from - y;
  Sample at;
  if (!all.interpolate(around, y, at)) return std::sqrt(dot(best, best));
  for (int round = 0; round < 4; ++round) {
    if (!(dot(at.gradient, at.gradient) > leastSquaredSlope)) break;
    auto const along = tangentialPart(from - y, at.gradient);
    if (dot(along, along) < 4e-4f) break;
    // A whole step is right where the surface is flat. Where it bends away, what is
    // left to go turns round, and says how far it should have been.
    auto const start = y;
    bool shorter = false;
    float part = 1.f;
    for (int attempt = 0; attempt < 3; ++attempt) {
      auto next = start + along * part;
      Sample there;
      bool const good = land(all, around, next, there);
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

void measure(Neighbourhoods const& all, FieldTile& tile, Around const& around) {
  auto& distance = tile.cx;  // the others still read this tile's field
  for (int cell = 0; cell < tileCells; ++cell) {
    auto const c = static_cast<std::size_t>(cell);
    float d = bandWidth;
    if (tile.reached.test(cell)) {
      Vector const point{tile.cx[c], tile.cy[c], tile.cz[c]};
      auto const way = centreOf(cell) - point;
      // What is far beyond the band does not come back into it.
      if (dot(way, way) < 6.f * 6.f) d = shortestWay(all, around, centreOf(cell), point);
    }
    distance[c] = tile.inside.test(cell) ? -std::min(d, bandWidth) : std::min(d, bandWidth);
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
    tile.phi.fill(inside ? -farAway : farAway);
    setTo(tile.inside, inside);
  });
}

}  // namespace

void redistance(Field& field, InsideAt const& insideAt) {
  auto const findSources = [&](std::size_t begin) {
    forEach(field.count() - begin, [&](std::size_t n) {
      auto& tile = field.tile(begin + n);
      auto const around = field.around(begin + n);
      auto const p = tile.place;
      tile.reached = besideSurface(BitRows(
          around, [](FieldTile const& t) -> CellMask const& { return t.inside; },
          [&](int k) {
            return insideAt({p.x + k % 3 - 1, p.y + k / 3 % 3 - 1, p.z + k / 9 - 1});
          }));
    });
  };
  auto const summed = field.count();
  findSources(0);
  addBand(field, insideAt);
  findSources(summed);

  Neighbourhoods const around(field);
  forEach(summed, [&](std::size_t t) { differenceRoughVoxels(field.tile(t), around[t]); });
  forEach(field.count(), [&](std::size_t t) {
    auto& tile = field.tile(t);
    forBits(tile.reached, [&](int cell) {
      store(tile, static_cast<std::size_t>(cell), sourceOf(around, tile, around[t], cell));
    });
  });
  for (int ring = 0; ring < static_cast<int>(bandWidth); ++ring) {
    forEach(field.count(), [&](std::size_t t) { arrive(field.tile(t), around[t]); });
    forEach(field.count(), [&](std::size_t t) {
      auto& tile = field.tile(t);
      for (std::size_t w = 0; w < 2; ++w) tile.reached.words[w] |= tile.arriving.words[w];
    });
  }
  forEach(field.count(), [&](std::size_t t) { measure(around, field.tile(t), around[t]); });
  forEach(field.count(), [&](std::size_t t) { field.tile(t).phi = field.tile(t).cx; });
}

bool isInBand(FieldTile const& tile) noexcept {
  return std::any_of(tile.phi.begin(), tile.phi.end(),
                     [](float d) { return std::abs(d) < bandWidth; });
}

}  // namespace Velmor::Host
