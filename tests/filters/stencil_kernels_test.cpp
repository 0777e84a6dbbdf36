#include "filters/stencil_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "filters/median_network.h"
#include "processing/stencil_filters.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using Block = API::VoxelTile<float, 1, 5>;

// The definitions, literally, one voxel at a time.
float at(Block const& b, int i, int j, int k) {
  return b.values[((k + 1) * 7 + j + 1) * 7 + i + 1];
}

float referenceMean(Block const& b, int i, int j, int k) {
  float volatile sum = 0.f;
  for (int dx = -1; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy)
      for (int dz = -1; dz <= 1; ++dz) sum = sum + at(b, i + dx, j + dy, k + dz);
  return sum * 0.037037037f;
}

float referenceMedian(Block const& b, int i, int j, int k) {
  std::vector<float> numbers;
  for (int dx = -1; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy)
      for (int dz = -1; dz <= 1; ++dz) {
        float const v = at(b, i + dx, j + dy, k + dz);
        if (!std::isnan(v)) numbers.push_back(v);
      }
  std::sort(numbers.begin(), numbers.end());
  return numbers.size() > 13 ? numbers[13] : std::numeric_limits<float>::quiet_NaN();
}

float referenceLaplacian(Block const& b, int i, int j, int k) {
  float volatile s = 6.f * at(b, i, j, k);
  s = at(b, i - 1, j, k) - s;
  s = s + at(b, i + 1, j, k);
  s = s + at(b, i, j - 1, k);
  s = s + at(b, i, j + 1, k);
  s = s + at(b, i, j, k - 1);
  s = s + at(b, i, j, k + 1);
  return s * 0.16666667f;
}

float referenceCurvature(Block const& b, int i, int j, int k) {
  auto const f = [&](int dx, int dy, int dz) { return at(b, i + dx, j + dy, k + dz); };
  float const c = f(0, 0, 0);
  float const volatile Dx = (f(1, 0, 0) - f(-1, 0, 0)) * 0.5f;
  float const volatile Dy = (f(0, 1, 0) - f(0, -1, 0)) * 0.5f;
  float const volatile Dz = (f(0, 0, 1) - f(0, 0, -1)) * 0.5f;
  float const volatile xx = Dx * Dx, yy = Dy * Dy, zz = Dz * Dz;
  float const volatile G = (yy + xx) + zz;
  if (0.f >= G) return 0.f;
  float const volatile c2 = 2.f * c;
  float const volatile Dxx = (f(1, 0, 0) - c2) + f(-1, 0, 0);
  float const volatile Dyy = (f(0, 1, 0) - c2) + f(0, -1, 0);
  float const volatile Dzz = (f(0, 0, 1) - c2) + f(0, 0, -1);
  float const volatile Dxy = (((f(1, 1, 0) - f(1, -1, 0)) + f(-1, -1, 0)) - f(-1, 1, 0)) * 0.25f;
  float const volatile Dxz = (((f(1, 0, 1) - f(1, 0, -1)) + f(-1, 0, -1)) - f(-1, 0, 1)) * 0.25f;
  float const volatile Dyz = (((f(0, 1, 1) - f(0, 1, -1)) + f(0, -1, -1)) - f(0, -1, 1)) * 0.25f;
  float const volatile g = std::sqrt(G);
  float const volatile ty = yy * (Dxx + Dzz);
  float const volatile tx = xx * (Dyy + Dzz);
  float const volatile tz = zz * (Dxx + Dyy);
  float const volatile m1 = Dxy * Dy, m2 = Dxz * Dz;
  float const volatile m3 = (m1 + m2) * Dx;
  float const volatile m4 = (Dyz * Dy) * Dz;
  float const volatile n = ((ty + tx) + tz) - 2.f * (m3 + m4);
  float const volatile d = (2.f * g) * g;
  float const volatile q = n / d;
  return q * 0.33333334f;
}

