#pragma once

#include <string>
#include <string_view>

namespace Velmor::Host {

/// What the names of unfinished files start with.
inline constexpr std::string_view tempPrefix = ".velmor-tmp-";

/// A name for a file to be written beside `path` and renamed to it: hidden,
/// random, and carrying this machine and process, so that a later write can
/// tell what a killed one left behind.
std::string tempNameBeside(std::string const& path);

/// Deletes the temporary files in the folder of `path` whose process on this
/// machine is gone. Quiet about all that goes wrong.
void sweepTempFiles(std::string const& path);

}  // namespace Velmor::Host
