#pragma once

#include <unistd.h>

#include <atomic>
#include <charconv>
#include <string>
#include <string_view>

namespace Velmor::Host {

inline constexpr std::string_view tempPrefix = ".velmor-";
inline constexpr std::string_view tempSuffix = ".tmp";

/// A file name, new with each call, for a file that is written beside its place
/// and renamed when it is whole. It holds the process, so that what a kill left
/// behind can be told from what is still being written. It does not hold the
/// final name: that one may already be as long as the file system allows.
inline std::string makeTempName() {
  static std::atomic<unsigned> counter{0};
  std::string name(tempPrefix);
  name += std::to_string(::getpid());
  name += '-';
  name += std::to_string(counter.fetch_add(1, std::memory_order_relaxed));
  name += tempSuffix;
  return name;
}

/// The process that a temporary file name holds; 0 if it is no such name.
inline ::pid_t tempNameOwner(std::string_view name) {
  if (!name.starts_with(tempPrefix) || !name.ends_with(tempSuffix)) return 0;
  name.remove_prefix(tempPrefix.size());
  ::pid_t process = 0;
  auto const end = name.data() + name.size();
  auto const parsed = std::from_chars(name.data(), end, process);
  return parsed.ec == std::errc() && parsed.ptr != end && *parsed.ptr == '-' && process > 0
             ? process
             : 0;
}

inline bool isTempName(std::string_view name) { return tempNameOwner(name) != 0; }

}  // namespace Velmor::Host
