#include "levelset/particles.h"

#include <tbb/parallel_sort.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "levelset/bit_rows.h"
#include "levelset/parallel.h"

namespace Velmor::Host {

namespace {

using API::cellOf;
using API::tileCells;
using API::tileWidth;

bool isSane(Point const& p) noexcept {
  constexpr float limit = 1e9f;  // beyond every root, and fits an integer; false for NaN too
  return std::abs(p.x) < limit && std::abs(p.y) < limit && std::abs(p.z) < limit;
}

API::TileCoord voxelOf(Point const& p) noexcept {
  return {floorOf(p.x), floorOf(p.y), floorOf(p.z)};
}

// The cell of a sane position in the tile that starts at `origin`; -1 outside it.
int cellIn(API::TileCoord const& origin, Point const& p) noexcept {
  auto const along = [](float a, std::int32_t from) {
    return static_cast<std::uint32_t>(floorOf(a) - from);
  };
  auto const i = along(p.x, origin.i), j = along(p.y, origin.j), k = along(p.z, origin.k);
  if (i >= tileWidth || j >= tileWidth || k >= tileWidth) return -1;
  return cellOf(static_cast<int>(i), static_cast<int>(j), static_cast<int>(k));
}

}  // namespace

Particles::Particles(API::PointChannelItem& positions, float const* droplets,
                     API::LevelSetOptions const& options)
    : grid_(positions.layout()),
      positions_(reinterpret_cast<Point const*>(positions.values())),
      count_(positions.ranges().count()),
      dropletValues_(droplets),
      threshold_(options.dropletThreshold),
      voxelSize_(double{positions.layout().voxelScale()}),
      scale_{double{options.resolutionFactor},
             static_cast<float>(double{options.surfaceRadius} * options.resolutionFactor), 1.8f},
      adaptive_(options.enableSpatialAdapt),
      largestRadius_(scale_.surfaceRadius) {
  auto const& layout = positions.layout();
  if (!takeTiles(layout, positions.ranges())) takeSorted(layout);
  map_.clear(tiles_.size());
  for (std::size_t t = 0; t < tiles_.size(); ++t) {
    map_.insert(tiles_[t].place, static_cast<std::int32_t>(t));
  }
  if (adaptive_) {
    sort(std::vector<std::uint8_t>(tiles_.size(), 1));
    adaptRadii();
  }
  if (dropletValues_ != nullptr) collectDroplets(options);
}

// What the points' layout says already. False if a position has left its tile.
bool Particles::takeTiles(API::LayoutItem const& layout, API::PointRanges const& ranges) {
  auto const depth = layout.leafDepth();
  auto const order = layout.tiles(depth);
  for (std::int32_t t = 0; t < order.count; ++t) {
    auto const slot = order.slot(t);
    auto const at = static_cast<std::size_t>(slot);
    if (at + 1 >= ranges.starts.size() || ranges.starts[at] == ranges.starts[at + 1]) continue;
    Tile tile;
    tile.place = grid_.place(layout.coord(depth, slot));
    tile.first = ranges.starts[at];
    tile.count = static_cast<std::uint32_t>(ranges.starts[at + 1] - ranges.starts[at]);
    tiles_.push_back(tile);
  }
  std::vector<Survey> surveys(tiles_.size());
  forEach(tiles_.size(), [&](std::size_t t) { surveys[t] = survey(tiles_[t]); });
  bool strayed = false;
  leftOut_ = 0;
  for (auto const& s : surveys) {
    strayed = strayed || s.strayed;
    leftOut_ += s.bad;
  }
  return !strayed;
}

// Positions that were written to after they had been stored may lie anywhere.
void Particles::takeSorted(API::LayoutItem const& layout) {
  std::vector<std::pair<std::uint64_t, std::uint32_t>> placed;
  for (std::size_t p = 0; p < count_; ++p) {
    if (!isSane(positions_[p]) || !layout.inRoot(voxelOf(positions_[p]))) continue;
    placed.emplace_back(layout.leafKey(voxelOf(positions_[p])), static_cast<std::uint32_t>(p));
  }
  leftOut_ = count_ - placed.size();
  tbb::parallel_sort(placed.begin(), placed.end());
  order_.resize(placed.size());
  tiles_.clear();
  for (std::size_t p = 0; p < placed.size(); ++p) {
    order_[p] = placed[p].second;
    if (p == 0 || placed[p].first != placed[p - 1].first) {
      Tile tile;
      tile.place = grid_.place(voxelOf(positions_[order_[p]]));
      tile.first = p;
      tiles_.push_back(tile);
    }
    ++tiles_.back().count;
  }
  forEach(tiles_.size(), [&](std::size_t t) { survey(tiles_[t]); });
}

Particles::Survey Particles::survey(Tile& tile) const {
  Survey found;
  auto const origin = grid_.voxel(tile.place);
  tile.radius = scale_.surfaceRadius;
  for (std::size_t p = tile.first; p < tile.first + tile.count; ++p) {
    auto const input = inputOf(p);
    auto const& position = positions_[input];
    if (!isSane(position)) {
      ++found.bad;
      continue;
    }
    int const cell = cellIn(origin, position);
    if (cell < 0) {
      found.strayed = true;
      return found;
    }
    if (isDroplet(input)) continue;
    tile.occupied.set(cell);
    ++tile.bulk;
  }
  return found;
}

std::size_t Particles::beyond(TileGrid const& output) const {
  auto const outside = [&](float px, float py, float pz) {
    auto const voxel = [&](float a) {
      return static_cast<std::int32_t>(std::floor(a * scale_.factor));
    };
    return !output.inRoot(output.place(API::TileCoord{voxel(px), voxel(py), voxel(pz)}));
  };
  std::size_t count = 0;
  for (auto const& tile : tiles_) {
    auto const corner = grid_.voxel(tile.place);
    auto const low = [](std::int32_t a) { return static_cast<float>(a); };
    auto const high = [](std::int32_t a) { return static_cast<float>(a + tileWidth); };
    if (!outside(low(corner.i), low(corner.j), low(corner.k)) &&
        !outside(high(corner.i), high(corner.j), high(corner.k))) {
      continue;
    }
    for (auto p = tile.first; p < tile.first + tile.count; ++p) {
      auto const& at = positions_[inputOf(p)];
      if (isSane(at) && outside(at.x, at.y, at.z)) ++count;
    }
  }
  return count;
}

bool Particles::full(API::TileCoord const& low, API::TileCoord const& high) const noexcept {
  auto const from = grid_.place(low), to = grid_.place(high);
  for (auto pz = from.z; pz <= to.z; ++pz) {
    for (auto py = from.y; py <= to.y; ++py) {
      for (auto px = from.x; px <= to.x; ++px) {
        auto const* const tile = find({px, py, pz});
        if (tile == nullptr) return false;
        auto const origin = grid_.voxel(tile->place);
        auto const first = [](std::int32_t a, std::int32_t o) { return std::max(a - o, 0); };
        auto const last = [](std::int32_t a, std::int32_t o) { return std::min(a - o, 4); };
        auto const i0 = first(low.i, origin.i), i1 = last(high.i, origin.i);
        auto const wanted = ((1u << (i1 - i0 + 1)) - 1u) << i0;
        for (auto k = first(low.k, origin.k); k <= last(high.k, origin.k); ++k) {
          for (auto j = first(low.j, origin.j); j <= last(high.j, origin.j); ++j) {
            if ((rowOf(tile->occupied, k * tileWidth + j) & wanted) != wanted) return false;
          }
        }
      }
    }
  }
  return true;
}

void Particles::sort(std::vector<std::uint8_t> const& wanted) {
  auto total = x.size();
  auto tables = cellStarts.size();
  std::vector<std::size_t> todo;
  for (std::size_t t = 0; t < tiles_.size(); ++t) {
    auto& tile = tiles_[t];
    if (wanted[t] == 0 || tile.sorted >= 0 || tile.bulk == 0) continue;
    tile.sorted = static_cast<std::int64_t>(total);
    tile.cellStarts = tables;
    total += tile.bulk;
    tables += tileCells + 1;
    todo.push_back(t);
  }
  if (todo.empty()) return;
  for (auto* const values : {&x, &y, &z}) values->resize(total);
  if (adaptive_) radius.resize(total, scale_.surfaceRadius);
  index.resize(total);
  cellStarts.resize(tables);
  forEach(todo.size(), [&](std::size_t n) {
    auto const& tile = tiles_[todo[n]];
    auto const origin = grid_.voxel(tile.place);
    auto const cellOfInput = [&](std::size_t input) {
      if (!isSane(positions_[input]) || isDroplet(input)) return -1;
      return cellIn(origin, positions_[input]);
    };
    auto* const starts = &cellStarts[tile.cellStarts];
    std::fill_n(starts, tileCells + 1, 0u);
    for (auto p = tile.first; p < tile.first + tile.count; ++p) {
      if (int const cell = cellOfInput(inputOf(p)); cell >= 0) ++starts[cell + 1];
    }
    for (int c = 0; c < tileCells; ++c) starts[c + 1] += starts[c];
    std::array<std::uint32_t, tileCells> next;
    std::copy_n(starts, tileCells, next.begin());
    for (auto p = tile.first; p < tile.first + tile.count; ++p) {
      auto const input = inputOf(p);
      int const cell = cellOfInput(input);
      if (cell < 0) continue;
      auto const to =
          static_cast<std::size_t>(tile.sorted) + next[static_cast<std::size_t>(cell)]++;
      x[to] = positions_[input].x;
      y[to] = positions_[input].y;
      z[to] = positions_[input].z;
      index[to] = static_cast<std::uint32_t>(input);
    }
  });
}

std::uint32_t Particles::countIn(API::TileCoord const& voxel) const noexcept {
  auto const* const tile = find(grid_.place(voxel));
  if (tile == nullptr || tile->sorted < 0) return 0;
  auto const origin = grid_.voxel(tile->place);
  auto const* const starts = &cellStarts[tile->cellStarts];
  int const cell = cellOf(voxel.i - origin.i, voxel.j - origin.j, voxel.k - origin.k);
  return starts[cell + 1] - starts[cell];
}

// In the two by two by two voxels whose common corner is nearest.
std::uint32_t Particles::countAround(float px, float py, float pz) const noexcept {
  auto const low = voxelOf({px - 0.5f, py - 0.5f, pz - 0.5f});
  std::uint32_t count = 0;
  for (int c = 0; c < 8; ++c) {
    count += countIn({low.i + (c & 1), low.j + (c >> 1 & 1), low.k + (c >> 2)});
  }
  return count;
}

// Grows radii where there are less particles than one to the voxel, so that thin
// parts hold together. In proportion to the spacing, hence the cube root.
void Particles::adaptRadii() {
  forEach(tiles_.size(), [&](std::size_t t) {
    auto& tile = tiles_[t];
    if (tile.sorted < 0) return;
    auto const first = static_cast<std::size_t>(tile.sorted);
    tile.radius = 0.f;
    for (auto p = first; p < first + tile.bulk; ++p) {
      auto const count = std::max(countAround(x[p], y[p], z[p]), 1u);
      auto const growth = std::clamp(std::cbrt(8.f / static_cast<float>(count)), 1.f, 4.f);
      radius[p] = scale_.surfaceRadius * growth;
      tile.radius = std::max(tile.radius, radius[p]);
    }
  });
  for (auto const& tile : tiles_) largestRadius_ = std::max(largestRadius_, tile.radius);
}

// From a position to the nearest sphere around a particle of the bulk, at most
// `limit`, in output voxels.
float Particles::distanceToBulk(Point const& position, float limit) const noexcept {
  auto const factor = static_cast<float>(scale_.factor);
  auto const reach = (double{limit} + largestRadius_) / scale_.factor;
  float best = limit;
  auto const lookAt = [&](Tile const& tile) {
    if (tile.bulk == 0) return;
    auto const origin = grid_.voxel(tile.place);
    auto const gap = [](float a, std::int32_t from) {
      auto const low = static_cast<float>(from);
      return std::max({low - a, a - low - 5.f, 0.f});
    };
    auto const gx = gap(position.x, origin.i), gy = gap(position.y, origin.j),
               gz = gap(position.z, origin.k);
    if (std::sqrt(gx * gx + gy * gy + gz * gz) * factor - tile.radius >= best) return;
    bool const sorted = tile.sorted >= 0;
    auto const first = sorted ? static_cast<std::size_t>(tile.sorted) : tile.first;
    for (auto p = first; p < first + (sorted ? tile.bulk : tile.count); ++p) {
      Point at;
      if (sorted) {
        at = {x[p], y[p], z[p]};
      } else {
        auto const input = inputOf(p);
        at = positions_[input];
        if (!isSane(at) || isDroplet(input)) continue;
      }
      auto const d = at - position;
      auto const r = adaptive_ && sorted ? radius[p] : scale_.surfaceRadius;
      best = std::min(best, std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z) * factor - r);
    }
  };
  if (auto const* const own = find(grid_.place(voxelOf(position)))) lookAt(*own);
  // A reach of more places than there are tiles is not worth looking them up.
  auto const places = 2.0 * reach / tileWidth + 2.0;
  if (places * places * places > static_cast<double>(tiles_.size())) {
    for (auto const& tile : tiles_) lookAt(tile);
    return best;
  }
  auto const r = static_cast<float>(reach);
  auto const low = grid_.place(voxelOf({position.x - r, position.y - r, position.z - r}));
  auto const high = grid_.place(voxelOf({position.x + r, position.y + r, position.z + r}));
  for (auto pz = low.z; pz <= high.z; ++pz) {
    for (auto py = low.y; py <= high.y; ++py) {
      for (auto px = low.x; px <= high.x; ++px) {
        if (auto const* const tile = find({px, py, pz})) lookAt(*tile);
      }
    }
  }
  return best;
}

void Particles::collectDroplets(API::LevelSetOptions const& options) {
  auto const full = static_cast<float>(double{options.dropletRadius} * scale_.factor);
  if (!(full > 0.f)) return;
  for (auto const& tile : tiles_) {
    for (auto p = tile.first; p < tile.first + tile.count; ++p) {
      auto const input = inputOf(p);
      if (!isDroplet(input) || !isSane(positions_[input])) continue;
      dropletIndices_.push_back(static_cast<std::uint32_t>(input));
    }
  }
  droplets_.resize(dropletIndices_.size());
  float const reveal = options.dropletRevealFactor * full;
  auto const factor = static_cast<float>(scale_.factor);
  forEach(droplets_.size(), [&](std::size_t d) {
    auto const& position = positions_[dropletIndices_[d]];
    float const growth =
        reveal > 0.f ? std::clamp(distanceToBulk(position, reveal) / reveal, 0.f, 1.f) : 1.f;
    droplets_[d] = {position * factor, full * growth};
  });
}

}  // namespace Velmor::Host
