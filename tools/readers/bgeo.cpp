#include <cmath>
#include <limits>
#include <string>

#include "readers/bytes.h"
#include "readers/gzip.h"
#include "readers/particles.h"

namespace Velmor::Tool {

namespace {

enum Type { Float = 0, Int = 1, Text = 2, Mixed = 3, Index = 4, Vector = 5 };

class BgeoReader {
 public:
  explicit BgeoReader(std::string const& path) : path_(path), file_(path) {}

  Particles run() {
    std::array<char, 5> magic{};
    take(magic.data(), magic.size());
    if (std::string_view(magic.data(), magic.size()) != "BgeoV") fail("no classic .bgeo file");
    if (auto const version = word(); version != 5) {
      fail("classic geometry of version " + std::to_string(version) + "; only 5 is known");
    }
    auto const points = word();
    for (int n = 0; n < 3; ++n) word();  // primitives, groups of points and of primitives
    auto const attributes = word();
    for (int n = 0; n < 3; ++n) word();  // attributes of vertices, of primitives, of everything
    if (points < 0 || attributes < 0) fail("negative counts in the header");
    std::size_t record = 16;
    for (std::int32_t n = 0; n < attributes; ++n) record += readDefinition();
    if (static_cast<double>(points) * static_cast<double>(record) > file_.mostBytes()) {
      fail("the file is too short for " + std::to_string(points) + " points");
    }
    return readPoints(static_cast<std::size_t>(points), record);
  }

 private:
  struct Field {
    std::size_t offset;
    bool integer;
    std::size_t attribute;  // in the result
    int components;
  };

  // Returns the bytes that the attribute takes in each point.
  std::size_t readDefinition() {
    auto name = text();
    auto const size = half();
    auto const type = word();
    if (type != Float && type != Int && type != Vector && type != Index) {
      fail("attribute '" + name + "' is of type " + std::to_string(type) + ", which is not known");
    }
    if (type == Index) {
      auto const names = word();
      if (names < 0) fail("attribute '" + name + "' has a negative number of texts");
      for (std::int32_t n = 0; n < names; ++n) text();
    } else {
      for (unsigned n = 0; n < size; ++n) word();  // defaults
    }
    if (size >= 1 && size <= 3) {
      fields_.push_back({offset_, type == Int || type == Index, result_.attributes.size(),
                         static_cast<int>(size)});
      result_.attributes.push_back(
          {std::move(name), static_cast<int>(size), type == Int || type == Index, {}});
    } else {
      result_.skipped.push_back("attribute '" + name + "' of " + std::to_string(size) +
                                " components");
    }
    offset_ += 4 * std::size_t{size};
    return 4 * std::size_t{size};
  }

  Particles readPoints(std::size_t points, std::size_t record) {
    result_.positions.reserve(3 * points);
    for (auto const& field : fields_) {
      result_.attributes[field.attribute].values.reserve(
          points * static_cast<std::size_t>(field.components));
    }
    std::vector<char> bytes(record);
    for (std::size_t p = 0; p < points; ++p) {
      take(bytes.data(), record);
      auto const w = static_cast<double>(loadValue<float>(bytes.data() + 12, true));
      for (std::size_t axis = 0; axis < 3; ++axis) {
        auto const x = static_cast<double>(loadValue<float>(bytes.data() + 4 * axis, true));
        // A point at infinity has no position.
        result_.positions.push_back(w == 1.   ? x
                                    : w == 0. ? std::numeric_limits<double>::quiet_NaN()
                                              : x / w);
      }
      for (auto const& field : fields_) {
        auto& values = result_.attributes[field.attribute].values;
        for (int c = 0; c < field.components; ++c) {
          auto const* at = bytes.data() + field.offset + 4 * static_cast<std::size_t>(c);
          values.push_back(loadNumber(at, field.integer ? Number::Int32 : Number::Float, true));
        }
      }
    }
    file_.finish();
    return std::move(result_);
  }

  void take(char* to, std::size_t size) {
    if (file_.read(to, size) != size) fail("the file ends before its last point");
  }
  std::int32_t word() {
    std::array<char, 4> bytes;
    take(bytes.data(), 4);
    return loadValue<std::int32_t>(bytes.data(), true);
  }
  unsigned half() {
    std::array<char, 2> bytes;
    take(bytes.data(), 2);
    return loadValue<std::uint16_t>(bytes.data(), true);
  }
  std::string text() {
    std::string result(half(), '\0');
    take(result.data(), result.size());
    return result;
  }
  [[noreturn]] void fail(std::string const& text) const {
    throw Failure(ExitCode::Input, path_, text);
  }

  std::string const& path_;
  UnpackedFile file_;
  Particles result_;
  std::vector<Field> fields_;
  std::size_t offset_ = 16;  // behind x, y, z and w
};

}  // namespace

Particles readBgeo(std::string const& path) { return BgeoReader(path).run(); }

}  // namespace Velmor::Tool
