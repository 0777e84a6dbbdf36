#pragma once

#include <functional>
#include <ostream>
#include <string>

namespace Velmor::Host::Files {

/// Writes a file whole or not at all. `write` fills a seekable stream; it may
/// throw. A regular or missing file at `path` is replaced by a complete new one
/// (through a symbolic link, with the old permissions); anything else, a pipe
/// say, gets the bytes once all of them are there. Returns what went wrong in
/// words, empty on success, and leaves nothing behind then.
std::string writeFile(std::string const& path, std::function<void(std::ostream&)> const& write);

}  // namespace Velmor::Host::Files
