#pragma once

/// What the library and its helper program agree on: the helper is started with
/// the process number of its parent as its only argument, a memory file with
/// the packed request as descriptor 3, which it fills with the image, and
/// descriptors 1 and 2 on a pipe.
namespace Velmor::Host::Files::Helper {

inline constexpr char const* program = "velmor-vdb-reader";
inline constexpr int memory = 3;

// Exit codes.
inline constexpr int done = 0;          ///< the image is complete, though it may tell of a failure
inline constexpr int badRequest = 64;   ///< started by hand, or by another version
inline constexpr int outOfMemory = 65;  ///< not even room for the failure

}  // namespace Velmor::Host::Files::Helper
