#pragma once

#include <cmath>
#include <cstddef>
#include <deque>
#include <set>
#include <utility>
#include <vector>

#include "support/scene.h"

namespace Velmor::Test {

/// The ocean mask's rules, one voxel at a time, with recursion and direct loops:
/// slow, and next to their definition.
class LiteralOcean {
 public:
  LiteralOcean(API::Channel const& liquid, API::Channel const& mask, float height)
      : layout_(liquid.layout()),
        accessor_(layout_.tileAccessor()),
        liquid_(liquid),
        mask_(mask),
        vs_(layout_.voxelScale()),
        height_(height),
        heightVox_(height / vs_) {}

  void seed() {
    level_ = static_cast<int>(std::floor(height_ / vs_)) + 5;
    seedColumns(accessor_.tile(0, 0, 0, 0));
  }

  void flood() {
    std::deque<API::TreeIndex> work;
    std::set<std::pair<int, int>> queued;
    auto const insert = [&](API::TreeIndex const& index) {
      if (queued.insert({index.depth, index.slot}).second) work.push_back(index);
    };
    forTiles(layout_, leaf(), leaf(), insert);
    while (!work.empty()) {
      auto const index = work.front();
      work.pop_front();
      queued.erase({index.depth, index.slot});
      floodFrom(index, insert);
    }
  }

  void widen(float radius) {
    int const layerY = static_cast<int>(std::floor(height_ / vs_)) + 1;
    float const rVox = radius / vs_;
    float const invR2 = 1.f / (rVox * rVox);
    int const reach = static_cast<int>(std::ceil(rVox));
    std::vector<API::TileCoord> border;
    BruteForce<float> const frozen(mask_);
    forTiles(layout_, leaf(), leaf(), [&](API::TreeIndex const& index) {
      auto const o = accessor_.tile(index).coord();
      int const y = layerY - o.j;
      if (y < 0 || y > 5) return;
      for (int x = 0; x < 5; ++x) {
        for (int z = 0; z < 5; ++z) {
          int const X = o.i + x, Z = o.k + z;
          auto const* const liquid = at(liquid_, X, layerY, Z);
          if (liquid == nullptr || *liquid < 0.f || frozen.at(X, layerY, Z) != 1.f) continue;
          bool open = false;
          for (int dx = -1; dx <= 1; dx += 2) {
            for (int dz = -1; dz <= 1; dz += 2) open |= frozen.at(X + dx, layerY, Z + dz) != 1.f;
          }
          if (open) border.push_back({X, layerY, Z});
        }
      }
    });
    for (auto const& b : border) {
      for (int dx = -reach; dx <= reach; ++dx) {
        for (int dy = -reach; dy <= reach; ++dy) {
          for (int dz = -reach; dz <= reach; ++dz) {
            float const q = static_cast<float>(dx * dx + dy * dy + dz * dz) * invR2;
            if (q > 1.f) continue;
            float const f = 1.f - std::sqrt(q);
            float* const m = at(mask_, b.i + dx, b.j + dy, b.k + dz);
            if (m != nullptr && *m != 1.f && (*m == 0.f || f > *m)) *m = f;
          }
        }
      }
    }
  }

 private:
  int leaf() const { return layout_.maxDepth(); }

  /// The value of a voxel in a leaf tile; null without one.
  float* at(API::Channel const& channel, int x, int y, int z) const {
    auto const tile = accessor_.tile(x, y, z, leaf());
    if (tile.index().depth != leaf()) return nullptr;
    auto const data = channel.tileData<float>(tile.index());
    auto const& o = tile.coord();
    return data.data + data.offset(x - o.i, y - o.j, z - o.k);
  }

  void seedColumns(API::Tile const& tile) {
    for (int column = 0; column < 25; ++column) seedColumn(tile, column / 5, column % 5);
  }

  void seedColumn(API::Tile tile, int ix, int iz) {
    auto const depth = tile.index().depth;
    for (int iy = 0; tile.valid() && tile.index().depth == depth && tile.coord().j <= level_;) {
      auto const o = tile.coord();
      if (depth == leaf()) {
        for (int y = o.j; y <= level_; ++y) {
          auto const* const liquid = at(liquid_, o.i + ix, y, o.k + iz);
          if (liquid == nullptr || !(*liquid >= 0.f)) return;
          *at(mask_, o.i + ix, y, o.k + iz) = 1.f;
        }
        return;
      }
      if (auto const child = tile.child(ix, iy, iz); child.valid()) {
        seedColumns(child);
        return;
      }
      if (++iy < 5) continue;
      iy = 0;
      tile = accessor_.tile(o.i, o.j + tile.info().extent, o.k, depth);
    }
  }

  void inside(API::TileCoord const& o, int x, int y, int z) {
    auto const value = [&](API::Channel const& c) { return at(c, o.i + x, o.j + y, o.k + z); };
    while (static_cast<float>(o.j + y) + 0.5f <= heightVox_) {
      if (*value(liquid_) < -vs_ * 0.8660254f) return;
      *value(mask_) = 1.f;
      int const steps[5][3] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}};
      for (auto const& s : steps) {
        int const nx = x + s[0], ny = y + s[1], nz = z + s[2];
        if (nx < 0 || nx > 4 || ny < 0 || ny > 4 || nz < 0 || nz > 4) continue;
        if (*at(mask_, o.i + nx, o.j + ny, o.k + nz) != 1.f) inside(o, nx, ny, nz);
      }
      if (z == 4 || *at(mask_, o.i + x, o.j + y, o.k + z + 1) == 1.f) return;
      ++z;
    }
    for (; y < 5 && *value(liquid_) > 0.f && *value(mask_) != 1.f; ++y) *value(mask_) = 1.f;
  }

  template <class Insert>
  void floodFrom(API::TreeIndex const& index, Insert const& insert) {
    auto const o = accessor_.tile(index).coord();
    for (int e = 0; e < 125; ++e) {
      int const x = e % 5, y = e / 5 % 5, z = e / 25;
      if (*at(mask_, o.i + x, o.j + y, o.k + z) == 1.f) inside(o, x, y, z);
    }
    int const faces[6][3] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}};
    for (auto const& f : faces) {
      auto const next = accessor_.tile(o.i + 5 * f[0], o.j + 5 * f[1], o.k + 5 * f[2], leaf());
      if (next.index().depth != leaf()) continue;
      bool set = false;
      for (int u = 0; u < 5; ++u) {
        for (int v = 0; v < 5; ++v) {
          auto const place = [&](int direction, int other) {
            return direction != 0 ? (direction > 0 ? 4 : 0) : other;
          };
          int const x = o.i + place(f[0], u), y = o.j + place(f[1], f[0] != 0 ? u : v),
                    z = o.k + place(f[2], v);
          if (*at(mask_, x, y, z) != 1.f) continue;
          if (static_cast<float>(next.coord().j) > heightVox_) continue;
          float* const m = at(mask_, x + f[0], y + f[1], z + f[2]);
          if (*m != 0.f || !(*at(liquid_, x + f[0], y + f[1], z + f[2]) >= 0.f)) continue;
          *m = 1.f;
          set = true;
        }
      }
      if (set) insert(next.index());
    }
  }

  API::Layout layout_;
  API::TileAccessor accessor_;
  API::Channel liquid_, mask_;
  float vs_, height_, heightVox_;
  int level_ = 0;  // the highest voxel that is seeded
};

}  // namespace Velmor::Test
