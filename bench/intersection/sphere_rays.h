#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "support/camera_rays.h"
#include "support/openvdb_grid.h"
#include "support/scene.h"

/// What all walks are measured on: a sphere and the rays of a camera that looks
/// at it, in voxels.
namespace Velmor::Bench {

constexpr float sphereRadius = 200.f;

inline Test::Scene const& sphere() {
  static auto const scene = Test::sphereScene(sphereRadius);
  return scene;
}

inline std::vector<CameraRay> const& millionRays() {
  static auto const rays = cameraRays(sphereRadius, 1000);
  return rays;
}

constexpr int maskScale = 8;

/// One leaf node, all of it active, per voxel that an acceleration layout would
/// mark: a voxel is `maskScale` wide.
inline openvdb::MaskGrid::Ptr markedLeaves() {
  auto const near = levelSetGrid(sphere().distance, 2.598076f);
  auto const mask = openvdb::MaskGrid::create();
  auto accessor = mask->getAccessor();
  for (auto voxel = near->cbeginValueOn(); voxel; ++voxel) {
    auto const c = voxel.getCoord();
    accessor.touchLeaf({c.x() * maskScale, c.y() * maskScale, c.z() * maskScale})->setValuesOn();
  }
  return mask;
}

/// Calls `walk(ray)` for all rays; it adds to the counts.
struct Counts {
  std::int64_t spans = 0;  // intervals, leaves or hits
  double length = 0.;      // in voxels
};
template <class Walk>
void measureRays(benchmark::State& state, Walk const& walk) {
  auto const& rays = millionRays();
  Counts counts;
  for (auto _ : state) {
    counts = {};
    for (auto const& ray : rays) walk(ray, counts);
  }
  auto const count = static_cast<double>(rays.size());
  state.counters["found_per_ray"] = static_cast<double>(counts.spans) / count;
  state.counters["voxels_per_ray"] = counts.length / count;
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(rays.size()));
}

}  // namespace Velmor::Bench
