#pragma once

#include "processing/status.h"
#include "velmorapi/component.h"

namespace Velmor::Processing {

/// Whether the handle refers to a channel of single floats.
bool isFloatChannel(API::Channel const& channel);

/// Writes "Invalid <role> channel '<name>'. Available channels are:" and, a line
/// each in the component's order, the float channels that could have been meant.
void writeInvalidChannel(Stream& out, char const* role, API::String const& name,
                         API::VoxelComponent const& voxels);

}  // namespace Velmor::Processing
