#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

#include "mixers/mixed_channels.h"
#include "processing/mixer.h"
#include "support/copies.h"

namespace Velmor::Processing {
namespace {

using namespace Test;
using Int2 = orlen::Math::vec<2, int>;
using Float3 = orlen::Math::vec<3, float>;
constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

TEST(AlphaMixer, BlendsFloatsByDifferenceThenScaleThenSum) {
  EXPECT_EQ(AlphaMixer<float>(0.25f).compute(8.f, 4.f), 5.f);
  // Not alpha * a + (1 - alpha) * b, which gives 0.119999997, nor fused, 1.99000013.
  EXPECT_EQ(AlphaMixer<float>(0.1f).compute(0.3f, 0.1f), 0.120000005f);
  EXPECT_EQ(AlphaMixer<float>(0.3f).compute(5.f, 0.7f), 1.99000001f);
  EXPECT_EQ(AlphaMixer<float>(2.f).compute(3.f, 1.f), 5.f);  // nothing clamps
}

TEST(AlphaMixer, TruncatesTheScaledDifferenceOfIntegers) {
  AlphaMixer<int> const half(0.5f);
  EXPECT_EQ(half.compute(3, 0), 1);
  EXPECT_EQ(half.compute(-3, 0), -1);
  // The difference wraps to -2147483648 before it is scaled.
  EXPECT_EQ(half.compute(highest, -1), -1073741825);
  EXPECT_EQ(AlphaMixer<Int2>(0.5f).compute({3, -3}, {0, 0}), Int2(1, -1));
}

TEST(AlphaMixer, AProductThatNoIntHoldsBecomesTheLowest) {
  // 2147483647 as a float is 2147483648.
  EXPECT_EQ(AlphaMixer<int>(1.f).compute(highest, 0), lowest);
  EXPECT_EQ(AlphaMixer<int>(1e30f).compute(1, 0), lowest);
  EXPECT_EQ(AlphaMixer<int>(std::nanf("")).compute(5, 2), orlen::Math::detail::add(2, lowest));
}

TEST(AlphaMixer, ANanAlphaGivesNan) {
  EXPECT_TRUE(std::isnan(AlphaMixer<float>(std::nanf("")).compute(1.f, 2.f)));
}

TEST(AlphaChannel, ActsInTheArithmeticOfItsType) {
  MixedChannels const c;
  auto const a = c.add("a", 7), b = c.add("b", 3);
  API::Channel out = c.add("out", 0);
  for (auto const& [alpha, expected] : {std::pair{1, 7}, {0, 3}, {2, 2 * 7 - 3}, {-1, 2 * 3 - 7}}) {
    EXPECT_TRUE(AlphaMixer<int>(c.add("alpha", alpha)).mix(a, b, out));
    EXPECT_EQ(valueAt<int>(out), expected);
  }
  API::Channel wrapped = c.add("wrapped", 0);
  EXPECT_TRUE(AlphaMixer<int>(c.add("alpha", highest)).mix(a, b, wrapped));
  EXPECT_EQ(valueAt<int>(wrapped), -4 + 3);  // 4 * 2147483647 wraps to -4
}

TEST(AlphaChannel, BlendsEachComponentByItsOwn) {
  MixedChannels const c;
  auto const a = c.add("a", Float3(8.f, 8.f, 8.f)), b = c.add("b", Float3(4.f, 4.f, 4.f));
  API::Channel out = c.add("out", Float3());
  EXPECT_TRUE(AlphaMixer<Float3>(c.add("alpha", Float3(0.f, 0.25f, 2.f))).mix(a, b, out));
  EXPECT_EQ(valueAt<Float3>(out), Float3(4.f, 5.f, 12.f));
}

TEST(AlphaChannel, OfAnotherTypeIsRefusedBeforeAnythingElseIsLookedAt) {
  MixedChannels const c;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
  auto const ints = c.add("ints", 1);
  API::Channel out = c.add("out", 7.f);
  EXPECT_FALSE(AlphaMixer<float>(ints).mix(a, b, out));
  EXPECT_FALSE(AlphaMixer<float>(ints).mix({}, b, out));
  EXPECT_EQ(valueAt<float>(out), 7.f);
}

TEST(AlphaChannel, OnAnotherLayoutIsRefused) {
  MixedChannels const c, other;
  auto const a = c.add("a", 1.f), b = c.add("b", 2.f);
  API::Channel out = c.add("out", 7.f);
  EXPECT_FALSE(AlphaMixer<float>(other.add("alpha", 1.f)).mix(a, b, out));
  EXPECT_EQ(valueAt<float>(out), 7.f);
}

TEST(AlphaChannel, AnEmptyHandleIsAConstantOne) {
  MixedChannels const c;
  auto const a = c.add("a", 0.1f), b = c.add("b", 1e9f);
  API::Channel out = c.add("out", 7.f);
  AlphaMixer<float> const mixer{API::Channel()};
  EXPECT_TRUE(mixer.mix(a, b, out));
  EXPECT_EQ(valueAt<float>(out), (0.1f - 1e9f) * 1.f + 1e9f);
  EXPECT_EQ(AlphaMixer<float>(c.add("alpha", 0.f)).compute(3.f, 1.f), 3.f);
}

TEST(AlphaChannel, IsKeptByCopies) {
  MixedChannels const c;
  auto const a = c.add("a", 8.f), b = c.add("b", 4.f);
  AlphaMixer<float> const original(c.add("alpha", 0.25f));
  for (auto const& mixer : copiesOf(original, AlphaMixer<float>(9.f))) {
    API::Channel out = c.add("out", 7.f);
    EXPECT_TRUE(mixer.mix(a, b, out));
    EXPECT_EQ(valueAt<float>(out), 5.f);
    EXPECT_EQ(mixer.compute(8.f, 4.f), 8.f);  // by the constant, which is 1
  }
}

}  // namespace
}  // namespace Velmor::Processing
