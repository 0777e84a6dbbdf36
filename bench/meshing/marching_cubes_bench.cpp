#include <benchmark/benchmark.h>
#include <openvdb/tools/VolumeToMesh.h>
#include <tbb/global_control.h>

#include <vector>

#include "processing/mesher.h"
#include "support/openvdb_grid.h"
#include "support/scene.h"
#include "velmorhost/settings.h"

namespace {

using namespace Velmor;

// The pool is a scene of its own, numbered below all radii.
constexpr int pool = 0;

Test::Scene sceneOf(benchmark::State const& state) {
  auto const radius = static_cast<int>(state.range(0));
  return radius == pool ? Test::poolScene(500) : Test::sphereScene(static_cast<float>(radius));
}

std::size_t threadsOf(benchmark::State const& state) {
  return static_cast<std::size_t>(state.range(1));
}

void marchingCubes(benchmark::State& state) {
  auto const scene = sceneOf(state);
  tbb::global_control const limit(tbb::global_control::max_allowed_parallelism, threadsOf(state));
  Host::setThreadCount(static_cast<int>(threadsOf(state)));
  Processing::MarchingCubes const mesher(0);
  std::size_t triangleCount = 0;
  for (auto _ : state) {
    API::Array<orlen::Math::vec<3, float>> points;
    API::Array<orlen::Math::vec<3, int>> triangles;
    mesher.mesh(scene.distance, points, triangles);
    triangleCount = triangles.count();
  }
  Host::setThreadCount(0);
  state.counters["triangles"] = static_cast<double>(triangleCount);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(triangleCount));
}

void openvdbVolumeToMesh(benchmark::State& state) {
  auto const grid = Bench::levelSetGrid(sceneOf(state).distance, 3.f);
  tbb::global_control const limit(tbb::global_control::max_allowed_parallelism, threadsOf(state));
  std::size_t triangleCount = 0;
  for (auto _ : state) {
    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec3I> triangles;
    std::vector<openvdb::Vec4I> quads;
    openvdb::tools::volumeToMesh(*grid, points, triangles, quads, 0.0, 0.0);
    triangleCount = triangles.size() + 2 * quads.size();
  }
  state.counters["triangles"] = static_cast<double>(triangleCount);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(triangleCount));
}

void scenes(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"radius", "threads"})->ArgsProduct({{100, 200, 400, pool}, {1, 2}});
  bench->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(marchingCubes)->Apply(scenes);
BENCHMARK(openvdbVolumeToMesh)->Apply(scenes);

}  // namespace
