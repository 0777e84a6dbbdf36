#pragma once

#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/task_arena.h>

#include <cstddef>
#include <optional>

namespace Velmor::Host {

/// Calls `work()` so that the parallel algorithms in it use `threads` workers,
/// the calling thread among them, also when the machine has fewer processors.
template <class Work>
void withWorkers(int threads, Work const& work) {
  std::optional<tbb::global_control> more;
  if (threads > tbb::info::default_concurrency()) {
    more.emplace(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads));
  }
  tbb::task_arena(threads).execute(work);
}

}  // namespace Velmor::Host
