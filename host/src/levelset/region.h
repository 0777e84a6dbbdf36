#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "levelset/particles.h"

namespace Velmor::Host {

/// The particles of the bulk around one tile of the output, gathered so that the
/// particles of a row of point voxels follow each other. Serves one thread; its
/// memory is used again.
class Region {
 public:
  explicit Region(Particles const& particles) noexcept : particles_(&particles) {}

  /// How far from a voxel a particle of that radius is needed: its kernel is twice
  /// as wide, and the surface needs known voxels on both sides.
  static float reachOf(float radius, float margin) noexcept {
    return std::max(2.f * radius, radius + margin);
  }

  /// Gathers around the tile of output voxels from `origin` on. Everything within
  /// `least` of it is gathered in any case.
  void gather(API::TileCoord const& origin, float least);

  float reach() const noexcept { return reach_; }
  std::size_t count() const noexcept { return count_; }
  /// Whether all point voxels within `extent` output voxels along each axis hold particles.
  bool full(float px, float py, float pz, float extent) const noexcept;

  /// Calls `function(begin, end)` for runs of particles that hold all within `reach`
  /// of a point, relative to the tile like the positions.
  template <class Function>
  void forRuns(float px, float py, float pz, float reach, Function const& function) const {
    forRows(py, pz, reach, [&](std::size_t row, float half) {
      auto const begin = starts_[row + static_cast<std::size_t>(clampedCell(px - half, 0))];
      auto const end = starts_[row + static_cast<std::size_t>(clampedCell(px + half, 0)) + 1];
      if (begin != end) function(begin, end);
    });
  }

  /// A row of point voxels of which a part may lie within reach of a voxel: where it
  /// starts in the table, and how far it goes to both sides, in point voxels.
  struct Row {
    std::size_t first;
    float half;
  };
  /// Particles that follow each other.
  struct Run {
    std::uint32_t begin, end;
  };

  /// The rows for all voxels at (y, z) of the tile.
  void rowsAt(float py, float pz, std::vector<Row>& rows) const;
  /// Of these rows, what holds all particles within reach of the voxel at x.
  void runsAt(float px, std::vector<Row> const& rows, std::vector<Run>& runs) const {
    runs.resize(rows.size());
    float const at = (px - low_[0]) * inverse_;
    int const last = cells_[0] - 1;
    std::size_t count = 0;
    for (auto const& row : rows) {
      // Rounding towards 0 rounds down: everything begins left of the tile.
      auto const from = std::max(static_cast<int>(at - row.half), 0);
      auto const to = std::min(static_cast<int>(at + row.half), last);
      Run const run{starts_[row.first + static_cast<std::size_t>(from)],
                    starts_[row.first + static_cast<std::size_t>(to) + 1]};
      runs[count] = run;
      count += run.begin != run.end ? 1 : 0;
    }
    runs.resize(count);
  }

  // Positions and radii in output voxels, relative to the tile. Behind `count()` of
  // them are more, far away, so that four may be loaded anywhere.
  static constexpr std::size_t padding = 4;
  std::vector<float> x, y, z, radius;
  std::vector<std::uint32_t> index;

 private:
  /// Calls `function(first, half)` for the rows of point voxels with particles that reach to
  /// within `reach` of a line along x: where each starts in the table, and half the
  /// length of what is within reach.
  template <class Function>
  void forRows(float py, float pz, float reach, Function const& function) const {
    float const reach2 = reach * reach;
    int const z0 = clampedCell(pz - reach, 2), z1 = clampedCell(pz + reach, 2);
    int const y0 = clampedCell(py - reach, 1), y1 = clampedCell(py + reach, 1);
    for (int cz = z0; cz <= z1; ++cz) {
      float const dz = gap(pz, cz, 2);
      for (int cy = y0; cy <= y1; ++cy) {
        auto const first =
            static_cast<std::size_t>(cells_[0]) * static_cast<std::size_t>(cy + cells_[1] * cz);
        if (starts_[first] == starts_[first + static_cast<std::size_t>(cells_[0])]) continue;
        float const dy = gap(py, cy, 1);
        float const rest = reach2 - dz * dz - dy * dy;
        if (rest > 0.f) function(first, std::sqrt(rest));
      }
    }
  }

  int clampedCell(float a, int axis) const noexcept {
    return std::clamp(floorOf((a - low_[axis]) * inverse_), 0, cells_[axis] - 1);
  }
  float gap(float a, int cell, int axis) const noexcept {
    float const from = low_[axis] + static_cast<float>(cell) * edge_;
    return std::max({from - a, a - from - edge_, 0.f});
  }

  Particles const* particles_;
  std::size_t count_ = 0;
  float reach_ = 0.f;
  float edge_ = 1.f, inverse_ = 1.f;  // of a point voxel, in output voxels
  float low_[3] = {};
  int cells_[3] = {};
  std::vector<std::uint32_t> starts_;
  std::vector<Particles::Tile const*> tiles_;
};

}  // namespace Velmor::Host
