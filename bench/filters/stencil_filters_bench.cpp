#include <benchmark/benchmark.h>
#include <openvdb/math/Stencils.h>
#include <openvdb/tools/Filter.h>
#include <openvdb/tools/GridOperators.h>
#include <openvdb/tools/LevelSetFilter.h>
#include <openvdb/tree/LeafManager.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>

#include "processing/smooth_filter.h"
#include "processing/stencil_filters.h"
#include "support/openvdb_grid.h"
#include "support/scene.h"

namespace {

using namespace Velmor;

constexpr float halfWidth = 3.f;

/// A sphere, made once per radius: the filters change other channels only.
struct Sphere {
  Test::Scene scene;
  API::VoxelChannel out;
  openvdb::FloatGrid::Ptr grid;
  std::size_t active = 0;
};

Sphere const& sphereOf(benchmark::State const& state) {
  static std::map<std::int64_t, std::unique_ptr<Sphere>> spheres;
  auto& sphere = spheres[state.range(0)];
  if (sphere == nullptr) {
    sphere = std::make_unique<Sphere>();
    sphere->scene = Test::sphereScene(static_cast<float>(state.range(0)));
    sphere->out = Test::addChannel<float>(sphere->scene.server, sphere->scene.volume, "out", 0.f);
    sphere->grid = Bench::levelSetGrid(sphere->scene.distance, halfWidth);
    sphere->active = sphere->grid->activeVoxelCount();
  }
  return *sphere;
}

/// Threads of both sides for the length of a measurement.
class Threads {
 public:
  explicit Threads(benchmark::State const& state)
      : limit_(tbb::global_control::max_allowed_parallelism,
               static_cast<std::size_t>(state.range(1))) {
    Host::setThreadCount(static_cast<int>(state.range(1)));
  }
  Threads(Threads const&) = delete;
  Threads& operator=(Threads const&) = delete;
  ~Threads() { Host::setThreadCount(0); }

