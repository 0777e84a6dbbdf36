#include "shapes/candidates.h"

namespace Velmor::Processing {

bool isFloatChannel(API::Channel const& channel) {
  return channel.valid() && channel.dataType() == API::DataType::Float;
}

void writeInvalidChannel(Stream& out, char const* role, API::String const& name,
                         API::VoxelComponent const& voxels) {
  out << "Invalid " << role << " channel '" << name << "'. Available channels are:\n";
  for (auto const& channel : voxels.channels()) {
    if (isFloatChannel(channel)) out << "    " << channel.name() << "\n";
  }
}

}  // namespace Velmor::Processing
