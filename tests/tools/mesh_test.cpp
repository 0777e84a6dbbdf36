#include "mesh.h"

#include <gtest/gtest.h>

namespace Velmor::Tool {
namespace {

Mesh tetrahedron() {
  Mesh mesh;
  mesh.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  mesh.triangles = {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {0, 3, 2}};
  return mesh;
}

TEST(OpenEdges, AClosedSurfaceHasNone) { EXPECT_EQ(openEdges(tetrahedron()), 0u); }

TEST(OpenEdges, AMissingTriangleOpensItsThreeEdges) {
  auto mesh = tetrahedron();
  mesh.triangles.resize(3);
  EXPECT_EQ(openEdges(mesh), 3u);
}

TEST(OpenEdges, ATurnedTriangleOpensItsThreeEdges) {
  auto mesh = tetrahedron();
  mesh.triangles[0] = {0, 1, 2};
  EXPECT_EQ(openEdges(mesh), 3u);
}

TEST(OpenEdges, AnEdgeUsedTwiceInBothDirectionsIsClosed) {
  auto mesh = tetrahedron();
  // A second tetrahedron on the edge from vertex 0 to vertex 1.
  mesh.vertices.add({0, -1, 0});
  mesh.vertices.add({0, 0, -1});
  mesh.triangles.add({0, 4, 1});
  mesh.triangles.add({0, 1, 5});
  mesh.triangles.add({1, 4, 5});
  mesh.triangles.add({0, 5, 4});
  EXPECT_EQ(openEdges(mesh), 0u);
}

TEST(OpenEdges, AnEmptyMeshHasNone) { EXPECT_EQ(openEdges(Mesh{}), 0u); }

TEST(DropDegenerate, TakesTrianglesThatRepeatAVertex) {
  auto mesh = tetrahedron();
  mesh.triangles.add({1, 1, 2});
  mesh.triangles.add({1, 2, 1});
  mesh.triangles.add({2, 1, 1});
  EXPECT_EQ(dropDegenerate(mesh), 3u);
  EXPECT_EQ(mesh.triangles, tetrahedron().triangles);
}

TEST(NeedsDoubles, OnlyWhereATranslationCostsAThousandthOfAVoxel) {
  auto mesh = tetrahedron();
  mesh.voxelSize = 0.1f;
  EXPECT_FALSE(needsDoubles(mesh));
  mesh.origin = {500, 0, 0};  // floats there are 3e-5 apart
  EXPECT_FALSE(needsDoubles(mesh));
  mesh.origin = {1500, 0, 0};  // 1.2e-4
  EXPECT_TRUE(needsDoubles(mesh));
}

TEST(NeedsDoubles, WhereVerticesWouldFallTogether) {
  auto mesh = tetrahedron();
  mesh.voxelSize = 0.1f;
  mesh.vertices[1] = mesh.vertices[0];
  mesh.vertices[1].x += 1e-5f;
  mesh.origin = {1, 0, 0};
  EXPECT_FALSE(needsDoubles(mesh));
  mesh.origin = {500, 0, 0};
  EXPECT_TRUE(needsDoubles(mesh));
}

TEST(NeedsDoubles, NotForLargeCoordinatesOfTheCacheItself) {
  auto mesh = tetrahedron();
  mesh.voxelSize = 1e-6f;
  mesh.vertices[0] = {1e6f, 0, 0};
  EXPECT_FALSE(needsDoubles(mesh));
}

}  // namespace
}  // namespace Velmor::Tool
