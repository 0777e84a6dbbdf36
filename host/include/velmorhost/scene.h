#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "velmorapi/object_model.h"
#include "velmorapi/state_server.h"

namespace Velmor::Host {

/// A new, empty state server. It lives as long as any handle into it.
VELMOR_EXPORT API::StateServer createStateServer(API::String const& name);
/// A new object in a state server; one of the same name is detached.
VELMOR_EXPORT API::Object createObject(API::StateServer const& server, API::String const& name);
/// Makes an object findable in memory by queries that name `graph` (the name or
/// path of an active graph; it is created if need be) and `frame`. The graph
/// keeps the object until it is removed.
VELMOR_EXPORT void publish(API::Object const& object, API::String const& graph,
                           API::Runtime::Frame frame);

/// Makes the leaf tiles at the given voxels, in bulk and in tree order, so that
/// their values lie in memory in the order in which traversals meet them.
/// Existing tiles are kept; voxels outside the root are ignored.
VELMOR_EXPORT void addLeafTiles(API::Layout const& layout, std::vector<API::TileCoord> voxels);

/// Number of tiles of a depth.
VELMOR_EXPORT std::size_t tileCount(API::Layout const& layout, int depth);

/// Fills a point component: positions in voxel units are sorted into leaf tiles
/// (tile order, then input order) and a channel "position" is made, replacing
/// what the component held. Returns, for each stored point, the place it had in
/// `positions`; positions that are not finite or lie outside the root are left
/// out. Fill further channels with `pointData` in the returned order.
VELMOR_EXPORT std::vector<std::uint32_t> setPoints(
    API::PointComponent const& points, std::vector<orlen::Math::vec<3, float>> const& positions);

/// All values of a point channel, in tile order: `elementCount()` of them. Null
/// if the channel does not hold `T`.
VELMOR_EXPORT void* pointStorage(API::PointChannel const& channel, API::DataType type);
template <class T>
T* pointData(API::PointChannel const& channel) {
  return static_cast<T*>(pointStorage(channel, API::dataTypeOf<T>));
}

/// One bit per cell of a tile, bit (k*5 + j)*5 + i for cell (i, j, k).
struct CellMask {
  std::array<std::uint64_t, 2> words{};
  bool test(int bit) const noexcept {
    return ((words[static_cast<std::size_t>(bit >> 6)] >> (bit & 63)) & 1u) != 0;
  }
  void set(int bit) noexcept {
    words[static_cast<std::size_t>(bit >> 6)] |= std::uint64_t{1} << (bit & 63);
  }
  void reset(int bit) noexcept {
    words[static_cast<std::size_t>(bit >> 6)] &= ~(std::uint64_t{1} << (bit & 63));
  }
  bool operator==(CellMask const& o) const noexcept { return words == o.words; }
};

/// What kind of field a channel is.
enum class FieldClass { Unknown, LevelSet, FogVolume, Staggered };
VELMOR_EXPORT FieldClass fieldClass(API::Channel const& channel);
VELMOR_EXPORT void setFieldClass(API::Channel const& channel, FieldClass fieldClass);

/// Which cells of a tile are active. As stored, where the tile came from a file
/// or was given a mask; else the cells whose value differs from the background
/// (for a level set: from plus and minus the background). Cells that have a
/// child tile are not active.
VELMOR_EXPORT CellMask activeMask(API::Channel const& channel, API::TreeIndex const& index);
VELMOR_EXPORT void setActiveMask(API::Channel const& channel, API::TreeIndex const& index,
                                 CellMask const& mask);
/// Gives `to` the stored active masks of `from`; both on one layout.
VELMOR_EXPORT void copyActiveMasks(API::Channel const& from, API::Channel const& to);

/// A new channel beside an existing one that holds the same: values of all
/// depths, background, active voxels, kind of field and dictionary. One of that
/// name is detached. Invalid if no channel can be made.
VELMOR_EXPORT API::VoxelChannel copyChannel(API::VoxelChannel const& from, API::String const& name);

/// Moves the plateau of a narrow band outwards: values of `channel` at or beyond
/// plus or minus its background, in leaf tiles and coarse cells, become plus or
/// minus `background`, which becomes the channel's. False, and nothing done,
/// unless the channel holds floats and 0 < old background < `background`.
VELMOR_EXPORT bool movePlateau(API::VoxelChannel const& channel, float background);

/// Bytes of memory that a layout's tree and a channel's values occupy.
VELMOR_EXPORT std::size_t memoryUse(API::Layout const& layout);
VELMOR_EXPORT std::size_t memoryUse(API::Channel const& channel);

/// After leaf work such as an import: sets the value of every cell that has a
/// child to the child's centre value (its index 62), from the leaves up.
VELMOR_EXPORT void refreshCoarseValues(API::Channel const& channel);

}  // namespace Velmor::Host
