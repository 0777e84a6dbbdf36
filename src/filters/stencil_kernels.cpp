#include "filters/stencil_kernels.h"

#include <cstring>

#include "filters/median_network.h"
#include "filters/stencil_rules.h"

namespace Velmor::Processing {

namespace {

using Block = API::VoxelTile<float, 1, 5>;

// Voxels are computed along the block's memory, from the tile's first voxel to
// its last. The border values in between give results that nobody reads, but
// every load is a plain one.
constexpr int firstVoxel = Block::offset(0, 0, 0);
constexpr int span = Block::offset(4, 4, 4) - firstVoxel + 1;
constexpr int lanes = 16;

/// step(p) for all p from 0 to N - 1, some twice: both loops are whole vectors.
template <int N, class Step>
[[gnu::always_inline]] inline void sweep(Step const& step) {
  static_assert(N >= lanes);
  for (int p = 0; p < N / lanes * lanes; ++p) step(p);
  for (int p = N - lanes; p < N; ++p) step(p);
}

/// Takes the tile's voxels out of a span, a row in a vector of eight: what a row
/// puts behind its end the next one overwrites.
[[gnu::always_inline]] inline void pack(float const* results, float* out) {
  constexpr std::size_t rows = 25, width = 5, vector = 8;
  auto const from = [](std::size_t row) { return (row / width * 7 + row % width) * 7; };
#pragma GCC unroll 24
  for (std::size_t row = 0; row + 1 < rows; ++row) {
    std::memcpy(out + row * width, results + from(row), vector * sizeof(float));
  }
  std::memcpy(out + (rows - 1) * width, results + from(rows - 1), width * sizeof(float));
}

struct Mean {
  [[gnu::always_inline]] static float at(float const* c) { return StencilRules::mean(c); }
};
struct Laplacian {
  [[gnu::always_inline]] static float at(float const* c) { return StencilRules::laplacian(c); }
};

template <class Rule>
struct Stencil {
  [[gnu::always_inline]] static void run(Block const& tile, float* out) {
    alignas(64) float results[span];
    float const* const first = tile.values + firstVoxel;
    sweep<span>([&](int p) __attribute__((always_inline)) { results[p] = Rule::at(first + p); });
    pack(results, out);
  }
};

/// Takes roots and quotients, which are slow, of the tile's voxels alone.
struct Curvature {
  [[gnu::always_inline]] static void run(Block const& tile, float* out) {
    constexpr int count = 125;
    alignas(64) float squares[span], numerators[span];
    alignas(64) float square[count], numerator[count], results[count];
    float const* const first = tile.values + firstVoxel;
    sweep<span>([&](int p) __attribute__((always_inline)) {
      auto const terms = StencilRules::curvatureTerms(first + p);
      squares[p] = terms.squared;
      numerators[p] = terms.numerator;
    });
    pack(squares, square);
    pack(numerators, numerator);
    sweep<count>([&](int p) __attribute__((always_inline)) {
      results[p] = StencilRules::curvature({square[p], numerator[p]});
    });
    std::memcpy(out, results, sizeof results);
  }
};

constexpr auto mergeNines = Network::mergeOf<9>();
constexpr auto& nineExchanges = Network::sortNineFromTriples;
// A copy: clang takes no part of an object for a template argument.
constexpr auto mergeExchanges = mergeNines.pairs;

/// Voxels that are neighbours in x share two of their three planes of nine
/// values, and planes that are neighbours in y two of their three columns:
/// each column and each plane is sorted once.
struct Median {
  [[gnu::always_inline]] static void run(Block const& tile, float* out) {
    if (hasNan(tile.values)) return runRanked(tile, out);

    constexpr int columns = 5 * 49;
    constexpr int planes = columns - 2 * StencilRules::sy;
    alignas(64) float triple[3][columns + 11];
    alignas(64) float nine[9][planes + 25];
    alignas(64) float results[span];

    float const* const v = tile.values;
    sweep<columns>([&](int p) __attribute__((always_inline)) {
      float a = v[p], b = v[p + 49], c = v[p + 98];
      Network::exchange(a, b);
      Network::exchange(b, c);
      Network::exchange(a, b);
      triple[0][p] = a;
      triple[1][p] = b;
      triple[2][p] = c;
    });
    sweep<planes>([&](int p) __attribute__((always_inline)) {
      float s[9] = {triple[0][p],      triple[1][p],      triple[2][p],
                    triple[0][p + 7],  triple[1][p + 7],  triple[2][p + 7],
                    triple[0][p + 14], triple[1][p + 14], triple[2][p + 14]};
      Network::run<nineExchanges>(s, std::make_index_sequence<nineExchanges.size()>{});
      nine[0][p] = s[0], nine[1][p] = s[1], nine[2][p] = s[2];
      nine[3][p] = s[3], nine[4][p] = s[4], nine[5][p] = s[5];
      nine[6][p] = s[6], nine[7][p] = s[7], nine[8][p] = s[8];
    });
    sweep<span>([&](int p) __attribute__((always_inline)) {
      float s[18] = {nine[0][p],     nine[1][p],     nine[2][p],     nine[3][p],     nine[4][p],
                     nine[5][p],     nine[6][p],     nine[7][p],     nine[8][p],     nine[0][p + 1],
                     nine[1][p + 1], nine[2][p + 1], nine[3][p + 1], nine[4][p + 1], nine[5][p + 1],
                     nine[6][p + 1], nine[7][p + 1], nine[8][p + 1]};
      Network::run<mergeExchanges>(s, std::make_index_sequence<mergeNines.count>{});
      // The 14th of both lists together: some split takes so many from each
      // that the larger of their last elements is least.
      constexpr auto& at = mergeNines.order;
      float best = s[at[13]];
      best = Network::lesser(best, Network::greater(s[at[12]], nine[0][p + 2]));
      best = Network::lesser(best, Network::greater(s[at[11]], nine[1][p + 2]));
      best = Network::lesser(best, Network::greater(s[at[10]], nine[2][p + 2]));
      best = Network::lesser(best, Network::greater(s[at[9]], nine[3][p + 2]));
      best = Network::lesser(best, Network::greater(s[at[8]], nine[4][p + 2]));
      best = Network::lesser(best, Network::greater(s[at[7]], nine[5][p + 2]));
      best = Network::lesser(best, Network::greater(s[at[6]], nine[6][p + 2]));
      best = Network::lesser(best, Network::greater(s[at[5]], nine[7][p + 2]));
      best = Network::lesser(best, Network::greater(s[at[4]], nine[8][p + 2]));
      results[p] = best;
    });
    pack(results, out);
  }

