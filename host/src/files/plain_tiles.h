#pragma once

#include <string>

#include "velmorapi/component.h"

namespace Velmor::Host::Files {

/// The tiles of a voxel component that no reader could guess from its grids,
/// since each channel has one value and state all over them; as a line for
/// `unpackTiles`, empty if there are none.
std::string packPlainTiles(API::Component const& component);

}  // namespace Velmor::Host::Files
