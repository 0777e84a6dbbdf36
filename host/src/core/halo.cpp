#include "velmorapi/halo.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <utility>

#include "core/channel_item.h"
#include "core/neighbourhood.h"

namespace Velmor::API {

namespace {

/// The rows of a block that come from one source along an axis.
struct Part {
  int begin, count;
  int cell;  // of the first of them in its source
};
constexpr Part parts[3] = {{0, 1, tileWidth - 1}, {1, tileWidth, 0}, {tileWidth + 1, 1, 0}};
constexpr int edge = tileWidth + 2;

/// Copies a column of cells at `x` of their source to one place of each row.
template <class T, Part py, Part pz>
void fillColumn(CellSource const& source, int x, T* __restrict to) {
  // Of a single value all steps are 0.
  auto const masked = [&source](int cell) {
    return static_cast<std::size_t>(static_cast<std::uint32_t>(cell) & source.mask);
  };
  auto const* plane = reinterpret_cast<T const*>(source.data) + masked(cellOf(x, py.cell, pz.cell));
  auto const stepY = masked(cellOf(0, 1, 0)), stepZ = masked(cellOf(0, 0, 1));
  for (int z = 0; z < pz.count; ++z, plane += stepZ) {
    auto const* from = plane;
    for (int y = 0; y < py.count; ++y, from += stepY) to[edge * (y + edge * z)] = *from;
  }
}

/// Fills the rows of one part along y and one along z from the sources of their
/// left end, their middle and their right end.
template <class T, Part py, Part pz>
void fillRows(CellSource const* three, T* __restrict block) {
  T* const rows = block + edge * (py.begin + edge * pz.begin);
  fillColumn<T, py, pz>(three[0], tileWidth - 1, rows);
  auto const* const middle = reinterpret_cast<T const*>(three[1].data);
  if (three[1].mask != 0) {
    for (int z = 0; z < pz.count; ++z) {
      for (int y = 0; y < py.count; ++y) {
        std::memcpy(rows + 1 + edge * (y + edge * z), middle + cellOf(0, py.cell + y, pz.cell + z),
                    tileWidth * sizeof(T));
      }
    }
  } else {
    for (int z = 0; z < pz.count; ++z) {
      for (int y = 0; y < py.count; ++y) {
        std::fill_n(rows + 1 + edge * (y + edge * z), tileWidth, *middle);
      }
    }
  }
  fillColumn<T, py, pz>(three[2], 0, rows + edge - 1);
}

/// Copies a tile and its border of one cell, 7 x 7 x 7 in all.
template <class T>
void fillBlock(Neighbourhood::Sources const& sources, T* block) {
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    (fillRows<T, parts[I % 3], parts[I / 3]>(&sources[3 * I], block), ...);
  }
  (std::make_index_sequence<9>());
}

}  // namespace

struct HaloedCacheBase::State {
  explicit State(VoxelChannel const& handle)
      : channel(handle), near(*static_cast<VoxelChannelItem const*>(handle.item())) {}

  VoxelChannel channel;
  Neighbourhood near;
  Neighbourhood::Sources rootSources;

  Neighbourhood::Sources const& sources(TreeIndex const& index) {
    auto const& item = near.channel();
    if (index.depth == 0) {  // the root has no neighbours
      rootSources.fill({item.background(), 0});
      rootSources[13] = {item.values(0, index.slot), ~std::uint32_t{0}};
      return rootSources;
    }
    auto const& record = item.layout().record(index.depth, index.slot);
    near.centre(index.depth - 1, item.layout().branch(index.depth - 1, record.parent).coord);
    return near.sources(record.cell);
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
  auto const& sources = state_->sources(index);
  withBits(channel.size(),
           [&]<class Bits>(Bits*) { fillBlock(sources, static_cast<Bits*>(block)); });
  return {};
}

}  // namespace Velmor::API
