#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "velmorapi/math.h"

namespace Velmor::Processing {

inline std::uint32_t hashPosition(orlen::Math::vec<3, float> const& p) noexcept {
  auto const x = std::bit_cast<std::uint32_t>(p.x);
  auto const y = std::bit_cast<std::uint32_t>(p.y);
  auto const z = std::bit_cast<std::uint32_t>(p.z);
  std::uint32_t const h = (y * 11u - z * 17u + x) & 0x7fffffffu;
  return (((h >> 10) ^ h) >> 12) ^ h;
}

/// The hash spread over all 32 bits: neighbouring vertices differ in few of its bits.
inline std::uint32_t scatteredHash(orlen::Math::vec<3, float> const& p) noexcept {
  std::uint32_t const h = hashPosition(p) * 0x9e3779b1u;
  return h ^ (h >> 15);
}

/// Numbers positions by value: open addressing, linear probing. A position
/// with a NaN equals none, itself included, and must not be entered.
class VertexMap {
 public:
  /// Makes room for `count` further positions, so that none of the next
  /// `count` insertions moves the table.
  void reserve(std::size_t count) {
    std::size_t const needed = 2 * (size_ + count);
    if (needed > slots_.size()) grow(needed);
  }

  /// Of what the next call of `findOrInsert` will read. Needs reserved room as well.
  void prefetch(std::uint32_t hash) const noexcept { __builtin_prefetch(&slots_[hash & mask_], 1); }

  /// The number stored with `p`, or `number`, stored now. Needs reserved room.
  std::uint32_t findOrInsert(orlen::Math::vec<3, float> const& p, std::uint32_t hash,
                             std::uint32_t number) noexcept {
    for (std::size_t at = hash & mask_;; at = (at + 1) & mask_) {
      Slot& slot = slots_[at];
      if (slot.number == none) {
        slot = {p, number};
        ++size_;
        return number;
      }
      if (slot.position == p) return slot.number;
    }
  }

 private:
  static constexpr std::uint32_t none = 0xffffffffu;
  struct Slot {
    orlen::Math::vec<3, float> position;
    std::uint32_t number = none;
  };

  void grow(std::size_t needed) {
    // No larger than it must be: a table that fits into a core's cache is worth more than
    // the entering of all of them again that a larger one would save.
    std::vector<Slot> old(std::bit_ceil(needed < 1024 ? std::size_t{1024} : needed));
    old.swap(slots_);
    mask_ = slots_.size() - 1;
    size_ = 0;
    for (Slot const& slot : old) {
      if (slot.number != none)
        findOrInsert(slot.position, scatteredHash(slot.position), slot.number);
    }
  }

  std::vector<Slot> slots_;
  std::size_t mask_ = 0;
  std::size_t size_ = 0;
};

}  // namespace Velmor::Processing
