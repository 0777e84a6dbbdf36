#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <vector>

#include "random_tree.h"
#include "velmorapi/bulk.h"

namespace {

using namespace Velmor;
using namespace Velmor::Test;

using Coordinates = std::vector<float>;

API::VoxelSampler samplerOf(API::VoxelChannel const& channel,
                            API::SamplerSpace space = API::SamplerSpace::Index) {
  return API::VoxelSampler(channel.createSampler(API::VoxelSamplerQBSplineType, space));
}

// The grid's values must have the bits of single samples by another sampler.
void expectLikeSingles(API::VoxelSampler const& grid, API::VoxelSampler const& single,
                       Coordinates const& x, Coordinates const& y, Coordinates const& z) {
  API::SampleGrid const points{x.data(), y.data(), z.data(), x.size(), y.size(), z.size()};
  ASSERT_EQ(points.pointCount(), x.size() * y.size() * z.size());
  std::vector<float> values(points.pointCount() + 1, -99.f);
  API::sampleGrid(grid, points, values.data());
  EXPECT_EQ(values.back(), -99.f);
  auto const* value = values.data();
  for (float const a : x)
    for (float const b : y)
      for (float const c : z) {
        auto const expected = single.sample<float>({a, b, c});
        ASSERT_EQ(std::bit_cast<std::uint32_t>(*value++), std::bit_cast<std::uint32_t>(expected))
            << "at " << a << ' ' << b << ' ' << c;
      }
}

TEST(SampleGrid, HasTheBitsOfSingleSamplesInEveryShapeOfTree) {
  auto const seed = newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  for (auto const& shape : treeShapes()) {
    LayoutShape const settings(shape);
    auto const scene = randomScene(seed + static_cast<unsigned>(shape.depth));
    auto const accessor = scene.layout.tileAccessor();
    for (auto const space : {API::SamplerSpace::Index, API::SamplerSpace::World}) {
      float const scale = space == API::SamplerSpace::World ? 0.3f : 1.f;
      scene.layout.setVoxelScale(scale);
      auto const grid = samplerOf(scene.distance, space);
      auto const single = samplerOf(scene.distance, space);
      forTiles(scene.layout, 0, scene.layout.maxDepth(), [&](API::TreeIndex const& index) {
        auto const low = accessor.tile(index).coord();
        auto const step = 1.f / static_cast<float>(1 + random() % 4);
        auto const count = random() % 12;
        auto const along = [&](int first) {
          Coordinates axis;
          for (unsigned n = 0; n < count; ++n) {
            axis.push_back((static_cast<float>(first) + step * static_cast<float>(n)) * scale);
          }
          return axis;
        };
        expectLikeSingles(grid, single, along(low.i), along(low.j), along(low.k));
      });
    }
  }
}

TEST(SampleGrid, TakesCoordinatesInAnyOrderAndFarApart) {
  auto const seed = newSeed();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  auto const scene = randomScene(seed);
  auto const sampler = samplerOf(scene.distance);
  for (int const spread : {3, 20, 400000, 5000000}) {
    std::uniform_real_distribution<float> at(-0.5f * static_cast<float>(spread),
                                             0.5f * static_cast<float>(spread));
    for (int n = 0; n < 20; ++n) {
      auto const along = [&] {
        Coordinates axis(random() % 9);
        for (auto& a : axis) a = random() % 3 == 0 ? std::floor(at(random)) : at(random);
        return axis;
      };
      auto const x = along(), y = along(), z = along();
      expectLikeSingles(sampler, samplerOf(scene.distance), x, y, z);
    }
  }
}

TEST(SampleGrid, TakesMoreCoordinatesThanItHandlesAtOnce) {
  auto const scene = randomScene(7);
  Coordinates many, few{-1.5f, 2.f};
  for (int n = 0; n < 333; ++n) many.push_back(-4.f + 0.03125f * static_cast<float>(n));
  auto const grid = samplerOf(scene.distance), single = samplerOf(scene.distance);
  expectLikeSingles(grid, single, many, few, few);
  expectLikeSingles(grid, single, few, many, few);
  expectLikeSingles(grid, single, few, few, many);
}

TEST(SampleGrid, DoesNotReadWhatHasNoWeight) {
  auto const scene = emptyScene(1.f, 1.f);
  auto const accessor = scene.layout.tileAccessor();
  auto const tile = scene.distance.tileData<float>(accessor.addTile(0, 0, 0, 7));
  tile.data[tile.offset(4, 2, 2)] = std::numeric_limits<float>::infinity();
  // Voxel 2 has it; whole numbers up to 1 do not reach it.
  expectLikeSingles(samplerOf(scene.distance), samplerOf(scene.distance), {-1.f, 0.f, 1.f}, {0.f},
                    {0.f});
  float value = 0;
  float const x = 1.f, y = 0.f, z = 0.f;
  API::sampleGrid(samplerOf(scene.distance), {&x, &y, &z, 1, 1, 1}, &value);
  EXPECT_EQ(value, 1.f);
}

TEST(SampleGrid, IsNaNWhereACoordinateIsNotFinite) {
  auto const scene = randomScene(3);
  float const inf = std::numeric_limits<float>::infinity();
  Coordinates const x{0.f, inf, 1.f}, y{0.f, std::nanf("")}, z{-inf, 0.5f};
  std::vector<float> values(12);
  auto const sampler = samplerOf(scene.distance);
  API::sampleGrid(sampler, {x.data(), y.data(), z.data(), 3, 2, 2}, values.data());
  for (std::size_t n = 0; n < values.size(); ++n) {
    bool const finite = n == 1 || n == 9;
    EXPECT_EQ(std::isnan(values[n]), !finite) << n;
  }
  EXPECT_EQ(values[9], sampler.sample<float>({1.f, 0.f, 0.5f}));
}

TEST(SampleGrid, SeesTilesAndValuesThatCameAfterTheLastSample) {
  auto const scene = emptyScene(1.f, 4.f);
  auto const sampler = samplerOf(scene.distance);
  Coordinates const x{0.f, 0.5f, 1.f};
  expectLikeSingles(sampler, samplerOf(scene.distance), x, x, x);
  auto const tile = scene.distance.tileData<float>(scene.layout.tileAccessor().addTile(0, 0, 0, 7));
  for (std::size_t c = 0; c < tile.count; ++c) tile.data[c] = static_cast<float>(c);
  expectLikeSingles(sampler, samplerOf(scene.distance), x, x, x);
}

TEST(SampleGrid, IsZeroForAnotherTypeAndWithoutASampler) {
  auto const scene = emptyScene(1.f, 4.f);
  auto const other =
      addChannel<orlen::Math::vec<3, float>>(scene.server, scene.volume, "velocity", Vec3(1.f));
  float const x = 0.f;
  for (auto const& sampler : {samplerOf(other), API::VoxelSampler()}) {
    float value = 9.f;
    API::sampleGrid(sampler, {&x, &x, &x, 1, 1, 1}, &value);
    EXPECT_EQ(value, 0.f);
  }
}

}  // namespace
