#include <benchmark/benchmark.h>

#include "sampling/positions.h"
#include "support/nanovdb_grid.h"
// Behind the other, whose declarations it takes for granted.
#include <nanovdb/util/SampleFromVoxels.h>

namespace {

using namespace Velmor;
using Bench::Order;

template <Order order, int degree>
void nanovdbValue(benchmark::State& state) {
  auto const handle = Bench::packed(*Bench::levelSetGrid(Bench::bandScene().distance, 3.f));
  auto const accessor = handle.grid<float>()->getAccessor();
  auto const sampler = nanovdb::createSampler<degree>(accessor);
  Bench::measure<order, nanovdb::Vec3f>(
      state, [&](nanovdb::Vec3f const& position) { return sampler(position); });
}
BENCHMARK(nanovdbValue<Order::Rays, 2>);
BENCHMARK(nanovdbValue<Order::Scattered, 2>);
BENCHMARK(nanovdbValue<Order::Rays, 1>);
BENCHMARK(nanovdbValue<Order::Scattered, 1>);

}  // namespace
