#include "mesh_writer.h"

#include "writers/extension.h"

namespace Velmor::Tool {

std::vector<MeshFormat> const& meshFormats() {
  static std::vector<MeshFormat> const formats = {{"ply", "PLY", writePly, true},
                                                  {"obj", "OBJ", writeObj, true},
                                                  {"stl", "STL", writeStl, false}};
  return formats;
}

MeshFormat const& meshFormat(std::string const& path) { return chooseFormat(meshFormats(), path); }

}  // namespace Velmor::Tool
