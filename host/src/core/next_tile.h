#pragma once

#include "core/layout_item.h"

namespace Velmor::API {

/// The tile that this thread's traversal visits, and the one that comes next.
/// Set where the tiles of a depth do not lie in memory as they are visited: the
/// processor cannot see then what comes, so who asks for the values of a tile
/// sets those of the next on their way. It is compared, never followed.
struct NextTile {
  LayoutItem const* layout = nullptr;
  TreeIndex visited, next;
};
// Read for every tile: the general model would cost a call each time.
[[gnu::tls_model("initial-exec")]] inline constinit thread_local NextTile nextTile;

}  // namespace Velmor::API
