#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/tile_width.h"
#include "velmorapi/types.h"

namespace Velmor::Processing {

/// The number of voxels along the edge of the tiles that the ocean's passes
/// know; layouts may have narrower ones.
inline constexpr int oceanTileEdge = 5;

/// A set of voxels of a tile: bit x + 5y + 25z. 128 bits hold a tile of 125, so
/// that a whole tile floods in a few shifts.
__extension__ using TileBits = unsigned __int128;

constexpr TileBits tileBit(int x, int y, int z) { return TileBits{1} << (x + 5 * y + 25 * z); }

/// All voxels whose x, y and z lie in the given ranges, upper ends included.
constexpr TileBits tileBox(int x0, int x1, int y0, int y1, int z0, int z1) {
  TileBits bits = 0;
  for (int z = z0; z <= z1; ++z) {
    for (int y = y0; y <= y1; ++y) {
      for (int x = x0; x <= x1; ++x) bits |= tileBit(x, y, z);
    }
  }
  return bits;
}

inline constexpr TileBits wholeTile = tileBox(0, 4, 0, 4, 0, 4);

/// Voxels `first` to `last` along an axis (0 to 2), the others in full.
constexpr TileBits tileSlab(int axis, int first, int last) {
  constexpr int end = oceanTileEdge - 1;
  return tileBox(axis == 0 ? first : 0, axis == 0 ? last : end, axis == 1 ? first : 0,
                 axis == 1 ? last : end, axis == 2 ? first : 0, axis == 2 ? last : end);
}

/// Voxels at place `at` along an axis, by [axis][at].
inline constexpr TileBits tileLayers[3][5] = {
    {tileSlab(0, 0, 0), tileSlab(0, 1, 1), tileSlab(0, 2, 2), tileSlab(0, 3, 3), tileSlab(0, 4, 4)},
    {tileSlab(1, 0, 0), tileSlab(1, 1, 1), tileSlab(1, 2, 2), tileSlab(1, 3, 3), tileSlab(1, 4, 4)},
    {tileSlab(2, 0, 0), tileSlab(2, 1, 1), tileSlab(2, 2, 2), tileSlab(2, 3, 3),
     tileSlab(2, 4, 4)}};

/// The places that follow one another along an axis are this far apart.
constexpr int tileStride(int axis) { return axis == 0 ? 1 : (axis == 1 ? 5 : 25); }

/// The set and the six neighbours of its members, within the tile.
constexpr TileBits withNeighbours(TileBits bits) {
  constexpr TileBits notLow[] = {tileSlab(0, 1, 4), tileSlab(1, 1, 4), tileSlab(2, 1, 4)};
  constexpr TileBits notHigh[] = {tileSlab(0, 0, 3), tileSlab(1, 0, 3), tileSlab(2, 0, 3)};
  TileBits all = bits;
  for (int axis = 0; axis < 3; ++axis) {
    all |= (bits & notHigh[axis]) << tileStride(axis);
    all |= (bits & notLow[axis]) >> tileStride(axis);
  }
  return all;
}

/// Calls visit(first, count) for every run of members that follow one another.
template <class Visit>
void forEachRun(TileBits bits, Visit visit) {
  auto const trailingZeros = [](TileBits b) {
    auto const low = static_cast<std::uint64_t>(b);
    return low != 0 ? __builtin_ctzll(low)
                    : 64 + __builtin_ctzll(static_cast<std::uint64_t>(b >> 64));
  };
  for (int at = 0; bits != 0;) {
    int const gap = trailingZeros(bits);
    int const count = trailingZeros(~(bits >> gap));
    visit(at + gap, count);
    at += gap + count;
    bits = bits >> gap >> count;
  }
}

/// The values of one tile in the order of the bits, whatever the storage.
class TileView {
 public:
  /// Reads `width` voxels per edge, at most 5; nothing of a tile that stores fewer.
  TileView(API::TileData<float> const& data, int width) : data_(data), width_(width) {
    if (!storesWidth(data, width)) return;
    if (isDense(data, width)) {
      values_ = data.data;
      // Whoever looks at a tile looks at all of it; most lie far apart in memory.
      for (int at = 0; at < 125; at += 16) __builtin_prefetch(values_ + at);
      return;
    }
    std::memset(gathered_, 0, sizeof gathered_);
    for (int z = 0; z < width; ++z) {
      for (int y = 0; y < width; ++y) {
        for (int x = 0; x < width; ++x)
          gathered_[x + 5 * y + 25 * z] = data.data[data.offset(x, y, z)];
      }
    }
    values_ = gathered_;
  }
  TileView(TileView const&) = delete;
  TileView& operator=(TileView const&) = delete;

  bool valid() const { return values_ != nullptr; }

  /// The voxels for whose value `test` holds.
  template <class Test>
  TileBits where(Test test) const {
    if (!valid()) return 0;
    alignas(16) unsigned char flags[128] = {};
    for (int i = 0; i < 125; ++i) flags[i] = test(values_[i]) ? 0xff : 0;
    TileBits bits = 0;
    for (int i = 0; i < 8; ++i) {
      auto const sixteen = _mm_load_si128(reinterpret_cast<__m128i const*>(flags) + i);
      bits |= TileBits{static_cast<unsigned>(_mm_movemask_epi8(sixteen))} << (16 * i);
    }
    return width_ == 5 ? bits : bits & tileBox(0, width_ - 1, 0, width_ - 1, 0, width_ - 1);
  }

  /// Writes `value` to the given voxels of the tile.
  void set(TileBits bits, float value) const {
    forEachRun(bits, [&](int first, int count) {
      if (values_ == data_.data) {
        std::fill_n(data_.data + first, count, value);
        return;
      }
      for (int place = first; place < first + count; ++place) {
        data_.data[data_.offset(place % 5, place / 5 % 5, place / 25)] = value;
      }
    });
  }

 private:
  API::TileData<float> data_;
  int width_;
  float const* values_ = nullptr;
  float gathered_[125];
};

}  // namespace Velmor::Processing
