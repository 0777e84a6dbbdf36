#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "core/channel_item.h"
#include "core/dictionary_store.h"
#include "velmorapi/object_model.h"
#include "velmorhost/scene.h"

namespace Velmor::Host {

namespace {

/// Calls edit(index) for every tile, in parallel.
template <class Edit>
class EditVisitor final : public API::Visitor {
 public:
  explicit EditVisitor(Edit const& edit) : edit_(&edit) {}
  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    (*edit_)(index);
  }
  Visitor* copy() const override { return new EditVisitor(*this); }

 private:
  Edit const* edit_;
};

template <class Edit>
void forEachTile(API::Channel const& channel, Edit const& edit) {
  EditVisitor<Edit> visitor(edit);
  API::Layout(channel.layout()).traverse(visitor, API::TraversalMode::Tiles);
}

template <class T>
void copyValues(API::Channel const& from, API::Channel const& to) {
  to.setBackgroundValue(from.backgroundValue<T>());
  forEachTile(from, [&](API::TreeIndex const& index) {
    auto const source = from.tileData<T>(index);
    std::copy_n(source.data, source.count, to.tileData<T>(index).data);
  });
}

}  // namespace

API::VoxelChannel copyChannel(API::VoxelChannel const& from, API::String const& name) {
  API::StateServer const server(API::ObjectModel::stateServer(from.stateID()));
  API::VoxelChannel const to(server.createChannel(from.component(), from.dataType(), name));
  if (!to.valid()) return to;
  API::withType(from.dataType(), [&]<class T>(T*) { copyValues<T>(from, to); });
  setFieldClass(to, fieldClass(from));
  copyActiveMasks(from, to);
  to.dictionary().store()->values = from.dictionary().store()->values;
  return to;
}

bool movePlateau(API::VoxelChannel const& channel, float background) {
  float const old = channel.backgroundValue<float>();
  if (channel.dataType() != API::DataType::Float || !(old > 0.f) || !(old < background)) {
    return false;
  }
  forEachTile(channel, [&](API::TreeIndex const& index) {
    auto const tile = channel.tileData<float>(index);
    for (std::size_t e = 0; e < tile.count; ++e) {
      float& value = tile.data[e];
      value = value >= old ? background : (value <= -old ? -background : value);
    }
  });
  channel.setBackgroundValue(background);
  return true;
}

struct InactiveCells::State {
  struct Tile {
    CellMask active;
    std::vector<std::byte> values;
  };
  API::VoxelChannel channel;
  std::unordered_map<API::TreeIndex, Tile> tiles;
};

namespace {

// Above these depths over the leaves cells are so large that a file which has to
// tell them from the empty world grows without bound.
constexpr int nearDepths = 3;

template <class T, class State>
void keepTile(State& state, API::TreeIndex const& index) {
  auto const data = state.channel.template tileData<T>(index);
  auto const* const bytes = reinterpret_cast<std::byte const*>(data.data);
  state.tiles[index] = {activeMask(state.channel, index),
                        std::vector<std::byte>(bytes, bytes + data.count * sizeof(T))};
}

template <class T, class State>
void restoreTile(State const& state, API::TileAccessor const& accessor, API::TreeIndex const& index,
                 int leafDepth) {
  auto const data = state.channel.template tileData<T>(index);
  auto const tile = accessor.tile(index);
  auto const kept = state.tiles.find(index);
  T inherited = state.channel.template backgroundValue<T>();
  if (kept == state.tiles.end() && index.depth > 0) {
    auto const& at = tile.coord();
    auto const parent = accessor.tile(at.i, at.j, at.k, index.depth - 1);
    int const cell = parent.info().extent / parent.info().width;
    auto const& o = parent.coord();
    auto const above = state.channel.template tileData<T>(parent.index());
    inherited =
        above.data[above.offset((at.i - o.i) / cell, (at.j - o.j) / cell, (at.k - o.k) / cell)];
  }
  bool const bySign =
      fieldClass(state.channel) == FieldClass::LevelSet && index.depth >= leafDepth - nearDepths;
  for (int c = 0; c < 125; ++c) {
    if (kept != state.tiles.end() && kept->second.active.test(c)) continue;
    T& value = data.data[c];
    if constexpr (std::is_same_v<T, float>) {
      if (bySign && !tile.child(c % 5, c / 5 % 5, c / 25).valid()) {
        float const band = state.channel.template backgroundValue<float>();
        value = value < 0.f ? -band : band;
        continue;
      }
    }
    if (kept == state.tiles.end()) {
      value = inherited;
    } else {
      std::memcpy(&value, &kept->second.values[static_cast<std::size_t>(c) * sizeof(T)], sizeof(T));
    }
  }
}

}  // namespace

InactiveCells::InactiveCells(API::VoxelChannel const& channel) : state_(new State{channel, {}}) {
  API::Layout const layout(channel.layout());
  for (auto tiles = layout.tileIterator(0, layout.maxDepth() - 1, API::TraversalMode::Serial);
       tiles.valid(); tiles.next()) {
    API::withType(channel.dataType(), [&]<class T>(T*) { keepTile<T>(*state_, tiles.index()); });
  }
}

InactiveCells::~InactiveCells() { delete state_; }

void InactiveCells::restore() const {
  API::Layout const layout(state_->channel.layout());
  auto const accessor = layout.tileAccessor();
  // Coarse tiles first: new ones look at their parents.
  for (auto tiles = layout.tileIterator(0, layout.maxDepth() - 1, API::TraversalMode::Serial);
       tiles.valid(); tiles.next()) {
    API::withType(state_->channel.dataType(), [&]<class T>(T*) {
      restoreTile<T>(*state_, accessor, tiles.index(), layout.maxDepth());
    });
  }
}

}  // namespace Velmor::Host
