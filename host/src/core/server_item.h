#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/channel_item.h"
#include "core/item.h"
#include "core/layout_item.h"

namespace Velmor::API {

class ObjectItem;

/// A named set of channels; voxels or points by its kind.
class ComponentItem final : public Item {
 public:
  static bool is(ItemKind kind) noexcept {
    return kind == ItemKind::VoxelComponent || kind == ItemKind::PointComponent;
  }

  ComponentItem(ItemKind kind, std::string name, Item* server, float voxelScale);

  StateID stateID() const override { return parent()->stateID(); }
  std::shared_ptr<DictionaryStore> dictionary() const override { return dictionary_; }

  LayoutItem& layout() const noexcept { return *layout_; }
  ObjectItem* object() const noexcept { return object_; }
  std::vector<Owned<ChannelItem>> const& channels() const noexcept { return channels_; }
  PointRanges const& points() const noexcept { return *points_; }

  ChannelItem* findChannel(std::string const& name) const noexcept;
  /// One of the same name is let go.
  ChannelItem* createChannel(DataType type, std::string const& name);
  void removeChannel(ChannelItem const* channel);
  /// Lets go of all channels and starts over with another layout.
  void resetPoints(Owned<LayoutItem> layout, std::shared_ptr<PointRanges const> points);

 private:
  friend class ObjectItem;

  Owned<LayoutItem> layout_;
  ObjectItem* object_ = nullptr;  // objects live as long as their state
  std::vector<Owned<ChannelItem>> channels_;
  std::shared_ptr<PointRanges const> points_ = std::make_shared<PointRanges>();
  std::shared_ptr<DictionaryStore> dictionary_;
};

class ObjectItem final : public Item {
 public:
  static bool is(ItemKind kind) noexcept { return kind == ItemKind::Object; }

  ObjectItem(std::string name, Item* server);

  StateID stateID() const override { return parent()->stateID(); }
  std::shared_ptr<DictionaryStore> dictionary() const override { return dictionary_; }

  std::vector<Owned<ComponentItem>> const& components() const noexcept { return components_; }
  ComponentItem* findComponent(std::string const& name) const noexcept;
  /// Takes the component from another object if need be; one of the same name is let go.
  void addComponent(ComponentItem* component);
  void removeComponent(ComponentItem* component);

 private:
  std::vector<Owned<ComponentItem>> components_;
  std::shared_ptr<DictionaryStore> dictionary_;
};

/// One state. Registered by its identifier as long as it lives.
class ServerItem final : public Item {
 public:
  static bool is(ItemKind kind) noexcept { return kind == ItemKind::StateServer; }

  explicit ServerItem(std::string name);
  ~ServerItem() override;

  StateID stateID() const override { return id_; }

  std::vector<Owned<ObjectItem>> const& objects() const noexcept { return objects_; }
  ObjectItem* findObject(std::string const& name) const noexcept;
  ObjectItem* createObject(std::string const& name);
  ComponentItem* createComponent(ItemKind kind, std::string const& name, float voxelScale);
  void removeComponent(std::string const& name);
  void removeChannel(std::string const& path);

 private:
  StateID id_;
  std::vector<Owned<ObjectItem>> objects_;
  // Kept, since components know their objects by address; they hold no data of their own.
  std::vector<Owned<ObjectItem>> detachedObjects_;
  std::vector<Owned<ComponentItem>> components_;
};

/// The living state server of an identifier.
Ref findStateServer(StateID id);

}  // namespace Velmor::API
