#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace Velmor::Host {

/// Fixed-size records in slots 0, 1, 2, …, zeroed, that never move while the
/// pool grows. Chunks double in size, so that most of a large pool is one piece
/// of memory and a slot's address is a shift, one load and a multiplication.
/// Memory that no record has touched yet is only reserved.
class Pool {
 public:
  /// The first chunk holds 2^`firstShift` records of `stride` bytes.
  Pool(std::size_t stride, int firstShift) noexcept : stride_(stride), shift_(firstShift) {}
  Pool(Pool const&) = delete;
  Pool& operator=(Pool const&) = delete;
  ~Pool() {
    for (int c = 0; c < chunkCount; ++c) {
      if (auto const base = bases_[index(c)].load(); base != none) std::free(memory(base, c));
    }
  }

  std::size_t stride() const noexcept { return stride_; }

  /// The record of a slot for which `ensure` was called.
  std::byte* at(std::int32_t slot) const noexcept {
    auto const base = bases_[index(chunkOf(slot))].load(std::memory_order_acquire);
    return address(base + static_cast<std::uint32_t>(slot) * stride_);
  }

  bool has(std::int32_t slot) const noexcept {
    return bases_[index(chunkOf(slot))].load(std::memory_order_acquire) != none;
  }

  /// Makes room for a slot. Several threads may ask for the same one.
  void ensure(std::int32_t slot) {
    if (!has(slot)) allocate(chunkOf(slot));
  }

  /// The number of slots that follow each other in memory from `slot` on.
  std::int32_t run(std::int32_t slot) const noexcept {
    auto const end = std::int64_t{1} << (shift_ + chunkOf(slot));
    return static_cast<std::int32_t>(end - slot);
  }

 private:
  static constexpr int chunkCount = 32;
  // No base has this value: bases are differences of multiples of four.
  static constexpr std::uintptr_t none = 1;

  static constexpr std::size_t index(int chunk) noexcept { return static_cast<std::size_t>(chunk); }
  static std::byte* address(std::uintptr_t value) noexcept {
    return reinterpret_cast<std::byte*>(value);  // NOLINT(performance-no-int-to-ptr)
  }

  int chunkOf(std::int32_t slot) const noexcept {
    // The width of the number, by that of one above 0: it takes no jump.
    auto const at = static_cast<std::uint32_t>(slot) >> shift_;
    return static_cast<int>(std::bit_width(2 * at | 1)) - 1;
  }
  std::size_t firstSlot(int chunk) const noexcept {
    return chunk == 0 ? 0 : std::size_t{1} << (shift_ + chunk - 1);
  }
  std::byte* memory(std::uintptr_t base, int chunk) const noexcept {
    return address(base + firstSlot(chunk) * stride_);
  }

  void allocate(int chunk);

  std::size_t stride_;
  int shift_;
  std::array<std::atomic<std::uintptr_t>, chunkCount> bases_ = emptyBases();

  static std::array<std::atomic<std::uintptr_t>, chunkCount> emptyBases() noexcept {
    return {none, none, none, none, none, none, none, none, none, none, none,
            none, none, none, none, none, none, none, none, none, none, none,
            none, none, none, none, none, none, none, none, none, none};
  }
};

}  // namespace Velmor::Host
