#include "files/kept_values.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "files/text_scan.h"

namespace Velmor::Host::Files {

namespace {

constexpr std::size_t wordSize = sizeof(std::uint32_t);
constexpr std::size_t mostWords = 3;

void appendWords(std::string& text, std::byte const* value, std::size_t size) {
  for (std::size_t at = 0; at < size; at += wordSize) {
    std::uint32_t word;
    std::memcpy(&word, value + at, wordSize);
    if (at != 0) text += ',';
    append(text, word);
  }
}

bool takeWords(std::string_view& text, API::DataType type, std::uint32_t (&words)[mostWords]) {
  auto const count = API::valueSize(type) / wordSize;
  if (count == 0 || count > mostWords) return false;
  for (std::size_t w = 0; w < count; ++w) {
    if ((w != 0 && !take(text, ',')) || !take(text, words[w])) return false;
  }
  return true;
}

/// Depth, anchor: a list fits tile grids of this kind alone.
void appendShape(std::string& text, TreeShape const& shape) {
  append(text, static_cast<std::uint64_t>(shape.depth));
  text += shape.centred != 0 ? ",1" : ",0";
}

}  // namespace

std::string packValue(std::byte const* value, std::size_t size) {
  std::string text;
  appendWords(text, value, size);
  return text;
}

bool unpackBackground(std::string const& text, ChannelRecord& channel) {
  std::string_view rest = text;
  std::uint32_t words[mostWords] = {};
  if (!takeWords(rest, static_cast<API::DataType>(channel.type), words) || !rest.empty()) {
    return false;
  }
  std::copy(std::begin(words), std::end(words), channel.background);
  return true;
}

void appendCoarseCell(std::string& text, TreeShape const& shape, int depth,
                      API::TileCoord const& tile, int cell, bool active, std::byte const* value,
                      std::size_t size) {
  if (text.empty()) appendShape(text, shape);
  text += ';';
  append(text, static_cast<std::uint64_t>(depth));
  text += ',';
  append(text, shape.order(tile, depth));
  text += ',';
  append(text, static_cast<std::uint64_t>(cell));
  text += active ? ",1," : ",0,";
  appendWords(text, value, size);
}

bool unpackCoarseCells(std::string const& text, TreeShape const& shape, API::DataType type,
                       std::vector<CoarseCell>& cells) {
  std::string_view rest = text;
  std::string expected;
  appendShape(expected, shape);
  if (!rest.starts_with(expected)) return false;
  rest.remove_prefix(expected.size());
  while (take(rest, ';')) {
    std::uint64_t depth = 0, order = 0, number = 0, active = 0;
    CoarseCell cell;
    if (!take(rest, depth) || depth >= static_cast<std::uint64_t>(shape.depth) ||
        !take(rest, ',') || !take(rest, order) || !take(rest, ',') || !take(rest, number) ||
        number >= TreeShape::cells || !take(rest, ',') || !take(rest, active) || active > 1 ||
        !take(rest, ',') || !takeWords(rest, type, cell.value)) {
      return false;
    }
    std::uint64_t tiles = 1;
    for (std::uint64_t d = 0; d < depth; ++d) tiles *= TreeShape::cells;
    if (order >= tiles) return false;
    cell.tile = shape.coordOf(order, static_cast<int>(depth));
    cell.depth = static_cast<std::int32_t>(depth);
    cell.cell = static_cast<std::int32_t>(number);
    cell.active = static_cast<std::uint32_t>(active);
    cells.push_back(cell);
  }
  return rest.empty();
}

}  // namespace Velmor::Host::Files
