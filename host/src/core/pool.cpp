#include "core/pool.h"

#include <sys/mman.h>

#include <cstdlib>
#include <new>

namespace Velmor::Host {

namespace {

/// Asks for large pages: a piece of memory then fills with few page faults, and
/// its addresses are found with few misses. Advice only; all works without.
void wantLargePages(std::byte* block, std::size_t size) {
  constexpr std::uintptr_t page = 4096;
  constexpr std::size_t worthIt = std::size_t{4} << 20;
  if (size < worthIt) return;
  auto const skipped = (page - reinterpret_cast<std::uintptr_t>(block) % page) % page;
  ::madvise(block + skipped, (size - skipped) / page * page, MADV_HUGEPAGE);
}

}  // namespace

void Pool::allocate(int chunk) {
  auto const first = firstSlot(chunk);
  auto const slots = chunk == 0 ? std::size_t{1} << shift_ : first;
  void* const block = std::calloc(slots, stride_);
  if (block == nullptr) throw std::bad_alloc();
  wantLargePages(static_cast<std::byte*>(block), slots * stride_);
  // A base is where slot 0 would lie if the chunk reached back to it.
  auto const base = reinterpret_cast<std::uintptr_t>(block) - first * stride_;
  auto expected = none;
  if (!bases_[index(chunk)].compare_exchange_strong(expected, base, std::memory_order_acq_rel)) {
    std::free(block);
  }
}  // NOLINT(clang-analyzer-unix.Malloc): the base leads to it

}  // namespace Velmor::Host
