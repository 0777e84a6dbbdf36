#pragma once

#include <string>
#include <string_view>

#include "velmorapi/runtime.h"

namespace Velmor::Host {

/// What the name of a cache file says.
struct FileName {
  std::string object;     ///< empty if the name is nothing but a number
  bool numbered = false;  ///< else the file stands for every frame
  API::Runtime::Frame frame = 0;
};

/// Whether a file name ends in ".vdb", in any case, with something before it.
bool isCacheFileName(std::string_view name);

/// Reads a file name: `<object>` and the digits at the end of what precedes
/// ".vdb", with one '.', '_', '-' or blank between them or none. A '-' behind
/// such a separator is the frame's sign. Digits beyond the range of frames
/// belong to the object.
FileName parseFileName(std::string_view name);

/// The file name of an object's frame: `liquid.0012.vdb`, `liquid.-0012.vdb`.
std::string canonicalFileName(std::string_view object, API::Runtime::Frame frame);

/// The frame in decimal, with zeros to `digits` digits, the sign not counted.
std::string paddedFrame(API::Runtime::Frame frame, std::size_t digits);

}  // namespace Velmor::Host
