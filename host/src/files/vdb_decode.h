#pragma once

#include "files/image.h"
#include "files/request.h"

namespace Velmor::Host::Files {

/// Reads the file of a request into an image. What goes wrong ends up in the
/// image too: as its failure, or as messages about skipped parts.
void decode(ReadRequest const& request, ImageBuilder& image);

}  // namespace Velmor::Host::Files
