#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "files/image.h"

/// Values of a voxel channel that its grid has no place for, as metadata.
namespace Velmor::Host::Files {

/// The bits of a value of `size` bytes as a line of text.
std::string packValue(std::byte const* value, std::size_t size);

/// Takes such a line as the background of a channel whose type is known. False,
/// and nothing done, if the line does not fit the type.
bool unpackBackground(std::string const& text, ChannelRecord& channel);

/// Appends a coarse cell and its value to a list of them.
void appendCoarseCell(std::string& text, TreeShape const& shape, int depth,
                      API::TileCoord const& tile, int cell, bool active, std::byte const* value,
                      std::size_t size);

/// The coarse cells of such a list. False, with any of them, if it is damaged or
/// made for another type or tile grid.
bool unpackCoarseCells(std::string const& text, TreeShape const& shape, API::DataType type,
                       std::vector<CoarseCell>& cells);

}  // namespace Velmor::Host::Files
