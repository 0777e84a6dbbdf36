#include "processing/intersector.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/to_int.h"

namespace Velmor::Processing {

namespace {

using Vec3f = orlen::Math::vec<3, float>;

// Of four numbers the last means nothing: all axes in one register.
using FloatLanes = float __attribute__((vector_size(16)));
using IntLanes = std::int32_t __attribute__((vector_size(16)));
using LongLanes = std::int64_t __attribute__((vector_size(16)));

constexpr float kNever = 3.4028234663852886e38f;

struct Ray {
  FloatLanes origin{}, direction{}, reciprocal{};
  IntLanes forward{}, backward{};  // masks: the direction's sign
};

FloatLanes toFloat(IntLanes a) { return __builtin_convertvector(a, FloatLanes); }

// Of numbers that ints can hold.
FloatLanes roundedDown(FloatLanes x) {
  auto const whole = toFloat(__builtin_convertvector(x, IntLanes));
  return whole > x ? whole - 1.f : whole;
}

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
  float t = 0.f;
  float tEnd = 0.f;
  IntLanes cell{};
  FloatLanes tMax{};
  FloatLanes tDelta{};
  IntLanes step{};
  FloatLanes farSide{};  // of a cell from its lower corner, where the ray leaves it
  int cellSize = 0;
  int cellOffset = 0;
  float perVoxel = 0.f;  // a voxel's share of a cell
  bool hasExactSize = false;

  void setCells(int size) {
    cellSize = size;
    cellOffset = -(size >> 1);
    perVoxel = 1.f / static_cast<float>(size);
    hasExactSize = size >= 1 && size <= 1048576;
  }

  void start(Ray const& ray) {
    t = tEnd = -1.f;
    IntLanes const size = IntLanes{} + cellSize;
    step = (ray.forward & size) | (ray.backward & -size);
    tDelta = step == 0 ? FloatLanes{} + kNever : toFloat(step) * ray.reciprocal;
    farSide = toFloat(ray.forward & size);
  }

  void setUp(Ray const& ray, float t0, float t1) {
    t = t0;
    tEnd = t1;
    FloatLanes const p = ray.origin + ray.direction * t0;
    FloatLanes corner;
    if (isExactNear(p)) {
      auto const offset = static_cast<float>(cellOffset), size = static_cast<float>(cellSize);
      auto const voxel = roundedDown(p) - offset;
      corner = roundedDown((voxel + 0.5f) * perVoxel) * size + offset;
      cell = __builtin_convertvector(corner, IntLanes);
    } else {
      cell = farCell(p);
      corner = toFloat(cell);
    }
    auto const tFar = (corner - p + farSide) * ray.reciprocal + t0;
    tMax = (ray.forward | ray.backward) != 0 ? tFar : FloatLanes{} + kNever;
  }

  void advance() {
    // Ties between x and y go to x, ties with z to x or y. Computed, as no
    // processor can guess it.
    float const x = tMax[0], y = tMax[1], z = tMax[2];
    unsigned const alongZ = static_cast<unsigned>(z < x) & static_cast<unsigned>(z < y);
    unsigned const alongY = static_cast<unsigned>(!(x <= y)) & (alongZ ^ 1u);
    unsigned const axis = 2 * alongZ + alongY;
    t = tMax[axis];
    tMax[axis] = t + tDelta[axis];
    cell[axis] = orlen::Math::detail::add(cell[axis], step[axis]);
  }

  float exit() const { return std::min(std::min(std::min(tEnd, tMax[0]), tMax[1]), tMax[2]); }

 private:
  // Whether in floats the integers around a position and a cell's corner are
  // exact, and quotients of them less than half a voxel's share of a cell off.
  bool isExactNear(FloatLanes p) const {
    constexpr float limit = 1048576.f;
    auto const near = reinterpret_cast<LongLanes>((p < limit) & (p > -limit));
    return (near[0] & near[1]) == -1 && hasExactSize;
  }
  [[gnu::noinline]] IntLanes farCell(FloatLanes p) const {
    using namespace orlen::Math::detail;
    IntLanes result{};
    for (int a = 0; a < 3; ++a) {
      // Positions far outside the tree wrap; nothing is found there either way.
      result[a] = add(snap(sub(toInt(std::floor(p[a])), cellOffset), cellSize), cellOffset);
    }
    return result;
  }
};

bool isValid(Interval const& i) { return i.t0 >= 0.f && i.t1 > i.t0; }

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
      l->setCells(size);
      size = orlen::Math::detail::mul(size, width);
    }
  }

  int finest() const { return static_cast<int>(levels.size()) - 1; }
  LevelState& at(int l) { return levels[static_cast<std::size_t>(l)]; }

  void init(Vec3f const& origin, Vec3f const& direction, float tmin, float tmax) {
    auto const scaled = [this](Vec3f const& v) {
      return FloatLanes{v.x, v.y, v.z, 0.f} * invVoxelScale;
    };
    ray.origin = scaled(origin);
    ray.direction = scaled(direction);
    ray.reciprocal = 1.f / ray.direction;
    ray.forward = ray.direction > 0.f;
    ray.backward = ray.direction < 0.f;
    t = tmin;
    tEnd = tmax;
    level = finest();
    for (auto& l : levels) l.start(ray);
    levels.back().setUp(ray, tmin, tmax);
  }

  Interval next() {
    Interval result(-1.f, -2.f);
    if (level < 0) return result;
    int const leaf = finest();
    LevelState& fine = at(leaf);
    for (;;) {
      LevelState* walker = &at(level);
      if (walker->tEnd <= walker->t) return result;
      if (walker != &fine && t > fine.t) {
        fine.setUp(ray, t, tEnd);
        // The entry cell behind a coarse face is passed over on purpose.
        fine.advance();
      }
      int const depth = accessor.index({fine.cell[0], fine.cell[1], fine.cell[2]}, leaf + 1).depth;
      bool const running = isValid(result);
      bool last = false;
      if (depth == leaf + 1) {
        if (!running) result.t0 = fine.t;
        result.t1 = fine.exit();
      } else {
        last = running;
      }
      int const newLevel = std::min(leaf, depth);
      if (newLevel != level) {
        walker->advance();
        level = newLevel;
        if (level < 0) return result;
        walker = &at(level);
        if (t > walker->t) walker->setUp(ray, t, tEnd);
      }
      walker->advance();
      t = walker->t;
      if (last) return result;
    }
  }
};

Interval::Interval() : t0(-1.f), t1(-2.f) {}
Interval::Interval(float t0_, float t1_) : t0(t0_), t1(t1_) {}
bool Interval::valid() const { return isValid(*this); }

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
