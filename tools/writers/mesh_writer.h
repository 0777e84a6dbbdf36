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
  bool doubles;     ///< whether it can hold them
  bool normals;     ///< whether it can hold those of vertices
  bool attributes;  ///< whether it can hold any values at vertices
  bool uv;          ///< whether it can at least hold texture coordinates
};

/// Attributes as properties: "uv" as u and v, others as name, or name_0 and so on.
void writePly(Mesh const& mesh, OutputFile& out);
/// "uv" as vt, other attributes not at all.
void writeObj(Mesh const& mesh, OutputFile& out);
void writeStl(Mesh const& mesh, OutputFile& out);

/// The attribute that a mesh has its texture coordinates in; null if there is none.
VertexValues const* textureOf(Mesh const& mesh);

/// All formats, the one for outputs without a name of their own first.
std::vector<MeshFormat> const& meshFormats();

/// The format of a path by its extension, in any case; of a pipe or a device
/// without one the first. Throws a `Failure` of code `Usage` that lists the
/// extensions for all others.
MeshFormat const& meshFormat(std::string const& path);

}  // namespace Velmor::Tool
