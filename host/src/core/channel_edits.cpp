#include <algorithm>
#include <cstddef>
#include <type_traits>

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

}  // namespace Velmor::Host
