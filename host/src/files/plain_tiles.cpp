#include "files/plain_tiles.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <vector>

#include "core/channel_item.h"
#include "files/text_scan.h"

namespace Velmor::Host::Files {

std::string packPlainTiles(API::Component const& component,
                           std::vector<SourceField> const& fields) {
  auto const* const layout = API::itemAs<API::LayoutItem>(component.layout());
  if (layout == nullptr || fields.empty()) return {};
  auto const shape = fields.front().shape();
  std::string text;
  append(text, static_cast<std::uint64_t>(shape.depth));
  text += shape.centred != 0 ? ",1" : ",0";
  bool any = false;
  for (int d = 1; d <= shape.depth; ++d) {
    auto const count = static_cast<std::size_t>(layout->count(d));
    std::vector<std::uint64_t> plain(count, ~std::uint64_t{0});
    tbb::parallel_for(std::size_t{0}, count, [&](std::size_t slot) {
      auto const number = static_cast<std::int32_t>(slot);
      bool const same = std::all_of(fields.begin(), fields.end(), [&](SourceField const& field) {
        return field.uniformTile(d, number);
      });
      if (same) plain[slot] = shape.order(layout->coord(d, number), d);
    });
    std::erase(plain, ~std::uint64_t{0});
    if (plain.empty()) continue;
    any = true;
    std::sort(plain.begin(), plain.end());
    text += ';';
    append(text, static_cast<std::uint64_t>(d));
    std::uint64_t previous = 0;
    for (std::size_t t = 0; t < plain.size(); ++t) {
      text += t == 0 ? ':' : ',';
      append(text, plain[t] - previous);
      previous = plain[t];
    }
  }
  return any ? text : std::string();
}

}  // namespace Velmor::Host::Files