bool sameBits(float a, float b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

std::vector<VectorLevel> levels() {
  std::vector<VectorLevel> all{VectorLevel::Baseline};
  if (bestVectorLevel() >= VectorLevel::Avx2) all.push_back(VectorLevel::Avx2);
  if (bestVectorLevel() >= VectorLevel::Avx512) all.push_back(VectorLevel::Avx512);
  return all;
}

enum class Data { Smooth, Wide, Denormal, Infinite, FewNan, MostlyNan, AnyBits, Ties };

void fill(Block& block, Data data, std::mt19937& random) {
  std::uniform_real_distribution<float> unit(-1.f, 1.f);
  std::uniform_int_distribution<int> of20(0, 19);
  float const infinity = std::numeric_limits<float>::infinity();
  for (float& v : block.values) {
    int const die = of20(random);
    v = unit(random);
    switch (data) {
      case Data::Smooth:
        break;
      case Data::Wide:
        v = std::ldexp(v, die * 12 - 114);
        break;
      case Data::Denormal:
        v = std::ldexp(v, -140);
        break;
      case Data::Infinite:
        v = die == 0 ? infinity : die == 1 ? -infinity : v * 1e38f;
        break;
      case Data::FewNan:
        v = die == 0 ? std::nanf("") : v;
        break;
      case Data::MostlyNan:
        v = die < 10 ? std::nanf("") : die == 10 ? infinity : v;
        break;
      case Data::AnyBits:
        v = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        break;
      case Data::Ties:
        v = static_cast<float>(die % 4 - 2) * 0.5f;
        break;
    }
  }
}

class StencilKernelsTest : public testing::TestWithParam<Data> {};

TEST_P(StencilKernelsTest, EveryVectorLevelGivesTheBitsOfTheScalarDefinition) {
  auto const seed = Velmor::Test::newSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  MeanFilter<float> const filter;  // kernels do not look at the filter they stand for
  for (int round = 0; round < 40; ++round) {
    Block block;
    fill(block, GetParam(), random);
    for (auto const level : levels()) {
      auto const kernels = stencilKernels(level);
      float mean[125], median[125], laplacian[125], curvature[125];
      kernels.mean(filter, block, mean);
      kernels.median(filter, block, median);
      kernels.laplacian(filter, block, laplacian);
      kernels.curvature(filter, block, curvature);
      for (int e = 0; e < 125; ++e) {
        int const i = e % 5, j = e / 5 % 5, k = e / 25;
        ASSERT_TRUE(sameBits(mean[e], referenceMean(block, i, j, k))) << e;
        ASSERT_TRUE(sameBits(laplacian[e], referenceLaplacian(block, i, j, k))) << e;
        ASSERT_TRUE(sameBits(curvature[e], referenceCurvature(block, i, j, k))) << e;
        float const expected = referenceMedian(block, i, j, k);
        ASSERT_TRUE(median[e] == expected || (std::isnan(median[e]) && std::isnan(expected)))
            << median[e] << " for " << expected << " at " << e;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Values, StencilKernelsTest,
                         testing::Values(Data::Smooth, Data::Wide, Data::Denormal, Data::Infinite,
                                         Data::FewNan, Data::MostlyNan, Data::AnyBits, Data::Ties));

TEST(MedianNetwork, SortsNineFromSortedTriplesForEveryPatternOfZerosAndOnes) {
  // A network that sorts all patterns of two values sorts everything.
  for (int pattern = 0; pattern < 512; ++pattern) {
    float v[9];
    for (int i = 0; i < 9; ++i) v[i] = static_cast<float>(pattern >> i & 1);
    for (int t = 0; t < 9; t += 3) std::sort(v + t, v + t + 3);
    for (auto const& pair : Network::sortNineFromTriples) {
      Network::exchange(v[pair.low], v[pair.high]);
    }
    EXPECT_TRUE(std::is_sorted(v, v + 9)) << pattern;
  }
}

TEST(MedianNetwork, MergesTwoSortedNinesForEveryPatternOfZerosAndOnes) {
  constexpr auto net = Network::mergeOf<9>();
  for (int a = 0; a <= 9; ++a) {
    for (int b = 0; b <= 9; ++b) {
      float v[18];
      for (int i = 0; i < 9; ++i) {
        v[i] = i < a ? 0.f : 1.f;
        v[9 + i] = i < b ? 0.f : 1.f;
      }
      for (std::size_t p = 0; p < net.count; ++p) {
        Network::exchange(v[net.pairs[p].low], v[net.pairs[p].high]);
      }
      for (int i = 1; i < 18; ++i) {
        EXPECT_LE(v[net.order[static_cast<std::size_t>(i - 1)]],
                  v[net.order[static_cast<std::size_t>(i)]]);
      }
    }
  }
}

}  // namespace
}  // namespace Velmor::Processing
