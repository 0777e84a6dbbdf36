#pragma once

#include "support/scene.h"

namespace Velmor::Test {

/// A layout with two leaf tiles, and as many channels as are asked for.
struct MixedChannels {
  MixedChannels() { Host::addLeafTiles(scene.layout, {{0, 0, 0}, {40, 0, 0}}); }
  template <class T>
  API::VoxelChannel add(char const* name, T const& value) const {
    return addChannel<T>(scene.server, scene.volume, name, value);
  }
  Scene scene = emptyScene();
};

/// A value from the middle of the first leaf tile or of one of its ancestors.
template <class T>
T valueAt(API::Channel const& channel, int depth = 7) {
  API::Layout const layout(channel.layout());
  auto const tile = layout.tileAccessor().tile(0, 0, 0, depth);
  return channel.tileData<T>(tile.index()).data[62];
}

}  // namespace Velmor::Test
