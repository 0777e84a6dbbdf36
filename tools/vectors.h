#pragma once

#include <array>
#include <charconv>
#include <optional>
#include <string>

namespace Velmor::Tool {

/// `N` finite numbers between commas, such as "1,2.5,-3"; nothing if the text is
/// anything else.
template <std::size_t N>
std::optional<std::array<double, N>> parseVector(std::string const& text) {
  std::array<double, N> values{};
  char const* at = text.data();
  char const* const end = at + text.size();
  for (std::size_t i = 0; i < N; ++i) {
    if (at != end && *at == '+') ++at;
    auto const [next, error] = std::from_chars(at, end, values[i]);
    // What is finite minus itself is 0.
    if (error != std::errc() || values[i] - values[i] != 0.) return std::nullopt;
    at = next;
    if (i + 1 < N && (at == end || *at++ != ',')) return std::nullopt;
  }
  if (at != end) return std::nullopt;
  return values;
}

}  // namespace Velmor::Tool
