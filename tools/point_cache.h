#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "readers/particles.h"

namespace Velmor::Tool {

/// Where the points of an object lie: the same for all its frames, or its
/// surface would flicker.
struct PointGrid {
  double voxelSize = 1.;           ///< exactly a float
  std::array<double, 3> origin{};  ///< exactly floats; the world position of voxel 0
};

/// The grid for particles like these. Without a voxel size the one at which a
/// filled voxel holds eight particles; 1 where that cannot be measured. The
/// origin is 0 as long as floats can tell places apart within a voxel well
/// enough, else the particles' middle. Nothing if no position is finite.
std::optional<PointGrid> measureGrid(Particles const& particles, std::optional<double> voxelSize);

/// What surfaces want to know of an object besides its points.
struct PointObject {
  std::string name;
  std::optional<float> dropletThreshold;
  bool spatialAdaptivity = false;
};

struct StoredPoints {
  std::size_t count = 0;
  std::size_t notFinite = 0;  ///< left out: a position that is no number
  std::size_t outside = 0;    ///< left out: beyond the reach of the voxels
  std::vector<std::string> channels;
};

/// Writes particles as one cache file, whole or not at all. Throws a `Failure`
/// of code `Output` where that is impossible.
StoredPoints writePoints(Particles const& particles, PointGrid const& grid,
                         PointObject const& object, std::string const& path);

}  // namespace Velmor::Tool
