#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <cstddef>

namespace Velmor::Host {

/// Calls `work(i)` for 0 to `count` - 1 on the workers of the arena around it.
/// Calls may write only to what belongs to their `i`, so results never depend on
/// how the range is cut.
template <class Work>
void forEach(std::size_t count, Work const& work) {
  tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, 8), [&](auto const& range) {
    for (auto i = range.begin(); i < range.end(); ++i) work(i);
  });
}

}  // namespace Velmor::Host
