#pragma once

#include <iosfwd>

#include "velmorapi/component.h"
#include "velmorapi/runtime.h"

namespace Velmor::Host::Files {

/// Writes an object as a `.vdb` file into a seekable stream. Throws.
void writeVdb(API::Object const& object, API::VRC::Compression compression, std::ostream& out);

}  // namespace Velmor::Host::Files
