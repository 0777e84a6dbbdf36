#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "velmorapi/array.h"
#include "velmorapi/math.h"

namespace Velmor::Tool {

/// Values of 1 to 3 components at each vertex of a mesh.
struct VertexValues {
  std::string name;
  int components = 1;
  bool integer = false;
  std::vector<std::uint32_t> words;  ///< the bits of floats or of integers
};

/// A triangle mesh on its way into a file. Vertices lie `origin` further in the
/// world than their numbers say.
struct Mesh {
  API::Array<orlen::Math::vec<3, float>> vertices;
  API::Array<orlen::Math::vec<3, int>> triangles;
  std::array<double, 3> origin{0, 0, 0};
  float voxelSize = 1;
  std::vector<orlen::Math::vec<3, float>> normals;  ///< of length 1; empty, or one per vertex
  std::vector<VertexValues> attributes;

  /// Coordinate `axis` of a vertex in the world.
  double world(std::size_t vertex, int axis) const {
    return static_cast<double>(vertices[vertex][axis]) + origin[static_cast<std::size_t>(axis)];
  }
};

/// Removes the triangles that repeat a vertex. Returns their number.
std::size_t dropDegenerate(Mesh& mesh);

/// The number of edges that are not used equally often in both directions. A
/// closed, consistently oriented surface has none.
std::size_t openEdges(Mesh const& mesh);

/// Whether a float is too coarse for the world coordinates: whether the step
/// between neighbouring floats exceeds a thousandth of a voxel out there, or puts
/// vertices on one place. Only a translation can bring that about.
bool needsDoubles(Mesh const& mesh);

}  // namespace Velmor::Tool
