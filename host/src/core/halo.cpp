#include "velmorapi/halo.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>

#include "core/channel_item.h"
#include "core/neighbourhood.h"

namespace Velmor::API {

namespace {

/// The tile (13) and its 26 neighbours, x fastest.
using Sources = std::array<CellSource, 27>;

/// Copies `count` cells from `first` on to `to`.
template <class T>
void copyRow(CellSource const& source, std::uint32_t first, T* to) {
  auto const* const from = reinterpret_cast<T const*>(source.data);
  if (source.mask != 0) {
    std::memcpy(to, from + first, tileWidth * sizeof(T));
  } else {
    std::fill_n(to, tileWidth, *from);
  }
}

/// Copies a tile and its border of one cell, 7 x 7 x 7 in all.
template <class T>
void fillBlock(Sources const& sources, T* block) {
  constexpr int edge = tileWidth + 2;
  struct Part {
    int begin, end;  // rows of the block
    int cell;        // of the first of them in its source
  };
  constexpr Part parts[3] = {{0, 1, tileWidth - 1}, {1, edge - 1, 0}, {edge - 1, edge, 0}};
  auto const* three = sources.data();
  for (auto const& pz : parts) {
    for (auto const& py : parts) {
      auto const left = three[0], middle = three[1], right = three[2];
      three += 3;
      auto const* const low = reinterpret_cast<T const*>(left.data);
      auto const* const high = reinterpret_cast<T const*>(right.data);
      for (int z = pz.begin; z < pz.end; ++z) {
        for (int y = py.begin; y < py.end; ++y) {
          auto const row =
              static_cast<std::uint32_t>(cellOf(0, py.cell + y - py.begin, pz.cell + z - pz.begin));
          T* const to = block + edge * (y + edge * z);
          to[0] = low[(row + tileWidth - 1) & left.mask];
          copyRow(middle, row, to + 1);
          to[edge - 1] = high[row & right.mask];
        }
      }
    }
  }
}

}  // namespace

struct HaloedCacheBase::State {
  explicit State(VoxelChannel const& handle)
      : channel(handle), near(*static_cast<VoxelChannelItem const*>(handle.item())) {}

  VoxelChannel channel;
  Neighbourhood near;

  Sources sources(TreeIndex const& index) {
    auto const& item = near.channel();
    Sources sources;
    if (index.depth == 0) {  // the root has no neighbours
      sources.fill({item.background(), 0});
      sources[13] = {item.values(0, index.slot), ~std::uint32_t{0}};
      return sources;
    }
    auto const& record = item.layout().record(index.depth, index.slot);
    near.centre(index.depth - 1, item.layout().branch(index.depth - 1, record.parent).coord);
    auto const cell = cellPositions[static_cast<std::size_t>(record.cell)];
    auto* source = sources.data();
    for (int z = cell.z - 1; z <= cell.z + 1; ++z) {
      for (int y = cell.y - 1; y <= cell.y + 1; ++y) {
        for (int x = cell.x - 1; x <= cell.x + 1; ++x) *source++ = near.source(x, y, z);
      }
    }
    return sources;
  }
};

HaloedCacheBase::~HaloedCacheBase() { delete state_; }

Status HaloedCacheBase::bind(VoxelChannel const& channel, DataType type) {
  delete state_;
  state_ = nullptr;
  if (!channel.valid()) return Status::failure("cannot read the halo of an invalid channel");
  if (channel.dataType() != type) {
    return Status::failure("channel '" + channel.name() + "' is of another type");
  }
  try {
    state_ = new State(channel);
  } catch (std::exception const& error) {
    return Status::failure(error.what());
  }
  return {};
}

Status HaloedCacheBase::gather(TreeIndex const& index, void* block) {
  if (state_ == nullptr) return Status::failure("the haloed cache has no channel");
  auto const& channel = state_->near.channel();
  if (!channel.layout().exists(index)) return Status::failure("no such tile");
  auto const sources = state_->sources(index);
  withBits(channel.size(),
           [&]<class Bits>(Bits*) { fillBlock(sources, static_cast<Bits*>(block)); });
  return {};
}

}  // namespace Velmor::API
