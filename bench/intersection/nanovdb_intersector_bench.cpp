#include <benchmark/benchmark.h>
#include <nanovdb/util/HDDA.h>
#include <nanovdb/util/Ray.h>

#include "intersection/sphere_rays.h"
#include "support/nanovdb_grid.h"

namespace {

using namespace Velmor;
using Bench::CameraRay;
using Bench::Counts;
using Ray = nanovdb::Ray<float>;

nanovdb::Vec3f toNanovdb(Render::Vec3f const& v, float scale) {
  return {v.x * scale, v.y * scale, v.z * scale};
}

// Leaf by leaf: spans that touch are not merged.
void nanovdbTreeMarcher(benchmark::State& state) {
  auto const handle = Bench::packed(*Bench::markedLeaves());
  auto const accessor = handle.grid<nanovdb::ValueMask>()->getAccessor();
  using Leaf = nanovdb::LeafNode<nanovdb::ValueMask>;
  nanovdb::TreeMarcher<Leaf, Ray, decltype(accessor)> leaves(accessor);
  Bench::measureRays(state, [&](CameraRay const& ray, Counts& counts) {
    auto const scale = static_cast<float>(Bench::maskScale);
    if (!leaves.init(Ray(toNanovdb(ray.origin, scale), toNanovdb(ray.direction, scale)))) return;
    Leaf const* leaf = nullptr;
    float t0 = 0.f, t1 = 0.f;
    while (leaves.step(&leaf, t0, t1)) {
      ++counts.spans;
      counts.length += double{t1} - double{t0};
    }
  });
}
BENCHMARK(nanovdbTreeMarcher)->Unit(benchmark::kMillisecond);

// Without a normal; the hit is that of the voxel's constant value, not refined.
void nanovdbZeroCrossing(benchmark::State& state) {
  auto const handle = Bench::packed(*Bench::levelSetGrid(Bench::sphere().distance, 3.f));
  auto const accessor = handle.grid<float>()->getAccessor();
  Bench::measureRays(state, [&](CameraRay const& ray, Counts& counts) {
    Ray indexRay(toNanovdb(ray.origin, 1.f), toNanovdb(ray.direction, 1.f));
    nanovdb::Coord voxel;
    float value = 0.f, t = 0.f;
    if (!nanovdb::ZeroCrossing(indexRay, accessor, voxel, value, t)) return;
    ++counts.spans;
    counts.length += double{t};
  });
}
BENCHMARK(nanovdbZeroCrossing)->Unit(benchmark::kMillisecond);

}  // namespace
