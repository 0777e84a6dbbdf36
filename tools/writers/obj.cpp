#include <array>
#include <charconv>
#include <cstdint>

#include "mesh_writer.h"

namespace Velmor::Tool {

namespace {

// A line of a letter and three numbers, each in the fewest digits that read
// back as the same number. No locale has a say.
template <class T>
void writeLine(char letter, std::array<T, 3> const& numbers, OutputFile& out) {
  std::array<char, 128> line{letter};
  char* at = line.data() + 1;
  for (T const number : numbers) {
    *at++ = ' ';
    at = std::to_chars(at, line.data() + line.size(), number).ptr;
  }
  *at++ = '\n';
  out.write(line.data(), static_cast<std::size_t>(at - line.data()));
}

}  // namespace

void writeObj(Mesh const& mesh, OutputFile& out) {
  bool const doubles = needsDoubles(mesh);
  for (std::size_t v = 0; v < mesh.vertices.count(); ++v) {
    std::array<double, 3> const p{mesh.world(v, 0), mesh.world(v, 1), mesh.world(v, 2)};
    if (doubles) {
      writeLine('v', p, out);
    } else {
      writeLine('v',
                std::array<float, 3>{static_cast<float>(p[0]), static_cast<float>(p[1]),
                                     static_cast<float>(p[2])},
                out);
    }
  }
  for (auto const& t : mesh.triangles) {
    writeLine('f',
              std::array<std::int64_t, 3>{std::int64_t{t[0]} + 1, std::int64_t{t[1]} + 1,
                                          std::int64_t{t[2]} + 1},
              out);
  }
}

}  // namespace Velmor::Tool
