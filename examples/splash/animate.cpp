// Puts pictures of one size into an animated one (APNG): their packed pixels are
// taken over as they are.
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr std::size_t signature = 8;

std::uint32_t number(std::string const& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t n = 0; n < 4; ++n)
    value = value << 8 | static_cast<unsigned char>(bytes[at + n]);
  return value;
}

std::string bytesOf(std::uint32_t value, int count = 4) {
  std::string bytes;
  for (int n = count - 1; n >= 0; --n) bytes += static_cast<char>(value >> (8 * n) & 0xFF);
  return bytes;
}

std::string chunk(std::string const& type, std::string const& data) {
  auto const body = type + data;
  auto const sum =
      crc32(0, reinterpret_cast<Bytef const*>(body.data()), static_cast<uInt>(body.size()));
  return bytesOf(static_cast<std::uint32_t>(data.size())) + body +
         bytesOf(static_cast<std::uint32_t>(sum));
}

struct Picture {
  std::string start;  // the signature
  std::string header;
  std::string pixels;
};

Picture read(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  std::string const bytes{std::istreambuf_iterator<char>(file), {}};
  if (bytes.size() < signature || bytes.compare(1, 3, "PNG") != 0) {
    throw std::runtime_error(path + ": no PNG file");
  }
  Picture picture;
  picture.start = bytes.substr(0, signature);
  for (auto at = signature; at + 12 <= bytes.size();) {
    std::size_t const size = number(bytes, at);
    if (size > bytes.size() - at - 12) throw std::runtime_error(path + ": ends too early");
    auto const type = bytes.substr(at + 4, 4);
    if (type == "IHDR") picture.header = bytes.substr(at + 8, size);
    if (type == "IDAT") picture.pixels += bytes.substr(at + 8, size);
    at += size + 12;
  }
  if (picture.header.size() != 13) throw std::runtime_error(path + ": no header");
  return picture;
}

void run(std::string const& out, std::vector<std::string> const& paths) {
  std::string bytes, header;
  std::uint32_t sequence = 0;
  for (std::size_t n = 0; n < paths.size(); ++n) {
    auto const picture = read(paths[n]);
    if (n == 0) {
      header = picture.header;
      bytes = picture.start + chunk("IHDR", header) +
              chunk("acTL", bytesOf(static_cast<std::uint32_t>(paths.size())) + bytesOf(0));
    }
    if (picture.header != header) throw std::runtime_error(paths[n] + ": of another size");
    // The whole picture, at the corner, for 1/24 s; it replaces the one before.
    bytes += chunk("fcTL", bytesOf(sequence++) + header.substr(0, 8) + bytesOf(0) + bytesOf(0) +
                               bytesOf(1, 2) + bytesOf(24, 2) + bytesOf(0, 1) + bytesOf(0, 1));
    bytes += n == 0 ? chunk("IDAT", picture.pixels)
                    : chunk("fdAT", bytesOf(sequence++) + picture.pixels);
  }
  bytes += chunk("IEND", "");
  std::ofstream file(out, std::ios::binary);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("cannot write " + out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: velmor-demo-animate OUT.png FRAME.png ...\n");
    return 2;
  }
  try {
    run(argv[1], {argv + 2, argv + argc});
  } catch (std::exception const& e) {
    std::fprintf(stderr, "velmor-demo-animate: %s\n", e.what());
    return 1;
  }
  return 0;
}
