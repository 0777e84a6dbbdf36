#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "support/scene.h"
#include "velmorapi/halo.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

/// The sphere of a benchmark, made once: its radius in voxels.
Scene const& sphere(int radius) {
  static int made = 0;
  static Scene scene;
  if (made != radius) {
    scene = Scene();
    scene = sphereScene(static_cast<float>(radius), {0.37f, -0.21f, 0.13f});
    made = radius;
  }
  return scene;
}

std::int64_t leafVoxels(Scene const& scene) {
  return static_cast<std::int64_t>(Host::tileCount(scene.layout, scene.layout.maxDepth())) * 125;
}

class AddVisitor final : public API::Visitor {
 public:
  explicit AddVisitor(API::Channel channel) : channel_(std::move(channel)) {}
  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    auto const tile = channel_.tileData<float>(index);
    for (std::size_t e = 0; e < tile.count; ++e) tile.data[e] += 0.25f;
  }
  API::Visitor* copy() const override { return new AddVisitor(*this); }

 private:
  API::Channel channel_;
};

void addConstantToTiles(benchmark::State& state) {
  Threads const threads(static_cast<int>(state.range(1)));
  auto const& scene = sphere(static_cast<int>(state.range(0)));
  AddVisitor visitor(addChannel<float>(scene.server, scene.volume, "scratch", 1.f));
  for (auto _ : state) scene.layout.traverse(visitor, API::TraversalMode::Tiles);
  state.SetItemsProcessed(state.iterations() * leafVoxels(scene));
}
BENCHMARK(addConstantToTiles)->ArgsProduct({{100, 200, 400}, {1, 2}})->UseRealTime();

void addConstantToPlainArray(benchmark::State& state) {
  auto const& scene = sphere(static_cast<int>(state.range(0)));
  std::vector<float> values(static_cast<std::size_t>(leafVoxels(scene)), 1.f);
  for (auto _ : state) {
    for (auto& value : values) value += 0.25f;
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * leafVoxels(scene));
}
BENCHMARK(addConstantToPlainArray)->Arg(100)->Arg(200)->Arg(400)->UseRealTime();

class EmptyVisitor final : public API::Visitor {
 public:
  API::Visitor* copy() const override { return new EmptyVisitor(*this); }
};

void traverseNothing(benchmark::State& state) {
  Threads const threads(1);
  auto const& scene = sphere(200);
  EmptyVisitor visitor;
  for (auto _ : state) scene.layout.traverse(visitor, API::TraversalMode::Tiles);
  state.SetItemsProcessed(state.iterations() * leafVoxels(scene) / 125);
}
BENCHMARK(traverseNothing);

void gatherHalo(benchmark::State& state) {
  auto const& scene = sphere(100);
  API::HaloedCache<float> cache;
  cache.init(scene.distance);
  std::int64_t tiles = 0;
  for (auto _ : state) {
    forTiles(scene.layout, scene.layout.maxDepth(), scene.layout.maxDepth(),
             [&](API::TreeIndex const& index) {
               cache.update(index);
               benchmark::DoNotOptimize(cache.tile(index).values);
               ++tiles;
             });
  }
  state.SetItemsProcessed(tiles);
}
BENCHMARK(gatherHalo);

API::VoxelSampler samplerOf(Scene const& scene) {
  return API::VoxelSampler(
      scene.distance.createSampler(API::VoxelSamplerQBSplineType, API::SamplerSpace::Index));
}

