#include "processing/intersector.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/to_int.h"

namespace Velmor::Processing {

namespace {

using orlen::Math::vec;
using Vec3f = vec<3, float>;
using Vec3i = vec<3, int>;

constexpr float kNever = 3.4028234663852886e38f;

struct Ray {
  Vec3f origin, direction, reciprocal;
  Vec3i sign;

  Vec3f at(float t) const { return origin + direction * t; }
};

int signOf(float x) { return x > 0.f ? 1 : (x < 0.f ? -1 : 0); }

// Rounds down to a multiple of `size`, below zero as well.
int snap(int i, int size) {
  using orlen::Math::detail::sub;
  if (size <= 1) return i;
  int remainder = i % size;
  if (i < 0) remainder = (size + remainder) % size;
  return sub(i, remainder);
}

// One grid walker; lengths in voxels.
struct LevelState {
  Ray ray;
  int cellSize = 0;
  int cellOffset = 0;
  float t = 0.f;
  float tEnd = 0.f;
  Vec3i cell;
  Vec3i step;
  Vec3f tDelta;
  Vec3f tMax;

  void start(Ray const& newRay) {
    ray = newRay;
    t = tEnd = -1.f;
    for (int a = 0; a < 3; ++a) {
      step[a] = ray.sign[a] * cellSize;
      tDelta[a] = step[a] == 0 ? kNever : static_cast<float>(step[a]) * ray.reciprocal[a];
    }
  }

  void setUp(float t0, float t1) {
    using orlen::Math::detail::add;
    using orlen::Math::detail::sub;
    t = t0;
    tEnd = t1;
    Vec3f const p = ray.at(t0);
    auto const size = static_cast<float>(cellSize);
    for (int a = 0; a < 3; ++a) {
      // Positions far outside the tree wrap; nothing is found there either way.
      cell[a] = add(snap(sub(toInt(std::floor(p[a])), cellOffset), cellSize), cellOffset);
      float const d = static_cast<float>(cell[a]) - p[a];
      if (ray.sign[a] < 0) {
        tMax[a] = d * ray.reciprocal[a] + t0;
      } else if (ray.sign[a] == 0) {
        tMax[a] = kNever;
      } else {
        tMax[a] = (d + size) * ray.reciprocal[a] + t0;
      }
    }
  }

  void advance() {
    // Ties between x and y go to x, ties with z to x or y.
    int const axis = tMax.z < tMax.x && tMax.z < tMax.y ? 2 : (tMax.x <= tMax.y ? 0 : 1);
    t = tMax[axis];
    tMax[axis] += tDelta[axis];
    cell[axis] = orlen::Math::detail::add(cell[axis], step[axis]);
  }

  float exit() const { return std::min(std::min(std::min(tEnd, tMax.x), tMax.y), tMax.z); }
};

}  // namespace

struct Intersector::Impl {
  Ray ray;
  float t = 0.f;
  float tEnd = 0.f;
  float invVoxelScale;
  API::Layout layout;
  API::TileAccessor accessor;
  int level = -1;
  std::vector<LevelState> levels;

  explicit Impl(API::Layout const& source)
      : invVoxelScale(1.f / source.voxelScale()), layout(source), accessor(source.tileAccessor()) {
    levels.resize(static_cast<std::size_t>(std::max(source.maxDepth(), 0)));
    int const width = source.tileDimInfo(0).width;
    int size = width;
    for (auto l = levels.rbegin(); l != levels.rend(); ++l) {
      l->cellSize = size;
      l->cellOffset = -(size >> 1);
      size = orlen::Math::detail::mul(size, width);
    }
  }

  int finest() const { return static_cast<int>(levels.size()) - 1; }
  LevelState& at(int l) { return levels[static_cast<std::size_t>(l)]; }

  void init(Vec3f const& origin, Vec3f const& direction, float tmin, float tmax) {
    ray.origin = origin * invVoxelScale;
    ray.direction = direction * invVoxelScale;
    for (int a = 0; a < 3; ++a) {
      ray.reciprocal[a] = 1.f / ray.direction[a];
      ray.sign[a] = signOf(ray.direction[a]);
    }
    t = tmin;
    tEnd = tmax;
    level = finest();
    for (auto& l : levels) l.start(ray);
    levels.back().setUp(tmin, tmax);
  }

  Interval next() {
    Interval result;
    if (level < 0) return result;
    int const leaf = finest();
    LevelState& fine = at(leaf);
    for (;;) {
      if (at(level).tEnd <= at(level).t) return result;
      if (level != leaf && t > fine.t) {
        fine.setUp(t, tEnd);
        // The entry cell behind a coarse face is passed over on purpose.
        fine.advance();
      }
      int const depth = accessor.index({fine.cell.x, fine.cell.y, fine.cell.z}, leaf + 1).depth;
      bool const running = result.valid();
      bool last = false;
      if (depth == leaf + 1) {
        if (!running) result.t0 = fine.t;
        result.t1 = fine.exit();
      } else {
        last = running;
      }
      int const newLevel = std::min(leaf, depth);
      if (newLevel != level) {
        at(level).advance();
        level = newLevel;
        if (level < 0) return result;
        if (t > at(level).t) at(level).setUp(t, tEnd);
      }
      at(level).advance();
      t = at(level).t;
      if (last) return result;
    }
  }
};

Interval::Interval() : t0(-1.f), t1(-2.f) {}
Interval::Interval(float t0_, float t1_) : t0(t0_), t1(t1_) {}
bool Interval::valid() const { return t0 >= 0.f && t1 > t0; }

Intersector::Intersector() = default;
Intersector::Intersector(API::Layout const& layout) : impl_(new Impl(layout)) {}
Intersector::Intersector(Intersector const& other)
    : impl_(other.impl_ != nullptr ? new Impl(*other.impl_) : nullptr) {}
Intersector::Intersector(Intersector&& other) noexcept
    : impl_(std::exchange(other.impl_, nullptr)) {}

Intersector& Intersector::operator=(Intersector const& other) {
  if (this != &other) *this = Intersector(other);
  return *this;
}

Intersector& Intersector::operator=(Intersector&& other) noexcept {
  std::swap(impl_, other.impl_);
  if (this != &other) delete std::exchange(other.impl_, nullptr);
  return *this;
}

Intersector::~Intersector() { delete impl_; }

void Intersector::init(Vec3f const& origin, Vec3f const& direction, float tmin, float tmax) {
  impl_->init(origin, direction, tmin, tmax);
}

Interval Intersector::next() { return impl_ != nullptr ? impl_->next() : Interval(); }

}  // namespace Velmor::Processing
