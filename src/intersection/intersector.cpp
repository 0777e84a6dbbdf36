#include "processing/intersector.h"

#include <algorithm>
#include <array>
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
using UnsignedLanes = std::uint32_t __attribute__((vector_size(16)));
using LongLanes = std::int64_t __attribute__((vector_size(16)));

constexpr float kNever = 3.4028234663852886e38f;

struct Ray {
  FloatLanes origin{}, direction{}, reciprocal{};
  IntLanes forward{}, backward{};  // masks: the direction's sign
  // What masks the parameters of the next borders, and what takes their place
  // along axes without any.
  IntLanes moving{}, never{};
};

FloatLanes toFloat(IntLanes a) { return __builtin_convertvector(a, FloatLanes); }

FloatLanes masked(FloatLanes a, IntLanes mask) {
  return reinterpret_cast<FloatLanes>(reinterpret_cast<IntLanes>(a) & mask);
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
  FloatLanes tMax{};
  // What a step along each axis adds to `tMax`: -0 to the other two, as that
  // changes no number.
  std::array<FloatLanes, 3> tDelta{};
  FloatLanes farSide{};  // of a cell from its lower corner, where the ray leaves it
  FloatLanes size{}, offset{};
  FloatLanes perVoxel{};  // a voxel's share of a cell
  // Up to where floats hold cells' corners exactly and are much closer to each
  // other than two borders.
  FloatLanes exactTo{}, exactFrom{};
  float t = 0.f;
  float tEnd = 0.f;
  int cellSize = 0;
  int cellOffset = 0;

  void setCells(int edge) {
    cellSize = edge;
    cellOffset = -(edge >> 1);
    size = FloatLanes{} + static_cast<float>(cellSize);
    offset = FloatLanes{} + static_cast<float>(cellOffset);
    perVoxel = FloatLanes{} + 1.f / static_cast<float>(edge);
    if (edge >= 1 && edge <= 1048576) {
      exactTo = FloatLanes{} + 1048576.f;
      exactFrom = -exactTo;
    }
  }

  IntLanes step(Ray const& ray) const {
    IntLanes const edge = IntLanes{} + cellSize;
    return (ray.forward & edge) | (ray.backward & -edge);
  }

  void start(Ray const& ray) {
    t = tEnd = -1.f;
    auto const by = step(ray);
    auto const all = by == 0 ? FloatLanes{} + kNever : toFloat(by) * ray.reciprocal;
    for (int a = 0; a < 3; ++a) {
      auto& one = tDelta[static_cast<std::size_t>(a)];
      one = FloatLanes{-0.f, -0.f, -0.f, -0.f};
      one[a] = all[a];
    }
    farSide = toFloat(ray.forward & (IntLanes{} + cellSize));
  }

  // Returns the cell's lower corner.
  IntLanes setUp(Ray const& ray, float t0, float t1) {
    t = t0;
    tEnd = t1;
    FloatLanes const p = ray.origin + ray.direction * t0;
    FloatLanes corner;
    IntLanes cell;
    auto const isExact = reinterpret_cast<LongLanes>((p < exactTo) & (p > exactFrom));
    if ((isExact[0] & isExact[1]) == -1) [[likely]] {
      // The border between cells that is nearest, or the one before it. Adding
      // the number and taking it away again rounds to an integer.
      constexpr float shift = 12582912.f;
      constexpr FloatLanes rounding{shift, shift, shift, shift};
      auto const border = (((p - offset) * perVoxel + rounding) - rounding) * size + offset;
      corner = border - masked(size, border > p);
      cell = __builtin_convertvector(corner, IntLanes);
    } else {
      cell = farCell(p);
      corner = toFloat(cell);
    }
    auto const tFar = (corner - p + farSide) * ray.reciprocal + t0;
    tMax = masked(tFar, ray.moving);
    tMax = reinterpret_cast<FloatLanes>(reinterpret_cast<IntLanes>(tMax) | ray.never);
    return cell;
  }

  // Returns the axis.
  std::size_t advance() {
    // Ties between x and y go to x, ties with z to x or y. Computed, as no
    // processor can guess it.
    float const x = tMax[0], y = tMax[1], z = tMax[2];
    unsigned const alongZ = static_cast<unsigned>(z < x) & static_cast<unsigned>(z < y);
    unsigned const alongY = static_cast<unsigned>(!(x <= y)) & (alongZ ^ 1u);
    unsigned const axis = 2 * alongZ + alongY;
    t = tMax[axis];
    tMax += tDelta[axis];
    return axis;
  }

  float exit() const { return std::min(std::min(std::min(tEnd, tMax[0]), tMax[1]), tMax[2]); }

 private:
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
  // Of the finest level only, as no other's cell is asked for. Unsigned, as
  // cells far outside the tree wrap.
  UnsignedLanes cell{};
  std::array<UnsignedLanes, 3> steps{};

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

  // The finest walker by itself: its cell is followed.
  void setUpFine(LevelState& fine) {
    cell = reinterpret_cast<UnsignedLanes>(fine.setUp(ray, t, tEnd));
  }
  void advanceFine(LevelState& fine) { cell += steps[fine.advance()]; }

  // Of the deepest tile that holds the finest walker's cell.
  int depthThere(int maxDepth) const {
    auto const voxel = reinterpret_cast<IntLanes>(cell);
    return accessor.index({voxel[0], voxel[1], voxel[2]}, maxDepth).depth;
  }

  void init(Vec3f const& origin, Vec3f const& direction, float tmin, float tmax) {
    auto const scaled = [this](Vec3f const& v) {
      return FloatLanes{v.x, v.y, v.z, 0.f} * invVoxelScale;
    };
    ray.origin = scaled(origin);
    ray.direction = scaled(direction);
    ray.reciprocal = 1.f / ray.direction;
    ray.forward = ray.direction > 0.f;
    ray.backward = ray.direction < 0.f;
    ray.moving = ray.forward | ray.backward;
    ray.never = reinterpret_cast<IntLanes>(FloatLanes{} + kNever) & ~ray.moving;
    t = tmin;
    tEnd = tmax;
    level = finest();
    for (auto& l : levels) l.start(ray);
    auto const step = reinterpret_cast<UnsignedLanes>(levels.back().step(ray));
    for (int a = 0; a < 3; ++a) steps[static_cast<std::size_t>(a)][a] = step[a];
    setUpFine(levels.back());
  }

  Interval next() {
    Interval result(-1.f, -2.f);
    if (level < 0) return result;
    int const leaf = finest();
    LevelState* const walkers = levels.data();
    LevelState& fine = walkers[leaf];
    for (bool last = false; !last;) {
      int depth = -1;
      if (level == leaf) {
        bool running = isValid(result);
        for (;;) {
          if (fine.tEnd <= fine.t) return result;
          depth = depthThere(leaf + 1);
          if (depth > leaf) {
            if (!running) result.t0 = fine.t;
            result.t1 = fine.exit();
            running = isValid(result);
          } else {
            last = running;
            if (last || depth < leaf) break;
          }
          advanceFine(fine);
          t = fine.t;
        }
      } else {
        LevelState& walker = walkers[level];
        for (;;) {
          if (walker.tEnd <= walker.t) return result;
          if (t > fine.t) {
            setUpFine(fine);
            // The entry cell behind a coarse face is passed over on purpose.
            advanceFine(fine);
          }
          depth = depthThere(leaf + 1);
          if (depth != level) break;
          auto const axis = walker.advance();
          t = walker.t;
          // So far along the ray a cell is less than a step of t: it gets no further.
          if (walker.tMax[axis] == t) return result;
        }
        if (depth > leaf) {
          result.t0 = fine.t;
          result.t1 = fine.exit();
        }
      }
      int const newLevel = std::min(leaf, depth);
      if (newLevel != level) {
        if (level == leaf) {
          advanceFine(fine);
        } else {
          walkers[level].advance();
        }
        level = newLevel;
        if (level < 0) return result;
      }
      if (level == leaf) {
        if (t > fine.t) setUpFine(fine);
        advanceFine(fine);
        t = fine.t;
      } else {
        auto& walker = walkers[level];
        if (t > walker.t) walker.setUp(ray, t, tEnd);
        walker.advance();
        t = walker.t;
      }
    }
    return result;
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
