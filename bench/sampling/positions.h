#pragma once

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "processing/bounds.h"
#include "processing/intersector.h"
#include "support/camera_rays.h"
#include "support/scene.h"

/// Where all samplers are measured: within a sphere's narrow band of half width
/// 3, at the same positions in voxels.
namespace Velmor::Bench {

constexpr float sphereRadius = 200.f;

inline Test::Scene const& bandScene() {
  static auto const scene = Test::sphereScene(sphereRadius);
  return scene;
}

/// What a renderer asks for: steps of half a voxel in the intervals that camera
/// rays have in common with the acceleration layout.
inline std::vector<Test::Vec3> alongRays() {
  Processing::Intersector tiles(Processing::createAccelLayout(bandScene().distance));
  std::vector<Test::Vec3> positions;
  for (auto const& ray : cameraRays(sphereRadius, 1000, 16)) {
    tiles.init(ray.origin, ray.direction, 0.f, 1e4f);
    for (auto i = tiles.next(); i.valid(); i = tiles.next()) {
      for (float t = i.t0; t < i.t1; t += 0.5f) {
        positions.push_back(ray.origin + ray.direction * t);
      }
    }
  }
  return positions;
}

/// A position anywhere in the band, then another one: nothing that was read for
/// the one before helps.
inline std::vector<Test::Vec3> scattered() {
  std::mt19937 random(7);
  std::normal_distribution<float> axis;
  std::uniform_real_distribution<float> depth(-2.f, 2.f);
  std::vector<Test::Vec3> positions(1 << 20);
  for (auto& p : positions) {
    Test::Vec3 const v(axis(random), axis(random), axis(random));
    p = v * ((sphereRadius + depth(random)) / std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z));
  }
  return positions;
}

enum class Order : std::uint8_t { Rays, Scattered };

inline std::vector<Test::Vec3> const& positionsIn(Order order) {
  static auto const rays = alongRays(), anywhere = scattered();
  return order == Order::Rays ? rays : anywhere;
}

/// Calls `sample(position)`, which returns a float, for all positions.
template <Order order, class Position, class Sample>
void measure(benchmark::State& state, Sample const& sample) {
  std::vector<Position> positions;
  for (auto const& p : positionsIn(order)) positions.push_back(Position(p.x, p.y, p.z));
  for (auto _ : state) {
    float sum = 0.f;
    for (auto const& position : positions) sum += sample(position);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(positions.size()));
}

}  // namespace Velmor::Bench
