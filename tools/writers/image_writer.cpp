#include "writers/image_writer.h"

#include <array>

#include "failure.h"
#include "writers/extension.h"

namespace Velmor::Tool {

ImageFormat const& imageFormat(std::string const& path) {
  static std::array<ImageFormat, 2> const formats{
      {{"png", "PNG", writePng}, {"exr", "EXR", writeExr}}};
  return chooseFormat(formats, path);
}

}  // namespace Velmor::Tool
