#pragma once

#include <array>
#include <charconv>
#include <string>

namespace Velmor::Host {

/// The shortest text that reads back as the same number, in no locale.
template <class Number>
std::string numberText(Number value) {
  std::array<char, 64> text;
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

/// The same with at most so many digits.
inline std::string numberText(double value, int digits) {
  std::array<char, 64> text;
  auto const end = text.data() + text.size();
  return {text.data(),
          std::to_chars(text.data(), end, value, std::chars_format::general, digits).ptr};
}

}  // namespace Velmor::Host
