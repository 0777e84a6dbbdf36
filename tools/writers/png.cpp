#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "failure.h"
#include "writers/image_writer.h"

namespace Velmor::Tool {

namespace {

constexpr std::uint16_t half8 = 65535 / 255 / 2;  // half a step of eight bits

std::uint16_t linear16(float value) {
  float const clamped = value > 0.f ? std::min(value, 1.f) : 0.f;  // NaN becomes 0
  return static_cast<std::uint16_t>(std::lround(clamped * 65535.f));
}

// Grey levels that tell near from far; never black, which alpha means.
std::vector<float> greyOf(std::vector<float> const& depth) {
  float nearest = std::numeric_limits<float>::max(), farthest = 0.f;
  for (float z : depth) {
    if (z <= 0.f) continue;
    nearest = std::min(nearest, z);
    farthest = std::max(farthest, z);
  }
  float const range = farthest > nearest ? farthest - nearest : 1.f;
  std::vector<float> rgba(depth.size() * 4, 0.f);
  for (std::size_t i = 0; i < depth.size(); ++i) {
    if (depth[i] <= 0.f) continue;
    float const grey = 1.f - 0.95f * ((depth[i] - nearest) / range);
    std::fill_n(&rgba[4 * i], 3, grey);
    rgba[4 * i + 3] = 1.f;
  }
  return rgba;
}

}  // namespace

void writePng(Render::Image const& image, OutputFile& out) {
  std::vector<float> const grey = image.rgba.empty() ? greyOf(image.depth) : std::vector<float>();
  std::vector<float> const& rgba = image.rgba.empty() ? grey : image.rgba;
  // libpng turns linear, multiplied values of 16 bits into sRGB of 8 bits.
  std::vector<std::uint16_t> pixels(rgba.size());
  for (std::size_t i = 0; i < rgba.size(); i += 4) {
    std::uint16_t const alpha = linear16(rgba[i + 3]);
    // What eight bits call transparent is all of one colour: viewers that leave
    // alpha aside would show it as speckles.
    bool const hidden = alpha <= half8;
    for (std::size_t c = 0; c < 3; ++c) {
      pixels[i + c] = hidden ? alpha : std::min(linear16(rgba[i + c]), alpha);
    }
    pixels[i + 3] = alpha;
  }
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  header.width = static_cast<png_uint_32>(image.width);
  header.height = static_cast<png_uint_32>(image.height);
  header.format = PNG_FORMAT_LINEAR_RGB_ALPHA;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(header);
  std::vector<char> file(size);
  if (png_image_write_to_memory(&header, file.data(), &size, 1, pixels.data(), 0, nullptr) == 0) {
    throw Failure(ExitCode::Other, "", std::string("PNG: ") + header.message);
  }
  out.write(file.data(), size);
}

}  // namespace Velmor::Tool
