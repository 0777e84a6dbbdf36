#pragma once

#include <string>
#include <vector>

#include "mesh.h"
#include "output.h"

namespace Velmor::Tool {

/// A file format for meshes. One source file each.
struct MeshFormat {
  char const* extension;  ///< without the dot
  char const* name;
  /// Writes the whole file, vertices in world space.
  void (*write)(Mesh const& mesh, OutputFile& out);
  bool doubles;  ///< whether it can hold them
};

void writePly(Mesh const& mesh, OutputFile& out);
void writeObj(Mesh const& mesh, OutputFile& out);
void writeStl(Mesh const& mesh, OutputFile& out);

/// All formats, the one for outputs without a name of their own first.
std::vector<MeshFormat> const& meshFormats();

/// The format of a path by its extension, in any case; of a pipe or a device
/// without one the first. Throws a `Failure` of code `Usage` that lists the
/// extensions for all others.
MeshFormat const& meshFormat(std::string const& path);

}  // namespace Velmor::Tool
