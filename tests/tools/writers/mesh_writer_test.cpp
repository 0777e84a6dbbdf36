#include "writers/mesh_writer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "failure.h"
#include "support/cache_folder.h"
#include "tools/run.h"

namespace Velmor::Tool {
namespace {

Mesh triangle() {
  Mesh mesh;
  mesh.vertices = {{0, 0, 0}, {0.1f, 0, 0}, {0, 2, 0}};
  mesh.triangles = {{0, 1, 2}};
  return mesh;
}

std::string written(Mesh const& mesh, std::string const& extension) {
  Test::CacheFolder const folder;
  auto const path = folder.path().str() + "/mesh." + extension;
  OutputFile out(path);
  meshFormat(path).write(mesh, out);
  out.commit();
  return Test::readFile(path);
}

template <class T>
T valueAt(std::string const& bytes, std::size_t at) {
  T value{};
  if (at + sizeof value > bytes.size()) return value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

TEST(Ply, HoldsVerticesAndFacesInBinary) {
  std::string const header =
      "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\n"
      "property float y\nproperty float z\nelement face 1\n"
      "property list uchar int vertex_indices\nend_header\n";
  auto const bytes = written(triangle(), "ply");
  ASSERT_EQ(bytes.substr(0, header.size()), header);
  ASSERT_EQ(bytes.size(), header.size() + 3 * 12 + 13);
  EXPECT_EQ(valueAt<float>(bytes, header.size() + 12), 0.1f);
  auto const face = header.size() + 36;
  EXPECT_EQ(bytes[face], 3);
  EXPECT_EQ((valueAt<std::array<std::int32_t, 3>>(bytes, face + 1)),
            (std::array<std::int32_t, 3>{0, 1, 2}));
}

TEST(Ply, HoldsDoublesWhereFloatsAreTooCoarse) {
  auto mesh = triangle();
  mesh.voxelSize = 0.1f;
  mesh.origin = {1e6, -2e6, 0.25};
  auto const bytes = written(mesh, "ply");
  auto const data = bytes.find("end_header\n") + 11;
  EXPECT_NE(bytes.find("property double x\n"), std::string::npos);
  EXPECT_EQ(valueAt<double>(bytes, data + 24), 1e6 + static_cast<double>(0.1f));
  EXPECT_EQ(valueAt<double>(bytes, data + 32), -2e6);
}

TEST(Obj, WritesNumbersThatReadBackEqual) {
  EXPECT_EQ(written(triangle(), "obj"), "v 0 0 0\nv 0.1 0 0\nv 0 2 0\nf 1 2 3\n");
}

TEST(Obj, AddsTheOrigin) {
  auto mesh = triangle();
  mesh.origin = {1, 0, -1};
  EXPECT_EQ(written(mesh, "obj"), "v 1 0 -1\nv 1.1 0 -1\nv 1 2 -1\nf 1 2 3\n");
}

TEST(Stl, HoldsNormalsAndCorners) {
  auto const bytes = written(triangle(), "stl");
  ASSERT_EQ(bytes.size(), 80u + 4 + 50);
  EXPECT_NE(bytes.substr(0, 5), "solid");  // readers take that for a text file
  EXPECT_EQ(valueAt<std::uint32_t>(bytes, 80), 1u);
  EXPECT_EQ((valueAt<std::array<float, 12>>(bytes, 84)),
            (std::array<float, 12>{0, 0, 1, 0, 0, 0, 0.1f, 0, 0, 0, 2, 0}));
}

TEST(MeshFormat, IsChosenByExtensionInAnyCase) {
  EXPECT_STREQ(meshFormat("dir.stl/a.PLY").name, "PLY");
  EXPECT_STREQ(meshFormat("a.b.obj").name, "OBJ");
  EXPECT_STREQ(meshFormat("-").name, "PLY");
  EXPECT_STREQ(meshFormat("/dev/null").name, "PLY");
}

TEST(MeshFormat, RefusesOtherExtensionsAsWrongUsage) {
  for (auto const* path : {"a.fbx", "a", ".ply", "dir.ply/a"}) {
    try {
      meshFormat(path);
      ADD_FAILURE() << path;
    } catch (Failure const& failure) {
      EXPECT_EQ(failure.code(), ExitCode::Usage) << path;
      EXPECT_NE(std::string(failure.what()).find(".ply, .obj, .stl"), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace Velmor::Tool
