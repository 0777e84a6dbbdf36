#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Velmor::Test {

/// A PNG as viewers see it: sRGB of eight bits, alpha not multiplied.
struct Png {
  int width = 0, height = 0;
  std::vector<std::array<std::uint8_t, 4>> pixels;
};

/// An EXR's channels by name.
struct Exr {
  struct Channel {
    bool half = false;
    std::vector<float> values;
  };
  int width = 0, height = 0;
  std::map<std::string, Channel> channels;

  std::vector<std::string> names() const;
  float at(std::string const& channel, int x, int y) const;
};

/// Reads a picture; throws where it cannot be read.
Png readPng(std::string const& path);
Exr readExr(std::string const& path);

}  // namespace Velmor::Test
