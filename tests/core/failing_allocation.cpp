#include "core/failing_allocation.h"

#include <cstdlib>
#include <new>

namespace {

// Allocations of this thread to let through before one fails; negative: none fails.
thread_local int allocationsLeft = -1;

bool mustFailNow() { return allocationsLeft >= 0 && allocationsLeft-- == 0; }

}  // namespace

FailingAllocation::FailingAllocation(int after) { allocationsLeft = after; }
FailingAllocation::~FailingAllocation() { allocationsLeft = -1; }
bool FailingAllocation::happened() const { return allocationsLeft < 0; }

void* operator new(std::size_t size) {
  void* const memory = mustFailNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
