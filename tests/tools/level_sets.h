#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Velmor::Test {

/// What meshing one level set of a file gave.
struct LevelSetResult {
  std::string channel;
  std::string error;  ///< of loading; the rest is empty then
  std::string mode, reason;
  std::size_t vertices = 0, triangles = 0, openEdges = 0;
  std::size_t duplicates = 0;  ///< vertices at the place of another
  std::size_t notFinite = 0;   ///< vertices
  double farthest = 0;         ///< voxels from a vertex to the zero set of the interpolated field
};

/// The .vdb files below a folder, as paths relative to it, sorted. Empty where
/// the folder is absent.
std::vector<std::string> vdbFiles(std::string const& folder);

/// Meshes every float level set of a file as `velmor mesh` does by default.
/// Files that hold none, or cannot be read, give an empty list.
std::vector<LevelSetResult> meshLevelSets(std::string const& file);

}  // namespace Velmor::Test
