#pragma once

#include "velmorapi/channel.h"
#include "velmorapi/export.h"
#include "velmorapi/ref.h"

namespace Velmor::API {

/// The type names that `StateServer::createComponent` takes.
inline constexpr char const* VoxelComponentType = "VoxelComponent";
inline constexpr char const* PointComponentType = "PointComponent";

/// A set of channels over one layout, part of an object.
class VELMOR_EXPORT Component : public StateServerItem {
 public:
  Component() noexcept = default;
  Component(Ref const& ref) noexcept;

  Ref layout() const;
  Ref object() const;
  /// The channel of a name, newest first; invalid if there is none.
  Ref findChannel(String const& name) const;
  /// In the order in which they were made.
  Array<Channel> channels() const;
};

class VELMOR_EXPORT VoxelComponent : public Component {
 public:
  VoxelComponent() noexcept = default;
  VoxelComponent(Ref const& ref) noexcept;
};

class VELMOR_EXPORT PointComponent : public Component {
 public:
  PointComponent() noexcept = default;
  PointComponent(Ref const& ref) noexcept;
  /// The number of points.
  std::size_t elementCount() const;
};

/// One simulated thing: named components.
class VELMOR_EXPORT Object : public StateServerItem {
 public:
  Object() noexcept = default;
  Object(Ref const& ref) noexcept;
  Ref findComponent(String const& name) const;
  Array<Component> components() const;
  /// Makes an existing component of the same state server part of the object.
  void addComponent(Component const& component) const;
  /// Takes the component of that name out of the object.
  void removeComponent(String const& name) const;
};

}  // namespace Velmor::API
