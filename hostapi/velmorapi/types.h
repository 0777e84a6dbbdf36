#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "velmorapi/export.h"
#include "velmorapi/math.h"

namespace Velmor::API {

/// The value types of channels. The library works on the six listed here;
/// other numbers belong to the host and are refused where a type is checked.
enum class DataType : std::int32_t {
  None = 0,
  Float = 1,
  Float2 = 2,
  Float3 = 3,
  Int = 4,
  Int2 = 8,
  Int3 = 9,
};

/// The `DataType` that names the C++ value type `T`; `None` for all others.
template <class T>
inline constexpr DataType dataTypeOf = DataType::None;
template <>
inline constexpr DataType dataTypeOf<float> = DataType::Float;
template <>
inline constexpr DataType dataTypeOf<orlen::Math::vec<2, float>> = DataType::Float2;
template <>
inline constexpr DataType dataTypeOf<orlen::Math::vec<3, float>> = DataType::Float3;
template <>
inline constexpr DataType dataTypeOf<int> = DataType::Int;
template <>
inline constexpr DataType dataTypeOf<orlen::Math::vec<2, int>> = DataType::Int2;
template <>
inline constexpr DataType dataTypeOf<orlen::Math::vec<3, int>> = DataType::Int3;

/// The components of a value of a type, 1 to 3; 0 for `None` and for numbers that
/// belong to the host.
constexpr std::size_t componentsOf(DataType type) noexcept {
  switch (type) {
    case DataType::Float:
    case DataType::Int:
      return 1;
    case DataType::Float2:
    case DataType::Int2:
      return 2;
    case DataType::Float3:
    case DataType::Int3:
      return 3;
    case DataType::None:
      break;
  }
  return 0;
}
/// Bytes of a value of a type; 0 like its components.
constexpr std::size_t valueSize(DataType type) noexcept { return 4 * componentsOf(type); }

/// How a traversal visits tiles. Mode 0 visits on the calling thread with the
/// visitor itself; every other value, named or not, may visit on several
/// workers with copies. The mode never changes a result.
enum class TraversalMode : std::int32_t {
  Serial = 0,
  Tiles = 3,   ///< what every filter and mixer asks for
  Mesh = 7,    ///< what the mesher asks for
  Bounds = 8,  ///< what the bounding box asks for
};

/// The coordinates in which a voxel sampler takes its positions.
enum class SamplerSpace : std::int32_t {
  Index = 1,  ///< voxel units: voxel i covers [i, i + 1)
  World = 2,  ///< voxel units times the layout's voxel scale
};

/// The lower corner of a tile, or any voxel, in voxels of the finest depth.
struct TileCoord {
  std::int32_t i = 0, j = 0, k = 0;
  friend constexpr bool operator==(TileCoord const& a, TileCoord const& b) noexcept {
    return a.i == b.i && a.j == b.j && a.k == b.k;
  }
  friend constexpr bool operator!=(TileCoord const& a, TileCoord const& b) noexcept {
    return !(a == b);
  }
};

/// Names one tile of a layout: its slot among the tiles of its depth, and the
/// depth, 0 for the root and -1 for no tile at all. Stays good while the layout
/// lives: tiles are never removed or moved.
struct TreeIndex {
  std::int32_t slot = -1;
  std::int32_t depth = -1;
  constexpr bool valid() const noexcept { return depth >= 0; }
  friend constexpr bool operator==(TreeIndex const& a, TreeIndex const& b) noexcept {
    return a.slot == b.slot && a.depth == b.depth;
  }
  friend constexpr bool operator!=(TreeIndex const& a, TreeIndex const& b) noexcept {
    return !(a == b);
  }
};

/// The dimensions of the tiles of one depth.
struct TileDimInfo {
  std::int32_t extent = 0;  ///< edge length in voxels of the finest depth
  std::int32_t width = 0;   ///< cells per edge; 0 for an invalid layout
};

/// The storage of one tile of a channel of value type `T`: `count` elements
/// from `data` on, halo elements included. Interior element (i, j, k) is at
/// (halo+i)*strides[0] + (halo+j)*strides[1] + (halo+k)*strides[2]. Of a point
/// channel: the values of the tile's points, in order. Null and 0 where the
/// channel or the tile is invalid or `T` is not the channel's type.
template <class T>
struct TileData {
  T* data = nullptr;
  std::size_t count = 0;
  std::int32_t halo = 0;
  std::int32_t strides[3] = {0, 0, 0};

  /// The position of interior element (i, j, k) in `data`.
  constexpr std::ptrdiff_t offset(int i, int j, int k) const noexcept {
    return std::ptrdiff_t{halo + i} * strides[0] + std::ptrdiff_t{halo + j} * strides[1] +
           std::ptrdiff_t{halo + k} * strides[2];
  }
};

}  // namespace Velmor::API

template <>
struct std::hash<Velmor::API::TreeIndex> {
  std::size_t operator()(Velmor::API::TreeIndex const& index) const noexcept {
    auto const key = (static_cast<std::uint64_t>(static_cast<std::uint32_t>(index.depth)) << 32) |
                     static_cast<std::uint32_t>(index.slot);
    return std::hash<std::uint64_t>{}(key);
  }
};
