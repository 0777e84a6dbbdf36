#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "core/item.h"
#include "core/pool.h"
#include "velmorapi/layout.h"

namespace Velmor::API {

class VoxelValues;

inline constexpr int tileWidth = 5;
inline constexpr int tileCells = 125;
inline constexpr int maxLeafDepth = 7;

constexpr int cellOf(int x, int y, int z) noexcept { return x + tileWidth * (y + tileWidth * z); }

/// The position of each cell in its tile.
struct CellPosition {
  std::int8_t x, y, z;
};
inline constexpr auto cellPositions = [] {
  std::array<CellPosition, tileCells> table{};
  for (int c = 0; c < tileCells; ++c) {
    table[static_cast<std::size_t>(c)] = {static_cast<std::int8_t>(c % 5),
                                          static_cast<std::int8_t>(c / 5 % 5),
                                          static_cast<std::int8_t>(c / 25)};
  }
  return table;
}();

/// What every tile has: where it hangs. Leaf tiles have nothing else, which
/// keeps layouts without channels small.
struct TileRecord {
  std::int32_t parent;
  std::int32_t cell;
};

/// What tiles above the leaves have besides: their place, and for each cell the
/// slot of the child plus one, 0 for none, -1 while a thread is making it.
struct Branch {
  TileCoord coord;
  std::array<std::atomic<std::int32_t>, tileCells> children;
};
static_assert(sizeof(Branch) == 512);

/// Guards child tables while tiles are made, which takes little time.
class alignas(64) TileLock {
 public:
  void lock() noexcept {
    while (taken_.exchange(true, std::memory_order_acquire)) std::this_thread::yield();
  }
  void unlock() noexcept { taken_.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> taken_{false};
};

/// The sparse tile tree behind a `Layout`. Adding and finding tiles are safe
/// from any number of threads.
class LayoutItem final : public Item {
 public:
  static bool is(ItemKind kind) noexcept { return kind == ItemKind::Layout; }

  /// Takes its shape from the layout settings.
  LayoutItem(std::string name, Item* server, float voxelScale);

  StateID stateID() const override { return parent() != nullptr ? parent()->stateID() : 0; }
  std::shared_ptr<DictionaryStore> dictionary() const override { return dictionary_; }

  int leafDepth() const noexcept { return leafDepth_; }
  bool centred() const noexcept { return centred_; }
  int reportedWidth() const noexcept { return reportedWidth_; }
  float voxelScale() const noexcept { return voxelScale_.load(std::memory_order_relaxed); }
  void setVoxelScale(float scale) noexcept { voxelScale_.store(scale, std::memory_order_relaxed); }

  /// Edge of a tile in voxels.
  std::int32_t extent(int depth) const noexcept { return extents_[at(depth)]; }
  TileDimInfo info(int depth) const noexcept { return {extent(depth), reportedWidth_}; }
  TileCoord rootOrigin() const noexcept { return {rootOrigin_, rootOrigin_, rootOrigin_}; }
  bool inRoot(TileCoord const& v) const noexcept { return inside(v, rootOrigin(), extent(0)); }

  /// Slots in use at a depth.
  std::int32_t count(int depth) const noexcept {
    return counts_[at(depth)].load(std::memory_order_acquire);
  }
  bool exists(TreeIndex const& index) const noexcept {
    return index.depth >= 0 && index.depth <= leafDepth_ && index.slot >= 0 &&
           index.slot < count(index.depth);
  }
  /// Changes whenever a tile is added. Not less than what any look-up that
  /// started before has seen.
  std::uint64_t stamp() const noexcept {
    return (static_cast<std::uint64_t>(counts_[at(leafDepth_)].load(std::memory_order_acquire))
            << 32) |
           branchCount_.load(std::memory_order_acquire);
  }

  TileRecord const& record(int depth, std::int32_t slot) const noexcept {
    return *reinterpret_cast<TileRecord const*>(records_[at(depth)].at(slot));
  }
  /// Only for depths above the leaves.
  Branch& branch(int depth, std::int32_t slot) const noexcept {
    return *reinterpret_cast<Branch*>(branches_[at(depth)].at(slot));
  }
  TileCoord coord(int depth, std::int32_t slot) const noexcept;

  static bool inside(TileCoord const& v, TileCoord const& origin, std::int32_t extent) noexcept {
    auto const e = static_cast<std::uint32_t>(extent);
    return difference(v.i, origin.i) < e && difference(v.j, origin.j) < e &&
           difference(v.k, origin.k) < e;
  }

  /// The cell that holds a voxel of the tile of `depth` that starts at `origin`.
  int cellAt(int depth, TileCoord const& origin, TileCoord const& v) const noexcept {
    auto const factor = cellFactors_[at(depth)];
    auto const along = [factor](std::int32_t a, std::int32_t b) {
      return static_cast<int>((difference(a, b) * factor) >> 40);
    };
    return cellOf(along(v.i, origin.i), along(v.j, origin.j), along(v.k, origin.k));
  }

