#include "readers/gzip.h"

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "failure.h"

namespace Velmor::Tool {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 18;
// Deflate cannot pack tighter than 1032 to 1.
constexpr double kTightest = 1040.;

}  // namespace

struct UnpackedFile::Impl {
  explicit Impl(std::string const& name)
      : path(name), file(std::fopen(name.c_str(), "rb"), std::fclose), in(kBlock) {
    if (!file) throw Failure(ExitCode::Input, path, std::strerror(errno));
    struct stat there {};
    if (fstat(fileno(file.get()), &there) == 0) {
      if (S_ISDIR(there.st_mode)) throw Failure(ExitCode::Input, path, std::strerror(EISDIR));
      size = static_cast<double>(there.st_size);
    }
    fill();
    packed = filled >= 2 && in[0] == '\x1F' && in[1] == '\x8B';
    if (packed && inflateInit2(&stream, 15 + 16) != Z_OK) throw std::bad_alloc();
  }
  ~Impl() {
    if (packed) inflateEnd(&stream);
  }
  Impl(Impl const&) = delete;
  Impl& operator=(Impl const&) = delete;

  void fill() {
    at = 0;
    filled = std::fread(in.data(), 1, in.size(), file.get());
    if (filled == 0 && std::ferror(file.get()) != 0) {
      throw Failure(ExitCode::Input, path, std::strerror(errno));
    }
  }

  std::size_t readPlain(char* to, std::size_t count) {
    std::size_t done = 0;
    while (done < count) {
      if (at == filled) fill();
      if (filled == 0) break;
      auto const part = std::min(count - done, filled - at);
      std::memcpy(to + done, in.data() + at, part);
      at += part;
      done += part;
    }
    return done;
  }

  std::size_t readPacked(char* to, std::size_t count) {
    std::size_t done = 0;
    while (done < count && !ended) {
      if (at == filled) fill();
      stream.next_in = reinterpret_cast<Bytef*>(in.data() + at);
      stream.avail_in = static_cast<uInt>(filled - at);
      auto const room = static_cast<uInt>(std::min(count - done, kBlock));
      stream.next_out = reinterpret_cast<Bytef*>(to + done);
      stream.avail_out = room;
      int const result = inflate(&stream, Z_NO_FLUSH);
      at = filled - stream.avail_in;
      done += room - stream.avail_out;
      if (result == Z_STREAM_END) {
        ended = true;
      } else if (result != Z_OK || (filled == 0 && stream.avail_out == room)) {
        throw Failure(
            ExitCode::Input, path,
            filled == 0 ? "the packed data end too early" : "the packed data are damaged");
      }
    }
    return done;
  }

  std::string path;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file;
  std::vector<char> in;
  std::size_t at = 0, filled = 0;
  double size = 0.;
  bool packed = false, ended = false;
  z_stream stream{};
};

UnpackedFile::UnpackedFile(std::string const& path) : impl_(std::make_unique<Impl>(path)) {}
UnpackedFile::~UnpackedFile() = default;

std::size_t UnpackedFile::read(char* to, std::size_t size) {
  return impl_->packed ? impl_->readPacked(to, size) : impl_->readPlain(to, size);
}

void UnpackedFile::finish() {
  if (!impl_->packed) return;
  std::vector<char> rest(kBlock);
  while (impl_->readPacked(rest.data(), rest.size()) > 0) {
  }
}

double UnpackedFile::mostBytes() const {
  return impl_->packed ? kTightest * impl_->size : impl_->size;
}

std::string startOf(std::string const& path) {
  UnpackedFile file(path);
  std::string start(1024, '\0');
  std::size_t count = 0;
  try {
    while (count < start.size() && file.read(&start[count], 1) == 1) ++count;
  } catch (Failure const&) {
    // The reader of the format says it with more words.
  }
  start.resize(count);
  return start;
}

bool inflateBlock(char const* data, std::size_t count, char* to, std::size_t size) {
  auto made = static_cast<uLongf>(size);
  return uncompress(reinterpret_cast<Bytef*>(to), &made, reinterpret_cast<Bytef const*>(data),
                    static_cast<uLong>(count)) == Z_OK &&
         made == size;
}

}  // namespace Velmor::Tool
