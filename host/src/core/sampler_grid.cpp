#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "core/sampler_item.h"
#include "core/sampler_taps.h"
#include "velmorapi/bulk.h"

namespace Velmor::API {

namespace {

// A grid is cut into pieces of so many points along an axis, whose taps reach
// over so many voxels: a tile with a border of one. Any such box lies in 27
// blocks, and a row of it in two vectors.
constexpr std::size_t mostPoints = 32;
constexpr int mostVoxels = tileWidth + 2;
constexpr int rowLength = 8;
using Row = float[rowLength];

/// The weights of a point along one axis, and the lowest voxel they belong to.
struct Taps {
  std::int32_t first;  // counted from the piece's lowest voxel
  bool three;
  float low, middle, high;
};

/// A piece of a grid along one axis.
struct Piece {
  std::array<Taps, mostPoints> taps;
  std::size_t count;
  std::int32_t lowest, voxels;
  bool hasThree;

  std::int32_t middle() const noexcept { return lowest + voxels / 2; }
};

/// As many of `count` coordinates as a piece holds, at least one.
void cut(float const* x, std::size_t count, float voxelSize, Piece& piece) {
  count = std::min(count, mostPoints);
  std::int32_t lowest = 0, highest = 0;
  piece.hasThree = false;
  std::size_t n = 0;
  for (bool full = false; n < count && !full;) {
    auto const at = [&](std::size_t lane) { return x[std::min(n + lane, count - 1)] / voxelSize; };
    auto const axes = axesAt(FloatLanes{at(0), at(1), at(2), at(3)});
    auto const w = weightsAt(axes.r);
    for (int lane = 0; lane < 4 && n < count; ++lane, ++n) {
      auto const first = axes.voxel[lane] - 1;
      bool const three = axes.r[lane] != -0.5f;
      auto const last = first + (three ? 2 : 1);
      auto const low = n == 0 ? first : std::min(lowest, first);
      auto const high = n == 0 ? last : std::max(highest, last);
      full = high - low >= mostVoxels;
      if (full) break;
      lowest = low;
      highest = high;
      piece.hasThree |= three;
      piece.taps[n] = {first, three, w.low[lane], w.middle[lane], w.high[lane]};
    }
  }
  for (std::size_t t = 0; t < n; ++t) piece.taps[t].first -= lowest;
  piece.count = n;
  piece.lowest = lowest;
  piece.voxels = highest - lowest + 1;
}

/// The part of a piece's voxels that lies in one of three blocks along an axis,
/// counted from the first voxel of the middle one.
struct Span {
  int begin, end;
  Span(Piece const& piece, std::int32_t origin, int block) {
    begin = std::max(piece.lowest - origin, tileWidth * (block - 1));
    end = std::min(piece.lowest - origin + piece.voxels, tileWidth * block);
  }
  bool empty() const noexcept { return begin >= end; }
};

// Rows of three blocks, the middle one's first voxel at `tileWidth`, with room
// for a vector that starts at the last voxel.
using BlockRow = float[3 * tileWidth + rowLength + 1];

/// Returns where the piece's lowest voxel lies in its rows.
int readVoxels(SamplerItem& sampler, Piece const& px, Piece const& py, Piece const& pz,
               BlockRow* rows) {
  IntLanes const middle{px.middle(), py.middle(), pz.middle(), 0};
  if (!sampler.isNear(middle - sampler.origin())) {
    sampler.enter({middle[0], middle[1], middle[2]});
  }
  auto const origin = sampler.origin();
  int const yFirst = py.lowest - origin[1], zFirst = pz.lowest - origin[2];
  for (int bz = 0; bz < 3; ++bz) {
    Span const zs(pz, origin[2], bz);
    if (zs.empty()) continue;
    for (int by = 0; by < 3; ++by) {
      Span const ys(py, origin[1], by);
      if (ys.empty()) continue;
      for (int bx = 0; bx < 3; ++bx) {
        if (Span(px, origin[0], bx).empty()) continue;
        int const block = bx + 3 * (by + 3 * bz), x = tileWidth * (bx - 1);
        bool const isTile = sampler.prepare(std::uint32_t{1} << block);
        auto const at = static_cast<std::size_t>(block);
        for (int z = zs.begin; z < zs.end; ++z) {
          float* to = rows[(z - zFirst) * py.voxels + ys.begin - yFirst] + tileWidth * bx;
          auto const* from = sampler.values<float>(at, cellOf(x, ys.begin, z));
          for (int y = ys.begin; y < ys.end; ++y, to += std::size(*rows)) {
            if (isTile) {
              std::memcpy(to, from, tileWidth * sizeof(float));
              from += tileWidth;
            } else {
              std::fill_n(to, tileWidth, *from);
            }
          }
        }
      }
    }
  }
  return px.lowest - origin[0] + tileWidth;
}

/// A weighted sum of rows that lie `step` apart.
inline void addRows(float const* rows, std::size_t step, Taps const& t, Row& __restrict sum) {
  auto const* const a = rows + static_cast<std::size_t>(t.first) * step;
  auto const* const b = a + step;
  for (int x = 0; x < rowLength; ++x) sum[x] = a[x] * t.low + b[x] * t.middle;
  if (!t.three) return;
  auto const* const c = b + step;
  for (int x = 0; x < rowLength; ++x) sum[x] = sum[x] + c[x] * t.high;
}

/// Values lie `yStep` and `xStep` apart along y and x.
void samplePieces(SamplerItem& sampler, Piece const& px, Piece const& py, Piece const& pz,
                  std::size_t xStep, std::size_t yStep, float* values) {
  // Zeros, as denormal numbers behind the voxels would be slow.
  BlockRow voxels[mostVoxels * mostVoxels] = {};
  float const* const first = voxels[0] + readVoxels(sampler, px, py, pz, voxels);
  auto const planeStep = static_cast<std::size_t>(py.voxels) * std::size(*voxels);
  for (std::size_t b = 0; b < py.count; ++b) {
    alignas(16) Row planes[mostVoxels];
    for (int z = 0; z < pz.voxels; ++z) {
      addRows(first + static_cast<std::size_t>(z) * planeStep, std::size(*voxels), py.taps[b],
              planes[z]);
    }
    for (std::size_t c = 0; c < pz.count; ++c) {
      alignas(16) Row column;
      addRows(planes[0], rowLength, pz.taps[c], column);
      float* to = values + b * yStep + c;
      auto const* const end = px.taps.data() + px.count;
      if (px.hasThree) {
        for (auto const* t = px.taps.data(); t != end; ++t, to += xStep) {
          float const* const tap = column + t->first;
          float const sum = tap[0] * t->low + tap[1] * t->middle;
          *to = t->three ? sum + tap[2] * t->high : sum;
        }
      } else {
        for (auto const* t = px.taps.data(); t != end; ++t, to += xStep) {
          float const* const tap = column + t->first;
          *to = tap[0] * t->low + tap[1] * t->middle;
        }
      }
    }
  }
}

}  // namespace

void sampleGrid(VoxelSampler const& sampler, SampleGrid const& grid, float* values) {
  auto* const item = static_cast<SamplerItem*>(sampler.item());
  if (item == nullptr || item->type() != DataType::Float) {
    std::fill_n(values, grid.pointCount(), 0.f);
    return;
  }
  bool const world = item->space() == SamplerSpace::World;
  auto const voxelSize = world ? item->layout().voxelScale() : 1.f;
  auto const isNear = [voxelSize](float const* x, std::size_t count) {
    return std::all_of(x, x + count, [voxelSize](float a) {
      return a / voxelSize < farAway && a / voxelSize > -farAway;
    });
  };
  if (!isNear(grid.x, grid.xCount) || !isNear(grid.y, grid.yCount) ||
      !isNear(grid.z, grid.zCount)) {
    for (std::size_t a = 0; a < grid.xCount; ++a) {
      for (std::size_t b = 0; b < grid.yCount; ++b) {
        for (std::size_t c = 0; c < grid.zCount; ++c) {
          *values++ = sampler.sample<float>({grid.x[a], grid.y[b], grid.z[c]});
        }
      }
    }
    return;
  }
  Piece x, y, z;
  auto const yStep = grid.zCount, xStep = grid.yCount * yStep;
  for (std::size_t a = 0; a < grid.xCount; a += x.count) {
    cut(grid.x + a, grid.xCount - a, voxelSize, x);
    for (std::size_t b = 0; b < grid.yCount; b += y.count) {
      cut(grid.y + b, grid.yCount - b, voxelSize, y);
      for (std::size_t c = 0; c < grid.zCount; c += z.count) {
        cut(grid.z + c, grid.zCount - c, voxelSize, z);
        samplePieces(*item, x, y, z, xStep, yStep, values + a * xStep + b * yStep + c);
      }
    }
  }
}

}  // namespace Velmor::API
