#pragma once

#include <cstdint>

#include "velmorapi/export.h"
#include "velmorapi/ref.h"
#include "velmorapi/status.h"
#include "velmorapi/types.h"

namespace Velmor::API {

class TileAccessor;
class Visitor;

/// One tile of a layout, as a plain value; invalid when default constructed.
class VELMOR_EXPORT Tile {
 public:
  Tile() noexcept = default;
  Tile(Item* layout, TreeIndex const& index, TileCoord const& coord,
       TileDimInfo const& info) noexcept
      : layout_(layout), index_(index), coord_(coord), info_(info) {}

  bool valid() const noexcept { return index_.depth >= 0; }
  TreeIndex const& index() const noexcept { return index_; }
  /// The first voxel of the tile, in voxels of the finest depth.
  TileCoord const& coord() const noexcept { return coord_; }
  /// The dimensions of the tile: voxels and cells along its edge.
  TileDimInfo const& info() const noexcept { return info_; }
  /// The tile in cell (x, y, z), each from 0 to width - 1; invalid if there is none.
  Tile child(int x, int y, int z) const;

 private:
  Item* layout_ = nullptr;  // not owned: a tile is used while its layout lives
  TreeIndex index_;
  TileCoord coord_;
  TileDimInfo info_;
};

/// Finds and adds the tiles of one layout. It remembers where it was last, so
/// one accessor object serves one thread; copies are cheap and independent, and
/// several accessors of one layout may add tiles at the same time. Keeps its
/// layout alive.
class VELMOR_EXPORT TileAccessor {
 public:
  TileAccessor() noexcept = default;
  /// An accessor for the layout behind `layout`; invalid if it is no layout.
  explicit TileAccessor(Ref const& layout) noexcept;

  bool valid() const noexcept { return layout_.valid(); }

  /// The deepest existing tile that holds voxel (i, j, k), no deeper than
  /// `depth`; invalid outside the root.
  Tile tile(int i, int j, int k, int depth) const;
  /// The tile of an index.
  Tile tile(TreeIndex const& index) const;
  /// Like `tile(i, j, k, depth)`, but its index alone; depth -1 outside the root.
  TreeIndex index(TileCoord const& voxel, int depth) const;

  /// Makes the tile of `depth` that holds the voxel, with all its ancestors,
  /// and returns it; returns an existing one untouched. Values of a new tile
  /// start as the value of the parent's cell, in every channel. Does nothing
  /// outside the root or beyond the leaf depth. Moves no memory.
  TreeIndex addTile(TileCoord const& voxel, int depth) const {
    // Most calls ask for an ancestor of the tile that was asked for last.
    if (depth >= 0 && depth <= known_.depth && known_.holds(voxel)) {
      return {known_.slots[depth], depth};
    }
    return addTileSlow(voxel, depth);
  }
  TreeIndex addTile(int i, int j, int k, int depth) const {
    return addTile(TileCoord{i, j, k}, depth);
  }

 private:
  // A chain of existing tiles down to `depth`, filled by the host as it likes:
  // a host that never fills it sees every call.
  struct Chain {
    TileCoord origin;          // of the deepest tile of the chain
    std::uint32_t extent = 0;  // its edge in voxels
    std::int32_t depth = -1;
    std::int32_t slots[16] = {};
    bool holds(TileCoord const& v) const noexcept {
      return static_cast<std::uint32_t>(v.i) - static_cast<std::uint32_t>(origin.i) < extent &&
             static_cast<std::uint32_t>(v.j) - static_cast<std::uint32_t>(origin.j) < extent &&
             static_cast<std::uint32_t>(v.k) - static_cast<std::uint32_t>(origin.k) < extent;
    }
  };

  TreeIndex addTileSlow(TileCoord const& voxel, int depth) const;

  Ref layout_;
  mutable Chain known_;
};

/// Steps through the tiles of a depth range, coarse depths first, within a
/// depth in recursive child order (x fastest, then y, then z). Tiles added
/// after it was made are not met.
class VELMOR_EXPORT TileIterator {
 public:
  TileIterator() noexcept = default;
  TileIterator(Ref const& layout, Array<TreeIndex> tiles)
      : layout_(layout), tiles_(std::move(tiles)) {}
  bool valid() const noexcept { return at_ < tiles_.count(); }
  void next() noexcept { ++at_; }
  TreeIndex const& index() const noexcept { return tiles_[at_]; }

 private:
  Ref layout_;  // keeps the tiles alive
  Array<TreeIndex> tiles_;
  std::size_t at_ = 0;
};

/// A sparse tree of tiles with a fixed number of cells per tile. Depth 0 is
/// the root, `maxDepth()` the leaves, whose cells are voxels. Holds no values:
/// channels do.
class VELMOR_EXPORT Layout : public StateServerItem {
 public:
  Layout() noexcept = default;
  Layout(Ref const& ref) noexcept;

  /// The world size of a voxel; 1 for an invalid layout.
  float voxelScale() const;
  void setVoxelScale(float scale) const;
  /// The leaf depth; 0 for an invalid layout.
  int maxDepth() const;
  /// The dimensions of the tiles of `depth`; zeros for an invalid layout or depth.
  TileDimInfo tileDimInfo(int depth) const;
  TileAccessor tileAccessor() const;
  /// Tiles of the depths `minDepth` to `maxDepth`. The mode changes nothing.
  TileIterator tileIterator(int minDepth, int maxDepth, TraversalMode mode) const;

  /// Visits every tile once. With several workers each has a copy of the
  /// visitor, and the copies are joined into `visitor` in the order of their
  /// tiles. Fails for an invalid layout. The visitor's methods must not throw.
  Status traverse(Visitor& visitor, TraversalMode mode) const;
  /// The same for the tiles whose depth lies in [minDepth, maxDepth].
  Status traverse(Visitor& visitor, TraversalMode mode, int minDepth, int maxDepth) const;
};

/// Work to be done on each tile of a traversal. The defaults do nothing.
class VELMOR_EXPORT Visitor {
 public:
  Visitor() = default;
  virtual ~Visitor();
  /// Called once on the visitor handed to `traverse`, before and after all tiles
  /// (after all copies were joined).
  virtual void beginTraverse();
  virtual void endTraverse();
  /// Called once per tile.
  virtual void beginTile(TileAccessor const& accessor, TreeIndex const& index);
  virtual void endTile(TileAccessor const& accessor, TreeIndex const& index);
  /// A further hook of the interface that hosts may call per voxel; this library needs none.
  virtual void visitVoxel(TileAccessor const& accessor, TreeIndex const& index, int i, int j,
                          int k);
  /// A new visitor for another worker, owned by the host; null (the default)
  /// keeps the traversal on one worker.
  virtual Visitor* copy() const;
  /// Takes over what a copy has gathered. `other` is a result of `copy()`.
  virtual void join(Visitor const& other);

 protected:
  Visitor(Visitor const&) = default;
  Visitor& operator=(Visitor const&) = default;
};

}  // namespace Velmor::API
