#pragma once

#include <cstdlib>
#include <random>

namespace Velmor::Test {

/// The seed of a random test, which prints it: VELMOR_SEED if that is set, so that
/// a failure can be repeated, else another one each time.
inline unsigned newSeed() {
  auto const* const given = std::getenv("VELMOR_SEED");
  return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                          : std::random_device{}();
}

}  // namespace Velmor::Test
