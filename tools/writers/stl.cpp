#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "mesh_writer.h"

namespace Velmor::Tool {

static_assert(std::endian::native == std::endian::little, "STL is little-endian by definition");

void writeStl(Mesh const& mesh, OutputFile& out) {
  std::array<char, 80> header{};
  std::strncpy(header.data(), "velmor mesh", header.size());
  out.writeValue(header);
  out.writeValue(static_cast<std::uint32_t>(mesh.triangles.count()));
  for (auto const& t : mesh.triangles) {
    std::array<std::array<double, 3>, 3> corners{};
    for (int c = 0; c < 3; ++c) {
      for (int axis = 0; axis < 3; ++axis) {
        corners[static_cast<std::size_t>(c)][static_cast<std::size_t>(axis)] =
            mesh.world(static_cast<std::size_t>(t[c]), axis);
      }
    }
    std::array<double, 3> normal{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      auto const a = (axis + 1) % 3, b = (axis + 2) % 3;
      normal[axis] = (corners[1][a] - corners[0][a]) * (corners[2][b] - corners[0][b]) -
                     (corners[1][b] - corners[0][b]) * (corners[2][a] - corners[0][a]);
    }
    double const length = std::hypot(normal[0], normal[1], normal[2]);
    std::array<float, 12> facet{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      // A sliver may have no measurable normal; readers then take the corners' order.
      facet[axis] = length > 0 ? static_cast<float>(normal[axis] / length) : 0.f;
      for (std::size_t c = 0; c < 3; ++c) {
        facet[3 + 3 * c + axis] = static_cast<float>(corners[c][axis]);
      }
    }
    std::array<char, 50> record{};  // ends in two bytes of attributes, unused
    std::memcpy(record.data(), facet.data(), sizeof facet);
    out.writeValue(record);
  }
}

}  // namespace Velmor::Tool
