#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openvdb/openvdb.h>
#include <openvdb/points/PointConversion.h>
#include <openvdb/points/PointRasterizeSDF.h>
#include <openvdb/tools/ParticlesToLevelSet.h>
#include <tbb/global_control.h>

#include <cmath>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/levelset/particle_scene.h"
#include "processing/mesher.h"
#include "support/scene.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

constexpr float radius = 1.6f;  // voxels

/// A basin with waves, a quarter as deep as it is wide: about `count` particles, moved by up
/// to 0.4 of their spacing, `perEdge` to the voxel along each edge.
std::vector<Float3> basin(std::int64_t count, int perEdge) {
  auto const width = std::cbrt(4.0 * static_cast<double>(count)) / perEdge;
  auto const half = static_cast<float>(width / 2), depth = static_cast<float>(width / 4);
  return jittered(perEdge, 0.4f, static_cast<int>(half) + 2, [=](Float3 const& p) {
    float const wave =
        0.06f * depth * (std::sin(p.x * 0.13f) + std::sin(p.z * 0.17f + p.x * 0.05f));
    return std::abs(p.x) < half && std::abs(p.z) < half && p.y > -depth / 2 &&
           p.y < depth / 2 + wave;
  });
}

/// The particles of a benchmark, made once: for us and for OpenVDB.
struct Particles {
  ParticleScene scene;
  std::vector<openvdb::Vec3s> positions;
  openvdb::math::Transform::Ptr transform;
  openvdb::points::PointDataGrid::Ptr grid;

  explicit Particles(std::vector<Float3> const& all) : scene(all) {
    openvdb::initialize();
    scene.options.surfaceRadius = radius;
    positions.reserve(all.size());
    for (auto const& p : all) positions.emplace_back(p.x, p.y, p.z);
    transform = openvdb::math::Transform::createLinearTransform(1.0);
    grid =
        openvdb::points::createPointDataGrid<openvdb::points::NullCodec,
                                             openvdb::points::PointDataGrid>(positions, *transform);
  }
  std::int64_t count() const { return static_cast<std::int64_t>(positions.size()); }
};

Particles const& particles(benchmark::State const& state) {
  static std::pair<std::int64_t, std::int64_t> made{0, 0};
  static std::unique_ptr<Particles> theParticles;
  std::pair const wanted{state.range(0), state.range(1)};
  if (made != wanted) {
    theParticles.reset();
    theParticles =
        std::make_unique<Particles>(basin(wanted.first * 1000, wanted.second == 8 ? 2 : 1));
    made = wanted;
  }
  return *theParticles;
}

/// What the kernel says about this process's memory, in MB.
double memory(char const* key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(key, 0) == 0) return std::stod(line.substr(line.find(':') + 1)) / 1024;
  }
  return 0;
}

/// The most memory that is taken beyond what there is now.
class PeakMemory {
 public:
  PeakMemory() {
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
    before_ = memory("VmRSS");
  }
  double megabytes() const { return memory("VmHWM") - before_; }

 private:
  double before_ = 0;
};

void finish(benchmark::State& state, Particles const& particles, PeakMemory const& peak) {
  state.SetItemsProcessed(state.iterations() * particles.count());
  state.counters["peak MB"] = peak.megabytes();
}

/// A new output each time, as for every frame; giving the old one back is part of
/// what is measured.
API::VoxelChannel build(benchmark::State& state, Particles const& all,
                        ObjectBuilder const& builder) {
  auto const voxels = builder.voxels("volume", 1.f);
  API::VoxelChannel const distance(
      builder.server().createChannel(voxels, API::DataType::Float, "distance"));
  auto const status = API::createLevelSet(all.scene.options, all.scene.points(), all.scene.inputs,
                                          API::VoxelComponent(), "", voxels, all.scene.outputs);
  if (!status.succeeded()) state.SkipWithError("no level set");
  return distance;
}

