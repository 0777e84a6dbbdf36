#include "levelset/crossed_cells.h"

#include <bit>
#include <cmath>
#include <vector>

#include "levelset/bit_rows.h"
#include "levelset/parallel.h"

namespace Velmor::Host {

namespace {

using API::cellOf;
using API::cellPositions;
using API::tileWidth;

constexpr float nearEnough = 0.999f;  // room for what scaling rounds
constexpr float margin = 1e-4f;       // a corner so near 0 may have either sign when sampled

// Voxels farther away than a cell may be, with one of the other sign around.
CellMask suspects(FieldTile const& tile, Around const& around) {
  BitRows const inside(
      around, [](FieldTile const& t) -> CellMask const& { return t.inside; },
      [](int) { return false; });
  CellMask mask{};
  if (inside.isUniform()) return mask;
  for (int z = 0; z < tileWidth; ++z) {
    for (int y = 0; y < tileWidth; ++y) {
      unsigned some = 0, all = ~0u;
      for (int n = 0; n < 9; ++n) {
        auto const row = inside.row(y + n % 3 - 1, z + n / 3 - 1);
        some |= row | row << 1 | row >> 1;
        all &= row & (row << 1) & (row >> 1);
      }
      for (unsigned bits = ((some & ~all) >> 1) & 31u; bits != 0; bits &= bits - 1) {
        int const cell = cellOf(std::countr_zero(bits), y, z);
        if (std::abs(tile.samples[static_cast<std::size_t>(cell)].value) > nearEnough)
          mask.set(cell);
      }
    }
  }
  return mask;
}

bool isCrossed(Around const& around, FieldTile const& tile, int cell) {
  auto const p = cellPositions[static_cast<std::size_t>(cell)];
  float const sign = tile.inside.test(cell) ? -1.f : 1.f;
  float values[27];
  bool known[27];
  for (int n = 0; n < 27; ++n) {
    auto const at = cellAround(around, p.x + n % 3 - 1, p.y + n / 3 % 3 - 1, p.z + n / 9 - 1);
    known[n] = at.tile != nullptr;
    values[n] = known[n] ? at.tile->samples[static_cast<std::size_t>(at.cell)].value : 0.f;
  }
  for (int corner = 0; corner < 8; ++corner) {
    int const first = (corner & 1) + 3 * (corner >> 1 & 1) + 9 * (corner >> 2);
    float sum = 0.f;
    bool complete = true;
    for (int n = 0; n < 8; ++n) {
      int const at = first + (n & 1) + 3 * (n >> 1 & 1) + 9 * (n >> 2);
      sum += values[at];
      complete = complete && known[at];
    }
    // There are tiles on both sides of the surface, so it is not here.
    if (!complete) continue;
    if (sign * sum <= 8.f * margin) return true;
  }
  return false;
}

}  // namespace

void keepCrossedCells(Field& field) {
  std::vector<CellMask> masks(field.count());
  forEach(field.count(),
          [&](std::size_t t) { masks[t] = suspects(field.tile(t), field.around(t)); });
  std::vector<std::size_t> tiles;
  for (std::size_t t = 0; t < masks.size(); ++t) {
    if (!isEmpty(masks[t])) tiles.push_back(t);
  }
  std::vector<CellMask> crossed(tiles.size());
  for (bool changed = true; changed;) {
    forEach(tiles.size(), [&](std::size_t n) {
      auto const& tile = field.tile(tiles[n]);
      auto const& around = field.around(tiles[n]);
      crossed[n] = {};
      forBits(masks[tiles[n]], [&](int cell) {
        if (isCrossed(around, tile, cell)) crossed[n].set(cell);
      });
    });
    changed = false;
    for (std::size_t n = 0; n < tiles.size(); ++n) {
      auto& tile = field.tile(tiles[n]);
      forBits(crossed[n], [&](int cell) {
        changed = true;
        tile.samples[static_cast<std::size_t>(cell)].value =
            tile.inside.test(cell) ? -nearEnough : nearEnough;
        masks[tiles[n]].words[static_cast<std::size_t>(cell >> 6)] &=
            ~(std::uint64_t{1} << (cell & 63));
      });
    }
  }
}

}  // namespace Velmor::Host
