#include <benchmark/benchmark.h>
#include <openvdb/tools/RayIntersector.h>

#include "intersection/sphere_rays.h"
#include "processing/bounds.h"
#include "processing/intersector.h"
#include "render/ray_box.h"
#include "render/render.h"

namespace {

using namespace Velmor;
using Bench::CameraRay;
using Bench::Counts;

openvdb::Vec3d toOpenvdb(Render::Vec3f const& v, double scale) {
  return openvdb::Vec3d(double{v.x}, double{v.y}, double{v.z}) * scale;
}

// Rays are clipped to the tiles' bounds, as the other walks do it themselves.
void intervals(benchmark::State& state) {
  auto const accel = Processing::createAccelLayout(Bench::sphere().distance);
  auto const bounds = Render::reachOf(accel);
  Processing::Intersector tiles(accel);
  Bench::measureRays(state, [&](CameraRay const& ray, Counts& counts) {
    double near = 0., far = 1e9;
    if (!Render::clipToBox(bounds, Render::toDouble(ray.origin), Render::toDouble(ray.direction),
                           near, far)) {
      return;
    }
    tiles.init(ray.origin, ray.direction, static_cast<float>(near), static_cast<float>(far));
    for (auto i = tiles.next(); i.valid(); i = tiles.next()) {
      ++counts.spans;
      counts.length += double{i.t1} - double{i.t0};
    }
  });
}
BENCHMARK(intervals)->Unit(benchmark::kMillisecond);

void openvdbVolumeRayIntersector(benchmark::State& state) {
  auto const mask = Bench::markedLeaves();
  openvdb::tools::VolumeRayIntersector<openvdb::MaskGrid> leaves(*mask);
  Bench::measureRays(state, [&](CameraRay const& ray, Counts& counts) {
    using Ray = openvdb::math::Ray<double>;
    if (!leaves.setIndexRay(Ray(toOpenvdb(ray.origin, Bench::maskScale),
                                toOpenvdb(ray.direction, Bench::maskScale)))) {
      return;
    }
    double t0 = 0., t1 = 0.;
    while (leaves.march(t0, t1)) {
      ++counts.spans;
      counts.length += t1 - t0;
    }
  });
}
BENCHMARK(openvdbVolumeRayIntersector)->Unit(benchmark::kMillisecond);

// With the surface's normal, as a renderer needs it.
void firstHits(benchmark::State& state) {
  auto const& distance = Bench::sphere().distance;
  Render::SurfaceTracer tracer(distance, Processing::createAccelLayout(distance));
  Bench::measureRays(state, [&](CameraRay const& ray, Counts& counts) {
    auto const hit = tracer.trace(Render::toDouble(ray.origin), Render::toDouble(ray.direction));
    if (!hit.found) return;
    ++counts.spans;
    counts.length += hit.t + double{hit.normal.x} * 1e-9;
  });
}
BENCHMARK(firstHits)->Unit(benchmark::kMillisecond);

void openvdbLevelSetRayIntersector(benchmark::State& state) {
  auto const grid = Bench::levelSetGrid(Bench::sphere().distance, 3.f);
  openvdb::tools::LevelSetRayIntersector<openvdb::FloatGrid> const surface(*grid);
  Bench::measureRays(state, [&](CameraRay const& ray, Counts& counts) {
    openvdb::Vec3d position, normal;
    double t = 0.;
    if (!surface.intersectsWS({toOpenvdb(ray.origin, 1.), toOpenvdb(ray.direction, 1.)}, position,
                              normal, t)) {
      return;
    }
    ++counts.spans;
    counts.length += t + normal.x() * 1e-9;
  });
}
BENCHMARK(openvdbLevelSetRayIntersector)->Unit(benchmark::kMillisecond);

}  // namespace
