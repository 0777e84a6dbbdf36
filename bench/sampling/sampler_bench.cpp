#include <benchmark/benchmark.h>
#include <openvdb/tools/Interpolation.h>

#include "processing/sampler.h"
#include "sampling/positions.h"
#include "support/openvdb_grid.h"

namespace {

using namespace Velmor;
using Bench::Order;
using Test::Vec3;

API::VoxelSampler hostSampler() {
  return {Bench::bandScene().distance.createSampler(API::VoxelSamplerQBSplineType,
                                                    API::SamplerSpace::World)};
}

template <Order order>
void samplerValue(benchmark::State& state) {
  Processing::Sampler const sampler(Bench::bandScene().distance);
  Processing::Sample sample;
  Bench::measure<order, Vec3>(state, [&](Vec3 const& position) {
    sampler.sample(position, sample);
    return sample.as<float>();
  });
}
BENCHMARK(samplerValue<Order::Rays>);
BENCHMARK(samplerValue<Order::Scattered>);

template <Order order>
void hostValue(benchmark::State& state) {
  auto const sampler = hostSampler();
  Bench::measure<order, Vec3>(
      state, [&](Vec3 const& position) { return sampler.sample<float>(position); });
}
BENCHMARK(hostValue<Order::Rays>);
BENCHMARK(hostValue<Order::Scattered>);

template <Order order>
void hostValueAndGradient(benchmark::State& state) {
  auto const sampler = hostSampler();
  Bench::measure<order, Vec3>(state, [&](Vec3 const& position) {
    Vec3 gradient;
    float const value = sampler.sampleGradient<float>(position, gradient);
    return value + gradient.x;
  });
}
BENCHMARK(hostValueAndGradient<Order::Rays>);
BENCHMARK(hostValueAndGradient<Order::Scattered>);

template <Order order, class OpenvdbSampler>
void openvdbValue(benchmark::State& state) {
  auto const grid = Bench::levelSetGrid(Bench::bandScene().distance, 3.f);
  auto const accessor = grid->getConstAccessor();
  openvdb::tools::GridSampler<openvdb::FloatGrid::ConstAccessor, OpenvdbSampler> const sampler(
      accessor, grid->transform());
  Bench::measure<order, openvdb::Vec3d>(
      state, [&](openvdb::Vec3d const& position) { return sampler.isSample(position); });
}
BENCHMARK(openvdbValue<Order::Rays, openvdb::tools::QuadraticSampler>);
BENCHMARK(openvdbValue<Order::Scattered, openvdb::tools::QuadraticSampler>);
BENCHMARK(openvdbValue<Order::Rays, openvdb::tools::BoxSampler>);
BENCHMARK(openvdbValue<Order::Scattered, openvdb::tools::BoxSampler>);

}  // namespace
