#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include "processing/extend_filter.h"
#include "support/ocean_scenes.h"

namespace {

using namespace Velmor;

/// An ocean around a pool, tiles and channels made anew each time; per voxel
/// stored in the leaf tiles of its box.
void extendOcean(benchmark::State& state) {
  auto const threads = static_cast<std::size_t>(state.range(1));
  tbb::global_control const limit(tbb::global_control::max_allowed_parallelism, threads);
  Host::setThreadCount(static_cast<int>(threads));
  float const size = static_cast<float>(state.range(0));
  float const radius = static_cast<float>(state.range(2));
  std::size_t stored = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto const scene = Test::wavyPool();
    state.ResumeTiming();
    Processing::ExtendFilter(0.3f, {0.f, 0.f}, {size, size}, radius, "")
        .filter(scene.distance, scene.distance);
    state.PauseTiming();
    stored = Host::tileCount(scene.layout, scene.layout.maxDepth()) * 125;
    state.ResumeTiming();
  }
  Host::setThreadCount(0);
  state.counters["stored"] = static_cast<double>(stored);
  state.counters["ns_per_voxel"] = benchmark::Counter(
      static_cast<double>(stored) * 1e-9,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK(extendOcean)
    ->ArgNames({"size", "threads", "radius"})
    ->Args({1000, 1, 0})
    ->Args({1000, 1, 20})
    ->Args({2000, 1, 0})
    ->Args({2000, 2, 0})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
