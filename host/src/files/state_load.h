#pragma once

#include <string>

#include "files/image.h"
#include "velmorapi/ref.h"
#include "velmorapi/status.h"

namespace Velmor::Host::Files {

/// Makes a state server with one object out of a checked image of the file `path`.
API::Status loadState(Image const& image, std::string const& path, std::string const& objectName,
                      API::Ref& server);

}  // namespace Velmor::Host::Files
