#include "fluid.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>

#include <algorithm>
#include <cmath>

namespace Splash {

namespace {

constexpr float reach = 2.2f * Fluid::spacing;  // of the kernels
constexpr float margin = 0.5f * Fluid::spacing;
constexpr float gravity = 9.81f;
constexpr int iterations = 4;
constexpr float relaxation = 60.f;
constexpr float viscosity = 0.02f;

constexpr Vec tank{4.f, 4.f, 1.6f};
constexpr std::array<int, 3> block{30, 42, 40};  // particles of the water at the start
constexpr float pillarLow[2] = {2.3f, 0.62f}, pillarHigh[2] = {2.62f, 0.98f};  // x, z

template <class Body>
void parallel(std::size_t count, Body const& body) {
  using oneapi::tbb::blocked_range;
  oneapi::tbb::parallel_for(blocked_range<std::size_t>(0, count, 512),
                            [&body](blocked_range<std::size_t> const& range) {
                              for (auto i = range.begin(); i != range.end(); ++i) body(i);
                            });
}

float square(float x) { return x * x; }

// The kernels without their constant factors: densities are relative.
float kernel(float square2) {
  float const rest = 1.f - square2 / (reach * reach);
  return rest > 0.f ? rest * rest * rest : 0.f;
}

// Of the spiky kernel, over the distance: to be multiplied by the vector.
float kernelSlope(float distance) {
  float const rest = 1.f - distance / reach;
  return rest > 0.f ? -3.f * rest * rest / (reach * std::max(distance, 1e-6f)) : 0.f;
}

// A number between -1 and 1 from an integer, the same everywhere.
float noise(std::uint32_t x) {
  x ^= x >> 16;
  x *= 0x7FEB352Du;
  x ^= x >> 15;
  x *= 0x846CA68Bu;
  x ^= x >> 16;
  return static_cast<float>(x >> 8) / 8388608.f - 1.f;
}

// Each particle keeps its own small distance: sheets of particles exactly in one
// plane would hold each other up.
void keepInside(Vec& p, std::size_t particle) {
  float const away = margin * (1.f + 0.4f * noise(static_cast<std::uint32_t>(particle)));
  for (std::size_t a = 0; a < 3; ++a) p[a] = std::clamp(p[a], away, tank[a] - away);
  float const out[4] = {p[0] - (pillarLow[0] - away), pillarHigh[0] + away - p[0],
                        p[2] - (pillarLow[1] - away), pillarHigh[1] + away - p[2]};
  auto const nearest = std::min_element(out, out + 4);
  if (*nearest <= 0.f) return;
  switch (nearest - out) {
    case 0:
      p[0] = pillarLow[0] - away;
      break;
    case 1:
      p[0] = pillarHigh[0] + away;
      break;
    case 2:
      p[2] = pillarLow[1] - away;
      break;
    default:
      p[2] = pillarHigh[1] + away;
  }
}

}  // namespace

Fluid::Fluid() {
  for (int k = 0; k < block[2]; ++k) {
    for (int j = 0; j < block[1]; ++j) {
      for (int i = 0; i < block[0]; ++i) {
        Vec p{};
        std::array<int, 3> const at{i, j, k};
        for (std::size_t a = 0; a < 3; ++a) {
          auto const seed = static_cast<std::uint32_t>(3 * positions_.size() + a);
          // A perfect lattice would fall in perfect rows.
          p[a] = spacing * (static_cast<float>(at[a]) + 0.5f + 0.05f * noise(seed));
        }
        keepInside(p, positions_.size());
        positions_.push_back(p);
      }
    }
  }
  auto const count = positions_.size();
  velocities_.assign(count, Vec{});
  corrections_.assign(count, Vec{});
  densities_.assign(count, 1.f);
  lambdas_.assign(count, 0.f);
  counts_.assign(count, 0);
  neighbours_.assign(count * most, 0);
  predicted_ = positions_;
  restDensity_ = 0.f;
  for (int k = -3; k <= 3; ++k) {
    for (int j = -3; j <= 3; ++j) {
      for (int i = -3; i <= 3; ++i) {
        restDensity_ += kernel(square(spacing) * static_cast<float>(i * i + j * j + k * k));
      }
    }
  }
}

void Fluid::advance(float seconds, int substeps) {
  for (int s = 0; s < substeps; ++s) step(seconds / static_cast<float>(substeps));
}

void Fluid::step(float dt) {
  parallel(positions_.size(), [&](std::size_t i) {
    velocities_[i][1] -= gravity * dt;
    for (std::size_t a = 0; a < 3; ++a) {
      predicted_[i][a] = positions_[i][a] + dt * velocities_[i][a];
    }
    keepInside(predicted_[i], i);
  });
  findNeighbours();
  for (int n = 0; n < iterations; ++n) solve();
  parallel(positions_.size(), [&](std::size_t i) {
    for (std::size_t a = 0; a < 3; ++a) {
      velocities_[i][a] = (predicted_[i][a] - positions_[i][a]) / dt;
    }
  });
  smoothVelocities();
  positions_ = predicted_;
}

void Fluid::findNeighbours() {
  std::array<std::size_t, 3> cells{};
  for (std::size_t a = 0; a < 3; ++a) cells[a] = static_cast<std::size_t>(tank[a] / reach) + 1;
  auto const cellOf = [&](Vec const& p, std::size_t a) {
    return std::min(cells[a] - 1, static_cast<std::size_t>(std::max(0.f, p[a] / reach)));
  };
  auto const keyOf = [&](Vec const& p) {
    return (cellOf(p, 2) * cells[1] + cellOf(p, 1)) * cells[0] + cellOf(p, 0);
  };
  std::vector<std::uint32_t> starts(cells[0] * cells[1] * cells[2] + 1, 0);
  for (auto const& p : predicted_) ++starts[keyOf(p) + 1];
  for (std::size_t c = 1; c < starts.size(); ++c) starts[c] += starts[c - 1];
  std::vector<std::uint32_t> members(predicted_.size());
  auto next = starts;
  for (std::size_t i = 0; i < predicted_.size(); ++i) {
    members[next[keyOf(predicted_[i])]++] = static_cast<std::uint32_t>(i);
  }
  parallel(predicted_.size(), [&](std::size_t i) {
    auto const& p = predicted_[i];
    auto* const list = neighbours_.data() + i * most;
    std::uint32_t found = 0;
    auto const low = [](std::size_t c) { return c == 0 ? 0 : c - 1; };
    auto const cx = cellOf(p, 0), cy = cellOf(p, 1), cz = cellOf(p, 2);
    for (auto z = low(cz); z <= std::min(cz + 1, cells[2] - 1); ++z) {
      for (auto y = low(cy); y <= std::min(cy + 1, cells[1] - 1); ++y) {
        auto const row = (z * cells[1] + y) * cells[0];
        auto const end = starts[row + std::min(cx + 1, cells[0] - 1) + 1];
        for (auto m = starts[row + low(cx)]; m < end; ++m) {
          auto const j = members[m];
          auto const& q = predicted_[j];
          float const d2 = square(p[0] - q[0]) + square(p[1] - q[1]) + square(p[2] - q[2]);
          if (j != i && d2 < reach * reach && found < most) list[found++] = j;
        }
      }
    }
    counts_[i] = found;
  });
}

void Fluid::solve() {
  parallel(predicted_.size(), [&](std::size_t i) {
    auto const& p = predicted_[i];
    float density = kernel(0.f), squares = 0.f;
    Vec own{};
    for (std::uint32_t n = 0; n < counts_[i]; ++n) {
      auto const& q = predicted_[neighbours_[i * most + n]];
      Vec const d{p[0] - q[0], p[1] - q[1], p[2] - q[2]};
      float const d2 = square(d[0]) + square(d[1]) + square(d[2]);
      density += kernel(d2);
      float const slope = kernelSlope(std::sqrt(d2)) / restDensity_;
      for (std::size_t a = 0; a < 3; ++a) {
        own[a] += slope * d[a];
        squares += square(slope * d[a]);
      }
    }
    densities_[i] = density / restDensity_;
    for (float const x : own) squares += square(x);
    // Water pushes, it does not pull: a free surface would draw together in strings.
    float const excess = std::max(0.f, densities_[i] - 1.f);
    lambdas_[i] = -excess / (squares + relaxation);
  });
  parallel(predicted_.size(), [&](std::size_t i) {
    auto const& p = predicted_[i];
    Vec sum{};
    for (std::uint32_t n = 0; n < counts_[i]; ++n) {
      auto const j = neighbours_[i * most + n];
      auto const& q = predicted_[j];
      Vec const d{p[0] - q[0], p[1] - q[1], p[2] - q[2]};
      float const distance = std::sqrt(square(d[0]) + square(d[1]) + square(d[2]));
      float const weight = (lambdas_[i] + lambdas_[j]) * kernelSlope(distance) / restDensity_;
      for (std::size_t a = 0; a < 3; ++a) sum[a] += weight * d[a];
    }
    corrections_[i] = sum;
  });
  parallel(predicted_.size(), [&](std::size_t i) {
    for (std::size_t a = 0; a < 3; ++a) {
      predicted_[i][a] += std::clamp(corrections_[i][a], -0.25f * spacing, 0.25f * spacing);
    }
    keepInside(predicted_[i], i);
  });
}

void Fluid::smoothVelocities() {
  parallel(predicted_.size(), [&](std::size_t i) {
    auto const& p = predicted_[i];
    Vec sum{};
    for (std::uint32_t n = 0; n < counts_[i]; ++n) {
      auto const j = neighbours_[i * most + n];
      auto const& q = predicted_[j];
      float const weight =
          kernel(square(p[0] - q[0]) + square(p[1] - q[1]) + square(p[2] - q[2])) / restDensity_;
      for (std::size_t a = 0; a < 3; ++a)
        sum[a] += weight * (velocities_[j][a] - velocities_[i][a]);
    }
    for (std::size_t a = 0; a < 3; ++a) corrections_[i][a] = velocities_[i][a] + viscosity * sum[a];
  });
  velocities_.swap(corrections_);
}

}  // namespace Splash
