#include "core/halo_block.h"

#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Velmor::API {

namespace {

/// The rows of a block that come from one source along an axis.
struct Part {
  int begin, count;
  int cell;  // of the first of them in its source
};
constexpr Part parts[3] = {{0, 1, tileWidth - 1}, {1, tileWidth, 0}, {tileWidth + 1, 1, 0}};

/// The number of a cell in its source; of a single value all numbers are 0.
std::size_t masked(CellSource const& source, int cell) {
  return static_cast<std::size_t>(static_cast<std::uint32_t>(cell) & source.mask);
}

/// Copies a column of cells at `x` of their source to one place of each row.
template <class T, Part py, Part pz>
void fillColumn(CellSource const& source, int x, T* __restrict to) {
  auto const* plane =
      reinterpret_cast<T const*>(source.data) + masked(source, cellOf(x, py.cell, pz.cell));
  auto const stepY = masked(source, cellOf(0, 1, 0)), stepZ = masked(source, cellOf(0, 0, 1));
  for (int z = 0; z < pz.count; ++z, plane += stepZ) {
    auto const* from = plane;
    for (int y = 0; y < py.count; ++y, from += stepY) to[blockEdge * (y + blockEdge * z)] = *from;
  }
}

/// Fills the rows of one part along y and one along z from the sources of their
/// left end, their middle and their right end.
template <class T, Part py, Part pz>
void fillRows(CellSource const* three, T* __restrict block) {
  T* const rows = block + blockEdge * (py.begin + blockEdge * pz.begin);
  fillColumn<T, py, pz>(three[0], tileWidth - 1, rows);
  auto const* const middle = reinterpret_cast<T const*>(three[1].data);
  if (three[1].mask != 0) {
    for (int z = 0; z < pz.count; ++z) {
      for (int y = 0; y < py.count; ++y) {
        std::memcpy(rows + 1 + blockEdge * (y + blockEdge * z),
                    middle + cellOf(0, py.cell + y, pz.cell + z), tileWidth * sizeof(T));
      }
    }
  } else {
    for (int z = 0; z < pz.count; ++z) {
      for (int y = 0; y < py.count; ++y) {
        std::fill_n(rows + 1 + blockEdge * (y + blockEdge * z), tileWidth, *middle);
      }
    }
  }
  fillColumn<T, py, pz>(three[2], 0, rows + blockEdge - 1);
}

template <class T>
void fillBlock(CellSource const* near, void* block) {
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    (fillRows<T, parts[I % 3], parts[I / 3]>(near + static_cast<int>(I % 3) * blockEdge +
                                                 static_cast<int>(I / 3) * blockEdge * blockEdge,
                                             static_cast<T*>(block)),
     ...);
  }
  (std::make_index_sequence<9>());
}

/// Rows of a block that follow one another in their three sources. Whether one
/// is a tile or a single value decides no jump: around the tiles of a narrow band
/// none could be foreseen.
struct Rows {
  std::byte const *left, *middle, *right;
  std::size_t leftStep, middleStep, rightStep;  // to the next row
  __m256i lanes, places;                        // of the middle's values: to load, to put
};

template <int Y, int Z>
[[gnu::target("avx2"), gnu::always_inline]] inline Rows rowsOf(CellSource const* near) {
  auto const* const three = near + blockEdge * (Y + blockEdge * Z);
  constexpr int step = Y == 1 ? cellOf(0, 1, 0) : cellOf(0, 0, 1);
  auto const at = [&](int source, int x) __attribute__((always_inline)) {
    return three[source].data + 4 * masked(three[source], cellOf(x, parts[Y].cell, parts[Z].cell));
  };
  auto const all = _mm256_set1_epi32(static_cast<int>(three[1].mask));
  return {at(0, tileWidth - 1),
          at(1, 0),
          at(2, 0),
          4 * masked(three[0], step),
          4 * masked(three[1], step),
          4 * masked(three[2], step),
          _mm256_or_si256(_mm256_setr_epi32(-1, 0, 0, 0, 0, 0, 0, 0),
                          _mm256_and_si256(all, _mm256_setr_epi32(0, -1, -1, -1, -1, 0, 0, 0))),
          _mm256_and_si256(all, _mm256_setr_epi32(0, 0, 1, 2, 3, 4, 0, 0))};
}

