#include <benchmark/benchmark.h>
#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <map>
#include <stdexcept>
#include <string>

#include "support/cache_folder.h"
#include "support/scene.h"
#include "velmorhost/files.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

/// A narrow-band sphere as OpenVDB makes and writes it.
struct SphereFile {
  openvdb::FloatGrid::Ptr grid;
  std::string path;
  std::int64_t voxels = 0;
};

std::string const& folder() {
  static CacheFolder const theFolder;
  static std::string const path = theFolder.path().str();
  return path;
}

SphereFile const& sphere(std::int64_t radius) {
  static std::map<std::int64_t, SphereFile> files;
  auto& file = files[radius];
  if (file.grid) return file;
  openvdb::initialize();
  file.grid = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(
      static_cast<float>(radius), openvdb::Vec3f(0.37f, -0.21f, 0.13f), 1.f, 3.f);
  file.grid->setName("distance");
  file.path = folder() + "/sphere" + std::to_string(radius) + ".vdb";
  file.voxels = static_cast<std::int64_t>(file.grid->activeVoxelCount());
  openvdb::io::File(file.path).write(openvdb::GridPtrVec{file.grid});
  return file;
}

void finish(benchmark::State& state, SphereFile const& file) {
  state.SetItemsProcessed(state.iterations() * file.voxels);
}

void openvdbRead(benchmark::State& state) {
  auto const& file = sphere(state.range(0));
  for (auto _ : state) {
    openvdb::io::File in(file.path);
    in.open(/*delayLoad=*/false);
    benchmark::DoNotOptimize(in.getGrids());
  }
  finish(state, file);
}

/// Values arrive when they are first touched, so they are.
void openvdbReadDelayed(benchmark::State& state) {
  auto const& file = sphere(state.range(0));
  for (auto _ : state) {
    openvdb::io::File in(file.path);
    in.setCopyMaxBytes(0);
    in.open(/*delayLoad=*/true);
    auto const grids = in.getGrids();
    auto const grid = openvdb::gridPtrCast<openvdb::FloatGrid>(grids->front());
    for (auto leaf = grid->tree().cbeginLeaf(); leaf; ++leaf) {
      benchmark::DoNotOptimize(leaf->buffer().data());
    }
  }
  finish(state, file);
}

API::Object read(SphereFile const& file, bool isolate, API::Ref& server) {
  Host::ReadOptions how;
  how.isolate = isolate;
  auto const status = Host::readObject(file.path, "sphere", {}, how, server);
  if (!status.succeeded()) throw std::runtime_error(status.message().str());
  return API::Object(API::StateServer(server).findObject("sphere"));
}

void readInProcess(benchmark::State& state) {
  auto const& file = sphere(state.range(0));
  Threads const threads(static_cast<int>(state.range(1)));
  for (auto _ : state) {
    API::Ref server;
    benchmark::DoNotOptimize(read(file, false, server));
  }
  finish(state, file);
}

void readIsolated(benchmark::State& state) {
  auto const& file = sphere(state.range(0));
  Threads const threads(static_cast<int>(state.range(1)));
  for (auto _ : state) {
    API::Ref server;
    benchmark::DoNotOptimize(read(file, true, server));
  }
  finish(state, file);
}

void openvdbWrite(benchmark::State& state) {
  auto const& file = sphere(state.range(0));
  openvdb::GridPtrVec const grids{file.grid};
  for (auto _ : state) openvdb::io::File(folder() + "/openvdb.vdb").write(grids);
  finish(state, file);
}

void writeWhole(benchmark::State& state) {
  auto const& file = sphere(state.range(0));
  Threads const threads(static_cast<int>(state.range(1)));
  API::Ref server;
  auto const object = read(file, false, server);
  for (auto _ : state) {
    auto const status = Host::writeObject(object, folder() + "/ours.vdb");
    if (!status.succeeded()) state.SkipWithError(status.message().c_str());
  }
  finish(state, file);
}

void radii(benchmark::internal::Benchmark* b) {
  b->Arg(100)->Arg(200)->Arg(400)->Unit(benchmark::kMillisecond)->UseRealTime();
}
void radiiAndThreads(benchmark::internal::Benchmark* b) {
  b->ArgsProduct({{100, 200, 400}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK(openvdbRead)->Apply(radii);
BENCHMARK(openvdbReadDelayed)->Apply(radii);
BENCHMARK(readInProcess)->Apply(radiiAndThreads);
BENCHMARK(readIsolated)->Apply(radiiAndThreads);
BENCHMARK(openvdbWrite)->Apply(radii);
BENCHMARK(writeWhole)->Apply(radiiAndThreads);

}  // namespace
