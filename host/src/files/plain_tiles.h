#pragma once

#include <string>
#include <vector>

#include "files/source_field.h"
#include "velmorapi/component.h"

namespace Velmor::Host::Files {

/// The tiles of a voxel component that no reader could guess from its grids,
/// since each of its channels, as written, has one value and state all over
/// them; as a line for `unpackTiles`, empty if there are none.
std::string packPlainTiles(API::Component const& component, std::vector<SourceField> const& fields);

}  // namespace Velmor::Host::Files