/// The next row, in seven of eight lanes.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i next(Rows& rows) {
  std::int32_t left, right;
  std::memcpy(&left, rows.left, sizeof left);
  std::memcpy(&right, rows.right, sizeof right);
  auto const middle = _mm256_maskload_epi32(reinterpret_cast<int const*>(rows.middle), rows.lanes);
  auto row = _mm256_permutevar8x32_epi32(middle, rows.places);
  row = _mm256_blend_epi32(row, _mm256_set1_epi32(left), 1);
  row = _mm256_blend_epi32(row, _mm256_set1_epi32(right), 1 << (blockEdge - 1));
  rows.left += rows.leftStep;
  rows.middle += rows.middleStep;
  rows.right += rows.rightStep;
  return row;
}

/// Rows go out in ascending order: each overwrites what the one before has put
/// behind its own end.
[[gnu::target("avx2"), gnu::always_inline]] inline void put(Rows& rows, std::int32_t*& to) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), next(rows));
  to += blockEdge;
}

/// The last row of a block, behind which nothing may be written.
[[gnu::target("avx2"), gnu::always_inline]] inline void putLast(Rows& rows, std::int32_t* to) {
  _mm256_maskstore_epi32(to, _mm256_setr_epi32(-1, -1, -1, -1, -1, -1, -1, 0), next(rows));
}

template <int Z>
[[gnu::target("avx2"), gnu::always_inline]] inline void putPlanes(CellSource const* near,
                                                                  std::int32_t*& to) {
  auto first = rowsOf<0, Z>(near), inner = rowsOf<1, Z>(near), last = rowsOf<2, Z>(near);
  for (int z = 0; z < parts[Z].count; ++z) {
    put(first, to);
    for (int y = 0; y < tileWidth; ++y) put(inner, to);
    if (Z == 2) {
      putLast(last, to);
    } else {
      put(last, to);
    }
  }
}

[[gnu::target("avx2")]] void fillBlockAvx2(CellSource const* near, void* block) {
  auto* to = static_cast<std::int32_t*>(block);
  putPlanes<0>(near, to);
  putPlanes<1>(near, to);
  putPlanes<2>(near, to);
}

/// The five inner rows of a plane lie one behind the other, in each of their
/// three sources as in the block: 35 values, which three vectors hold.
constexpr int innerCount = tileWidth * blockEdge;
constexpr int vectorStarts[3] = {0, 16, innerCount - 16};

struct Lanes {
  alignas(64) std::int32_t at[16];
};
/// Which of the middle's 25 values each lane of a vector takes.
constexpr Lanes middleLanes(int start) {
  Lanes lanes{};
  for (int n = 0; n < 16; ++n) {
    int const x = (start + n) % blockEdge, y = (start + n) / blockEdge;
    lanes.at[n] = x == 0 || x == blockEdge - 1 ? 0 : cellOf(x - 1, y, 0);
  }
  return lanes;
}
/// Which of the ends, five left and then five right ones.
constexpr Lanes endLanes(int start) {
  Lanes lanes{};
  for (int n = 0; n < 16; ++n) {
    int const x = (start + n) % blockEdge, y = (start + n) / blockEdge;
    lanes.at[n] = x == 0 ? y : tileWidth + y;
  }
  return lanes;
}
constexpr __mmask16 endMask(int start) {
  unsigned mask = 0;
  for (int n = 0; n < 16; ++n) {
    int const x = (start + n) % blockEdge;
    if (x == 0 || x == blockEdge - 1) mask |= 1u << n;
  }
  return static_cast<__mmask16>(mask);
}
constexpr Lanes middles[3] = {middleLanes(vectorStarts[0]), middleLanes(vectorStarts[1]),
                              middleLanes(vectorStarts[2])};
constexpr Lanes ends[3] = {endLanes(vectorStarts[0]), endLanes(vectorStarts[1]),
                           endLanes(vectorStarts[2])};
constexpr __mmask16 endMasks[3] = {endMask(vectorStarts[0]), endMask(vectorStarts[1]),
                                   endMask(vectorStarts[2])};
constexpr Lanes endCells = {{0, 5, 10, 15, 20, 0, 5, 10, 15, 20, 0, 0, 0, 0, 0, 0}};

