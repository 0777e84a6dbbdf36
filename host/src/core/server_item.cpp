#include "core/server_item.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>

#include "core/dictionary_store.h"

namespace Velmor::API {

namespace {

struct Registry {
  std::mutex mutex;
  std::unordered_map<StateID, ServerItem*> servers;
  StateID next = 1;
};

// Never destroyed: handles in static storage may outlive it otherwise.
Registry& registry() {
  static auto& instance = *new Registry;
  return instance;
}

template <class T>
T* findNewest(std::vector<Owned<T>> const& items, std::string const& name) {
  auto const at = std::find_if(items.rbegin(), items.rend(),
                               [&](auto const& item) { return item->name() == name; });
  return at != items.rend() ? at->get() : nullptr;
}

template <class T>
void eraseItem(std::vector<Owned<T>>& items, T const* item) {
  std::erase_if(items, [item](auto const& owned) { return owned.get() == item; });
}

}  // namespace

ComponentItem::ComponentItem(ItemKind kind, std::string name, Item* server, float voxelScale)
    : Item(kind, name, server),
      layout_(new LayoutItem(std::move(name), server, voxelScale)),
      dictionary_(std::make_shared<DictionaryStore>()) {}

ChannelItem* ComponentItem::findChannel(std::string const& name) const noexcept {
  return findNewest(channels_, name);
}

ChannelItem* ComponentItem::createChannel(DataType type, std::string const& name) {
  Owned<ChannelItem> channel;
  if (kind() == ItemKind::PointComponent) {
    channel = Owned<ChannelItem>(new PointChannelItem(name, this, layout_, type, points_));
  } else {
    channel = Owned<ChannelItem>(new VoxelChannelItem(name, this, layout_, type));
  }
  if (auto const* const old = findChannel(name)) removeChannel(old);
  channels_.push_back(channel);
  return channel.get();
}

void ComponentItem::removeChannel(ChannelItem const* channel) { eraseItem(channels_, channel); }

void ComponentItem::resetPoints(Owned<LayoutItem> layout,
                                std::shared_ptr<PointRanges const> points) {
  channels_.clear();
  layout_ = std::move(layout);
  points_ = std::move(points);
}

ObjectItem::ObjectItem(std::string name, Item* server)
    : Item(ItemKind::Object, std::move(name), server),
      dictionary_(std::make_shared<DictionaryStore>()) {}

ComponentItem* ObjectItem::findComponent(std::string const& name) const noexcept {
  return findNewest(components_, name);
}

void ObjectItem::addComponent(ComponentItem* component) {
  if (component->object_ == this) return;
  Owned<ComponentItem> const keep(component);
  if (component->object_ != nullptr) component->object_->removeComponent(component);
  if (auto* const old = findComponent(component->name())) removeComponent(old);
  component->object_ = this;
  components_.push_back(keep);
}

void ObjectItem::removeComponent(ComponentItem* component) {
  component->object_ = nullptr;
  eraseItem(components_, component);
}

ServerItem::ServerItem(std::string name) : Item(ItemKind::StateServer, std::move(name)) {
  std::lock_guard const lock(registry().mutex);
  id_ = registry().next++;
  registry().servers.emplace(id_, this);
}

ServerItem::~ServerItem() {
  std::lock_guard const lock(registry().mutex);
  registry().servers.erase(id_);
}

ObjectItem* ServerItem::findObject(std::string const& name) const noexcept {
  return findNewest(objects_, name);
}

ObjectItem* ServerItem::createObject(std::string const& name) {
  Owned<ObjectItem> const object(new ObjectItem(name, this));
  if (auto* const old = findObject(name)) {
    detachedObjects_.emplace_back(old);
    eraseItem(objects_, old);
  }
  objects_.push_back(object);
  return object.get();
}

ComponentItem* ServerItem::createComponent(ItemKind kind, std::string const& name,
                                           float voxelScale) {
  Owned<ComponentItem> const component(new ComponentItem(kind, name, this, voxelScale));
  removeComponent(name);
  components_.push_back(component);
  return component.get();
}

void ServerItem::removeComponent(std::string const& name) {
  auto* const component = findNewest(components_, name);
  if (component == nullptr) return;
  Owned<ComponentItem> const keep(component);
  if (component->object() != nullptr) component->object()->removeComponent(component);
  eraseItem(components_, component);
}

void ServerItem::removeChannel(std::string const& path) {
  ChannelItem* newest = nullptr;
  for (auto const& component : components_) {
    for (auto const& channel : component->channels()) {
      bool const named =
          channel->name() == path || channel->partialPath() == path || channel->fullPath() == path;
      if (named && (newest == nullptr || channel->serial() > newest->serial())) {
        newest = channel.get();
      }
    }
  }
  if (newest != nullptr) newest->component().removeChannel(newest);
}

Ref findStateServer(StateID id) {
  std::lock_guard const lock(registry().mutex);
  auto const at = registry().servers.find(id);
  if (at == registry().servers.end() || !at->second->tryAddHandle()) return {};
  Ref server(at->second);
  at->second->dropHandle();
  return server;
}

}  // namespace Velmor::API
