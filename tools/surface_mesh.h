#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <cstddef>
#include <string>

#include "mesh.h"
#include "processing/surface.h"
#include "session.h"

namespace Velmor::Tool {

/// What a mesh of a surface is to hold.
struct MeshContent {
  unsigned int subdivisions = 0;
  std::string attributes;  ///< channel names between commas
  bool normals = false;
};

/// Adds --subdivisions, --attributes and --normals to a verb.
void addMeshContent(CLI::App& verb, MeshContent& content);

struct SurfaceMesh {
  Mesh mesh;
  std::size_t degenerate = 0;  ///< triangles without area that were left out
  std::size_t open = 0;        ///< edges
};

/// The zero set of a surface's distance, with the channels asked for sampled at
/// its vertices and the distance's gradient as normals. `subject` is what a
/// `Failure` (of code `Input`, for a channel that there is not) names. Safe from
/// several threads for different surfaces.
SurfaceMesh meshOf(Processing::Surface const& surface, std::array<double, 3> const& origin,
                   MeshContent const& content, std::string const& subject);

/// Why a mesh is empty: which values the distance has.
std::string whyNoSurface(API::VoxelChannel const& distance);

/// Writes a mesh in the format of the path's extension; warns of what the format
/// cannot hold.
void writeMesh(Session& session, Mesh const& mesh, std::string const& path);

}  // namespace Velmor::Tool
