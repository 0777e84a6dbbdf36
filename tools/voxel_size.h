#pragma once

#include <vector>

namespace Velmor::Tool {

/// The voxel size at which a filled voxel holds eight particles.
///
/// A first guess is twice the median distance to the nearest neighbour; where
/// the particles fill space it is corrected by counting them in voxels whose six
/// neighbours are occupied. Copies at one place count once. `positions` are x, y,
/// z of each particle and finite. 0 if there are no two different places.
double measureVoxelSize(std::vector<double> const& positions);

}  // namespace Velmor::Tool