/// Arguments: thousands of particles, particles per voxel, threads.
void createLevelSet(benchmark::State& state) {
  Threads const threads(static_cast<int>(state.range(2)));
  auto const& all = particles(state);
  PeakMemory const peak;
  for (auto _ : state) {
    ObjectBuilder const builder("surface");
    build(state, all, builder);
  }
  finish(state, all, peak);
}
BENCHMARK(createLevelSet)
    ->ArgsProduct({{1000, 4000}, {8, 1}, {1, 2}})
    ->ArgsProduct({{250, 500, 2000}, {8}, {1}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

/// From particles to a mesh.
void createLevelSetAndMesh(benchmark::State& state) {
  Threads const threads(static_cast<int>(state.range(2)));
  auto const& all = particles(state);
  PeakMemory const peak;
  for (auto _ : state) {
    ObjectBuilder const builder("surface");
    auto const distance = build(state, all, builder);
    API::Array<Float3> points;
    API::Array<orlen::Math::vec<3, int>> triangles;
    Processing::MarchingCubes(0).mesh(distance, points, triangles);
    benchmark::DoNotOptimize(triangles.data());
  }
  finish(state, all, peak);
}
BENCHMARK(createLevelSetAndMesh)
    ->ArgsProduct({{1000}, {8, 1}, {1, 2}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

class ParticleList {
 public:
  using PosType = openvdb::Vec3R;
  explicit ParticleList(std::vector<openvdb::Vec3s> const& positions) : positions_(&positions) {}
  std::size_t size() const { return positions_->size(); }
  void getPos(std::size_t n, openvdb::Vec3R& position) const { position = (*positions_)[n]; }

 private:
  std::vector<openvdb::Vec3s> const* positions_;
};

void openvdbParticlesToSdf(benchmark::State& state) {
  tbb::global_control const threads(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(state.range(2)));
  auto const& all = particles(state);
  ParticleList const list(all.positions);
  PeakMemory const peak;
  for (auto _ : state) {
    auto const grid = openvdb::createLevelSet<openvdb::FloatGrid>(1.0);
    openvdb::tools::particlesToSdf(list, *grid, openvdb::Real(radius));
    benchmark::DoNotOptimize(grid->tree().leafCount());
  }
  finish(state, all, peak);
}

void openvdbRasterizeSpheres(benchmark::State& state) {
  tbb::global_control const threads(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(state.range(2)));
  auto const& all = particles(state);
  PeakMemory const peak;
  for (auto _ : state) {
    auto const grid = openvdb::points::rasterizeSpheres(*all.grid, openvdb::Real(radius));
    benchmark::DoNotOptimize(grid->tree().leafCount());
  }
  finish(state, all, peak);
}

/// The kernel is as wide as ours.
void openvdbRasterizeSmoothSpheres(benchmark::State& state) {
  tbb::global_control const threads(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(state.range(2)));
  auto const& all = particles(state);
  PeakMemory const peak;
  for (auto _ : state) {
    auto const grid = openvdb::points::rasterizeSmoothSpheres(*all.grid, openvdb::Real(radius),
                                                              openvdb::Real(2 * radius));
    benchmark::DoNotOptimize(grid->tree().leafCount());
  }
  finish(state, all, peak);
}

void common(benchmark::internal::Benchmark* bench) {
  bench->UseRealTime()->Unit(benchmark::kMillisecond);
}
void sizes(benchmark::internal::Benchmark* bench) {
  common(bench);
  bench->ArgsProduct({{1000, 4000}, {8, 1}, {1}});
}
void million(benchmark::internal::Benchmark* bench) {
  common(bench);
  bench->ArgsProduct({{1000}, {8, 1}, {1}});
}
// Minutes each: one run has to do, and is long enough.
void fourMillionOnce(benchmark::internal::Benchmark* bench) {
  common(bench);
  bench->ArgsProduct({{4000}, {8, 1}, {1}})->Iterations(1)->Repetitions(1);
}
BENCHMARK(openvdbParticlesToSdf)->Apply(sizes);
BENCHMARK(openvdbRasterizeSpheres)->Apply(million);
BENCHMARK(openvdbRasterizeSmoothSpheres)->Apply(million);
BENCHMARK(openvdbRasterizeSpheres)->Apply(fourMillionOnce);
BENCHMARK(openvdbRasterizeSmoothSpheres)->Apply(fourMillionOnce);

}  // namespace
