#include <algorithm>
#include <cmath>
#include <limits>

#include "processing/bounds.h"
#include "processing/intersector.h"
#include "processing/sampler.h"
#include "render/ray_box.h"
#include "render/render.h"

namespace Velmor::Render {

Box reachOf(API::Layout const& layout) {
  auto const box = Processing::computeBBox(layout);
  double const voxel = layout.voxelScale();
  auto const extent = static_cast<double>(layout.tileDimInfo(0).extent);
  // The root is centred on voxel 0, as the walk through the tiles takes it to be.
  double const root = std::floor(extent * 0.5) * voxel;
  Box reach;
  for (int a = 0; a < 3; ++a) {
    reach.min[a] = std::max(box.min[a] - voxel, -root);
    reach.max[a] = std::min(box.max[a] + voxel, root);
  }
  return reach;
}

namespace {

// More than the widest cells near a surface that the walk passes over.
constexpr int mostStepsBack = 512;

}  // namespace

struct SurfaceTracer::Impl {
  Processing::Intersector tiles;
  Processing::Sampler field;
  Box reach;
  float step;  // world units

  Impl(API::VoxelChannel const& distance, API::Layout const& accel)
      : tiles(accel), field(distance) {
    API::Layout const source(distance.layout());
    // The acceleration layout ends sooner than the data do where those are huge.
    Box const walkable = reachOf(accel);
    reach = reachOf(source);
    for (int a = 0; a < 3; ++a) {
      reach.min[a] = std::max(reach.min[a], walkable.min[a]);
      reach.max[a] = std::min(reach.max[a], walkable.max[a]);
    }
    step = 0.5f * source.voxelScale();
  }

  float value(Vec3f const& origin, Vec3f const& direction, float t) const {
    Processing::Sample sample;
    field.sample(origin + direction * t, sample);
    return sample.as<float>();
  }

  // The crossing between `a`, where the field is `fa`, and `b`, on the other side
  // (the Illinois method: an end that stays twice counts half).
  float refine(Vec3f const& origin, Vec3f const& direction, float a, float fa, float b,
               float fb) const {
    float const close = 1e-4f * step;
    float const slope = std::abs(fb - fa) / (b - a);
    int stayed = 0;  // -1: the end `a`, 1: the end `b`
    for (int n = 0; n < 24 && b - a > close; ++n) {
      // Kept off the ends, so that both sides shrink.
      float const span = b - a;
      float const guess = a + span * std::clamp(fa / (fa - fb), 0.02f, 0.98f);
      float const fg = value(origin, direction, guess);
      if (std::abs(fg) < 0.5f * close * slope) return guess;
      if ((fg > 0.f) == (fa > 0.f)) {
        a = guess;
        fa = fg;
        if (stayed == 1) fb *= 0.5f;
        stayed = 1;
      } else {
        b = guess;
        fb = fg;
        if (stayed == -1) fa *= 0.5f;
        stayed = -1;
      }
    }
    return 0.5f * (a + b);
  }

  // How many steps surely end on the same side as they start, where the field is
  // `f`: it changes at most by the way's length, with a quarter in reserve.
  int sureSteps(float f) const {
    // In this order, so that NaN gives 1.
    return static_cast<int>(std::min(std::max(1.f, std::abs(f) / (1.25f * step)), 4.f));
  }

  // The walk passes over a cell now and then. If the sign differs at `t`, where
  // the field is `f`, a crossing shortly before it is moved into `t`; without
  // one the sign was that of a coarse cell and says nothing.
  bool lookBack(Vec3f const& origin, Vec3f const& direction, float from, float& t, float f,
                bool outside) const {
    float b = t;
    for (int n = 0; n < mostStepsBack && b > from; ++n) {
      float const a = std::max(b - step, from);
      float const fa = value(origin, direction, a);
      if ((fa > 0.f) == outside) {
        t = refine(origin, direction, a, fa, b, f);
        // A jump between a leaf and a coarse cell, or between two of these, is no
        // surface. A ray that crosses it aslant sees a gentle slope: only the
        // gradient is always steep.
        Vec3f gradient;
        field.sampleGradient(origin + direction * t, gradient);
        return length(toDouble(gradient)) <= 2.;
      }
      b = a;
      f = fa;
    }
    return false;
  }
};

SurfaceTracer::SurfaceTracer(API::VoxelChannel const& distance, API::Layout const& accel)
    : impl_(new Impl(distance, accel)) {}
SurfaceTracer::SurfaceTracer(SurfaceTracer const& other) : impl_(new Impl(*other.impl_)) {}
SurfaceTracer::~SurfaceTracer() { delete impl_; }

Hit SurfaceTracer::trace(Vec3d const& origin, Vec3d const& direction) {
  Hit hit;
  double near = 0., far = std::numeric_limits<double>::max();
  if (!clipToBox(impl_->reach, origin, direction, near, far)) return hit;
  // Counting from where the ray meets the data keeps float's precision for them.
  Vec3f const o = toFloat(origin + direction * near);
  Vec3f const d = toFloat(direction);
  auto const end = static_cast<float>(far - near);
  auto& tiles = impl_->tiles;
  tiles.init(o, d, 0.f, end);
  auto i = tiles.next();
  if (!i.valid()) {
    // Once in millions of rays a border of coarse cells is met such that the walk
    // ends at once. Not so a hair beside it. Rays that meet no tile cannot be told
    // from these and are walked twice.
    float const aside = 1e-3f * impl_->step;
    tiles.init(o + Vec3f(aside, -aside, aside), d, 0.f, end);
    i = tiles.next();
  }
  if (!i.valid()) return hit;
  bool outside = impl_->value(o, d, 0.f) > 0.f;
  float behind = 0.f;  // where the interval before ended
  for (; i.valid(); i = tiles.next()) {
    float before = i.t0;
    float fBefore = impl_->value(o, d, before);
    float t = before;
    bool crossed = false;
    if ((fBefore > 0.f) != outside) {
      crossed = impl_->lookBack(o, d, behind, t, fBefore, outside);
      if (!crossed) outside = !outside;
    }
    behind = i.t1;
    bool sure = true;
    while (!crossed && before < i.t1) {
      int const steps = sure ? impl_->sureSteps(fBefore) : 1;
      float at = before;
      for (int n = 0; n < steps; ++n) at = std::min(at + impl_->step, i.t1);
      float const f = impl_->value(o, d, at);
      if ((f > 0.f) != outside) {
        if (steps > 1) {  // no field of distances: step by step, then
          sure = false;
          continue;
        }
        t = impl_->refine(o, d, before, fBefore, at, f);
        crossed = true;
      } else if (at <= before) {
        break;  // too far out for the step to count
      }
      before = at;
      fBefore = f;
    }
    if (!crossed) continue;
    Vec3f gradient;
    impl_->field.sampleGradient(o + d * t, gradient);
    double const size = length(toDouble(gradient));
    hit.found = true;
    hit.t = near + double{t};
    if (size > 0. && std::isfinite(size)) hit.normal = toFloat(toDouble(gradient) * (1. / size));
    return hit;
  }
  return hit;
}

}  // namespace Velmor::Render
