#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>

#include "mesh_writer.h"

namespace Velmor::Tool {

namespace {

std::string property(char const* type, std::string const& name) {
  return std::string("property ") + type + " " + name + "\n";
}

// White space would end a name.
std::string propertyName(std::string name) {
  for (char& c : name) {
    if (static_cast<unsigned char>(c) <= ' ') c = '_';
  }
  return name;
}

std::string propertiesOf(Mesh const& mesh) {
  std::string text;
  if (!mesh.normals.empty()) {
    for (auto const* name : {"nx", "ny", "nz"}) text += property("float", name);
  }
  for (auto const& attribute : mesh.attributes) {
    char const* const type = attribute.integer ? "int" : "float";
    auto const name = propertyName(attribute.name);
    if (attribute.components == 1) {
      text += property(type, name);
    } else if (name == "uv" && attribute.components == 2) {
      text += property(type, "u") + property(type, "v");
    } else {
      for (int c = 0; c < attribute.components; ++c) {
        text += property(type, name + "_" + std::to_string(c));
      }
    }
  }
  return text;
}

template <class T>
void writeVertices(Mesh const& mesh, OutputFile& out) {
  for (std::size_t v = 0; v < mesh.vertices.count(); ++v) {
    out.writeValue(std::array<T, 3>{static_cast<T>(mesh.world(v, 0)),
                                    static_cast<T>(mesh.world(v, 1)),
                                    static_cast<T>(mesh.world(v, 2))});
    if (!mesh.normals.empty()) {
      auto const& n = mesh.normals[v];
      out.writeValue(std::array<float, 3>{n.x, n.y, n.z});
    }
    for (auto const& attribute : mesh.attributes) {
      auto const count = static_cast<std::size_t>(attribute.components);
      out.write(attribute.words.data() + v * count, count * sizeof(std::uint32_t));
    }
  }
}

}  // namespace

// Binary PLY is written in this machine's own byte order.
void writePly(Mesh const& mesh, OutputFile& out) {
  bool const doubles = needsDoubles(mesh);
  char const* const type = doubles ? "double" : "float";
  std::string const order =
      std::endian::native == std::endian::little ? "binary_little_endian" : "binary_big_endian";
  out.write("ply\nformat " + order + " 1.0\nelement vertex " +
            std::to_string(mesh.vertices.count()) + "\n" + property(type, "x") +
            property(type, "y") + property(type, "z") + propertiesOf(mesh) + "element face " +
            std::to_string(mesh.triangles.count()) +
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
