#include "meshing/marching_cubes_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace Velmor::Processing::MarchingCubesTables {

namespace {

std::vector<int> rowOf(unsigned cube) {
  std::vector<int> row;
  for (int entry = 0; entry < 16; ++entry) {
    auto const edge = static_cast<unsigned>((triangleRows[cube] >> (4 * entry)) & 15u);
    row.push_back(edge == rowEnd ? -1 : static_cast<int>(edge));
  }
  return row;
}

int component(orlen::Math::vec<3, int> const& v, int axis) { return v[axis]; }

// Whether an edge of the cube lies on its lower (side 0) or upper face across `axis`.
bool onFace(int edge, int axis, int side) {
  auto const& e = edges[static_cast<std::size_t>(edge)];
  return component(corners[static_cast<std::size_t>(e.from)], axis) == side &&
         component(corners[static_cast<std::size_t>(e.to)], axis) == side;
}

using Segments = std::set<std::pair<int, int>>;

// The directed sides of a case's triangles that no other of its triangles uses the other way.
Segments outline(unsigned cube) {
  std::multiset<std::pair<int, int>> sides;
  auto const row = rowOf(cube);
  for (std::size_t t = 0; row[t] >= 0; t += 3) {
    for (std::size_t s = 0; s < 3; ++s) sides.insert({row[t + s], row[t + (s + 1) % 3]});
  }
  Segments open;
  for (auto const& [a, b] : sides) {
    if (sides.count({b, a}) == 0) open.insert({a, b});
  }
  return open;
}

// The edge at the same place of the neighbouring cube across `axis`.
int acrossFace(int edge, int axis) {
  for (int other = 0; other < 12; ++other) {
    auto const& e = edges[static_cast<std::size_t>(edge)];
    auto const& o = edges[static_cast<std::size_t>(other)];
    auto same = [&](int a, int b) {
      auto moved = corners[static_cast<std::size_t>(a)];
      moved[axis] = 1 - moved[axis];
      return moved == corners[static_cast<std::size_t>(b)];
    };
    if (same(e.from, o.from) && same(e.to, o.to)) return other;
  }
  return -1;
}

unsigned faceSigns(unsigned cube, int axis, int side) {
  unsigned signs = 0;
  for (unsigned c = 0; c < 8; ++c) {
    if (component(corners[c], axis) != side || ((cube >> c) & 1u) == 0) continue;
    int const u = component(corners[c], (axis + 1) % 3), v = component(corners[c], (axis + 2) % 3);
    signs |= 1u << (u + 2 * v);
  }
  return signs;
}

}  // namespace

TEST(MarchingCubesTables, HoldTheLandmarksOfTheCommonForm) {
  EXPECT_EQ(edgeMasks[1], 0x109);
  EXPECT_EQ(edgeMasks[2], 0x203);
  auto const starts = [](unsigned cube, std::vector<int> const& entries) {
    auto const row = rowOf(cube);
    return std::equal(entries.begin(), entries.end(), row.begin());
  };
  EXPECT_TRUE(starts(0, {-1}));
  EXPECT_TRUE(starts(1, {0, 8, 3, -1}));
  EXPECT_TRUE(starts(3, {1, 8, 3, 9, 8, 1, -1}));
  EXPECT_TRUE(starts(254, {0, 3, 8, -1}));
  EXPECT_TRUE(starts(255, {-1}));
}

TEST(MarchingCubesTables, EdgesRunUpwardsAlongTheirAxis) {
  for (auto const& edge : edges) {
    auto const step =
        corners[static_cast<std::size_t>(edge.to)] - corners[static_cast<std::size_t>(edge.from)];
    for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(step[axis], axis == edge.axis ? 1 : 0);
  }
}

TEST(MarchingCubesTables, EachRowUsesExactlyTheEdgesWhoseEndsDiffer) {
  for (unsigned cube = 0; cube < 256; ++cube) {
    auto const row = rowOf(cube);
    EXPECT_EQ(row.back(), -1) << cube;
    auto const end = std::find(row.begin(), row.end(), -1);
    EXPECT_EQ((end - row.begin()) % 3, 0) << cube;
    EXPECT_TRUE(std::all_of(end, row.end(), [](int e) { return e == -1; })) << cube;
    unsigned used = 0;
    std::for_each(row.begin(), end, [&](int e) { used |= 1u << e; });
    EXPECT_EQ(used, edgeMasks[cube]) << cube;
  }
}

TEST(MarchingCubesTables, OpenSidesLieOnFaces) {
  for (unsigned cube = 0; cube < 256; ++cube) {
    for (auto const& [a, b] : outline(cube)) {
      bool shared = false;
      for (int axis = 0; axis < 3; ++axis) {
        for (int side = 0; side < 2; ++side) {
          shared = shared || (onFace(a, axis, side) && onFace(b, axis, side));
        }
      }
      EXPECT_TRUE(shared) << "case " << cube << ", edges " << a << " and " << b;
    }
  }
}

TEST(MarchingCubesTables, NeighbouringCubesMatchOnEveryFaceConfiguration) {
  int configurations = 0;
  for (int axis = 0; axis < 3; ++axis) {
    for (unsigned signs = 0; signs < 16; ++signs) {
      // What every cube leaves open on such a face, as the upper cube numbers the edges.
      std::set<Segments> seen;
      for (unsigned cube = 0; cube < 256; ++cube) {
        for (int side = 0; side < 2; ++side) {
          if (faceSigns(cube, axis, side) != signs) continue;
          Segments segments;
          for (auto const& [a, b] : outline(cube)) {
            if (!onFace(a, axis, side) || !onFace(b, axis, side)) continue;
            if (side == 0) {
              segments.insert({a, b});
            } else {
              segments.insert({acrossFace(b, axis), acrossFace(a, axis)});
            }
          }
          seen.insert(segments);
        }
      }
      EXPECT_EQ(seen.size(), 1u) << "axis " << axis << ", signs " << signs;
      ++configurations;
    }
  }
  EXPECT_EQ(configurations, 48);
}

TEST(MarchingCubesTables, AgreeWithThePublishedListing) {
  std::ifstream listing(VELMOR_SHARED_DATA "/marching_cubes_tables.csv");
  if (!listing) GTEST_SKIP() << "no marching_cubes_tables.csv in " VELMOR_SHARED_DATA;
  unsigned rows = 0;
  for (std::string line; std::getline(listing, line);) {
    if (line.empty() || line.front() == '#') continue;
    std::istringstream fields(line);
    std::vector<int> numbers;
    for (std::string field; std::getline(fields, field, ',');) {
      numbers.push_back(std::stoi(field, nullptr, 0));
    }
    ASSERT_EQ(numbers.size(), 18u) << line;
    auto const cube = static_cast<unsigned>(numbers[0]);
    ASSERT_LT(cube, 256u);
    EXPECT_EQ(edgeMasks[cube], numbers[1]) << line;
    EXPECT_EQ(rowOf(cube), std::vector<int>(numbers.begin() + 2, numbers.end())) << line;
    ++rows;
  }
  EXPECT_EQ(rows, 256u);
}

}  // namespace Velmor::Processing::MarchingCubesTables
