#include <ImathBox.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfIO.h>
#include <OpenEXR/ImfOutputFile.h>
#include <half.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "failure.h"
#include "writers/image_writer.h"

namespace Velmor::Tool {

namespace {

// OpenEXR goes back to fill in its line offsets, which a pipe cannot.
class MemoryStream final : public Imf::OStream {
 public:
  MemoryStream() : Imf::OStream("picture") {}
  void write(char const* data, int size) override {
    auto const end = at_ + static_cast<std::size_t>(size);
    if (bytes.size() < end) bytes.resize(end);
    std::copy_n(data, size, bytes.data() + at_);
    at_ = end;
  }
  std::uint64_t tellp() override { return at_; }
  void seekp(std::uint64_t at) override { at_ = at; }

  std::vector<char> bytes;

 private:
  std::size_t at_ = 0;
};

}  // namespace

void writeExr(Render::Image const& image, OutputFile& out) try {
  Imf::Header header(image.width, image.height);
  Imf::FrameBuffer frame;
  auto const width = static_cast<std::size_t>(image.width);
  std::vector<half> colours(image.rgba.begin(), image.rgba.end());
  std::vector<float> depth = image.depth;
  if (!colours.empty()) {
    char const* const names[] = {"R", "G", "B", "A"};
    for (std::size_t c = 0; c < 4; ++c) {
      header.channels().insert(names[c], Imf::Channel(Imf::HALF));
      frame.insert(names[c], Imf::Slice(Imf::HALF, reinterpret_cast<char*>(colours.data() + c),
                                        4 * sizeof(half), 4 * sizeof(half) * width));
    }
  } else {
    header.channels().insert("Z", Imf::Channel(Imf::FLOAT));
    frame.insert("Z", Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(depth.data()), sizeof(float),
                                 sizeof(float) * width));
  }
  MemoryStream stream;
  {
    // Without workers of its own: the bytes must not depend on them.
    Imf::OutputFile file(stream, header, 0);
    file.setFrameBuffer(frame);
    file.writePixels(image.height);
  }
  out.write(stream.bytes.data(), stream.bytes.size());
} catch (Failure const&) {
  throw;
} catch (std::exception const& error) {
  throw Failure(ExitCode::Other, "", std::string("EXR: ") + error.what());
}

}  // namespace Velmor::Tool
