#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <string>

#include "mesh_writer.h"

namespace Velmor::Tool {

namespace {

// A line of a keyword and numbers, each in the fewest digits that read back as
// the same number. No locale has a say.
class Line {
 public:
  explicit Line(char const* keyword) : text_(keyword) {}

  template <class T>
  void number(T value) {
    text_ += ' ';
    append(value);
  }
  // A corner of a face: the vertex, its texture coordinates and its normal have
  // one number here.
  void corner(std::int64_t vertex, bool texture, bool normal) {
    number(vertex);
    if (texture || normal) text_ += '/';
    if (texture) append(vertex);
    if (normal) {
      text_ += '/';
      append(vertex);
    }
  }
  void write(OutputFile& out) {
    text_ += '\n';
    out.write(text_);
  }

 private:
  template <class T>
  void append(T value) {
    std::array<char, 32> digits;
    text_.append(digits.data(),
                 std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
  }

  std::string text_;
};

}  // namespace

void writeObj(Mesh const& mesh, OutputFile& out) {
  bool const doubles = needsDoubles(mesh);
  for (std::size_t v = 0; v < mesh.vertices.count(); ++v) {
    Line line("v");
    for (int axis = 0; axis < 3; ++axis) {
      if (doubles) {
        line.number(mesh.world(v, axis));
      } else {
        line.number(static_cast<float>(mesh.world(v, axis)));
      }
    }
    line.write(out);
  }
  auto const* const texture = textureOf(mesh);
  for (std::size_t v = 0; texture != nullptr && v < mesh.vertices.count(); ++v) {
    Line line("vt");
    auto const count = static_cast<std::size_t>(texture->components);
    for (std::size_t c = 0; c < count; ++c) {
      line.number(std::bit_cast<float>(texture->words[v * count + c]));
    }
    line.write(out);
  }
  for (auto const& normal : mesh.normals) {
    Line line("vn");
    for (int axis = 0; axis < 3; ++axis) line.number(normal[axis]);
    line.write(out);
  }
  for (auto const& t : mesh.triangles) {
    Line line("f");
    for (int c = 0; c < 3; ++c) {
      line.corner(std::int64_t{t[c]} + 1, texture != nullptr, !mesh.normals.empty());
    }
    line.write(out);
  }
}

}  // namespace Velmor::Tool
