#pragma once

#include "velmorapi/to_int.h"

namespace Velmor::Processing {

using orlen::Math::detail::toInt;

}  // namespace Velmor::Processing
