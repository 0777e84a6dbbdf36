#include "levelset/blend.h"

#include <algorithm>
#include <cmath>

#include "levelset/lanes.h"

namespace Velmor::Host {

namespace {

using API::cellPositions;
using API::tileCells;

// A voxel whose nearest particle is farther than this many radii is outside,
// whatever the mean says: it may lie in the middle between particles.
constexpr float widest = 1.25f;

// And one that is nearer than this many radii is inside, so that corners and
// single particles, which the mean lies far behind of, keep their size.
constexpr float closest = 0.75f;
constexpr float softness = 0.25f;  // of the crease where the two meet, in radii

constexpr float farAway = 8.f;  // beyond the band

/// Sums over the particles around a voxel. With u from the voxel to a particle
/// and R the reach of its kernel: q = u²/R², weight w = (1 - q)³, and its gradient
/// by the voxel's position c·u with c = 6 (1 - q)²/R².
struct Sums {
  Lanes w{}, wu[3]{}, cu[3]{}, cuu[6]{}, wr{}, cru[3]{};
  Lanes q = all(1e9f);

  template <bool adaptive>
  static Sums of(Region const& region, float const* squaredInverses, Lanes inverse,
                 float const (&at)[3], std::vector<Region::Run> const& runs) noexcept {
    Sums s;
    for (auto const& run : runs) {
      for (std::size_t p = run.begin; p < run.end; p += 4) {
        auto const kept = load(keep[std::min<std::size_t>(run.end - p, 4)]);
        auto const ux = load(&region.x[p]) - at[0];
        auto const uy = load(&region.y[p]) - at[1];
        auto const uz = load(&region.z[p]) - at[2];
        if constexpr (adaptive) inverse = load(squaredInverses + p);
        auto const square = (ux * ux + uy * uy + uz * uz) * inverse;
        auto const rest = larger(1.f - square, Lanes{}) * kept;
        s.q = smaller(s.q, square + (1.f - kept) * 1e9f);
        auto const rest2 = rest * rest;
        auto const weight = rest2 * rest;
        auto const c = 6.f * rest2 * inverse;
        auto const cx = c * ux, cy = c * uy, cz = c * uz;
        s.w += weight;
        s.wu[0] += weight * ux;
        s.wu[1] += weight * uy;
        s.wu[2] += weight * uz;
        s.cu[0] += cx;
        s.cu[1] += cy;
        s.cu[2] += cz;
        s.cuu[0] += cx * ux;
        s.cuu[1] += cy * uy;
        s.cuu[2] += cz * uz;
        s.cuu[3] += cx * uy;
        s.cuu[4] += cx * uz;
        s.cuu[5] += cy * uz;
        if constexpr (adaptive) {
          auto const r = load(&region.radius[p]);
          s.wr += weight * r;
          s.cru[0] += cx * r;
          s.cru[1] += cy * r;
          s.cru[2] += cz * r;
        }
      }
    }
    return s;
  }
};

struct Symmetric {
  float xx, yy, zz, xy, xz, yz;
  Symmetric squared() const noexcept {
    return {xx * xx + xy * xy + xz * xz, xy * xy + yy * yy + yz * yz, xz * xz + yz * yz + zz * zz,
            xx * xy + xy * yy + xz * yz, xx * xz + xy * yz + xz * zz, xy * xz + yy * yz + yz * zz};
  }
  float norm() const noexcept {
    return std::sqrt(xx * xx + yy * yy + zz * zz + 2.f * (xy * xy + xz * xz + yz * yz));
  }
};

// The eighth root of the sum of the eigenvalues' eighth powers, at most 15 %
// above the largest.
float largestEigenvalue(Symmetric const& m) noexcept {
  return std::sqrt(std::sqrt(m.squared().squared().norm()));
}

// What is left of the radius, from 1 for an eigenvalue up to 0.4 to 0 from 3.5 on.
float radiusFactor(float eigenvalue) noexcept {
  float const loss = std::clamp((eigenvalue - 0.4f) / 3.1f, 0.f, 1.f);
  return 1.f - loss * loss * loss;
}

// Equal to the smaller value where they differ by more than `width`.
float softMinimum(float a, float b, float width) noexcept {
  float const overlap = std::max(width - std::abs(a - b), 0.f);
  return std::min(a, b) - overlap * overlap / (4.f * width);
}

}  // namespace

Blend::Blend(Particles const& particles) noexcept : particles_(&particles), region_(particles) {
  // The surface lies half a point voxel less than the radius outside the last
  // full voxel, which leaves room for the depth of a voxel of the output.
  auto const factor = static_cast<float>(particles.scale().factor);
  auto const radius = particles.scale().surfaceRadius / factor;
  solid_ = radius < 0.75f ? 0.f : std::max((radius < 1.f ? 2.f : 1.f) * factor, 1.f);
}

bool Blend::isDeep(API::TileCoord const& origin) const noexcept {
  if (solid_ == 0.f) return false;
  auto const inverse = 1.0 / particles_->scale().factor;
  auto const first = [&](std::int32_t a) {
    return static_cast<std::int32_t>(std::floor((a + 0.5 - double{solid_}) * inverse));
  };
  auto const last = [&](std::int32_t a) {
    return static_cast<std::int32_t>(std::floor((a + 4.5 + double{solid_}) * inverse));
  };
  return particles_->full({first(origin.i), first(origin.j), first(origin.k)},
                          {last(origin.i), last(origin.j), last(origin.k)});
}

void Blend::evaluate(FieldTile& tile, API::TileCoord const& origin,
                     std::vector<std::uint32_t> const& droplets) {
  tile.samples.fill({farAway, 0.f, 0.f, 0.f});
  if (particles_->scale().surfaceRadius > 0.f) {
    region_.gather(origin, solid_);
    if (region_.count() > 0) {
      if (particles_->adaptive()) {
        squaredInverses_.resize(region_.count() + Region::padding);
        for (std::size_t p = 0; p < squaredInverses_.size(); ++p) {
          squaredInverses_[p] = 1.f / (4.f * region_.radius[p] * region_.radius[p]);
        }
        evaluateBulk<true>(tile);
      } else {
        evaluateBulk<false>(tile);
      }
    }
  }
  for (auto const d : droplets) addDroplet(tile, origin, particles_->droplets()[d]);
}

template <bool adaptive>
void Blend::evaluateBulk(FieldTile& tile) {
  for (int c = 0; c < tileCells; ++c) {
    if (c % API::tileWidth == 0) {
      auto const position = cellPositions[static_cast<std::size_t>(c)];
      region_.rowsAt(static_cast<float>(position.y) + 0.5f, static_cast<float>(position.z) + 0.5f,
                     rows_);
    }
    evaluateBulk<adaptive>(tile, c);
  }
}

template <bool adaptive>
void Blend::evaluateBulk(FieldTile& tile, int cell) {
  auto const c = static_cast<std::size_t>(cell);
  auto const position = cellPositions[c];
  float const at[3] = {static_cast<float>(position.x) + 0.5f, static_cast<float>(position.y) + 0.5f,
                       static_cast<float>(position.z) + 0.5f};
  if (solid_ > 0.f && region_.full(at[0], at[1], at[2], solid_)) {
    tile.samples[c].value = -farAway;
    tile.inside.set(cell);
    return;
  }
  float const nominal = particles_->scale().surfaceRadius;
  float const squaredInverse = 1.f / (4.f * nominal * nominal);
  region_.runsAt(at[0], rows_, runs_);
  if (runs_.empty()) return;
  auto const sums =
      Sums::of<adaptive>(region_, squaredInverses_.data(), all(squaredInverse), at, runs_);
  float const nearest = 2.f * std::sqrt(leastOf(sums.q));  // in radii
  float const w = sumOf(sums.w);
  float const smallest = adaptive && w > 0.f ? sumOf(sums.wr) / w : nominal;
  if (nearest * smallest > smallest + particles_->scale().margin) return;

  tile.known.set(cell);
  if (!(w > 1e-20f)) {
    // The limit of the mean where the kernel ends is the nearest particle.
    tile.samples[c].value = (nearest - 1.f) * smallest;
    tile.rough.set(cell);
    return;
  }
  float const inverse = 1.f / w;
  float const m[3] = {sumOf(sums.wu[0]) * inverse, sumOf(sums.wu[1]) * inverse,
                      sumOf(sums.wu[2]) * inverse};
  float const g[3] = {sumOf(sums.cu[0]), sumOf(sums.cu[1]), sumOf(sums.cu[2])};
  float const length = std::sqrt(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]);
  float const r = smallest;

