#pragma once

#include <random>

#include "support/scene.h"
#include "support/seed.h"

namespace Velmor::Test {

/// A scene whose tiles, of all depths, lie near voxel 0, near the root's
/// borders and anywhere; every cell holds a random value.
inline Scene randomScene(unsigned seed, int tiles = 60) {
  std::mt19937 random(seed);
  auto const scene = emptyScene(1.f, 7.5f);
  int const leaf = scene.layout.maxDepth();
  auto const accessor = scene.layout.tileAccessor();
  accessor.addTile(1, 1, 1, 0);
  auto const root = accessor.tile(1, 1, 1, 0);
  auto const low = root.coord();
  int const extent = root.info().extent;
  for (int n = 0; n < tiles; ++n) {
    auto const axis = [&](int first) {
      switch (random() % 4) {
        case 0:
          return first + static_cast<int>(random() % 12);
        case 1:
          return first + extent - 1 - static_cast<int>(random() % 12);
        case 2:
          return std::max(first, -6) + static_cast<int>(random() % 12);
        default:
          return first + static_cast<int>(random() % static_cast<unsigned>(extent));
      }
    };
    int const depth = static_cast<int>(random() % static_cast<unsigned>(leaf + 1));
    accessor.addTile(axis(low.i), axis(low.j), axis(low.k), depth);
  }
  std::uniform_real_distribution<float> value(-10.f, 10.f);
  forTiles(scene.layout, 0, leaf, [&](API::TreeIndex const& index) {
    auto const cells = scene.distance.tileData<float>(index);
    for (std::size_t c = 0; c < cells.count; ++c) cells.data[c] = value(random);
  });
  return scene;
}

/// All shapes of tree that a test should hold for.
inline std::vector<Host::LayoutSettings> treeShapes() {
  std::vector<Host::LayoutSettings> shapes;
  for (int depth = 1; depth <= 7; ++depth) {
    for (bool const centred : {true, false}) shapes.push_back({depth, 5, centred});
  }
  return shapes;
}

}  // namespace Velmor::Test
