#include "velmorapi/channel.h"

#include <cstring>

#include "core/channel_item.h"
#include "core/next_tile.h"
#include "core/sampler_item.h"
#include "core/server_item.h"

namespace Velmor::API {

namespace {

ChannelItem* channelOf(Ref const& ref) { return static_cast<ChannelItem*>(ref.item()); }

void fetchAhead(std::byte const* values, std::size_t size) {
  for (std::size_t at = 0; at < size; at += 64) __builtin_prefetch(values + at);
}

/// Nothing but for a point channel of the type.
[[gnu::noinline]] void* pointValues(ChannelItem* item, DataType type, TreeIndex const& index,
                                    std::size_t& count, std::int32_t (&strides)[3]) {
  if (item == nullptr || item->kind() != ItemKind::PointChannel || item->type() != type ||
      !item->layout().exists(index)) {
    return nullptr;
  }
  auto& channel = *static_cast<PointChannelItem*>(item);
  auto const& starts = channel.ranges().starts;
  auto const slot = static_cast<std::size_t>(index.slot);
  if (index.depth != channel.layout().leafDepth() || slot + 1 >= starts.size() ||
      starts[slot] == starts[slot + 1]) {
    return nullptr;
  }
  count = starts[slot + 1] - starts[slot];
  strides[0] = 1;
  return channel.values() + starts[slot] * channel.size();
}

}  // namespace

Channel::Channel(Ref const& ref) noexcept : StateServerItem(refAs<ChannelItem>(ref)) {}

DataType Channel::dataType() const { return valid() ? channelOf(*this)->type() : DataType::None; }

Ref Channel::layout() const { return valid() ? Ref(&channelOf(*this)->layout()) : Ref(); }

Ref Channel::component() const { return valid() ? Ref(&channelOf(*this)->component()) : Ref(); }

String Channel::fullPathName() const {
  return valid() ? String(channelOf(*this)->fullPath()) : String();
}

String Channel::partialPathName() const {
  return valid() ? String(channelOf(*this)->partialPath()) : String();
}

void* Channel::tileStorage(DataType type, TreeIndex const& index, std::size_t& count,
                           std::int32_t& halo, std::int32_t (&strides)[3]) const {
  auto* const channel = channelOf(*this);
  halo = 0;
  if (channel == nullptr || channel->type() != type || !channel->layout().exists(index) ||
      channel->kind() != ItemKind::VoxelChannel) [[unlikely]] {
    count = 0;
    strides[0] = strides[1] = strides[2] = 0;
    return pointValues(channel, type, index, count, strides);
  }
  count = tileCells;
  strides[0] = 1;
  strides[1] = tileWidth;
  strides[2] = tileWidth * tileWidth;
  auto const& voxels = *static_cast<VoxelChannelItem*>(channel);
  if (nextTile.visited == index && nextTile.layout == &channel->layout()) {
    fetchAhead(voxels.values(nextTile.next.depth, nextTile.next.slot), tileCells * channel->size());
  }
  return voxels.values(index.depth, index.slot);
}

bool Channel::background(DataType type, void* value) const {
  if (!valid() || channelOf(*this)->type() != type) return false;
  std::memcpy(value, channelOf(*this)->background(), channelOf(*this)->size());
  return true;
}

bool Channel::setBackground(DataType type, void const* value) const {
  if (!valid() || channelOf(*this)->type() != type) return false;
  channelOf(*this)->setBackground(static_cast<std::byte const*>(value));
  return true;
}

VoxelChannel::VoxelChannel(Ref const& ref) noexcept : Channel(refAs<VoxelChannelItem>(ref)) {}

Ref VoxelChannel::createSampler(String const& type, SamplerSpace space) const {
  bool const known = space == SamplerSpace::Index || space == SamplerSpace::World;
  if (!valid() || !known || type != VoxelSamplerQBSplineType) return {};
  return Ref(new SamplerItem(static_cast<VoxelChannelItem*>(item()), space));
}

PointChannel::PointChannel(Ref const& ref) noexcept : Channel(refAs<PointChannelItem>(ref)) {}

}  // namespace Velmor::API
