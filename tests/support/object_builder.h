#pragma once

#include <algorithm>
#include <vector>

#include "support/scene.h"

namespace Velmor::Test {

using Float2 = orlen::Math::vec<2, float>;
using Float3 = Vec3;

/// Builds an object of a name of its own, component by component.
class ObjectBuilder {
 public:
  explicit ObjectBuilder(API::String const& name)
      : server_(Host::createStateServer(name + "-state")),
        object_(Host::createObject(server_, name)) {}

  API::StateServer const& server() const { return server_; }
  API::Object const& object() const { return object_; }

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
  API::PointChannel pointChannel(API::PointComponent const& component, char const* name,
                                 T const& value) const {
    API::PointChannel const channel(server_.createChannel(component, API::dataTypeOf<T>, name));
    std::fill_n(Host::pointData<T>(channel), component.elementCount(), value);
    return channel;
  }

  /// A voxel channel with one value in all cells, over a background of 0.
  template <class T>
  API::VoxelChannel channel(API::VoxelComponent const& component, char const* name,
                            T const& value) const {
    auto const channel = addChannel<T>(server_, component, name);
    API::Layout const layout(component.layout());
    forTiles(layout, 0, layout.maxDepth(), [&](API::TreeIndex const& index) {
      auto const cells = channel.template tileData<T>(index);
      std::fill_n(cells.data, cells.count, value);
    });
    return channel;
  }

  /// A sphere around voxel 0, as `addSphere` makes it.
  API::VoxelChannel sphere(API::VoxelComponent const& component, float radius,
                           char const* name = "distance") const {
    return addSphere(server_, component, name, radius);
  }

  /// "distance" to the plane y = 2.6 voxels in four leaf tiles at whose border it
  /// ends: its mesh is open.
  API::VoxelChannel plane(API::VoxelComponent const& component) const {
    API::Layout const layout(component.layout());
    Host::addLeafTiles(layout, {{0, 0, 0}, {5, 0, 0}, {0, 0, 5}, {5, 0, 5}});
    float const voxel = layout.voxelScale();
    auto const distance = addChannel<float>(server_, component, "distance", 5.f * voxel);
    forTiles(layout, layout.maxDepth(), layout.maxDepth(), [&](API::TreeIndex const& index) {
      auto const cells = distance.tileData<float>(index);
      for (int c = 0; c < 125; ++c) {
        cells.data[c] = voxel * (static_cast<float>(c / 5 % 5) - 2.1f);
      }
    });
    return distance;
  }

 private:
  API::StateServer server_;
  API::Object object_;
};

}  // namespace Velmor::Test
