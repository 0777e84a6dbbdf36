#include <benchmark/benchmark.h>
#include <openvdb/tools/Filter.h>
#include <tbb/global_control.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "processing/pointwise_filters.h"
#include "support/openvdb_grid.h"
#include "support/scene.h"
#include "velmorhost/settings.h"

namespace {

using namespace Velmor;

constexpr float halfWidth = 3.f;
constexpr float amount = 1e-3f;

Test::Scene sphereOf(benchmark::State const& state) {
  return Test::sphereScene(static_cast<float>(state.range(0)));
}

std::size_t threadsOf(benchmark::State const& state) {
  return static_cast<std::size_t>(state.range(1));
}

// All values that a filter touches: those of every tile of every depth.
std::size_t storedValues(API::Layout const& layout) {
  std::size_t tiles = 0;
  for (int d = 0; d <= layout.maxDepth(); ++d) tiles += Host::tileCount(layout, d);
  return tiles * 125;
}

// Voxels that OpenVDB would keep as active: the band alone.
std::size_t activeVoxels(API::VoxelChannel const& distance) {
  auto const values = Test::valuesOf<float>(distance);
  return static_cast<std::size_t>(std::count_if(
      values.begin(), values.end(), [](float v) { return v > -halfWidth && v < halfWidth; }));
}

void report(benchmark::State& state, std::size_t stored, std::size_t active) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(active));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stored * sizeof(float)));
  state.counters["stored"] = static_cast<double>(stored);
  state.counters["active"] = static_cast<double>(active);
}

void offsetFilterInPlace(benchmark::State& state) {
  auto const scene = sphereOf(state);
  auto const active = activeVoxels(scene.distance);
  Host::setThreadCount(static_cast<int>(threadsOf(state)));
  Processing::OffsetFilter<float> const filter(amount);
  for (auto _ : state) filter.filter(scene.distance, scene.distance);
  Host::setThreadCount(0);
  report(state, storedValues(scene.layout), active);
}

void addToPlainArray(benchmark::State& state) {
  auto const scene = sphereOf(state);
  std::vector<float> values(storedValues(scene.layout), 1.f);
  for (auto _ : state) {
    for (auto& value : values) value += amount;
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  report(state, values.size(), activeVoxels(scene.distance));
}

void copyPlainArray(benchmark::State& state) {
  auto const scene = sphereOf(state);
  std::vector<float> const from(storedValues(scene.layout), 1.f);
  std::vector<float> to(from.size());
  for (auto _ : state) {
    std::copy(from.begin(), from.end(), to.begin());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  report(state, from.size(), activeVoxels(scene.distance));
}

void openvdbOffset(benchmark::State& state) {
  auto const scene = sphereOf(state);
  auto const grid = Bench::levelSetGrid(scene.distance, halfWidth);
  tbb::global_control const limit(tbb::global_control::max_allowed_parallelism, threadsOf(state));
  openvdb::tools::Filter<openvdb::FloatGrid> filter(*grid);
  for (auto _ : state) filter.offset(amount);
  auto const active = static_cast<std::size_t>(grid->activeVoxelCount());
  report(state, active, active);
}

void scenes(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"radius", "threads"})->ArgsProduct({{100, 200, 400}, {1, 2}});
  bench->UseRealTime()->Unit(benchmark::kMillisecond);
}
void serialScenes(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"radius", "threads"})->ArgsProduct({{100, 200, 400}, {1}});
  bench->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(offsetFilterInPlace)->Apply(scenes);
BENCHMARK(addToPlainArray)->Apply(serialScenes);
BENCHMARK(copyPlainArray)->Apply(serialScenes);
BENCHMARK(openvdbOffset)->Apply(scenes);

}  // namespace
