#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/channel_item.h"
#include "files/tree_shape.h"
#include "velmorhost/scene.h"

namespace Velmor::Host::Files {

/// A voxel channel as a function over all voxels, for regrouping its tiles into
/// blocks of another width. Reads only; any number of threads.
class SourceField {
 public:
  static constexpr std::int64_t none = std::int64_t{1} << 40;
  /// Coarse cells of `detached` voxels along an edge and more count as empty world.
  explicit SourceField(API::VoxelChannelItem const& channel, std::int64_t detached = none);

  TreeShape shape() const noexcept { return {layout_.leafDepth(), layout_.centred() ? 1 : 0}; }

  /// Both corners included.
  struct Box {
    std::int64_t lo[3];
    std::int64_t hi[3];
    static Box cube(std::int64_t i, std::int64_t j, std::int64_t k, std::int64_t edge) {
      return {{i, j, k}, {i + edge - 1, j + edge - 1, k + edge - 1}};
    }
  };
  struct Block {
    std::int64_t i, j, k;
    bool operator==(Block const&) const = default;
    auto operator<=>(Block const&) const = default;  // NOLINT(modernize-use-nullptr)
  };
  struct Value {
    std::byte const* bytes = nullptr;  ///< null: nothing known yet
    bool active = false;
  };

  std::size_t size() const noexcept { return channel_.size(); }
  /// The value of the empty world: what most cells of the root hold that nothing
  /// refines. A filter over all depths moves it away from the channel's
  /// background; a file that kept the background would have to spell out the
  /// whole world.
  std::byte const* empty() const noexcept { return empty_; }
  bool isEmpty(std::byte const* value) const noexcept {
    return std::memcmp(value, empty_, size()) == 0;
  }
  /// The channel's own background where that is another value, else null.
  std::byte const* otherBackground() const noexcept {
    return isEmpty(channel_.background()) ? nullptr : channel_.background();
  }

  /// The blocks of `edge` voxels, aligned to multiples of it, that may hold
  /// anything but the inactive empty world within `box`; sorted.
  std::vector<Block> blocks(Box const& box, std::int64_t edge) const;

  /// Whether a box holds one value and state throughout; `value` says which.
  bool uniform(Box const& box, Value& value) const;
  /// The same for the voxels of a tile.
  bool uniformTile(int depth, std::int32_t slot) const;

  Box everything() const noexcept;

  /// Calls function(depth, tile, cell, value) for every cell that counts as
  /// empty world though it holds something else.
  template <class Function>
  void forDetached(Function const& function) const {
    for (int d = 0; d < layout_.leafDepth() && isDetached(d); ++d) {
      for (std::int32_t slot = 0; slot < layout_.count(d); ++slot) {
        auto const mask = maskOf(d, slot);
        for (int c = 0; c < API::tileCells; ++c) {
          auto const* const value = channel_.values(d, slot) + static_cast<std::size_t>(c) * size();
          if (layout_.child(d, slot, c) < 0 && (mask.test(c) || !isEmpty(value))) {
            function(d, layout_.coord(d, slot), c, Value{value, mask.test(c)});
          }
        }
      }
    }
  }

  /// The cells of five voxels that a box of up to 128 voxels meets.
  class Window {
   public:
    Window(SourceField const& field, Box const& box);

    struct Cell {
      std::byte const* values = nullptr;  ///< 125 of a leaf tile, or the one of a coarse cell
      CellMask mask;                      ///< of a leaf; a coarse cell has all or nothing
      bool leaf = false;
    };
    /// A stretch of a block's voxels along an axis that lies in one cell.
    struct Stretch {
      std::int64_t cell = 0;
      int from = 0;    ///< where it starts in the block
      int within = 0;  ///< and in the cell
      int length = 0;
    };
    /// The two or three stretches of a block of eight voxels from `v` on.
    struct Stretches {
      std::array<Stretch, 3> parts;
      std::size_t count = 0;
      Stretch const* begin() const noexcept { return parts.data(); }
      Stretch const* end() const noexcept { return parts.data() + count; }
    };
    Stretches stretches(int axis, std::int64_t v) const noexcept;
    /// What covers a block: true and the value if it is uniform without a look
    /// at voxels; false if voxels have to be gathered.
    bool uniform(Stretches const& i, Stretches const& j, Stretches const& k,
                 Value& value) const noexcept;

    Cell const& at(Stretch const& i, Stretch const& j, Stretch const& k) const noexcept {
      return cells_[static_cast<std::size_t>((k.cell * count_[1] + j.cell) * count_[0] + i.cell)];
    }

   private:
    std::int64_t cellAlong(int axis, std::int64_t v) const noexcept {
      return (v - origin_) / 5 - first_[axis];
    }
    void fill(SourceField const& field, int depth, std::int32_t slot, API::TileCoord const& coord);
    void cover(Box const& box, Cell const& cell);

    std::int64_t origin_;    // below every voxel, and where a cell starts
    std::int64_t first_[3];  // cell numbers, counted from the origin
    std::int64_t count_[3];
    Box box_;
    std::size_t size_;
    std::vector<Cell> cells_;
  };

 private:
  friend class Window;
  CellMask maskOf(int depth, std::int32_t slot) const;
  std::byte const* findEmpty() const;
  bool isDetached(int depth) const noexcept {
    return layout_.extent(depth) / API::tileWidth >= detached_;
  }
  /// What a cell without a child is written as.
  Value cellValue(int depth, CellMask const& mask, std::byte const* values,
                  int cell) const noexcept {
    if (isDetached(depth)) return {empty_, false};
    return {values + static_cast<std::size_t>(cell) * size(), mask.test(cell)};
  }
  bool add(Value& value, std::byte const* bytes, bool active) const noexcept;
  void collect(int depth, std::int32_t slot, API::TileCoord const& coord, Box const& box,
               std::int64_t edge, std::vector<Block>& out) const;
  bool uniformIn(int depth, std::int32_t slot, API::TileCoord const& coord, Box const& box,
                 Value& value) const;
  Box cellBox(int depth, API::TileCoord const& coord, int cell) const noexcept;

  API::VoxelChannelItem const& channel_;
  API::LayoutItem const& layout_;
  API::VoxelChannel handle_;
  std::byte const* empty_;
  std::int64_t detached_;
};

}  // namespace Velmor::Host::Files
