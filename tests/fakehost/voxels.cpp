#include <algorithm>
#include <cmath>

#include "fakehost/items.h"
#include "velmorapi/halo.h"

namespace Velmor::FakeHost {

namespace {

std::int64_t floorTo(std::int64_t a, std::int64_t b) { return a - (a % b + b) % b; }

bool fits(std::int64_t v) { return v == static_cast<std::int32_t>(v); }

std::array<std::int32_t, 3> key(API::TileCoord const& c) { return {c.i, c.j, c.k}; }

}  // namespace

int LayoutItem::extent(int depth) const {
  int voxels = 1;
  for (int d = depth; d <= maxDepth; ++d) voxels *= treeWidth;
  return voxels;
}

API::TileDimInfo LayoutItem::info(int depth) const {
  return {extent(depth), depth > 0 && deeperWidth >= 0 ? deeperWidth : reportedWidth};
}

API::TileCoord LayoutItem::originOf(API::TileCoord const& voxel, int depth) const {
  int const e = extent(depth);
  auto const along = [e](int v) { return static_cast<std::int32_t>(floorTo(v, e)); };
  return {along(voxel.i), along(voxel.j), along(voxel.k)};
}

API::TreeIndex LayoutItem::find(API::TileCoord const& voxel, int depth) const {
  if (depth < 0 || depth > maxDepth) return {};
  auto const& slots = depths[static_cast<std::size_t>(depth)].slots;
  auto const found = slots.find(key(originOf(voxel, depth)));
  if (found == slots.end()) return {};
  return {found->second, depth};
}

API::Tile LayoutItem::tile(API::TreeIndex const& index) {
  if (index.depth < 0 || index.depth > maxDepth) return {};
  auto const& origins = depths[static_cast<std::size_t>(index.depth)].origins;
  auto const slot = static_cast<std::size_t>(index.slot);
  if (slot >= origins.size()) return {};
  return {this, index, origins[slot], info(index.depth)};
}

LayoutItem& makeLayout(std::string const& name, float voxelScale, API::StateID state) {
  auto& layout = make<LayoutItem>(name);
  layout.maxDepth = script().maxDepth;
  layout.treeWidth = script().treeWidth;
  layout.reportedWidth = script().reportedWidth;
  layout.deeperWidth = script().deeperWidth;
  layout.voxelScale = voxelScale;
  layout.state = state;
  layout.depths.resize(static_cast<std::size_t>(layout.maxDepth) + 1);
  return layout;
}

unsigned char* ChannelItem::storage(API::TreeIndex const& index) {
  if (!component->layout->tile(index).valid()) return nullptr;
  std::lock_guard const lock(tilesMutex);
  auto& bytes = tiles[{index.depth, index.slot}];
  if (bytes.empty()) {
    bytes.resize(shape.count * size());
    for (std::size_t e = 0; e < shape.count; ++e) {
      std::memcpy(bytes.data() + e * size(), background.data(), size());
    }
  }
  return bytes.data();
}

std::ptrdiff_t ChannelItem::offset(int i, int j, int k) const {
  return static_cast<std::ptrdiff_t>(shape.halo + i) * shape.strides[0] +
         static_cast<std::ptrdiff_t>(shape.halo + j) * shape.strides[1] +
         static_cast<std::ptrdiff_t>(shape.halo + k) * shape.strides[2];
}

unsigned char const* ChannelItem::valueAt(API::TileCoord const& voxel, int depth) {
  auto const index = component->layout->find(voxel, depth);
  if (!index.valid()) return background.data();
  auto const origin = component->layout->originOf(voxel, depth);
  int const cell = component->layout->extent(depth) / component->layout->treeWidth;
  auto const at =
      offset((voxel.i - origin.i) / cell, (voxel.j - origin.j) / cell, (voxel.k - origin.k) / cell);
  return storage(index) + static_cast<std::size_t>(at) * size();
}

API::TreeIndex addTile(API::Layout const& layout, int depth, API::TileCoord const& voxel) {
  auto* const item = as<LayoutItem>(layout);
  if (item == nullptr || depth < 0 || depth > item->maxDepth) return {};
  auto const known = item->find(voxel, depth);
  if (known.valid()) return known;
  // Voxels so close to the end of all numbers are in no tile.
  for (int const v : {voxel.i, voxel.j, voxel.k}) {
    if (!fits(floorTo(v, item->extent(depth)))) return {};
  }
  auto const origin = item->originOf(voxel, depth);
  auto& tiles = item->depths[static_cast<std::size_t>(depth)];
  auto const slot = static_cast<std::int32_t>(tiles.origins.size());
  tiles.origins.push_back(origin);
  tiles.slots[key(origin)] = slot;
  return {slot, depth};
}

}  // namespace Velmor::FakeHost

