#include "meshing/partial_mesh.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using Point = orlen::Math::vec<3, float>;
using Triangle = orlen::Math::vec<3, int>;

// Points of a lattice of `edge` points a side, no two of a mesh the same, and
// triangles between them. Every fifth lattice point belongs to no other mesh.
PartialMesh randomMesh(std::mt19937& random, int edge, int owner, int owners) {
  PartialMesh mesh;
  int const all = edge * edge * edge;
  for (int n = 0; n < all; ++n) {
    bool const shared = n % 5 != 0;
    if (shared ? random() % 2 == 0 : n / 5 % owners != owner) continue;
    mesh.points.add({static_cast<float>(n % edge) - 2.f, static_cast<float>(n / edge % edge),
                     static_cast<float>(n / edge / edge)});
    mesh.meetings.push_back(shared ? 3 : 0);
  }
  auto const count = static_cast<unsigned>(mesh.points.count());
  for (unsigned t = 0; t < 2 * count; ++t) {
    auto const corner = [&] { return static_cast<int>(random() % count); };
    mesh.triangles.add({corner(), corner(), corner()});
  }
  return mesh;
}

std::vector<JoinedMesh> joined(std::size_t triangles, std::vector<PartialMesh> const& meshes) {
  std::vector<JoinedMesh> all;
  for (auto const& mesh : meshes) {
    all.push_back({std::make_shared<PartialMesh const>(mesh), triangles});
    triangles += mesh.triangles.count();
  }
  return all;
}

// One mesh after the other, every position looked up.
PartialMesh weldedOneByOne(PartialMesh own, std::vector<PartialMesh> const& meshes) {
  std::map<std::array<float, 3>, int> known;
  auto const key = [](Point const& p) { return std::array{p.x, p.y, p.z}; };
  for (std::size_t i = 0; i < own.points.count(); ++i) {
    known.emplace(key(own.points[i]), static_cast<int>(i));
  }
  for (auto const& mesh : meshes) {
    std::vector<int> numbers;
    for (auto const& point : mesh.points) {
      auto const [at, fresh] = known.emplace(key(point), static_cast<int>(own.points.count()));
      if (fresh) own.points.add(point);
      numbers.push_back(at->second);
    }
    auto const number = [&](int local) { return numbers[static_cast<std::size_t>(local)]; };
    for (auto const& t : mesh.triangles) {
      own.triangles.add({number(t.x), number(t.y), number(t.z)});
    }
  }
  return own;
}

void expectWelded(PartialMesh own, std::vector<PartialMesh> const& meshes) {
  auto const expected = weldedOneByOne(own, meshes);
  weldMeshes(own, joined(own.triangles.count(), meshes));
  EXPECT_EQ(own.points, expected.points);
  EXPECT_EQ(own.triangles, expected.triangles);
}

// The larger lattice has more shared points than one table is made for, by far.
TEST(PartialMesh, IsWeldedAsIfOneByOne) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  for (int const edge : {1, 2, 5, 40}) {
    std::vector<PartialMesh> meshes;
    for (int owner = 1; owner < 4; ++owner) meshes.push_back(randomMesh(random, edge, owner, 4));
    SCOPED_TRACE(testing::Message() << "edge " << edge);
    expectWelded(randomMesh(random, edge, 0, 4), meshes);
    expectWelded({}, meshes);
  }
}

TEST(PartialMesh, StaysAsItIsBesideNoOther) {
  std::mt19937 random(1);
  expectWelded(randomMesh(random, 5, 0, 1), {});
  expectWelded(randomMesh(random, 5, 0, 1), {PartialMesh{}});
}

// Both zeros are one position, as floats compare.
TEST(PartialMesh, TakesZerosOfBothSignsForOne) {
  PartialMesh own, other;
  own.points = {{0.f, 1.f, 2.f}};
  other.points = {{-0.f, 1.f, 2.f}, {0.f, 1.f, 2.5f}};
  own.meetings = {1};
  other.meetings = {1, 1};
  other.triangles = {{0, 1, 0}};
  weldMeshes(own, joined(0, {other}));
  ASSERT_EQ(own.points.count(), 2u);
  EXPECT_EQ(own.triangles, (API::Array<Triangle>{{0, 1, 0}}));
}

TEST(PartialMesh, KeepsEachPointThatIsNoNumber) {
  float const nan = std::numeric_limits<float>::quiet_NaN();
  PartialMesh own, other;
  own.points = {{nan, 0.f, 0.f}};
  own.meetings = {0};
  own.triangles = {{0, 0, 0}};
  other.points = {{nan, 0.f, 0.f}, {1.f, 0.f, 0.f}};
  other.meetings = {0, 2};
  other.triangles = {{0, 1, 0}};
  weldMeshes(own, joined(1, {other, other}));
  EXPECT_EQ(own.points.count(), 4u);
  EXPECT_EQ(own.triangles, (API::Array<Triangle>{{0, 0, 0}, {1, 2, 1}, {3, 2, 3}}));
}

}  // namespace
}  // namespace Velmor::Processing