struct InnerRows {
  std::byte const* data[3];
  std::size_t step[3];  // to the next plane
  __mmask16 low[3], high[3];
  __m512i middle[3], left, right;  // which values to take
};

[[gnu::target("avx512f"), gnu::always_inline]] inline __m512i masked(CellSource const& source,
                                                                     Lanes const& lanes) {
  return _mm512_and_si512(_mm512_set1_epi32(static_cast<int>(source.mask)),
                          _mm512_load_si512(lanes.at));
}

template <int Z>
[[gnu::target("avx512f"), gnu::always_inline]] inline InnerRows innerRowsOf(
    CellSource const* near) {
  auto const* const three = near + blockEdge * (1 + blockEdge * Z);
  InnerRows rows;
  // The left source counts from its first needed cell, so that both ends are
  // every fifth value; the highest of 21 or 25 is then the last that is loaded.
  constexpr int firstCell[3] = {tileWidth - 1, 0, 0};
  constexpr unsigned highLanes[3] = {0x1f, 0x1ff, 0x1f};
  for (int s = 0; s < 3; ++s) {
    rows.data[s] = three[s].data + 4 * masked(three[s], cellOf(firstCell[s], 0, parts[Z].cell));
    rows.step[s] = 4 * masked(three[s], cellOf(0, 0, 1));
    rows.low[s] = static_cast<__mmask16>(three[s].mask | 1u);
    rows.high[s] = static_cast<__mmask16>(three[s].mask & highLanes[s]);
  }
  for (int v = 0; v < 3; ++v) rows.middle[v] = masked(three[1], middles[v]);
  rows.left = masked(three[0], endCells);
  rows.right = masked(three[2], endCells);
  return rows;
}

[[gnu::target("avx512f"), gnu::always_inline]] inline void put(InnerRows& rows, std::int32_t*& to) {
  __m512i low[3], high[3];
  for (int s = 0; s < 3; ++s) {
    low[s] = _mm512_maskz_loadu_epi32(rows.low[s], rows.data[s]);
    high[s] = _mm512_maskz_loadu_epi32(rows.high[s], rows.data[s] + 64);
    rows.data[s] += rows.step[s];
  }
  auto const left = _mm512_permutex2var_epi32(low[0], rows.left, high[0]);
  auto const right = _mm512_permutex2var_epi32(low[2], rows.right, high[2]);
  auto const both = _mm512_mask_blend_epi32(0x3e0, left, right);
#pragma GCC unroll 3
  for (int v = 0; v < 3; ++v) {
    auto const middle = _mm512_permutex2var_epi32(low[1], rows.middle[v], high[1]);
    auto const all =
        _mm512_mask_permutexvar_epi32(middle, endMasks[v], _mm512_load_si512(ends[v].at), both);
    _mm512_storeu_si512(to + vectorStarts[v], all);
  }
  to += innerCount;
}

template <int Z>
[[gnu::target("avx512f"), gnu::always_inline]] inline void putWidePlanes(CellSource const* near,
                                                                         std::int32_t*& to) {
  auto first = rowsOf<0, Z>(near), last = rowsOf<2, Z>(near);
  auto inner = innerRowsOf<Z>(near);
  for (int z = 0; z < parts[Z].count; ++z) {
    put(first, to);
    put(inner, to);
    if (Z == 2) {
      putLast(last, to);
    } else {
      put(last, to);
    }
  }
}

[[gnu::target("avx512f")]] void fillBlockAvx512(CellSource const* near, void* block) {
  auto* to = static_cast<std::int32_t*>(block);
  putWidePlanes<0>(near, to);
  putWidePlanes<1>(near, to);
  putWidePlanes<2>(near, to);
}

}  // namespace

std::vector<FillBlock> blockFillers(std::size_t size) {
  std::vector<FillBlock> fillers;
  if (size == 4 && __builtin_cpu_supports("avx512f")) fillers.push_back(&fillBlockAvx512);
  if (size == 4 && __builtin_cpu_supports("avx2")) fillers.push_back(&fillBlockAvx2);
  withBits(size, [&fillers]<class Bits>(Bits*) { fillers.push_back(&fillBlock<Bits>); });
  return fillers;
}

}  // namespace Velmor::API