  // The gradient of the mean, row by row: d mean_a / d x_b.
  float t[6];
  for (int a = 0; a < 6; ++a) t[a] = sumOf(sums.cuu[a]);
  float const j[3][3] = {{(t[0] - m[0] * g[0]) * inverse, (t[3] - m[0] * g[1]) * inverse,
                          (t[4] - m[0] * g[2]) * inverse},
                         {(t[3] - m[1] * g[0]) * inverse, (t[1] - m[1] * g[1]) * inverse,
                          (t[5] - m[1] * g[2]) * inverse},
                         {(t[4] - m[2] * g[0]) * inverse, (t[5] - m[2] * g[1]) * inverse,
                          (t[2] - m[2] * g[2]) * inverse}};
  float const factor =
      radiusFactor(largestEigenvalue({j[0][0], j[1][1], j[2][2], 0.5f * (j[0][1] + j[1][0]),
                                      0.5f * (j[0][2] + j[2][0]), 0.5f * (j[1][2] + j[2][1])}));
  float const blended = length - r * factor;
  float const bound = (nearest - widest) * r;
  float const phi = softMinimum(std::max(blended, bound), (nearest - closest) * r, softness * r);
  tile.samples[c].value = phi;
  if (phi < 0.f) tile.inside.set(cell);
  if (std::abs(phi - blended) > 1e-4f || factor < 0.95f || length < 1e-3f) {
    tile.rough.set(cell);
    return;
  }
  float gradient[3];
  for (int b = 0; b < 3; ++b) {
    float along = -m[b];
    for (int a = 0; a < 3; ++a) along += m[a] * j[a][b];
    gradient[b] = along / length;
    if constexpr (adaptive) gradient[b] -= (sumOf(sums.cru[b]) - r * g[b]) * inverse;
  }
  tile.samples[c] = {phi, gradient[0], gradient[1], gradient[2]};
}

