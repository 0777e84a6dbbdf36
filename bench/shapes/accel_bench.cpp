#include <benchmark/benchmark.h>

#include <vector>

#include "processing/bounds.h"
#include "support/openvdb_grid.h"
#include "support/scene.h"

namespace {

using namespace Velmor;

Test::Scene sceneOf(benchmark::State const& state) {
  return Test::sphereScene(static_cast<float>(state.range(0)));
}

void report(benchmark::State& state, double voxels, double bytes) {
  state.counters["voxels"] = voxels;
  state.counters["bytes_per_voxel"] = bytes / voxels;
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(voxels));
}

void accelLayout(benchmark::State& state) {
  auto const scene = sceneOf(state);
  API::Layout accel;
  for (auto _ : state) accel = Processing::createAccelLayout(scene.distance);
  report(state, static_cast<double>(Host::tileCount(accel, accel.maxDepth())),
         static_cast<double>(Host::memoryUse(accel)));
}

// The same in OpenVDB: a mask grid eight times finer with a leaf per near voxel.
void openvdbMaskLeaves(benchmark::State& state) {
  auto const scene = sceneOf(state);
  auto const grid = Bench::levelSetGrid(scene.distance, 2.598076f);
  openvdb::MaskTree::Ptr mask;
  for (auto _ : state) {
    mask = std::make_shared<openvdb::MaskTree>();
    openvdb::tree::ValueAccessor<openvdb::MaskTree> accessor(*mask);
    for (auto voxel = grid->cbeginValueOn(); voxel; ++voxel) {
      auto const c = voxel.getCoord();
      accessor.touchLeaf(openvdb::Coord(c.x() * 8, c.y() * 8, c.z() * 8));
    }
  }
  report(state, static_cast<double>(mask->leafCount()), static_cast<double>(mask->memUsage()));
}

void radii(benchmark::internal::Benchmark* bench) {
  bench->ArgName("radius")->Arg(100)->Arg(200)->Arg(400)->UseRealTime()->Unit(
      benchmark::kMillisecond);
}

BENCHMARK(accelLayout)->Apply(radii);
BENCHMARK(openvdbMaskLeaves)->Apply(radii);

}  // namespace