  /// An entry of a child table: the slot plus one, or 0. Waits for a tile that
  /// another thread is just making, so that a stamp read before a look-up covers
  /// what the look-up did not find.
  static std::int32_t settled(std::atomic<std::int32_t> const& entry) noexcept {
    auto seen = entry.load(std::memory_order_acquire);
    while (seen < 0) {
      std::this_thread::yield();
      seen = entry.load(std::memory_order_acquire);
    }
    return seen;
  }
  /// The slot of the root, or -1.
  std::int32_t root() const noexcept { return settled(root_) - 1; }
  /// The slot of a child, or -1. `depth` is the parent's.
  std::int32_t child(int depth, std::int32_t slot, int cell) const noexcept {
    return settled(branch(depth, slot).children[static_cast<std::size_t>(cell)]) - 1;
  }
  /// Makes them where there are none; -1 if memory or slots run out.
  std::int32_t addRoot() noexcept;
  std::int32_t addChild(int depth, std::int32_t slot, int cell) noexcept {
    auto& entry = branch(depth, slot).children[static_cast<std::size_t>(cell)];
    auto const seen = entry.load(std::memory_order_acquire);
    return seen > 0 ? seen - 1 : addTile(entry, depth + 1, {slot, cell});
  }
  /// Makes the missing ones of a tile right above the leaves, in the order of
  /// `cells`, of which there are 125 at most; none if memory or slots run out.
  void addLeaves(std::int32_t slot, std::uint8_t const* cells, int count) noexcept;

  /// Of a chain of tiles, `slots[0]` to `slots[depth]`, the deepest above the
  /// leaves that holds the voxel; -1 if none does.
  int ascend(std::int32_t const* slots, int depth, TileCoord const& v) const noexcept {
    if (depth >= leafDepth_) depth = leafDepth_ - 1;
    while (depth >= 0 && !inside(v, branch(depth, slots[depth]).coord, extent(depth))) --depth;
    return depth;
  }
  /// Continues the chain down to the deepest existing tile that holds the
  /// voxel, no deeper than `last`; returns its depth. `depth` is what `ascend`
  /// returned; -1 is the result for voxels outside the root.
  int descend(std::int32_t* slots, int depth, TileCoord const& v, int last) const noexcept;

  /// The slots of a depth in traversal order. Null when slot order is it.
  using Order = std::shared_ptr<std::vector<std::int32_t>>;
  struct DepthTiles {
    std::int32_t count = 0;
    Order order;
    std::int32_t slot(std::int32_t at) const noexcept {
      return order ? (*order)[static_cast<std::size_t>(at)] : at;
    }
  };
  DepthTiles tiles(int depth) const;

  /// Registers values that have to grow with the tree, and takes them out again.
  void attach(VoxelValues* values);
  void detach(VoxelValues* values);

  /// A number that sorts voxels by the tree order of their leaf tiles, equal
  /// within a tile; for voxels inside the root.
  std::uint64_t leafKey(TileCoord const& v) const noexcept;

  std::size_t memoryUse() const;

 private:
  static constexpr std::size_t at(int depth) noexcept { return static_cast<std::size_t>(depth); }
  static constexpr std::uint32_t difference(std::int32_t a, std::int32_t b) noexcept {
    return static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b);
  }
  DepthTiles orderedTiles(int depth) const;
  TileLock& lockOf(int depth, std::int32_t parent) noexcept {
    return locks_[(static_cast<std::size_t>(parent) + at(depth)) % locks_.size()];
  }
  /// The first of `count` new slots, or -1 if there are not so many.
  std::int32_t reserve(int depth, std::int32_t count) noexcept;
  std::int32_t addTile(std::atomic<std::int32_t>& entry, int depth, TileRecord record) noexcept;
  void makeTile(int depth, std::int32_t slot, TileRecord record);
  void makeLeaves(std::int32_t first, std::int32_t parent, std::uint8_t const* cells, int count);
  void makeValues(int depth, std::int32_t first, int count);

  int leafDepth_;
  int reportedWidth_;
  bool centred_;
  std::int32_t rootOrigin_;
  std::atomic<float> voxelScale_;
  std::array<std::int32_t, maxLeafDepth + 2> extents_{};
  std::array<std::uint64_t, maxLeafDepth + 1> cellFactors_{};

  std::atomic<std::int32_t> root_{0};
  std::array<std::atomic<std::int32_t>, maxLeafDepth + 1> counts_{};
  std::atomic<std::uint32_t> branchCount_{0};
  std::array<Host::Pool, maxLeafDepth + 1> records_;
  std::array<Host::Pool, maxLeafDepth> branches_;

  std::atomic<bool> hasValues_{false};
  std::shared_mutex valuesMutex_;
  std::vector<VoxelValues*> values_;

  mutable std::mutex orderMutex_;
  mutable std::array<DepthTiles, maxLeafDepth + 1> orders_;  // good while no tile is added

  std::shared_ptr<DictionaryStore> dictionary_;

  std::array<TileLock, 32> locks_;  // each of the child tables of many tiles
};

/// Values that follow the tiles of a layout: a channel's storage, as its tree sees it.
class VoxelValues {
 public:
  /// Makes room for a new tile and gives it its first values. Called by the
  /// thread that adds the tile, before anybody can find it.
  virtual void addTile(int depth, std::int32_t slot, TileRecord const& record) = 0;

 protected:
  ~VoxelValues() = default;
};

}  // namespace Velmor::API
