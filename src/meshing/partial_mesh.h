#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "velmorapi/array.h"
#include "velmorapi/math.h"

namespace Velmor::Processing {

/// The mesh of the tiles that one worker visited, welded within itself.
struct PartialMesh {
  API::Array<orlen::Math::vec<3, float>> points;
  API::Array<orlen::Math::vec<3, int>> triangles;
  /// Of each point, not 0 if it may also occur in other meshes.
  std::vector<std::uint8_t> meetings;
};

/// A partial mesh and the place of its triangles in the whole mesh.
struct JoinedMesh {
  std::shared_ptr<PartialMesh const> mesh;
  std::size_t triangleOffset = 0;
};

/// Appends meshes to `own`: each distinct position gets one index, in the order
/// in which the points of `own` and then of the meshes bring it, and the
/// triangles of each mesh go to their place. Points whose `meetings` is 0 are not
/// searched for; those with a NaN, which equal no other, must be among them. Runs
/// in parallel; the result does not depend on it.
void weldMeshes(PartialMesh& own, std::vector<JoinedMesh> const& meshes);

}  // namespace Velmor::Processing
