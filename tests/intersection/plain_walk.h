#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "processing/intersector.h"

namespace Velmor::Test {

/// The walk at its plainest: one look-up per pass, nothing kept from one pass to
/// the next but the walkers. The library's intervals must have the same bits.
class PlainWalk {
 public:
  struct Walker {
    int size = 0, offset = 0;  // of the cells, in voxels
    float t = 0, end = 0;
    int cell[3] = {}, step[3] = {};
    float delta[3] = {}, exit[3] = {};
  };

  explicit PlainWalk(API::Layout const& layout)
      : walkers(static_cast<std::size_t>(layout.maxDepth())),
        inverseScale_(1.f / layout.voxelScale()),
        accessor_(layout.tileAccessor()) {
    int const width = layout.tileDimInfo(0).width;
    int size = width;
    for (std::size_t l = walkers.size(); l-- > 0; size *= width) {
      walkers[l].size = size;
      walkers[l].offset = -(size / 2);
    }
  }

  void init(orlen::Math::vec<3, float> const& origin, orlen::Math::vec<3, float> const& direction,
            float tmin, float tmax) {
    for (int a = 0; a < 3; ++a) {
      origin_[a] = origin[a] * inverseScale_;
      direction_[a] = direction[a] * inverseScale_;
      reciprocal_[a] = 1.f / direction_[a];
      sign_[a] = direction_[a] > 0.f ? 1 : (direction_[a] < 0.f ? -1 : 0);
    }
    t_ = tmin;
    end_ = tmax;
    level_ = leaf();
    for (Walker& w : walkers) {
      w.t = w.end = -1.f;
      for (int a = 0; a < 3; ++a) {
        w.step[a] = sign_[a] * w.size;
        w.delta[a] = w.step[a] == 0 ? std::numeric_limits<float>::max()
                                    : static_cast<float>(w.step[a]) * reciprocal_[a];
      }
    }
    place(walker(leaf()), tmin, tmax);
  }

  Processing::Interval next() {
    Processing::Interval result;
    if (level_ < 0) return result;
    for (bool last = false; !last;) {
      if (walker(level_).end <= walker(level_).t) break;
      Walker& fine = walker(leaf());
      if (level_ != leaf() && t_ > fine.t) {
        place(fine, t_, end_);
        take(fine);
      }
      int const depth =
          accessor_.index({fine.cell[0], fine.cell[1], fine.cell[2]}, leaf() + 1).depth;
      bool const before = result.valid();
      if (depth == leaf() + 1) {
        if (!before) result.t0 = fine.t;
        result.t1 = fine.end;
        for (float const exit : fine.exit) result.t1 = std::min(result.t1, exit);
      } else {
        last = before;
      }
      int const other = std::min(leaf(), depth);
      if (other != level_) {
        take(walker(level_));
        level_ = other;
        if (level_ < 0) break;
        if (t_ > walker(level_).t) place(walker(level_), t_, end_);
      }
      take(walker(level_));
      t_ = walker(level_).t;
    }
    return result;
  }

  std::vector<Walker> walkers;  // one per tree level, coarse first

 private:
  int leaf() const { return static_cast<int>(walkers.size()) - 1; }
  Walker& walker(int level) { return walkers[static_cast<std::size_t>(level)]; }

  static std::int64_t toWhole(float x) {
    bool const fits = x >= -2147483648.f && x < 2147483648.f;
    return fits ? static_cast<std::int64_t>(x) : std::numeric_limits<std::int32_t>::min();
  }

  void place(Walker& w, float t0, float t1) const {
    w.t = t0;
    w.end = t1;
    for (int a = 0; a < 3; ++a) {
      float const p = origin_[a] + direction_[a] * t0;
      std::int64_t const from = toWhole(std::floor(p)) - w.offset;
      std::int64_t const index = from - ((from % w.size) + w.size) % w.size;
      w.cell[a] = static_cast<std::int32_t>(index + w.offset);  // wraps far outside the tree
      float const d = static_cast<float>(w.cell[a]) - p;
      w.exit[a] = std::numeric_limits<float>::max();
      if (sign_[a] < 0) w.exit[a] = d * reciprocal_[a] + t0;
      if (sign_[a] > 0) w.exit[a] = (d + static_cast<float>(w.size)) * reciprocal_[a] + t0;
    }
  }

  static void take(Walker& w) {
    int const axis =
        w.exit[2] < w.exit[0] && w.exit[2] < w.exit[1] ? 2 : (w.exit[0] <= w.exit[1] ? 0 : 1);
    w.t = w.exit[axis];
    w.exit[axis] += w.delta[axis];
    w.cell[axis] = static_cast<std::int32_t>(std::int64_t{w.cell[axis]} + w.step[axis]);
  }

  float inverseScale_;
  API::TileAccessor accessor_;
  float origin_[3] = {}, direction_[3] = {}, reciprocal_[3] = {};
  int sign_[3] = {};
  float t_ = 0, end_ = 0;
  int level_ = -1;
};

}  // namespace Velmor::Test