void Blend::addDroplet(FieldTile& tile, API::TileCoord const& origin,
                       Droplet const& droplet) const {
  float const reach = droplet.radius + particles_->scale().margin;
  auto const relative = [](float a, std::int32_t o) {
    return static_cast<float>(double{a} - double{1} * o);
  };
  float const x = relative(droplet.centre.x, origin.i), y = relative(droplet.centre.y, origin.j),
              z = relative(droplet.centre.z, origin.k);
  for (int cell = 0; cell < tileCells; ++cell) {
    auto const c = static_cast<std::size_t>(cell);
    auto const position = cellPositions[c];
    float const ux = static_cast<float>(position.x) + 0.5f - x,
                uy = static_cast<float>(position.y) + 0.5f - y,
                uz = static_cast<float>(position.z) + 0.5f - z;
    float const distance = std::sqrt(ux * ux + uy * uy + uz * uz);
    float const phi = distance - droplet.radius;
    if (distance > reach || phi >= tile.samples[c].value) continue;
    float const inverse = distance > 0.f ? 1.f / distance : 0.f;
    tile.samples[c] = {phi, ux * inverse, uy * inverse, uz * inverse};
    tile.known.set(cell);
    tile.rough.words[static_cast<std::size_t>(cell >> 6)] &= ~(std::uint64_t{1} << (cell & 63));
    if (phi < 0.f) tile.inside.set(cell);
  }
}

}  // namespace Velmor::Host
