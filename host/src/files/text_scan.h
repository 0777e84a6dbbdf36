#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Lists of hexadecimal numbers as lines of text, for metadata that any program
/// carries along unharmed.
namespace Velmor::Host::Files {

/// Takes a number off the front of a text; false, and nothing taken, if there is none.
template <class Number>
bool take(std::string_view& text, Number& number) {
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

inline bool take(std::string_view& text, char c) {
  if (text.empty() || text.front() != c) return false;
  text.remove_prefix(1);
  return true;
}

inline void append(std::string& text, std::uint64_t number) {
  char digits[16];
  auto const end = std::to_chars(digits, digits + sizeof digits, number, 16).ptr;
  text.append(digits, end);
}

}  // namespace Velmor::Host::Files
