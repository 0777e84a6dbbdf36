#pragma once

#include <vector>

#include "fakehost/fakehost.h"

namespace Velmor::FakeHost {

/// A voxel component with leaf tiles; the layout follows the script in force.
struct Scene {
  API::StateServer server = createStateServer("state");
  API::VoxelComponent component{server.createComponent(API::VoxelComponentType, "volume", 1.f)};
  API::Layout layout{component.layout()};

  /// A channel with one value in all elements of all tiles there are. Takes the
  /// script's shape of channels.
  template <class T>
  API::VoxelChannel channel(API::String const& name, T const& value) const {
    API::VoxelChannel const made(server.createChannel(component, API::dataTypeOf<T>, name));
    made.setBackgroundValue(value);
    return made;
  }
  API::TreeIndex leaf(int i, int j, int k) const {
    return addTile(layout, layout.maxDepth(), {i, j, k});
  }
};

/// All elements of a tile, halo included.
template <class T>
std::vector<T> elements(API::Channel const& channel, API::TreeIndex const& index) {
  auto const tile = channel.tileData<T>(index);
  return std::vector<T>(tile.data, tile.data + tile.count);
}

}  // namespace Velmor::FakeHost
