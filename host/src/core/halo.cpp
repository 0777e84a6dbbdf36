#include "velmorapi/halo.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>

#include "core/channel_item.h"

namespace Velmor::API {

namespace {

/// Where a tile's cells, or what stands for them, are stored: an array of 125
/// (all bits of the mask), or one value that stands for all (none).
struct Source {
  std::byte const* data;
  std::uint32_t mask;
};

constexpr std::size_t at(int i) noexcept { return static_cast<std::size_t>(i); }

/// Copies a tile and its border. The 27 sources are the tile (13) and its
/// neighbours, x fastest.
template <class T>
void fillBlock(std::array<Source, 27> const& sources, T* block) {
  for (int z = -1; z <= tileWidth; ++z) {
    int const nz = z < 0 ? 0 : (z < tileWidth ? 1 : 2);
    for (int y = -1; y <= tileWidth; ++y) {
      int const ny = y < 0 ? 0 : (y < tileWidth ? 1 : 2);
      auto const row =
          static_cast<std::uint32_t>(cellOf(0, y - tileWidth * (ny - 1), z - tileWidth * (nz - 1)));
      auto const* const three = &sources[at(3 * (ny + 3 * nz))];
      auto const value = [&](int n, std::uint32_t x) {
        return reinterpret_cast<T const*>(three[n].data)[(row + x) & three[n].mask];
      };
      block[0] = value(0, 4);
      if (three[1].mask != 0) {
        std::memcpy(block + 1, reinterpret_cast<T const*>(three[1].data) + row,
                    tileWidth * sizeof(T));
      } else {
        std::fill_n(block + 1, tileWidth, value(1, 0));
      }
      block[6] = value(2, 0);
      block += 7;
    }
  }
}

}  // namespace

struct HaloedCacheBase::State {
  VoxelChannel channel;
  VoxelChannelItem const* item = nullptr;

  // The 27 tiles around the parent of the last tile, found when first needed.
  std::int32_t parent = -1;
  int parentDepth = -1;
  std::uint64_t stamp = 0;
  TileCoord parentOrigin;
  struct Neighbour {
    std::int32_t slot;         // of the tile beside the parent; -1 if there is none
    std::byte const* instead;  // then: the coarser cell or background there
    bool known;
  };
  std::array<Neighbour, 27> neighbours;

  // The last path through the tree.
  std::array<std::int32_t, maxLeafDepth + 1> slots{};
  int depth = -1;

  void enter(int depthOfParent, std::int32_t slotOfParent) {
    auto const now = item->layout().stamp();
    if (parentDepth == depthOfParent && parent == slotOfParent && stamp == now) return;
    parent = slotOfParent;
    parentDepth = depthOfParent;
    stamp = now;
    parentOrigin = item->layout().coord(parentDepth, parent);
    for (auto& neighbour : neighbours) neighbour.known = false;
    neighbours[13] = {parent, nullptr, true};
  }

  void find(int n) {
    auto const& layout = item->layout();
    auto const extent = layout.extent(parentDepth);
    TileCoord const voxel{parentOrigin.i + (n % 3 - 1) * extent,
                          parentOrigin.j + (n / 3 % 3 - 1) * extent,
                          parentOrigin.k + (n / 9 - 1) * extent};
    int const from = layout.ascend(slots.data(), std::min(depth, parentDepth), voxel);
    depth = layout.descend(slots.data(), from, voxel, parentDepth);
    auto& neighbour = neighbours[at(n)];
    neighbour = {-1, item->background(), true};
    if (depth < 0) return;
    auto const slot = slots[at(depth)];
    if (depth == parentDepth) {
      neighbour.slot = slot;
    } else {
      auto const cell = layout.cellAt(depth, layout.branch(depth, slot).coord, voxel);
      neighbour.instead = item->values(depth, slot) + at(cell) * item->size();
    }
  }

  Source source(int x, int y, int z) {
    auto const outside = [](int a) { return a < 0 ? 0 : (a < tileWidth ? 1 : 2); };
    int const nx = outside(x), ny = outside(y), nz = outside(z);
    int const n = nx + 3 * (ny + 3 * nz);
    if (!neighbours[at(n)].known) find(n);
    auto const& neighbour = neighbours[at(n)];
    if (neighbour.slot < 0) return {neighbour.instead, 0};
    auto const cell =
        cellOf(x - tileWidth * (nx - 1), y - tileWidth * (ny - 1), z - tileWidth * (nz - 1));
    auto const child = item->layout().child(parentDepth, neighbour.slot, cell);
    if (child >= 0) return {item->values(parentDepth + 1, child), ~std::uint32_t{0}};
    return {item->values(parentDepth, neighbour.slot) + at(cell) * item->size(), 0};
  }

  std::array<Source, 27> sources(TreeIndex const& index) {
    std::array<Source, 27> sources;
    if (index.depth == 0) {  // the root has no neighbours
      sources.fill({item->background(), 0});
      sources[13] = {item->values(0, index.slot), ~std::uint32_t{0}};
      return sources;
    }
    auto const& record = item->layout().record(index.depth, index.slot);
    enter(index.depth - 1, record.parent);
    auto const cell = cellPositions[at(record.cell)];
    auto* source = sources.data();
    for (int z = cell.z - 1; z <= cell.z + 1; ++z) {
      for (int y = cell.y - 1; y <= cell.y + 1; ++y) {
        for (int x = cell.x - 1; x <= cell.x + 1; ++x) *source++ = this->source(x, y, z);
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
    state_ = new State;
    state_->channel = channel;
    state_->item = static_cast<VoxelChannelItem const*>(channel.item());
  } catch (std::exception const& error) {
    return Status::failure(error.what());
  }
  return {};
}

Status HaloedCacheBase::gather(TreeIndex const& index, void* block) {
  if (state_ == nullptr) return Status::failure("the haloed cache has no channel");
  if (!state_->item->layout().exists(index)) return Status::failure("no such tile");
  auto const sources = state_->sources(index);
  withBits(state_->item->size(),
           [&]<class Bits>(Bits*) { fillBlock(sources, static_cast<Bits*>(block)); });
  return {};
}

}  // namespace Velmor::API
