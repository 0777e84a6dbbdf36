#pragma once

#include <string>

#include "failure.h"
#include "output.h"

namespace Velmor::Tool {

/// The extension of a path in lower case, without the dot; empty if it has none.
std::string extensionOf(std::string const& path);

/// The format whose `extension` is that of the path; of a pipe or a device
/// without an extension the first. Throws a `Failure` of code `Usage` that lists
/// the extensions for all others.
template <class Formats>
auto const& chooseFormat(Formats const& formats, std::string const& path) {
  auto const extension = extensionOf(path);
  if (extension.empty() && isSpecialOutput(path)) return *formats.begin();
  std::string known;
  for (auto const& format : formats) {
    if (extension == format.extension) return format;
    known += std::string(known.empty() ? "" : ", ") + "." + format.extension;
  }
  throw Failure(ExitCode::Usage, path,
                (extension.empty() ? "no extension" : "unknown extension '." + extension + "'") +
                    "; known are " + known);
}

}  // namespace Velmor::Tool
