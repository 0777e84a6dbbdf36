#pragma once

#include "velmorapi/channel.h"
#include "velmorapi/layout.h"

namespace Velmor::Processing {

/// What the passes over an ocean's mask share. `liquid` and `mask` are float
/// channels of `layout`; the mask is 1 in the ocean.
struct OceanScene {
  API::Layout layout;
  API::Channel liquid;
  API::Channel mask;
  float height;      ///< of the plane, world units
  float voxelScale;  ///< of the layout
  int width;         ///< voxels per edge of a leaf tile, 1 to 5
  int maxDepth;
};

/// Marks the open voxels above the bottom of the tile tree, column by column,
/// up to five voxels above the plane or the first liquid.
void seedOcean(OceanScene const& scene);

/// Grows the mask from its seeds through all that is open below the plane.
void floodOcean(OceanScene const& scene);

/// Lets the mask fall off from its border along the plane, over `radius` world
/// units; `radius` must be above 0.
void widenOcean(OceanScene const& scene, float radius);

}  // namespace Velmor::Processing
