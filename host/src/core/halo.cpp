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

/// The rows of a block that come from one source along an axis.
struct Part {
  int begin, count;
  int cell;  // of the first of them in its source
};
constexpr Part parts[3] = {{0, 1, tileWidth - 1}, {1, tileWidth, 0}, {tileWidth + 1, 1, 0}};
constexpr int edge = tileWidth + 2;

/// Fills the rows of one part along y and one along z from the sources of their
/// left end, their middle and their right end.
template <class T, class CopyMiddle>
void fillRows(CellSource const* three, Part const& py, Part const& pz, T* block,
              CopyMiddle const& copyMiddle) {
  auto const* const low = reinterpret_cast<T const*>(three[0].data);
  auto const* const high = reinterpret_cast<T const*>(three[2].data);
  auto const lowMask = three[0].mask, highMask = three[2].mask;
  for (int z = 0; z < pz.count; ++z) {
    auto row = static_cast<std::uint32_t>(cellOf(0, py.cell, pz.cell + z));
    T* to = block + edge * (py.begin + edge * (pz.begin + z));
    for (int y = 0; y < py.count; ++y, row += tileWidth, to += edge) {
      to[0] = low[(row + tileWidth - 1) & lowMask];
      copyMiddle(row, to + 1);
      to[edge - 1] = high[row & highMask];
    }
  }
}

/// Copies a tile and its border of one cell, 7 x 7 x 7 in all.
template <class T>
void fillBlock(Sources const& sources, T* block) {
  auto const* three = sources.data();
  for (auto const& pz : parts) {
    for (auto const& py : parts) {
      auto const* const middle = reinterpret_cast<T const*>(three[1].data);
      if (three[1].mask != 0) {
        fillRows(three, py, pz, block, [middle](std::uint32_t row, T* to) {
          std::memcpy(to, middle + row, tileWidth * sizeof(T));
        });
      } else {
        fillRows(three, py, pz, block,
                 [middle](std::uint32_t, T* to) { std::fill_n(to, tileWidth, *middle); });
      }
      three += 3;
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
    near.sources(cellPositions[static_cast<std::size_t>(record.cell)], sources);
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
