#include "tools/pictures.h"

#include <ImathBox.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <png.h>

#include <stdexcept>

namespace Velmor::Test {

std::vector<std::string> Exr::names() const {
  std::vector<std::string> all;
  for (auto const& channel : channels) all.push_back(channel.first);
  return all;
}

float Exr::at(std::string const& channel, int x, int y) const {
  return channels.at(channel).values.at(static_cast<std::size_t>(y * width + x));
}

Png readPng(std::string const& path) {
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&header, path.c_str()) == 0) {
    throw std::runtime_error(path + ": " + header.message);
  }
  header.format = PNG_FORMAT_RGBA;
  Png picture{static_cast<int>(header.width), static_cast<int>(header.height), {}};
  picture.pixels.resize(std::size_t{header.width} * header.height);
  if (png_image_finish_read(&header, nullptr, picture.pixels.data(), 0, nullptr) == 0) {
    throw std::runtime_error(path + ": " + header.message);
  }
  return picture;
}

Exr readExr(std::string const& path) {
  Imf::InputFile file(path.c_str(), 0);
  auto const& window = file.header().dataWindow();
  Exr picture;
  picture.width = window.max.x - window.min.x + 1;
  picture.height = window.max.y - window.min.y + 1;
  auto const width = static_cast<std::size_t>(picture.width);
  Imf::FrameBuffer frame;
  auto const& list = file.header().channels();
  for (auto channel = list.begin(); channel != list.end(); ++channel) {
    auto& read = picture.channels[channel.name()];
    read.half = channel.channel().type == Imf::HALF;
    read.values.resize(width * static_cast<std::size_t>(picture.height));
    frame.insert(channel.name(), Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(read.values.data()),
                                            sizeof(float), sizeof(float) * width));
  }
  file.setFrameBuffer(frame);
  file.readPixels(window.min.y, window.max.y);
  return picture;
}

}  // namespace Velmor::Test
