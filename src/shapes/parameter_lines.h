#pragma once

#include "processing/status.h"

namespace Velmor::Processing {

/// Writes one field of a parameter struct as `str()` shows it.
template <class T>
void writeParameter(Stream& out, char const* key, T const& value) {
  out << "    " << key << " = " << value << "\n";
}

}  // namespace Velmor::Processing
