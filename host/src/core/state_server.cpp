#include "velmorapi/state_server.h"

#include <new>

#include "core/server_item.h"
#include "velmorhost/settings.h"

namespace Velmor::API {

namespace {

ServerItem* serverOf(Ref const& ref) { return static_cast<ServerItem*>(ref.item()); }
ObjectItem* objectOf(Ref const& ref) { return static_cast<ObjectItem*>(ref.item()); }
ComponentItem* componentOf(Ref const& ref) { return static_cast<ComponentItem*>(ref.item()); }

// What is made, or nothing where there is no memory for it.
template <class Make>
Ref refTo(Make&& make) noexcept {
  try {
    return Ref(make());
  } catch (std::bad_alloc const&) {
    return {};
  }
}

Ref refIf(Ref const& ref, ItemKind kind) {
  return ref.valid() && ref.item()->kind() == kind ? ref : Ref();
}

}  // namespace

StateServer::StateServer(Ref const& ref) noexcept : Base(refAs<ServerItem>(ref)) {}

Ref StateServer::findObject(String const& name) const {
  if (!valid() || Host::mustFail(Host::Call::FindObject)) return {};
  return Ref(serverOf(*this)->findObject(name.str()));
}

Array<Object> StateServer::objects() const {
  Array<Object> objects;
  if (!valid()) return objects;
  for (auto const& object : serverOf(*this)->objects()) objects.add(Object(Ref(object.get())));
  return objects;
}

Ref StateServer::createComponent(String const& type, String const& name, float voxelScale) const {
  bool const voxels = type == VoxelComponentType;
  if (!valid() || (!voxels && type != PointComponentType) ||
      Host::mustFail(Host::Call::CreateComponent)) {
    return {};
  }
  auto const kind = voxels ? ItemKind::VoxelComponent : ItemKind::PointComponent;
  return refTo([&] { return serverOf(*this)->createComponent(kind, name.str(), voxelScale); });
}

Ref StateServer::createChannel(Component const& component, DataType type,
                               String const& name) const {
  if (!valid() || !component.valid() || componentOf(component)->parent() != item() ||
      valueSize(type) == 0 || Host::mustFail(Host::Call::CreateChannel)) {
    return {};
  }
  return refTo([&] { return componentOf(component)->createChannel(type, name.str()); });
}

Ref StateServer::createLayout(String const& name) const {
  if (!valid() || Host::mustFail(Host::Call::CreateLayout)) return {};
  return refTo([&] { return new LayoutItem(name.str(), item(), 1.f); });
}

void StateServer::removeChannel(String const& path) const {
  if (valid()) serverOf(*this)->removeChannel(path.str());
}

void StateServer::removeComponent(String const& name) const {
  if (valid()) serverOf(*this)->removeComponent(name.str());
}

Component::Component(Ref const& ref) noexcept : StateServerItem(refAs<ComponentItem>(ref)) {}

Ref Component::layout() const { return valid() ? Ref(&componentOf(*this)->layout()) : Ref(); }

Ref Component::object() const { return valid() ? Ref(componentOf(*this)->object()) : Ref(); }

Ref Component::findChannel(String const& name) const {
  return valid() ? Ref(componentOf(*this)->findChannel(name.str())) : Ref();
}

Array<Channel> Component::channels() const {
  Array<Channel> channels;
  if (!valid()) return channels;
  for (auto const& channel : componentOf(*this)->channels()) {
    channels.add(Channel(Ref(channel.get())));
  }
  return channels;
}

VoxelComponent::VoxelComponent(Ref const& ref) noexcept
    : Component(refIf(ref, ItemKind::VoxelComponent)) {}

PointComponent::PointComponent(Ref const& ref) noexcept
    : Component(refIf(ref, ItemKind::PointComponent)) {}

std::size_t PointComponent::elementCount() const {
  return valid() ? componentOf(*this)->points().count() : 0;
}

Object::Object(Ref const& ref) noexcept : StateServerItem(refAs<ObjectItem>(ref)) {}

Ref Object::findComponent(String const& name) const {
  return valid() ? Ref(objectOf(*this)->findComponent(name.str())) : Ref();
}

Array<Component> Object::components() const {
  Array<Component> components;
  if (!valid()) return components;
  for (auto const& component : objectOf(*this)->components()) {
    components.add(Component(Ref(component.get())));
  }
  return components;
}

void Object::addComponent(Component const& component) const {
  if (valid() && component.valid() && componentOf(component)->parent() == item()->parent()) {
    objectOf(*this)->addComponent(componentOf(component));
  }
}

void Object::removeComponent(String const& name) const {
  if (!valid()) return;
  if (auto* const component = objectOf(*this)->findComponent(name.str())) {
    objectOf(*this)->removeComponent(component);
  }
}

}  // namespace Velmor::API
