#include <cstring>

#include "core/channel_item.h"
#include "velmorhost/scene.h"

namespace Velmor::Host {

namespace {

using API::tileCells;

template <class T>
T negated(T const& value) {
  return T() - value;
}

template <class T>
CellMask unlikeBackground(API::VoxelChannelItem const& channel, API::TreeIndex const& index) {
  T background;
  std::memcpy(&background, channel.background(), sizeof background);
  bool const levelSet = channel.fieldClass() == FieldClass::LevelSet;
  T const inside = levelSet ? negated(background) : background;
  auto const* const values = channel.values<T>(index.depth, index.slot);
  CellMask mask;
  for (int c = 0; c < tileCells; ++c) {
    // Bits decide too, so that a background that is no number equals itself.
    bool const same = values[c] == background || values[c] == inside ||
                      std::memcmp(&values[c], &background, sizeof background) == 0;
    if (!same) mask.set(c);
  }
  return mask;
}

CellMask childMask(API::LayoutItem const& layout, API::TreeIndex const& index) {
  CellMask mask;
  if (index.depth == layout.leafDepth()) return mask;
  for (int c = 0; c < tileCells; ++c) {
    if (layout.child(index.depth, index.slot, c) >= 0) mask.set(c);
  }
  return mask;
}

}  // namespace

CellMask activeMask(API::Channel const& channel, API::TreeIndex const& index) {
  auto const* const item = API::itemAs<API::VoxelChannelItem>(channel);
  CellMask mask;
  if (item == nullptr || !item->layout().exists(index)) return mask;
  if (!item->storedMask(index, mask)) {
    API::withType(item->type(), [&]<class T>(T*) { mask = unlikeBackground<T>(*item, index); });
  }
  auto const children = childMask(item->layout(), index);
  for (std::size_t w = 0; w < 2; ++w) mask.words[w] &= ~children.words[w];
  return mask;
}

void setActiveMask(API::Channel const& channel, API::TreeIndex const& index, CellMask const& mask) {
  auto* const item = API::itemAs<API::VoxelChannelItem>(channel);
  if (item != nullptr && item->layout().exists(index)) item->storeMask(index, mask);
}

void copyActiveMasks(API::Channel const& from, API::Channel const& to) {
  auto const* const source = API::itemAs<API::VoxelChannelItem>(from);
  auto* const target = API::itemAs<API::VoxelChannelItem>(to);
  if (source == nullptr || target == nullptr || &source->layout() != &target->layout()) return;
  for (int depth = 0; depth <= source->layout().leafDepth(); ++depth) {
    for (std::int32_t slot = 0; slot < source->layout().count(depth); ++slot) {
      CellMask mask;
      if (source->storedMask({slot, depth}, mask)) target->storeMask({slot, depth}, mask);
    }
  }
}

}  // namespace Velmor::Host
