#include "model/object_name.h"

#include <array>

namespace Velmor::Host {

namespace {

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

/// Length of the part at the start of `text` that a query cannot carry.
std::size_t refusedLength(std::string_view text) {
  // "Filters", "name=" and ',' are where clients split a query's description,
  // and the rest would lead a path built from the name elsewhere.
  static constexpr std::array<std::string_view, 7> parts{"Filters", "name=", "..", "/",
                                                         "\\",      "\"",    ","};
  for (auto const part : parts)
    if (text.starts_with(part)) return part.size();
  return isControl(text.front()) ? 1 : 0;
}

}  // namespace

bool queryCarries(std::string_view name) {
  for (; !name.empty(); name.remove_prefix(1))
    if (refusedLength(name) > 0) return false;
  return true;
}

std::string queryName(std::string_view name) {
  std::string result;
  while (!name.empty()) {
    auto const refused = refusedLength(name);
    result += refused > 0 ? '_' : name.front();
    name.remove_prefix(refused > 0 ? refused : 1);
  }
  return result;
}

std::string fileStem(std::string_view name) {
  if (name.empty()) return "_";
  std::string stem(name);
  for (char& c : stem)
    if (c == '/' || isControl(c)) c = '_';
  if (stem.front() == '.') stem.front() = '_';
  return stem;
}

}  // namespace Velmor::Host
