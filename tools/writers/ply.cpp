#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "mesh_writer.h"

namespace Velmor::Tool {

namespace {

template <class T>
void writeVertices(Mesh const& mesh, OutputFile& out) {
  for (std::size_t v = 0; v < mesh.vertices.count(); ++v) {
    out.writeValue(std::array<T, 3>{static_cast<T>(mesh.world(v, 0)),
                                    static_cast<T>(mesh.world(v, 1)),
                                    static_cast<T>(mesh.world(v, 2))});
  }
}

}  // namespace

// Binary PLY is written in this machine's own byte order.
void writePly(Mesh const& mesh, OutputFile& out) {
  bool const doubles = needsDoubles(mesh);
  std::string const type = doubles ? "double" : "float";
  std::string const order =
      std::endian::native == std::endian::little ? "binary_little_endian" : "binary_big_endian";
  out.write("ply\nformat " + order + " 1.0\nelement vertex " +
            std::to_string(mesh.vertices.count()) + "\nproperty " + type + " x\nproperty " + type +
            " y\nproperty " + type + " z\nelement face " + std::to_string(mesh.triangles.count()) +
            "\nproperty list uchar int vertex_indices\nend_header\n");
  if (doubles) {
    writeVertices<double>(mesh, out);
  } else {
    writeVertices<float>(mesh, out);
  }
  for (auto const& t : mesh.triangles) {
    std::array<char, 13> face{3};
    std::array<std::int32_t, 3> const corners{t[0], t[1], t[2]};
    std::memcpy(face.data() + 1, corners.data(), sizeof corners);
    out.writeValue(face);
  }
}

}  // namespace Velmor::Tool
