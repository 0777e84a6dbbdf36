#include "files/tile_list.h"

#include "files/text_scan.h"

namespace Velmor::Host::Files {

bool unpackTiles(std::string const& text, TreeShape const& shape, TileLists& tiles) {
  std::string_view rest = text;
  std::uint64_t depth = 0, centred = 0;
  if (!take(rest, depth) || !take(rest, ',') || !take(rest, centred) ||
      depth != static_cast<std::uint64_t>(shape.depth) ||
      centred != static_cast<std::uint64_t>(shape.centred)) {
    return false;
  }
  while (take(rest, ';')) {
    std::uint64_t level = 0, order = 0, step = 0;
    if (!take(rest, level) || level < 1 || level > depth || !take(rest, ':')) return false;
    auto const d = static_cast<int>(level);
    std::uint64_t limit = 1;
    for (int n = 0; n < d; ++n) limit *= TreeShape::cells;
    auto& list = tiles[level];
    if (!list.empty()) return false;
    do {
      if (!take(rest, step) || step >= limit || (step == 0 && !list.empty())) return false;
      order += step;
      if (order >= limit) return false;
      list.push_back(shape.coordOf(order, d));
    } while (take(rest, ','));
  }
  return rest.empty();
}

}  // namespace Velmor::Host::Files