// The corners of the voxels of each tile, as a mesher asks for them.
void sampleCorners(benchmark::State& state) {
  auto const& scene = sphere(100);
  auto const sampler = samplerOf(scene);
  auto const accessor = scene.layout.tileAccessor();
  std::int64_t samples = 0;
  for (auto _ : state) {
    float sum = 0.f;
    forTiles(scene.layout, scene.layout.maxDepth(), scene.layout.maxDepth(),
             [&](API::TreeIndex const& index) {
               auto const low = accessor.tile(index).coord();
               for (int z = 0; z <= 5; ++z) {
                 for (int y = 0; y <= 5; ++y) {
                   for (int x = 0; x <= 5; ++x) {
                     sum += sampler.sample<float>({static_cast<float>(low.i + x),
                                                   static_cast<float>(low.j + y),
                                                   static_cast<float>(low.k + z)});
                   }
                 }
               }
               samples += 216;
             });
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(samples);
}
BENCHMARK(sampleCorners);

// Along rays through the sphere in steps of a third of a voxel.
template <bool Gradient>
void sampleRays(benchmark::State& state) {
  auto const& scene = sphere(100);
  auto const sampler = samplerOf(scene);
  std::int64_t samples = 0;
  for (auto _ : state) {
    float sum = 0.f;
    for (float y = -60.f; y < 60.f; y += 3.7f) {
      for (float x = 70.f; x < 104.f; x += 0.33f) {
        Vec3 gradient;
        if constexpr (Gradient) {
          sum += sampler.sampleGradient<float>({x, y, 0.4f * x}, gradient) + gradient.x;
        } else {
          sum += sampler.sample<float>({x, y, 0.4f * x});
        }
        ++samples;
      }
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(samples);
}
BENCHMARK(sampleRays<false>);
BENCHMARK(sampleRays<true>);

void sampleScattered(benchmark::State& state) {
  auto const& scene = sphere(100);
  auto const sampler = samplerOf(scene);
  std::mt19937 random(7);
  std::normal_distribution<float> axis;
  std::vector<Vec3> positions(100000);
  for (auto& p : positions) {
    Vec3 const v(axis(random), axis(random), axis(random));
    p = v * (100.f / std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z));
  }
  for (auto _ : state) {
    float sum = 0.f;
    for (auto const& p : positions) sum += sampler.sample<float>(p);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(positions.size()));
}
BENCHMARK(sampleScattered);

// A layout with one leaf tile per voxel near the surface, five times finer than
// the voxels, asked for at every depth.
void addTilesPerVoxel(benchmark::State& state) {
  auto const& scene = sphere(static_cast<int>(state.range(0)));
  std::vector<API::TileCoord> marked;
  auto const accessor = scene.layout.tileAccessor();
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    auto const tile = scene.distance.tileData<float>(index);
    auto const low = accessor.tile(index).coord();
    for (int c = 0; c < 125; ++c) {
      if (std::abs(tile.data[c]) < 2.598076f) {
        marked.push_back({5 * (low.i + c % 5), 5 * (low.j + c / 5 % 5), 5 * (low.k + c / 25)});
      }
    }
  });
  API::Layout layout;
  for (auto _ : state) {
    layout = API::Layout(scene.server.createLayout("accel"));
    auto const made = layout.tileAccessor();
    for (auto const& voxel : marked) {
      for (int depth = 0; depth <= 7; ++depth) made.addTile(voxel, depth);
    }
  }
  auto const voxels = static_cast<double>(marked.size());
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(marked.size()));
  state.counters["bytes_per_voxel"] = static_cast<double>(Host::memoryUse(layout)) / voxels;
}
BENCHMARK(addTilesPerVoxel)->Arg(100)->Arg(200)->Arg(400)->Unit(benchmark::kMillisecond);

void memoryPerActiveVoxel(benchmark::State& state) {
  auto const& scene = sphere(static_cast<int>(state.range(0)));
  std::int64_t active = 0;
  forTiles(scene.layout, 7, 7, [&](API::TreeIndex const& index) {
    Host::CellMask mask;
    auto const tile = scene.distance.tileData<float>(index);
    for (int c = 0; c < 125; ++c) {
      if (std::abs(tile.data[c]) < 3.f) {
        mask.set(c);
        ++active;
      }
    }
    Host::setActiveMask(scene.distance, index, mask);
  });
  for (auto _ : state) benchmark::DoNotOptimize(active);
  state.counters["bytes_per_active_voxel"] =
      static_cast<double>(Host::memoryUse(scene.layout) + Host::memoryUse(scene.distance)) /
      static_cast<double>(active);
  state.counters["stored_per_active"] =
      static_cast<double>(leafVoxels(scene)) / static_cast<double>(active);
}
BENCHMARK(memoryPerActiveVoxel)->Arg(100)->Arg(200)->Arg(400)->Iterations(1);

}  // namespace