 private:
  [[gnu::always_inline]] static bool hasNan(float const* values) {
    int found = 0;
    for (int i = 0; i < Block::count; ++i) found |= values[i] != values[i] ? 1 : 0;
    return found != 0;
  }

  // min and max would lose a NaN.
  static void runRanked(Block const& tile, float* out) {
    for (int k = 0; k < 5; ++k) {
      for (int j = 0; j < 5; ++j) {
        for (int i = 0; i < 5; ++i) {
          *out++ = StencilRules::median(tile.values + Block::offset(i, j, k));
        }
      }
    }
  }
};

template <class Work>
void baseline(HaloFilter<float> const&, Block const& tile, float* out) {
  Work::run(tile, out);
}

template <class Work>
[[gnu::target("avx2")]] void avx2(HaloFilter<float> const&, Block const& tile, float* out) {
  Work::run(tile, out);
}

template <class Work>
[[gnu::target("avx512f")]] void avx512(HaloFilter<float> const&, Block const& tile, float* out) {
  Work::run(tile, out);
}

}  // namespace

VectorLevel bestVectorLevel() {
  if (__builtin_cpu_supports("avx512f")) return VectorLevel::Avx512;
  if (__builtin_cpu_supports("avx2")) return VectorLevel::Avx2;
  return VectorLevel::Baseline;
}

StencilKernels stencilKernels(VectorLevel level) {
  using Lap = Stencil<Laplacian>;
  using Curv = Curvature;
  switch (level) {
    case VectorLevel::Avx512:
      return {&avx512<Stencil<Mean>>, &avx512<Median>, &avx512<Lap>, &avx512<Curv>};
    case VectorLevel::Avx2:
      return {&avx2<Stencil<Mean>>, &avx2<Median>, &avx2<Lap>, &avx2<Curv>};
    case VectorLevel::Baseline:
      break;
  }
  return {&baseline<Stencil<Mean>>, &baseline<Median>, &baseline<Lap>, &baseline<Curv>};
}

}  // namespace Velmor::Processing
