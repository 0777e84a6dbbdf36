#pragma once

#include <vector>

#include "core/channel_item.h"
#include "levelset/construction.h"

namespace Velmor::Host {

/// A point channel and the voxel channel of the same type that it is carried onto.
struct CarriedChannel {
  API::PointChannelItem* input;
  API::VoxelChannelItem* output;
};

/// Gives every voxel of the outputs' leaf tiles the mean of the particles around,
/// with the weights of the surface, or where they end the value of the nearest
/// particle; the background where there is none. Values that are not finite count
/// as 0.
void carry(Particles const& particles, Construction const& construction,
           std::vector<CarriedChannel> const& channels);

}  // namespace Velmor::Host
