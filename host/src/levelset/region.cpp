#include "levelset/region.h"

#include <algorithm>
#include <cmath>

namespace Velmor::Host {

using API::tileWidth;

void Region::gather(API::TileCoord const& origin, float least) {
  auto const& grid = particles_->grid();
  double const factor = particles_->scale().factor;
  float const margin = particles_->scale().margin;
  edge_ = static_cast<float>(factor);
  inverse_ = static_cast<float>(1.0 / factor);
  double const from[3] = {double{1} * origin.i, double{1} * origin.j, double{1} * origin.k};

  std::int32_t lowCell[3], highCell[3];
  TilePlace low, high;
  auto const bound = [&](float reach) {
    for (int a = 0; a < 3; ++a) {
      lowCell[a] = static_cast<std::int32_t>(std::floor((from[a] - reach) / factor));
      highCell[a] = static_cast<std::int32_t>(std::floor((from[a] + tileWidth + reach) / factor));
    }
    low = grid.place(API::TileCoord{lowCell[0], lowCell[1], lowCell[2]});
    high = grid.place(API::TileCoord{highCell[0], highCell[1], highCell[2]});
  };

  reach_ = std::max(least, reachOf(particles_->scale().surfaceRadius, margin));
  if (particles_->adaptive()) {
    // Wide particles count only where they are.
    bound(std::max(least, reachOf(particles_->largestRadius(), margin)));
    for (auto pz = low.z; pz <= high.z; ++pz) {
      for (auto py = low.y; py <= high.y; ++py) {
        for (auto px = low.x; px <= high.x; ++px) {
          auto const* const tile = particles_->find({px, py, pz});
          if (tile == nullptr || tile->sorted < 0) continue;
          auto const corner = grid.voxel(tile->place);
          auto const gap = [&](std::int32_t a, int axis) {
            double const begin = a * factor, end = (a + tileWidth) * factor;
            return std::max({begin - from[axis] - tileWidth, from[axis] - end, 0.0});
          };
          auto const gx = gap(corner.i, 0), gy = gap(corner.j, 1), gz = gap(corner.k, 2);
          auto const reach = reachOf(tile->radius, margin);
          if (gx * gx + gy * gy + gz * gz < double{reach} * reach) {
            reach_ = std::max(reach_, reach);
          }
        }
      }
    }
  }
  bound(reach_);

  auto const wide = static_cast<std::size_t>(high.x - low.x + 1);
  tiles_.clear();
  for (auto pz = low.z; pz <= high.z; ++pz) {
    for (auto py = low.y; py <= high.y; ++py) {
      for (auto px = low.x; px <= high.x; ++px) {
        auto const* const tile = particles_->find({px, py, pz});
        tiles_.push_back(tile != nullptr && tile->sorted >= 0 ? tile : nullptr);
      }
    }
  }
  std::size_t most = padding;
  for (auto const* const tile : tiles_) most += tile != nullptr ? tile->bulk : 0;
  bool const adaptive = particles_->adaptive();
  if (x.size() < most) {
    for (auto* const values : {&x, &y, &z}) values->resize(most);
    if (adaptive) radius.resize(most);
    index.resize(most);
  }

  for (int a = 0; a < 3; ++a) {
    cells_[a] = highCell[a] - lowCell[a] + 1;
    low_[a] = static_cast<float>(lowCell[a] * factor - from[a]);
  }
  starts_.resize(static_cast<std::size_t>(cells_[0]) * static_cast<std::size_t>(cells_[1]) *
                     static_cast<std::size_t>(cells_[2]) +
                 1);
  auto* next = starts_.data();
  std::size_t count = 0;
  auto const copy = [&](std::vector<float> const& in, std::vector<float>& out, double offset,
                        std::size_t begin, std::size_t length) {
    auto const* const source = in.data() + begin;
    auto* const target = out.data() + count;
    if (factor == 1.0) {
      // Both numbers are floats: their difference is rounded once, with or without doubles.
      auto const whole = static_cast<float>(offset);
      for (std::size_t p = 0; p < length; ++p) target[p] = source[p] - whole;
      return;
    }
    for (std::size_t p = 0; p < length; ++p) {
      target[p] = static_cast<float>(source[p] * factor - offset);
    }
  };
  for (auto k = lowCell[2]; k <= highCell[2]; ++k) {
    auto const tz = grid.place(k);
    for (auto j = lowCell[1]; j <= highCell[1]; ++j) {
      auto const ty = grid.place(j);
      int const row = tileWidth * (j - grid.voxel(ty) + tileWidth * (k - grid.voxel(tz)));
      auto const* const tiles =
          &tiles_[wide *
                  static_cast<std::size_t>(ty - low.y + (high.y - low.y + 1) * (tz - low.z))];
      for (std::size_t t = 0; t < wide; ++t) {
        auto const first = grid.voxel(low.x + static_cast<std::int32_t>(t));
        int const i0 = std::max(lowCell[0] - first, 0);
        int const i1 = std::min(highCell[0] - first, tileWidth - 1);
        auto const* const tile = tiles[t];
        if (tile == nullptr) {
          next = std::fill_n(next, i1 - i0 + 1, static_cast<std::uint32_t>(count));
          continue;
        }
        auto const* const cells =
            &particles_->cellStarts[tile->cellStarts + static_cast<std::size_t>(row)];
        for (int i = i0; i <= i1; ++i) {
          *next++ = static_cast<std::uint32_t>(count) + cells[i] - cells[i0];
        }
        auto const length = std::size_t{cells[i1 + 1] - cells[i0]};
        if (length == 0) continue;
        auto const begin = static_cast<std::size_t>(tile->sorted) + cells[i0];
        copy(particles_->x, x, from[0], begin, length);
        copy(particles_->y, y, from[1], begin, length);
        copy(particles_->z, z, from[2], begin, length);
        if (adaptive) {
          std::copy_n(&particles_->radius[begin], length, &radius[count]);
        }
        std::copy_n(&particles_->index[begin], length, &index[count]);
        count += length;
      }
    }
  }
  *next = static_cast<std::uint32_t>(count);
  for (auto* const values : {&x, &y, &z}) std::fill_n(values->data() + count, padding, 1e9f);
  if (adaptive) std::fill_n(radius.data() + count, padding, 1.f);
  count_ = count;
}

void Region::rowsAt(float py, float pz, std::vector<Row>& rows) const {
  rows.clear();
  forRows(py, pz, reach_, [&](std::size_t first, float half) {
    // A little more, for what rounding may take away.
    rows.push_back({first, half * inverse_ + 1e-4f});
  });
}

bool Region::full(float px, float py, float pz, float extent) const noexcept {
  int const z0 = clampedCell(pz - extent, 2), z1 = clampedCell(pz + extent, 2);
  int const y0 = clampedCell(py - extent, 1), y1 = clampedCell(py + extent, 1);
  int const x0 = clampedCell(px - extent, 0), x1 = clampedCell(px + extent, 0);
  for (int cz = z0; cz <= z1; ++cz) {
    for (int cy = y0; cy <= y1; ++cy) {
      auto const row =
          static_cast<std::size_t>(cells_[0]) * static_cast<std::size_t>(cy + cells_[1] * cz);
      for (auto c = row + static_cast<std::size_t>(x0); c <= row + static_cast<std::size_t>(x1);
           ++c) {
        if (starts_[c] == starts_[c + 1]) return false;
      }
    }
  }
  return true;
}

}  // namespace Velmor::Host
