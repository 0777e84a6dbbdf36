#include "mesh_writer.h"

#include "writers/extension.h"

namespace Velmor::Tool {

VertexValues const* textureOf(Mesh const& mesh) {
  for (auto const& attribute : mesh.attributes) {
    if (attribute.name == "uv" && attribute.components >= 2 && !attribute.integer) {
      return &attribute;
    }
  }
  return nullptr;
}

std::vector<MeshFormat> const& meshFormats() {
  static std::vector<MeshFormat> const formats = {
      {"ply", "PLY", writePly, true, true, true, true},
      {"obj", "OBJ", writeObj, true, true, false, true},
      {"stl", "STL", writeStl, false, false, false, false}};
  return formats;
}

MeshFormat const& meshFormat(std::string const& path) { return chooseFormat(meshFormats(), path); }

}  // namespace Velmor::Tool
