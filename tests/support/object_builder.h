#pragma once

#include <cmath>
#include <functional>
#include <vector>

#include "velmorhost/scene.h"

namespace Velmor::Test {

using Float2 = orlen::Math::vec<2, float>;
using Float3 = orlen::Math::vec<3, float>;

/// Makes every leaf value a function of its voxel's centre, in voxel units.
template <class T>
void setLeafValues(API::VoxelChannel const& channel, std::function<T(Float3 const&)> const& value) {
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  int const depth = layout.maxDepth();
  for (auto tiles = layout.tileIterator(depth, depth, API::TraversalMode::Serial); tiles.valid();
       tiles.next()) {
    auto const at = accessor.tile(tiles.index()).coord();
    auto const data = channel.tileData<T>(tiles.index());
    for (int k = 0; k < 5; ++k)
      for (int j = 0; j < 5; ++j)
        for (int i = 0; i < 5; ++i)
          data.data[data.offset(i, j, k)] =
              value({static_cast<float>(at.i + i) + 0.5f, static_cast<float>(at.j + j) + 0.5f,
                     static_cast<float>(at.k + k) + 0.5f});
  }
}

/// Builds an object in a state of its own, piece by piece.
class ObjectBuilder {
 public:
  explicit ObjectBuilder(API::String const& name)
      : server_(Host::createStateServer(name + "-state")),
        object_(Host::createObject(server_, name)) {}

  API::Object const& object() const { return object_; }
  API::StateServer const& server() const { return server_; }

  /// A component without tiles.
  API::VoxelComponent voxels(API::String const& name = "volume", float voxelScale = 0.1f) const {
    API::VoxelComponent const component(
        server_.createComponent(API::VoxelComponentType, name, voxelScale));
    object_.addComponent(component);
    return component;
  }

  /// A component with points at the given places, in voxel units.
  API::PointComponent points(std::vector<Float3> const& positions,
                             API::String const& name = "particle", float voxelScale = 0.1f) const {
    API::PointComponent const component(
        server_.createComponent(API::PointComponentType, name, voxelScale));
    object_.addComponent(component);
    Host::setPoints(component, positions);
    return component;
  }

  /// A point channel with one value everywhere.
  template <class T>
  API::PointChannel pointChannel(API::PointComponent const& component, API::String const& name,
                                 T const& value) const {
    API::PointChannel const channel(server_.createChannel(component, API::dataTypeOf<T>, name));
    T* const values = Host::pointData<T>(channel);
    for (std::size_t p = 0; p < component.elementCount(); ++p) values[p] = value;
    return channel;
  }

  /// A voxel channel with one value in all existing tiles.
  template <class T>
  API::VoxelChannel channel(API::VoxelComponent const& component, API::String const& name,
                            T const& value) const {
    API::VoxelChannel const channel(server_.createChannel(component, API::dataTypeOf<T>, name));
    setLeafValues<T>(channel, [&](Float3 const&) { return value; });
    return channel;
  }

  /// The distance to a sphere around `centre`, in world units of the component
  /// (radius and centre in voxels), over tiles that reach three voxels further.
  API::VoxelChannel sphere(API::VoxelComponent const& component, float radius,
                           API::String const& name = "distance",
                           Float3 const& centre = {0.f, 0.f, 0.f}) const {
    int const reach = static_cast<int>(std::ceil(radius)) + 3;
    std::vector<API::TileCoord> cells;
    for (int z = -reach; z <= reach; ++z)
      for (int y = -reach; y <= reach; ++y)
        for (int x = -reach; x <= reach; ++x)
          cells.push_back({x + static_cast<int>(centre.x), y + static_cast<int>(centre.y),
                           z + static_cast<int>(centre.z)});
    API::Layout const layout(component.layout());
    Host::addLeafTiles(layout, cells);
    float const scale = layout.voxelScale();
    API::VoxelChannel const channel(server_.createChannel(component, API::DataType::Float, name));
    // Before the values: a distance of 0 would be taken for the old background.
    channel.setBackgroundValue(5.f * scale);
    Host::setFieldClass(channel, Host::FieldClass::LevelSet);
    setLeafValues<float>(channel, [&](Float3 const& p) {
      auto const d = p - centre;
      return (std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z) - radius) * scale;
    });
    return channel;
  }

 private:
  API::StateServer server_;
  API::Object object_;
};

/// The leaf values of a voxel channel, in tile order.
template <class T>
std::vector<T> leafValues(API::VoxelChannel const& channel) {
  std::vector<T> values;
  API::Layout const layout(channel.layout());
  int const depth = layout.maxDepth();
  for (auto tiles = layout.tileIterator(depth, depth, API::TraversalMode::Serial); tiles.valid();
       tiles.next()) {
    auto const data = channel.tileData<T>(tiles.index());
    values.insert(values.end(), data.data, data.data + data.count);
  }
  return values;
}

}  // namespace Velmor::Test
