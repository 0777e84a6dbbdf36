#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <utility>
#include <variant>

#include "fakehost/fakehost.h"

namespace Velmor::API {

class DictionaryStore {
 public:
  using Value = std::variant<bool, int, float, double, orlen::Math::vec<3, float>, String>;
  std::map<String, Value> values;
};

class Item {
 public:
  virtual ~Item() = default;
  std::atomic<int> handles{0};
  std::string name;
  StateID state = 0;
  Dictionary dictionary{std::make_shared<DictionaryStore>()};
};

}  // namespace Velmor::API

namespace Velmor::FakeHost {

struct ObjectItem;
struct ComponentItem;

struct LayoutItem final : API::Item {
  /// The tiles of a depth in the order of their making, and where they are.
  struct Depth {
    std::vector<API::TileCoord> origins;
    std::map<std::array<std::int32_t, 3>, std::int32_t> slots;
  };
  int maxDepth = 0;
  int treeWidth = 0;
  int reportedWidth = 0;
  int deeperWidth = -1;
  float voxelScale = 1.f;
  std::vector<Depth> depths;

  int extent(int depth) const;
  API::TileDimInfo info(int depth) const;
  API::TileCoord originOf(API::TileCoord const& voxel, int depth) const;
  API::TreeIndex find(API::TileCoord const& voxel, int depth) const;
  API::Tile tile(API::TreeIndex const& index);
};

struct ChannelItem final : API::Item {
  API::DataType type = API::DataType::None;
  ComponentItem* component = nullptr;
  TileShape shape;
  std::vector<unsigned char> background;  // one value
  std::mutex tilesMutex;  // tiles are filled where they are first asked for, on any thread
  std::map<std::pair<int, int>, std::vector<unsigned char>> tiles;

  std::size_t size() const { return background.size(); }
  unsigned char* storage(API::TreeIndex const& index);
  std::ptrdiff_t offset(int i, int j, int k) const;
  // The bytes of the value at a voxel in the tiles of `depth`, or the background's.
  unsigned char const* valueAt(API::TileCoord const& voxel, int depth);
};

struct SamplerItem final : API::Item {
  ChannelItem* channel = nullptr;
  API::SamplerSpace space = API::SamplerSpace::Index;
};

struct ComponentItem final : API::Item {
  bool points = false;
  ObjectItem* object = nullptr;
  LayoutItem* layout = nullptr;
  std::vector<ChannelItem*> channels;
  std::size_t elementCount = 0;
};

struct ObjectItem final : API::Item {
  std::vector<ComponentItem*> components;
};

struct ServerItem final : API::Item {
  std::vector<ObjectItem*> objects;
  std::vector<ComponentItem*> components;
};

struct QueryItem final : API::Item {};

struct GraphItem final : API::Item {};

struct ResourceItem final : API::Item {
  bool loaded = false;
};

struct ImporterItem final : API::Item {};

/// Everything there is.
struct World {
  Script script;
  std::vector<std::string> calls;
  std::vector<std::unique_ptr<API::Item>> items;
  std::map<API::StateID, ServerItem*> servers;
  std::map<std::string, GraphItem*> graphs;
  std::vector<ResourceItem*> resources;
  API::StateID nextState = 1;
};
World& world();

/// Writes a line of the log: blanks between the arguments.
template <class... Arguments>
void log(std::string const& call, Arguments const&... arguments) {
  std::ostringstream line;
  line << call;
  ((line << ' ' << arguments), ...);
  world().calls.push_back(line.str());
}
inline std::string quoted(std::string const& text) {
  return std::string(1, '\'').append(text).append(1, '\'');
}
inline std::string quoted(API::String const& text) { return quoted(text.str()); }

inline bool mustFail(std::string const& call) { return world().script.failing.count(call) > 0; }
inline API::Status outcome(std::string const& call) {
  return mustFail(call) ? API::Status::failure("scripted failure") : API::Status();
}

template <class I>
I& make(std::string const& name) {
  auto item = std::make_unique<I>();
  item->name = name;
  auto& made = *item;
  world().items.push_back(std::move(item));
  return made;
}

template <class I>
I* as(API::Ref const& ref) {
  return dynamic_cast<I*>(ref.item());
}
/// The handle's item if it is an `I`, else null: what typed handles hold.
template <class I>
API::Ref only(API::Ref const& ref) {
  return API::Ref(as<I>(ref));
}

LayoutItem& makeLayout(std::string const& name, float voxelScale, API::StateID state);

}  // namespace Velmor::FakeHost
