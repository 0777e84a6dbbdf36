#pragma once

#include <xmmintrin.h>

#include <array>
#include <cstdint>
#include <vector>

#include "velmorapi/bulk.h"
#include "velmorapi/math.h"

namespace Velmor::Processing {

/// A block of marching-cubes cells: samples at their corners, and the vertices
/// and triangles made from them so far. Each edge of the block makes its vertex
/// once, so that most of them need no search.
///
/// Corner coordinates are counted in cells. A corner is sampled at coordinate *
/// `invRes` and lies in the world at coordinate * `cellSize`.
class CellBlock {
 public:
  using Point = orlen::Math::vec<3, float>;

  /// How many other blocks may bring a vertex with the same position: those that
  /// meet at its edge, or any number, which `many` stands for.
  using Meetings = std::uint8_t;
  static constexpr Meetings many = 255;

  struct Vertex {
    Point position;
    Meetings meetings;
  };

  CellBlock(float invRes, float cellSize) : invRes_(invRes), cellSize_(cellSize) {}

  /// Sizes the block, counted in corners, and puts its first corner at `corner`.
  /// Forgets vertices and triangles.
  void place(std::array<int, 3> const& corners, std::array<std::int32_t, 3> const& corner);
  /// Puts a block two corners wide along x one cell further. The second layer of
  /// samples and the vertices on it become the first; earlier vertices stay.
  void advance();

  std::size_t at(int i, int j, int k) const noexcept {
    return (static_cast<std::size_t>(i) * ny_ + static_cast<std::size_t>(j)) * nz_ +
           static_cast<std::size_t>(k);
  }
  /// One per corner, in the order of `at`.
  float* values() noexcept { return values_.data(); }
  float value(std::size_t at) const noexcept { return values_[at]; }
  /// Which of a row of at most 32 values are above 0, a bit each. Also reads the
  /// three values behind the row, which every row has.
  static std::uint32_t positive(float const* row, int count) noexcept {
    std::uint32_t bits = 0;
    for (int k = 0; k < count; k += 4) {
      auto const above = _mm_cmpgt_ps(_mm_loadu_ps(row + k), _mm_setzero_ps());
      bits |= static_cast<std::uint32_t>(_mm_movemask_ps(above)) << k;
    }
    return bits & (~std::uint32_t{0} >> (32 - count));
  }
  /// Where the corners are sampled: all, or those of layer `i`.
  API::SampleGrid samplePoints() const noexcept { return sampleGrid(0, nx_); }
  API::SampleGrid samplePoints(int i) const noexcept {
    return sampleGrid(static_cast<std::size_t>(i), 1);
  }

  /// Makes the triangles of cell (i, j, k), whose case number is `cube`.
  void polygonise(int i, int j, int k, unsigned cube);

  std::vector<Vertex> const& vertices() const noexcept { return vertices_; }
  std::vector<orlen::Math::vec<3, int>> const& triangles() const noexcept { return triangles_; }

 private:
  API::SampleGrid sampleGrid(std::size_t layer, std::size_t layers) const noexcept {
    return {
        sampleAt_[0].data() + layer, sampleAt_[1].data(), sampleAt_[2].data(), layers, ny_, nz_};
  }
  void setCoordinates(int axis, int corners, std::int32_t corner);
  Vertex makeVertex(std::array<int, 3> const& from, int axis, float f, float g) const noexcept;

  float invRes_, cellSize_;
  std::size_t nx_ = 0, ny_ = 0, nz_ = 0;
  std::array<std::int32_t, 3> corner_{};
  float margin_ = 0;
  std::array<std::vector<float>, 3> coordinate_, sampleAt_;
  std::array<std::vector<std::uint8_t>, 3> onFace_;
  std::vector<float> values_;  // and three behind them
  struct EdgeEnds {
    std::size_t from, to;  // counted from the cell's first corner
  };
  std::array<EdgeEnds, 12> edgeEnds_{};
  std::vector<std::int32_t> edgeVertex_;  // three per corner, -1 where none yet
  std::vector<std::size_t> usedEdges_;
  std::vector<Vertex> vertices_;
  std::vector<orlen::Math::vec<3, int>> triangles_;
};

}  // namespace Velmor::Processing
