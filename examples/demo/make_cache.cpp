// Makes a cache of one frame: the distance to a splash, as a level set.
#include <oneapi/tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "splash.h"
#include "velmorapi/layout.h"
#include "velmorhost/files.h"
#include "velmorhost/scene.h"

namespace {

using namespace Velmor;

constexpr float voxelSize = 0.01f;
constexpr float plateau = 5.f;  // voxels; where the stored distances end
constexpr float band = 3.f;     // voxels on both sides of the surface that get tiles
constexpr int width = 5;

float distanceAtCentre(API::TileCoord const& cell, int edge) {
  float const half = 0.5f * static_cast<float>(edge);
  return Demo::splashDistance(static_cast<float>(cell.i) + half, static_cast<float>(cell.j) + half,
                              static_cast<float>(cell.k) + half);
}

API::TileCoord childAt(API::TileCoord const& tile, int edge, int cell) {
  return {tile.i + cell % width * edge, tile.j + cell / width % width * edge,
          tile.k + cell / (width * width) * edge};
}

// The leaf tiles that the surface may come near to, found from the top: the
// distance at a tile's centre tells how far the surface is from all of it.
void collectLeaves(API::TileCoord const& tile, int edge, std::vector<API::TileCoord>& leaves) {
  float const reach = 0.8660254f * static_cast<float>(edge) + band;
  // The blends bend distances by a little; a tenth is more than that.
  if (std::abs(distanceAtCentre(tile, edge)) > 1.1f * reach + 2.f) return;
  if (edge == width) {
    leaves.push_back(tile);
    return;
  }
  int const below = edge / width;
  for (int cell = 0; cell < width * width * width; ++cell) {
    collectLeaves(childAt(tile, below, cell), below, leaves);
  }
}

// Leaf tiles start at multiples of 5 less 2; the same grid, coarser, for all depths.
std::vector<API::TileCoord> leavesOfPool() {
  constexpr int edge = 125, first = -(edge / 2);
  auto const from = [](float lowest) {
    return first + edge * static_cast<int>(std::floor((lowest - static_cast<float>(first)) / edge));
  };
  std::vector<API::TileCoord> leaves;
  float const side = Demo::poolHalfWidth + 10.f;
  for (int k = from(-side); static_cast<float>(k) < side; k += edge) {
    for (int j = from(-Demo::poolDepth - 10.f); static_cast<float>(j) < Demo::splashHeight;
         j += edge) {
      for (int i = from(-side); static_cast<float>(i) < side; i += edge) {
        collectLeaves({i, j, k}, edge, leaves);
      }
    }
  }
  return leaves;
}

void fill(API::VoxelChannel const& channel, int depth) {
  API::Layout const layout = channel.layout();
  auto const accessor = layout.tileAccessor();
  std::vector<API::TreeIndex> tiles;
  for (auto at = layout.tileIterator(depth, depth, API::TraversalMode::Serial); at.valid();
       at.next()) {
    tiles.push_back(at.index());
  }
  oneapi::tbb::parallel_for(std::size_t{0}, tiles.size(), [&](std::size_t t) {
    auto const tile = API::TileAccessor(accessor).tile(tiles[t]);
    auto const values = channel.tileData<float>(tiles[t]);
    int const edge = tile.info().extent / width;
    for (int cell = 0; cell < width * width * width; ++cell) {
      float const distance = distanceAtCentre(childAt(tile.coord(), edge, cell), edge);
      // Only leaves hold distances, everything coarser says inside or outside.
      float const kept = depth == layout.maxDepth() ? std::clamp(distance, -plateau, plateau)
                                                    : std::copysign(plateau, distance);
      values.data[values.offset(cell % width, cell / width % width, cell / (width * width))] =
          kept * voxelSize;
    }
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || argv[1][0] == '-') {
    std::fprintf(stderr, "usage: velmor-demo-cache FOLDER\n");
    return 2;
  }
  auto const folder = std::filesystem::path(argv[1]) / "splash";
  std::error_code error;
  std::filesystem::create_directories(folder, error);

  auto const server = Host::createStateServer("demo");
  auto const object = Host::createObject(server, "splash");
  API::VoxelComponent const volume(
      server.createComponent(API::VoxelComponentType, "volume", voxelSize));
  object.addComponent(volume);
  API::Layout const layout = volume.layout();
  auto const leaves = leavesOfPool();
  Host::addLeafTiles(layout, leaves);
  API::VoxelChannel const distance(server.createChannel(volume, API::DataType::Float, "distance"));
  distance.setBackgroundValue(plateau * voxelSize);
  Host::setFieldClass(distance, Host::FieldClass::LevelSet);
  for (int depth = 0; depth <= layout.maxDepth(); ++depth) fill(distance, depth);
  Host::refreshCoarseValues(distance);

  auto const file = (folder / "splash.0001.vdb").string();
  auto const status = Host::writeObject(object, file);
  if (!status.succeeded()) {
    std::fprintf(stderr, "velmor-demo-cache: %s\n", status.message().c_str());
    return 1;
  }
  std::printf("%s: %.1f million voxels in %zu tiles\n", file.c_str(),
              static_cast<double>(leaves.size()) * 125e-6, leaves.size());
  return 0;
}