 private:
  tbb::global_control limit_;
};

void report(benchmark::State& state, std::size_t active, int passes = 1) {
  auto const voxels = static_cast<double>(active) * passes;
  state.counters["ns_per_voxel"] = benchmark::Counter(
      voxels * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template <class Filter>
void filter(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  Filter const stencil;
  for (auto _ : state) stencil.filter(sphere.scene.distance, sphere.out);
  report(state, sphere.active);
}

template <void (openvdb::tools::Filter<openvdb::FloatGrid>::*Method)(int, int,
                                                                     openvdb::FloatGrid const*)>
void openvdbFilter(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  auto const grid = sphere.grid->deepCopy();
  openvdb::tools::Filter<openvdb::FloatGrid> filter(*grid);
  for (auto _ : state) (filter.*Method)(1, 1, nullptr);
  report(state, sphere.active);
}

void openvdbLaplacian(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  for (auto _ : state) benchmark::DoNotOptimize(openvdb::tools::laplacian(*sphere.grid));
  report(state, sphere.active);
}

void openvdbMeanCurvature(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  for (auto _ : state) benchmark::DoNotOptimize(openvdb::tools::meanCurvature(*sphere.grid));
  report(state, sphere.active);
}

using LeafManager = openvdb::tree::LeafManager<openvdb::FloatTree>;

/// OpenVDB's fastest way: a stencil over the leaves into a second buffer.
template <class Stencil, class Value>
void stencilPass(LeafManager& leaves, openvdb::FloatGrid const& grid, Value value) {
  tbb::parallel_for(leaves.leafRange(), [&](LeafManager::LeafRange const& range) {
    Stencil stencil(grid);
    for (auto leaf = range.begin(); leaf; ++leaf) {
      auto* const out = leaf.buffer(1).data();
      for (auto voxel = leaf->cbeginValueOn(); voxel; ++voxel) {
        stencil.moveTo(voxel);
        out[voxel.pos()] = value(stencil);
      }
    }
  });
}

void openvdbLaplacianStencil(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  auto const grid = sphere.grid->deepCopy();
  LeafManager leaves(grid->tree(), 1);
  for (auto _ : state) {
    stencilPass<openvdb::math::GradStencil<openvdb::FloatGrid>>(
        leaves, *grid, [](auto& s) { return s.laplacian(); });
  }
  report(state, sphere.active);
}

void openvdbCurvatureStencil(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  auto const grid = sphere.grid->deepCopy();
  LeafManager leaves(grid->tree(), 1);
  for (auto _ : state) {
    stencilPass<openvdb::math::CurvatureStencil<openvdb::FloatGrid>>(
        leaves, *grid, [](auto& s) { return s.meanCurvature(); });
  }
  report(state, sphere.active);
}

constexpr unsigned iterations = 10;

void smoothTenTimes(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  Test::addChannel<float>(sphere.scene.server, sphere.scene.volume, "smoothed", 0.f);
  API::Channel const out(sphere.scene.volume.findChannel("smoothed"));
  for (auto _ : state) {
    Processing::SmoothFilter<float>(Processing::SmoothFilter<float>::Laplacian, iterations, 0.5f)
        .filter(sphere.scene.distance, out);
  }
  report(state, sphere.active, iterations);
}

/// The same flow by hand: a Laplacian stencil and a step, then the buffers change places.
void openvdbSmoothTenTimes(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  auto const grid = sphere.grid->deepCopy();
  LeafManager leaves(grid->tree(), 1);
  for (auto _ : state) {
    for (unsigned i = 0; i < iterations; ++i) {
      stencilPass<openvdb::math::GradStencil<openvdb::FloatGrid>>(leaves, *grid, [](auto& s) {
        return s.template getValue<0, 0, 0>() + 0.5f / 6.f * s.laplacian();
      });
      leaves.swapLeafBuffer(1);
    }
  }
  report(state, sphere.active, iterations);
}

void openvdbLevelSetFilterTenTimes(benchmark::State& state) {
  auto const& sphere = sphereOf(state);
  Threads const threads(state);
  auto const grid = sphere.grid->deepCopy();
  openvdb::tools::LevelSetFilter<openvdb::FloatGrid> filter(*grid);
  for (auto _ : state) {
    for (unsigned i = 0; i < iterations; ++i) filter.laplacian();
  }
  report(state, sphere.active, iterations);
}

void sizes(benchmark::internal::Benchmark* b) {
  b->Args({200, 1})->Args({200, 2})->UseRealTime()->Unit(benchmark::kMillisecond);
}

using OpenvdbFilter = openvdb::tools::Filter<openvdb::FloatGrid>;
BENCHMARK(filter<Processing::MeanFilter<float>>)->Name("meanFilter")->Apply(sizes);
BENCHMARK(openvdbFilter<&OpenvdbFilter::mean>)->Name("openvdbMean")->Apply(sizes);
BENCHMARK(filter<Processing::MedianFilter<float>>)->Name("medianFilter")->Apply(sizes);
BENCHMARK(openvdbFilter<&OpenvdbFilter::median>)->Name("openvdbMedian")->Apply(sizes);
BENCHMARK(filter<Processing::LaplacianFilter<float>>)->Name("laplacianFilter")->Apply(sizes);
BENCHMARK(openvdbLaplacian)->Apply(sizes);
BENCHMARK(openvdbLaplacianStencil)->Apply(sizes);
BENCHMARK(filter<Processing::CurvatureFilter<float>>)->Name("curvatureFilter")->Apply(sizes);
BENCHMARK(openvdbMeanCurvature)->Apply(sizes);
BENCHMARK(openvdbCurvatureStencil)->Apply(sizes);
BENCHMARK(smoothTenTimes)->Apply(sizes);
BENCHMARK(openvdbSmoothTenTimes)->Apply(sizes);
BENCHMARK(openvdbLevelSetFilterTenTimes)->Apply(sizes);

}  // namespace
