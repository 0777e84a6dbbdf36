#pragma once

#include <array>
#include <cstddef>
#include <utility>

/// Sorting without branches: compare-exchanges at fixed places, so that one
/// pass over registers orders as many voxels as a register has lanes.
namespace Velmor::Processing::Network {

struct Pair {
  int low, high;
};

/// Sorts nine values of which each three in a row are sorted already: the last
/// 16 of the 25 exchanges of Floyd's network (D. E. Knuth, "The Art of Computer
/// Programming", volume 3, section 5.3.4).
inline constexpr std::array<Pair, 16> sortNineFromTriples{{{0, 3},
                                                           {3, 6},
                                                           {0, 3},
                                                           {1, 4},
                                                           {4, 7},
                                                           {1, 4},
                                                           {2, 5},
                                                           {5, 8},
                                                           {2, 5},
                                                           {1, 3},
                                                           {5, 7},
                                                           {2, 6},
                                                           {4, 6},
                                                           {2, 4},
                                                           {2, 3},
                                                           {5, 6}}};

/// A merging network, and where its outputs are in ascending order.
template <std::size_t Inputs>
struct Merge {
  std::array<Pair, Inputs * 2> pairs{};
  std::size_t count = 0;
  std::array<int, Inputs> order{};
};

/// Batcher's odd-even merge of two sorted lists, given as places in one array
/// (K. E. Batcher, "Sorting networks and their applications", 1968).
template <std::size_t Inputs>
constexpr std::size_t mergeLists(Merge<Inputs>& net, int const* a, std::size_t na, int const* b,
                                 std::size_t nb, int* out) {
  if (na == 0 || nb == 0) {
    for (std::size_t i = 0; i < na; ++i) out[i] = a[i];
    for (std::size_t i = 0; i < nb; ++i) out[i] = b[i];
    return na + nb;
  }
  if (na == 1 && nb == 1) {
    net.pairs[net.count++] = {a[0], b[0]};
    out[0] = a[0];
    out[1] = b[0];
    return 2;
  }
  int part[2][2][Inputs] = {};  // [even or odd places][list]
  std::size_t size[2][2] = {};
  for (std::size_t i = 0; i < na; ++i) part[i % 2][0][size[i % 2][0]++] = a[i];
  for (std::size_t i = 0; i < nb; ++i) part[i % 2][1][size[i % 2][1]++] = b[i];
  int even[Inputs] = {}, odd[Inputs] = {};
  auto const evens = mergeLists(net, part[0][0], size[0][0], part[0][1], size[0][1], even);
  auto const odds = mergeLists(net, part[1][0], size[1][0], part[1][1], size[1][1], odd);
  std::size_t n = 0;
  out[n++] = even[0];
  for (std::size_t i = 0; i < odds || i + 1 < evens; ++i) {
    if (i < odds && i + 1 < evens) net.pairs[net.count++] = {odd[i], even[i + 1]};
    if (i < odds) out[n++] = odd[i];
    if (i + 1 < evens) out[n++] = even[i + 1];
  }
  return n;
}

/// Merges the sorted lists at places 0 to N - 1 and N to 2N - 1.
template <std::size_t N>
constexpr Merge<2 * N> mergeOf() {
  Merge<2 * N> net;
  int a[N] = {}, b[N] = {};
  for (std::size_t i = 0; i < N; ++i) {
    a[i] = static_cast<int>(i);
    b[i] = static_cast<int>(N + i);
  }
  mergeLists(net, a, N, b, N, net.order.data());
  return net;
}

// The forms that one min or max instruction computes.
[[gnu::always_inline]] inline float lesser(float a, float b) { return a < b ? a : b; }
[[gnu::always_inline]] inline float greater(float a, float b) { return a > b ? a : b; }

[[gnu::always_inline]] inline void exchange(float& low, float& high) {
  float const a = low, b = high;
  low = lesser(a, b);
  high = greater(a, b);
}

/// Runs the first `sizeof...(I)` exchanges of a network; unrolled, so that the
/// values stay in registers and exchanges whose results nobody reads vanish.
template <auto const& pairs, std::size_t... I>
[[gnu::always_inline]] inline void run(float* values, std::index_sequence<I...>) {
  (exchange(values[pairs[I].low], values[pairs[I].high]), ...);
}

}  // namespace Velmor::Processing::Network
