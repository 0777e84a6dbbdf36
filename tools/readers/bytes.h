#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "failure.h"

namespace Velmor::Tool {

/// The types of numbers that files hold.
enum class Number { Int8, UInt8, Int16, UInt16, Int32, UInt32, Int64, UInt64, Float, Double };

inline std::size_t sizeOf(Number type) {
  switch (type) {
    case Number::Int8:
    case Number::UInt8:
      return 1;
    case Number::Int16:
    case Number::UInt16:
      return 2;
    case Number::Int32:
    case Number::UInt32:
    case Number::Float:
      return 4;
    default:
      return 8;
  }
}

inline bool isInteger(Number type) { return type != Number::Float && type != Number::Double; }

/// A value from the first bytes at `data`, which must hold `sizeof(T)`.
template <class T>
T loadValue(char const* data, bool bigEndian) {
  std::array<char, sizeof(T)> raw;
  std::memcpy(raw.data(), data, sizeof(T));
  if (bigEndian == (std::endian::native == std::endian::little)) {
    std::reverse(raw.begin(), raw.end());
  }
  T value;
  std::memcpy(&value, raw.data(), sizeof(T));
  return value;
}

inline double loadNumber(char const* data, Number type, bool bigEndian) {
  switch (type) {
    case Number::Int8:
      return static_cast<double>(loadValue<std::int8_t>(data, bigEndian));
    case Number::UInt8:
      return static_cast<double>(loadValue<std::uint8_t>(data, bigEndian));
    case Number::Int16:
      return static_cast<double>(loadValue<std::int16_t>(data, bigEndian));
    case Number::UInt16:
      return static_cast<double>(loadValue<std::uint16_t>(data, bigEndian));
    case Number::Int32:
      return static_cast<double>(loadValue<std::int32_t>(data, bigEndian));
    case Number::UInt32:
      return static_cast<double>(loadValue<std::uint32_t>(data, bigEndian));
    case Number::Int64:
      return static_cast<double>(loadValue<std::int64_t>(data, bigEndian));
    case Number::UInt64:
      return static_cast<double>(loadValue<std::uint64_t>(data, bigEndian));
    case Number::Float:
      return static_cast<double>(loadValue<float>(data, bigEndian));
    case Number::Double:
      return loadValue<double>(data, bigEndian);
  }
  return 0.;
}

inline constexpr std::string_view kSpace = " \t\r\n\f\v";

/// Takes the next word between white space off the text; empty at its end.
inline std::string_view takeWord(std::string_view& text) {
  auto const start = text.find_first_not_of(kSpace);
  text.remove_prefix(start == std::string_view::npos ? text.size() : start);
  auto const word = text.substr(0, text.find_first_of(kSpace));
  text.remove_prefix(word.size());
  return word;
}

/// The number that the whole word says, "nan" and "inf" among them; false if it
/// says none. Numbers beyond the range of doubles are infinite or 0.
inline bool parseNumber(std::string_view word, double& value) {
  if (!word.empty() && word.front() == '+') word.remove_prefix(1);
  auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (end != word.data() + word.size() || word.empty()) return false;
  if (error == std::errc::result_out_of_range) {
    bool const small = word.find("e-") != word.npos || word.find("E-") != word.npos;
    value = small ? 0. : (word.front() == '-' ? -HUGE_VAL : HUGE_VAL);
    return true;
  }
  return error == std::errc();
}

/// A count or an index; false for anything else.
inline bool parseCount(std::string_view word, std::uint64_t& value) {
  auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  return error == std::errc() && end == word.data() + word.size() && !word.empty();
}

/// The start of a word between quotes, fit for a message whatever its bytes.
inline std::string quoted(std::string_view word) {
  std::string text("'");
  for (char const c : word.substr(0, 40)) text += c < ' ' || c > '~' ? '?' : c;
  text += '\'';
  return text;
}

}  // namespace Velmor::Tool
