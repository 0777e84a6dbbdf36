#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "processing/mixer.h"
#include "support/scene.h"

namespace {

using namespace Velmor;

std::size_t storedValues(API::Layout const& layout) {
  std::size_t tiles = 0;
  for (int d = 0; d <= layout.maxDepth(); ++d) tiles += Host::tileCount(layout, d);
  return tiles * 125;
}

void report(benchmark::State& state, std::size_t stored) {
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(3 * stored * sizeof(float)));
  state.counters["ns_per_value"] = benchmark::Counter(
      static_cast<double>(stored) * 1e-9,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template <class Mixer>
void mix(benchmark::State& state) {
  auto const scene = Test::sphereScene(static_cast<float>(state.range(0)));
  auto const b = Test::addChannel<float>(scene.server, scene.volume, "b", 0.5f);
  API::Channel out = Test::addChannel<float>(scene.server, scene.volume, "out", 0.f);
  Host::setThreadCount(static_cast<int>(state.range(1)));
  Mixer const mixer(0.3f);
  for (auto _ : state) mixer.mix(scene.distance, b, out);
  Host::setThreadCount(0);
  report(state, storedValues(scene.layout));
}

void plainArrays(benchmark::State& state) {
  auto const stored = storedValues(Test::sphereScene(static_cast<float>(state.range(0))).layout);
  std::vector<float> const a(stored, 1.f), b(stored, 0.5f);
  std::vector<float> c(stored);
  for (auto _ : state) {
    for (std::size_t i = 0; i < stored; ++i) c[i] = a[i] + 0.3f * b[i];
    benchmark::DoNotOptimize(c.data());
    benchmark::ClobberMemory();
  }
  report(state, stored);
}

void copyPlainArray(benchmark::State& state) {
  auto const stored = storedValues(Test::sphereScene(static_cast<float>(state.range(0))).layout);
  std::vector<float> const a(stored, 1.f);
  std::vector<float> c(stored);
  for (auto _ : state) {
    std::copy(a.begin(), a.end(), c.begin());
    benchmark::DoNotOptimize(c.data());
    benchmark::ClobberMemory();
  }
  report(state, stored);
}

void sizes(benchmark::internal::Benchmark* b) {
  b->Args({100, 1})->Args({200, 1})->Args({200, 2})->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(mix<Processing::StepMixer<float>>)->Name("stepMixer")->Apply(sizes);
BENCHMARK(mix<Processing::AlphaMixer<float>>)->Name("alphaMixer")->Apply(sizes);
BENCHMARK(plainArrays)->Args({100})->Args({200})->Unit(benchmark::kMillisecond);
BENCHMARK(copyPlainArray)->Args({100})->Args({200})->Unit(benchmark::kMillisecond);

}  // namespace
