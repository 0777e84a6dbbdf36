#pragma once

#include "velmorapi/component.h"
#include "velmorapi/export.h"
#include "velmorapi/ref.h"

namespace Velmor::API {

/// Owns one state: objects, components, channels and layouts. It lives while
/// any handle to it or into it lives. Creating under a taken name detaches the
/// older item, whose handles go on working, and returns a fresh one. Creating
/// and removing is not synchronised: one thread at a time.
class VELMOR_EXPORT StateServer : public Base {
 public:
  StateServer() noexcept = default;
  StateServer(Ref const& ref) noexcept;

  Ref findObject(String const& name) const;
  Array<Object> objects() const;

  /// A component of a type name (see component.h) with an empty layout.
  /// Invalid for an unknown type.
  Ref createComponent(String const& type, String const& name, float voxelScale) const;
  /// A channel with background 0 and value 0 in every existing tile, or for
  /// every point. Invalid for a type that is none of the six, or if the
  /// component is not of this server.
  Ref createChannel(Component const& component, DataType type, String const& name) const;
  /// A layout of its own, without tiles, with voxel scale 1.
  Ref createLayout(String const& name) const;
  /// Removes the channel of a full path, a partial path or a bare name (the
  /// newest of that name). Nothing happens if there is none.
  void removeChannel(String const& path) const;
  void removeComponent(String const& name) const;
};

}  // namespace Velmor::API
