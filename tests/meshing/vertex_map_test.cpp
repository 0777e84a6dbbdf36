#include "meshing/vertex_map.h"

#include <gtest/gtest.h>

#include <random>

namespace Velmor::Processing {

using Point = orlen::Math::vec<3, float>;

TEST(VertexMap, HashesTheBitsOfAPosition) {
  EXPECT_EQ(hashPosition({1.f, 2.f, 3.f}), 0x3b43b4edu);
  EXPECT_EQ(hashPosition({0.f, 0.f, 0.f}), 0u);
  EXPECT_EQ(hashPosition({-1.f, 0.5f, 2.f}), 0x348348d2u);
  EXPECT_EQ(hashPosition({0.1f, 0.2f, 0.3f}), 0x42e2490fu);
}

TEST(VertexMap, FindsWhatItHoldsThroughAllItsGrowth) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> coordinate(-10.f, 10.f);
  std::vector<Point> points;
  VertexMap map;
  for (std::uint32_t n = 0; n < 20000; ++n) {
    points.push_back({coordinate(random), coordinate(random), coordinate(random)});
    map.reserve(1);
    EXPECT_EQ(map.findOrInsert(points[n], scatteredHash(points[n]), n), n);
  }
  map.reserve(1);
  for (std::uint32_t n = 0; n < 20000; ++n) {
    ASSERT_EQ(map.findOrInsert(points[n], scatteredHash(points[n]), 99999u), n);
  }
}

TEST(VertexMap, TellsPositionsOfOneHashApart) {
  // 11 units in y's bits and -11 in x's cancel.
  Point const a(1.f, 2.f, 3.f);
  Point const b(std::bit_cast<float>(std::bit_cast<std::uint32_t>(1.f) - 11u),
                std::bit_cast<float>(std::bit_cast<std::uint32_t>(2.f) + 1u), 3.f);
  ASSERT_EQ(hashPosition(a), hashPosition(b));
  VertexMap map;
  map.reserve(2);
  EXPECT_EQ(map.findOrInsert(a, scatteredHash(a), 0), 0u);
  EXPECT_EQ(map.findOrInsert(b, scatteredHash(b), 1), 1u);
  EXPECT_EQ(map.findOrInsert(a, scatteredHash(a), 2), 0u);
}

}  // namespace Velmor::Processing
