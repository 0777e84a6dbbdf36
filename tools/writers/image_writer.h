#pragma once

#include <string>

#include "output.h"
#include "render/render.h"

namespace Velmor::Tool {

/// A file format for pictures. One source file each.
struct ImageFormat {
  char const* extension;  ///< without the dot
  char const* name;
  /// Writes the whole file; what the format's library reports is thrown as a
  /// `Failure` of code `Other`.
  void (*write)(Render::Image const& image, OutputFile& out);
};

/// 8 bits, sRGB, alpha not multiplied. A depth image becomes a grey one, white
/// at the nearest and dark at the farthest hit.
void writePng(Render::Image const& image, OutputFile& out);
/// Linear: R, G, B, A as halves, multiplied by alpha; or one float channel Z.
void writeExr(Render::Image const& image, OutputFile& out);

/// The format of a path by its extension, in any case; of a pipe or a device
/// without one PNG. Throws a `Failure` of code `Usage` that lists the extensions
/// for all others.
ImageFormat const& imageFormat(std::string const& path);

}  // namespace Velmor::Tool
