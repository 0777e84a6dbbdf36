#pragma once

#include <array>
#include <string>
#include <vector>

#include "files/tree_shape.h"

namespace Velmor::Host::Files {

using TileLists = std::array<std::vector<API::TileCoord>, TreeShape::levels>;

/// Reads a list of tiles, kept as one line of hexadecimal numbers in a grid's
/// metadata: "<depth>,<centred>" and, for each level that has any,
/// ";<level>:<distances between the tiles' places in tree order, with commas>".
/// False, and maybe part of them, if the text is damaged or made for another
/// shape of tree.
bool unpackTiles(std::string const& text, TreeShape const& shape, TileLists& tiles);

}  // namespace Velmor::Host::Files
