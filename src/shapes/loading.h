#pragma once

#include "processing/shape.h"

namespace Velmor::Processing {

/// What loading leaves for the shape; empty from where it stopped.
struct LoadedObject {
  API::PointComponent points;
  API::VoxelComponent voxels;
  API::String activeGraphName;  ///< of the graph to remove with the shape
  API::String tempFolder;       ///< to delete with the shape
  bool found = false;           ///< whether the object was there, with or without components
};

/// Finds the object that the parameters ask for, in memory or in files, loads
/// its frame and brings its velocities to world units per frame. The first
/// failure is written into `status` and ends the loading.
LoadedObject loadObject(ShapeParameters const& parameters, Status& status);

}  // namespace Velmor::Processing
