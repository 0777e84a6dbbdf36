#pragma once

#include "velmorapi/channel.h"

namespace Velmor::Processing {

/// Whether two channels are valid, on the same layout (not only alike) and of one type.
bool channelsCompatible(API::Channel const& x, API::Channel const& y);

}  // namespace Velmor::Processing
