#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/layout_item.h"

namespace Velmor::Host {

/// Rounds a number down that is known to fit an integer.
inline std::int32_t floorOf(float a) noexcept {
  auto const down = static_cast<std::int32_t>(a);
  return down - (a < static_cast<float>(down) ? 1 : 0);
}

/// The place of a leaf tile, counted in leaf tiles from the root's corner. Also
/// names places beside the root; `key` tells apart those within 2^20 tiles.
struct TilePlace {
  std::int32_t x = 0, y = 0, z = 0;
  bool operator==(TilePlace const&) const = default;
  std::uint64_t key() const noexcept {
    constexpr std::int32_t shift = 1 << 20;
    auto const part = [](std::int32_t a) { return static_cast<std::uint64_t>(a + shift); };
    return part(x) | part(y) << 21 | part(z) << 42;
  }
};

/// Where the leaf tiles of a layout may lie.
class TileGrid {
 public:
  explicit TileGrid(API::LayoutItem const& layout) noexcept
      : origin_(layout.rootOrigin().i), places_(layout.extent(0) / API::tileWidth) {}

  /// Of a voxel coordinate along any axis, which may lie outside the root.
  std::int32_t place(std::int32_t voxel) const noexcept {
    auto const steps = voxel - origin_;
    return steps >= 0 ? steps / API::tileWidth : -((API::tileWidth - 1 - steps) / API::tileWidth);
  }
  std::int32_t voxel(std::int32_t place) const noexcept { return origin_ + place * API::tileWidth; }
  TilePlace place(API::TileCoord const& v) const noexcept {
    return {place(v.i), place(v.j), place(v.k)};
  }
  API::TileCoord voxel(TilePlace const& p) const noexcept {
    return {voxel(p.x), voxel(p.y), voxel(p.z)};
  }
  bool inRoot(TilePlace const& p) const noexcept {
    auto const in = [this](std::int32_t a) { return a >= 0 && a < places_; };
    return in(p.x) && in(p.y) && in(p.z);
  }
  /// Tiles along the root's edge.
  std::int32_t places() const noexcept { return places_; }

 private:
  std::int32_t origin_;
  std::int32_t places_;
};

/// Finds the number of a tile by its place. Reading is safe from many threads.
class TileMap {
 public:
  void clear(std::size_t expected) {
    entries_.assign(std::bit_ceil(std::max(2 * expected, smallest)), {});
    used_ = 0;
  }
  /// Returns the number that the place has; a new one gets `number`.
  std::int32_t insert(TilePlace const& place, std::int32_t number) {
    if (2 * (used_ + 1) > entries_.size()) grow();
    auto& entry = entries_[slot(place.key())];
    if (entry.number < 0) {
      entry = {place.key(), number};
      ++used_;
    }
    return entry.number;
  }
  /// -1 if there is none.
  std::int32_t find(TilePlace const& place) const noexcept {
    return entries_.empty() ? -1 : entries_[slot(place.key())].number;
  }

 private:
  static constexpr std::size_t smallest = 16;

  struct Entry {
    std::uint64_t key = 0;
    std::int32_t number = -1;
  };

  std::size_t slot(std::uint64_t key) const noexcept {
    auto const mask = entries_.size() - 1;
    // The highest bits of the product: those further down know nothing of z.
    auto at = static_cast<std::size_t>((key * 0x9e3779b97f4a7c15u) >> std::countl_zero(mask));
    while (entries_[at].number >= 0 && entries_[at].key != key) at = (at + 1) & mask;
    return at;
  }
  void grow() {
    std::vector<Entry> old(std::max(2 * entries_.size(), smallest));
    old.swap(entries_);
    for (auto const& entry : old) {
      if (entry.number >= 0) entries_[slot(entry.key)] = entry;
    }
  }

  std::vector<Entry> entries_;
  std::size_t used_ = 0;
};

}  // namespace Velmor::Host