namespace Velmor::API {

using namespace Velmor::FakeHost;

Channel::Channel(Ref const& ref) noexcept : StateServerItem(only<ChannelItem>(ref)) {}
VoxelChannel::VoxelChannel(Ref const& ref) noexcept : Channel(ref) {
  auto const* const channel = as<ChannelItem>(*this);
  if (channel != nullptr && channel->component->points) *this = VoxelChannel();
}
PointChannel::PointChannel(Ref const& ref) noexcept : Channel(ref) {
  auto const* const channel = as<ChannelItem>(*this);
  if (channel != nullptr && !channel->component->points) *this = PointChannel();
}

DataType Channel::dataType() const {
  return valid() ? as<ChannelItem>(*this)->type : DataType::None;
}
Ref Channel::layout() const {
  return valid() ? Ref(as<ChannelItem>(*this)->component->layout) : Ref();
}
Ref Channel::component() const { return valid() ? Ref(as<ChannelItem>(*this)->component) : Ref(); }
String Channel::partialPathName() const {
  return valid() ? String(as<ChannelItem>(*this)->component->name + "/" + item()->name) : String();
}
String Channel::fullPathName() const {
  if (!valid()) return {};
  auto const* const object = as<ChannelItem>(*this)->component->object;
  return (object != nullptr ? String(object->name + "/") : String()) + partialPathName();
}

void* Channel::tileStorage(DataType type, TreeIndex const& index, std::size_t& count,
                           std::int32_t& halo, std::int32_t (&strides)[3]) const {
  auto* const channel = as<ChannelItem>(*this);
  if (channel == nullptr || channel->type != type) return nullptr;
  auto* const values = channel->storage(index);
  if (values == nullptr) return nullptr;
  count = channel->shape.count;
  halo = channel->shape.halo;
  std::copy_n(channel->shape.strides, 3, strides);
  return values;
}

bool Channel::background(DataType type, void* value) const {
  auto const* const channel = as<ChannelItem>(*this);
  if (channel == nullptr || channel->type != type) return false;
  std::memcpy(value, channel->background.data(), channel->size());
  return true;
}

bool Channel::setBackground(DataType type, void const* value) const {
  auto* const channel = as<ChannelItem>(*this);
  if (channel == nullptr || channel->type != type) return false;
  log("Channel::setBackgroundValue", quoted(channel->name));
  for (auto& tile : channel->tiles) {
    for (std::size_t at = 0; at < tile.second.size(); at += channel->size()) {
      if (std::memcmp(&tile.second[at], channel->background.data(), channel->size()) == 0) {
        std::memcpy(&tile.second[at], value, channel->size());
      }
    }
  }
  std::memcpy(channel->background.data(), value, channel->size());
  return true;
}

Ref VoxelChannel::createSampler(String const& type, SamplerSpace space) const {
  log("VoxelChannel::createSampler", quoted(type), static_cast<int>(space));
  if (!valid() || mustFail("VoxelChannel::createSampler")) return {};
  auto& sampler = make<SamplerItem>("");
  sampler.channel = as<ChannelItem>(*this);
  sampler.space = space;
  return Ref(&sampler);
}

namespace {

template <class T>
void sampleVoxel(Ref const& ref, orlen::Math::vec<3, float> const& position, T& value) {
  auto const* const sampler = as<SamplerItem>(ref);
  if (sampler == nullptr || sampler->channel->type != dataTypeOf<T>) return;
  if constexpr (std::is_same_v<T, float>) {
    if (script().sample) {
      value = script().sample(position);
      return;
    }
  }
  auto const* const layout = sampler->channel->component->layout;
  float const scale = sampler->space == SamplerSpace::World ? layout->voxelScale : 1.f;
  auto const voxel = [&](float x) { return static_cast<int>(std::floor(x / scale)); };
  std::memcpy(static_cast<void*>(&value),
              sampler->channel->valueAt({voxel(position.x), voxel(position.y), voxel(position.z)},
                                        layout->maxDepth),
              sizeof(T));
}

}  // namespace

VoxelSampler::VoxelSampler(Ref const& ref) noexcept : Ref(only<SamplerItem>(ref)) {}
void VoxelSampler::sampleValue(orlen::Math::vec<3, float> const& position, float& value) const {
  sampleVoxel(*this, position, value);
}
void VoxelSampler::sampleValue(orlen::Math::vec<3, float> const& position,
                               orlen::Math::vec<2, float>& value) const {
  sampleVoxel(*this, position, value);
}
void VoxelSampler::sampleValue(orlen::Math::vec<3, float> const& position,
                               orlen::Math::vec<3, float>& value) const {
  sampleVoxel(*this, position, value);
}
void VoxelSampler::sampleValueAndGradient(orlen::Math::vec<3, float> const& position, float& value,
                                          orlen::Math::vec<3, float>& gradient) const {
  sampleVoxel(*this, position, value);
  gradient = script().gradient;
}

struct HaloedCacheBase::State {
  Ref channel;
};

HaloedCacheBase::~HaloedCacheBase() { delete state_; }

Status HaloedCacheBase::bind(VoxelChannel const& channel, DataType type) {
  log("HaloedCache::init");
  if (mustFail("HaloedCache::init")) return Status::failure("scripted failure");
  if (channel.dataType() != type) return Status::failure("other type");
  delete state_;
  state_ = new State{channel};
  return {};
}

Status HaloedCacheBase::gather(TreeIndex const& index, void* block) {
  log("HaloedCache::update", index.slot, index.depth);
  if (mustFail("HaloedCache::update")) return Status::failure("scripted failure");
  auto* const channel = state_ == nullptr ? nullptr : as<ChannelItem>(state_->channel);
  if (channel == nullptr) return Status::failure("not initialised");
  auto const tile = channel->component->layout->tile(index);
  if (!tile.valid()) return Status::failure("no tile");
  int const cell = tile.info().extent / channel->component->layout->treeWidth;
  auto* to = static_cast<unsigned char*>(block);
  auto const& origin = tile.coord();
  for (int k = -1; k <= 5; ++k) {
    for (int j = -1; j <= 5; ++j) {
      for (int i = -1; i <= 5; ++i, to += channel->size()) {
        TileCoord const voxel{origin.i + i * cell, origin.j + j * cell, origin.k + k * cell};
        std::memcpy(to, channel->valueAt(voxel, index.depth), channel->size());
      }
    }
  }
  return {};
}

Tile Tile::child(int x, int y, int z) const {
  auto* const layout = static_cast<LayoutItem*>(layout_);
  if (layout == nullptr) return {};
  int const cell = layout->extent(index_.depth) / layout->treeWidth;
  return layout->tile(layout->find({coord_.i + x * cell, coord_.j + y * cell, coord_.k + z * cell},
                                   index_.depth + 1));
}

TileAccessor::TileAccessor(Ref const& layout) noexcept : layout_(only<LayoutItem>(layout)) {}
Tile TileAccessor::tile(int i, int j, int k, int depth) const {
  return tile(index({i, j, k}, depth));
}
Tile TileAccessor::tile(TreeIndex const& index) const {
  return valid() ? as<LayoutItem>(layout_)->tile(index) : Tile();
}
TreeIndex TileAccessor::index(TileCoord const& voxel, int depth) const {
  if (!valid()) return {};
  auto const* const layout = as<LayoutItem>(layout_);
  for (int d = std::min(depth, layout->maxDepth); d >= 0; --d) {
    auto const found = layout->find(voxel, d);
    if (found.valid()) return found;
  }
  return {};
}
TreeIndex TileAccessor::addTileSlow(TileCoord const& voxel, int depth) const {
  log("TileAccessor::addTile", voxel.i, voxel.j, voxel.k, depth);
  return FakeHost::addTile(Layout(layout_), depth, voxel);
}

Layout::Layout(Ref const& ref) noexcept : StateServerItem(only<LayoutItem>(ref)) {}
float Layout::voxelScale() const { return valid() ? as<LayoutItem>(*this)->voxelScale : 1.f; }
void Layout::setVoxelScale(float scale) const {
  log("Layout::setVoxelScale", scale);
  if (valid()) as<LayoutItem>(*this)->voxelScale = scale;
}
int Layout::maxDepth() const { return valid() ? as<LayoutItem>(*this)->maxDepth : 0; }
TileDimInfo Layout::tileDimInfo(int depth) const {
  auto const* const layout = as<LayoutItem>(*this);
  if (layout == nullptr || depth < 0 || depth > layout->maxDepth) return {};
  return layout->info(depth);
}
TileAccessor Layout::tileAccessor() const { return TileAccessor(*this); }

namespace {

Array<TreeIndex> tilesOf(LayoutItem const& layout, int minDepth, int maxDepth) {
  Array<TreeIndex> tiles;
  for (int d = std::max(minDepth, 0); d <= std::min(maxDepth, layout.maxDepth); ++d) {
    auto const count = layout.depths[static_cast<std::size_t>(d)].origins.size();
    for (std::size_t slot = 0; slot < count; ++slot) {
      tiles.add({static_cast<std::int32_t>(slot), d});
    }
  }
  return tiles;
}

void visitTiles(Visitor& visitor, TileAccessor const& accessor, TreeIndex const* from,
                TreeIndex const* to) {
  for (; from != to; ++from) {
    visitor.beginTile(accessor, *from);
    visitor.endTile(accessor, *from);
  }
}

Status walk(Layout const& layout, Visitor& visitor, TraversalMode mode, int minDepth,
            int maxDepth) {
  if (!layout.valid()) return Status::failure("no layout");
  if (script().visit) {
    script().visit(visitor);
    return outcome("Layout::traverse");
  }
  auto const tiles = tilesOf(*as<LayoutItem>(layout), minDepth, maxDepth);
  auto const accessor = layout.tileAccessor();
  visitor.beginTraverse();
  std::vector<std::unique_ptr<Visitor>> copies;
  for (int w = 0; mode != TraversalMode::Serial && w < script().workers; ++w) {
    log("Visitor::copy");
    copies.emplace_back(visitor.copy());
    if (copies.back() == nullptr) {
      copies.clear();
      break;
    }
  }
  if (copies.empty()) {
    visitTiles(visitor, accessor, tiles.begin(), tiles.end());
  } else {
    auto const bound = [&](std::size_t c) {
      return tiles.begin() + c * tiles.count() / copies.size();
    };
    for (std::size_t c = 0; c < copies.size(); ++c) {
      visitTiles(*copies[c], accessor, bound(c), bound(c + 1));
    }
  }
  for (auto const& copy : copies) {
    log("Visitor::join");
    visitor.join(*copy);
  }
  visitor.endTraverse();
  return outcome("Layout::traverse");
}

}  // namespace

TileIterator Layout::tileIterator(int minDepth, int maxDepth, TraversalMode mode) const {
  log("Layout::tileIterator", minDepth, maxDepth, static_cast<int>(mode));
  auto const* const layout = as<LayoutItem>(*this);
  return layout == nullptr ? TileIterator()
                           : TileIterator(*this, tilesOf(*layout, minDepth, maxDepth));
}

Status Layout::traverse(Visitor& visitor, TraversalMode mode) const {
  log("Layout::traverse", static_cast<int>(mode));
  return walk(*this, visitor, mode, 0, maxDepth());
}
Status Layout::traverse(Visitor& visitor, TraversalMode mode, int minDepth, int maxDepth) const {
  log("Layout::traverse", static_cast<int>(mode), minDepth, maxDepth);
  return walk(*this, visitor, mode, minDepth, maxDepth);
}

Visitor::~Visitor() = default;
void Visitor::beginTraverse() {}
void Visitor::endTraverse() {}
void Visitor::beginTile(TileAccessor const&, TreeIndex const&) {}
void Visitor::endTile(TileAccessor const&, TreeIndex const&) {}
void Visitor::visitVoxel(TileAccessor const&, TreeIndex const&, int, int, int) {}
Visitor* Visitor::copy() const { return nullptr; }
void Visitor::join(Visitor const&) {}

}  // namespace Velmor::API
