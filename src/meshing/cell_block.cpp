#include "meshing/cell_block.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "meshing/marching_cubes_tables.h"

namespace Velmor::Processing {

namespace {

namespace Tables = MarchingCubesTables;

bool isNaN(orlen::Math::vec<3, float> const& p) noexcept { return p != p; }

}  // namespace

void CellBlock::setCoordinates(int axis, int corners, std::int32_t corner) {
  auto const a = static_cast<std::size_t>(axis);
  auto const n = static_cast<std::size_t>(corners);
  corner_[a] = corner;
  coordinate_[a].resize(n);
  sampleAt_[a].resize(n);
  onFace_[a].assign(n, 0);
  onFace_[a].front() = onFace_[a].back() = 1;
  for (std::size_t i = 0; i < n; ++i) {
    // unsigned, so that cells beyond the integers wrap
    auto const cell = static_cast<std::int32_t>(static_cast<std::uint32_t>(corner) +
                                                static_cast<std::uint32_t>(i));
    coordinate_[a][i] = static_cast<float>(cell);
    sampleAt_[a][i] = static_cast<float>(cell) * invRes_;
  }
}

void CellBlock::place(std::array<int, 3> const& corners,
                      std::array<std::int32_t, 3> const& corner) {
  auto const [nx, ny, nz] = corners;
  constexpr std::size_t spare = 3;
  nx_ = static_cast<std::size_t>(nx);
  ny_ = static_cast<std::size_t>(ny);
  nz_ = static_cast<std::size_t>(nz);
  for (int axis = 0; axis < 3; ++axis) {
    setCoordinates(axis, corners[static_cast<std::size_t>(axis)],
                   corner[static_cast<std::size_t>(axis)]);
  }

  // Eight units in the last place of the largest coordinate.
  float reach = 1.f;
  for (auto const& c : coordinate_) {
    reach = std::max({reach, std::abs(c.front()), std::abs(c.back())});
  }
  float const size = std::abs(cellSize_);
  bool const ordinary = size > 1e-15f && size < 1e15f;
  margin_ = ordinary ? reach * 0x1p-20f : 1.f;

  auto const count = nx_ * ny_ * nz_;
  for (std::size_t e = 0; e < edgeEnds_.size(); ++e) {
    auto const offset = [this](int end) {
      auto const& o = Tables::corners[static_cast<std::size_t>(end)];
      return at(o.x, o.y, o.z);
    };
    edgeEnds_[e] = {offset(Tables::edges[e].from), offset(Tables::edges[e].to)};
  }
  if (count + spare != values_.size()) {
    values_.resize(count + spare);
    edgeVertex_.assign(3 * count, -1);
  } else {
    for (auto const edge : usedEdges_) edgeVertex_[edge] = -1;
  }
  usedEdges_.clear();
  vertices_.clear();
  triangles_.clear();
}

void CellBlock::advance() {
  setCoordinates(0, 2, static_cast<std::int32_t>(static_cast<std::uint32_t>(corner_[0]) + 1u));
  auto const layer = ny_ * nz_;
  std::copy_n(values_.begin() + static_cast<std::ptrdiff_t>(layer), layer, values_.begin());
  std::copy_n(edgeVertex_.begin() + static_cast<std::ptrdiff_t>(3 * layer), 3 * layer,
              edgeVertex_.begin());
  std::fill(edgeVertex_.begin() + static_cast<std::ptrdiff_t>(3 * layer), edgeVertex_.end(), -1);
  for (auto& edge : usedEdges_) edge -= edge < 3 * layer ? 0 : 3 * layer;
}

CellBlock::Vertex CellBlock::makeVertex(std::array<int, 3> const& from, int axis, float f,
                                        float g) const noexcept {
  float const t = std::abs(f - g) > 1.1920929e-7f ? f / (f - g) : 0.f;
  auto const i = static_cast<std::size_t>(from[0]), j = static_cast<std::size_t>(from[1]),
             k = static_cast<std::size_t>(from[2]);
  Point const corner(coordinate_[0][i], coordinate_[1][j], coordinate_[2][k]);
  Point const inCells((axis == 0 ? 1.f : 0.f) * t + corner.x,
                      (axis == 1 ? 1.f : 0.f) * t + corner.y,
                      (axis == 2 ? 1.f : 0.f) * t + corner.z);

  // A vertex well inside an edge has a position that no other edge can give,
  // whatever is lost to rounding; so unless the edge lies on a face of the
  // block, no other block meets it.
  float const along = inCells[axis], start = corner[axis];
  bool const insideEdge = along >= start + margin_ && along <= start + 1.f - margin_;
  int const faces = (axis != 0 ? onFace_[0][i] : 0) + (axis != 1 ? onFace_[1][j] : 0) +
                    (axis != 2 ? onFace_[2][k] : 0);
  constexpr Meetings beyond[3] = {0, 1, 3};
  return {inCells * cellSize_, insideEdge ? beyond[faces] : many};
}

void CellBlock::polygonise(int i, int j, int k, unsigned cube) {
  std::array<int, 12> vertexOf;
  auto const first = at(i, j, k);
  for (unsigned mask = Tables::edgeMasks[cube]; mask != 0; mask &= mask - 1) {
    auto const e = static_cast<std::size_t>(std::countr_zero(mask));
    auto const& edge = Tables::edges[e];
    auto const from = first + edgeEnds_[e].from;
    auto const slot = 3 * from + static_cast<std::size_t>(edge.axis);
    if (edgeVertex_[slot] < 0) {
      auto const& p = Tables::corners[static_cast<std::size_t>(edge.from)];
      auto const to = first + edgeEnds_[e].to;
      auto vertex = makeVertex({i + p.x, j + p.y, k + p.z}, edge.axis, values_[from], values_[to]);
      vertexOf[e] = static_cast<int>(vertices_.size());
      // A NaN position equals no other, so each of its uses is a vertex of its own.
      if (isNaN(vertex.position)) {
        vertex.meetings = 0;
      } else {
        edgeVertex_[slot] = vertexOf[e];
        usedEdges_.push_back(slot);
      }
      vertices_.push_back(vertex);
    } else {
      vertexOf[e] = edgeVertex_[slot];
    }
  }
  for (auto row = Tables::triangleRows[cube]; (row & 15u) != Tables::rowEnd; row >>= 12) {
    triangles_.push_back(
        {vertexOf[row & 15u], vertexOf[(row >> 4) & 15u], vertexOf[(row >> 8) & 15u]});
  }
}

}  // namespace Velmor::Processing
