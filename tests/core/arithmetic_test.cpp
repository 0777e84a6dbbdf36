#include "core/arithmetic.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/to_int.h"

namespace Velmor::Processing {
namespace {

using Int2 = orlen::Math::vec<2, int>;
using Int3 = orlen::Math::vec<3, int>;
using Float3 = orlen::Math::vec<3, float>;

constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

TEST(Arithmetic, WorksPerComponent) {
  EXPECT_EQ(Arithmetic::add(Int2(1, 2), Int2(3, 5)), Int2(4, 7));
  EXPECT_EQ(Arithmetic::subtract(Int3(1, 2, 3), Int3(3, 2, 1)), Int3(-2, 0, 2));
  EXPECT_EQ(Arithmetic::multiply(Float3(1, 2, 3), Float3(2, 0, -1)), Float3(2, 0, -3));
  EXPECT_EQ(Arithmetic::divide(Int3(7, -7, 7), Int3(2, 2, -2)), Int3(3, -3, -3));
  EXPECT_EQ(Arithmetic::negate(Int2(1, -2)), Int2(-1, 2));
}

TEST(Arithmetic, IntegersWrap) {
  EXPECT_EQ(Arithmetic::add(highest, 1), lowest);
  EXPECT_EQ(Arithmetic::subtract(lowest, 1), highest);
  EXPECT_EQ(Arithmetic::multiply(highest, highest), 1);
  EXPECT_EQ(Arithmetic::divide(lowest, -1), lowest);
  EXPECT_EQ(Arithmetic::negate(lowest), lowest);
}

TEST(Arithmetic, NegationKeepsTheSignOfZero) {
  EXPECT_TRUE(std::signbit(Arithmetic::negate(0.f)));
  EXPECT_FALSE(std::signbit(Arithmetic::negate(-0.f)));
}

TEST(ToInt, TruncatesTowardZero) {
  EXPECT_EQ(toInt(2.9f), 2);
  EXPECT_EQ(toInt(-2.9f), -2);
  EXPECT_EQ(toInt(-0.5f), 0);
}

TEST(ToInt, GivesTheLowestIntForWhatDoesNotFit) {
  EXPECT_EQ(toInt(2147483520.f), 2147483520);
  EXPECT_EQ(toInt(2147483648.f), lowest);
  EXPECT_EQ(toInt(-2147483648.f), lowest);
  EXPECT_EQ(toInt(-2147483904.f), lowest);
  EXPECT_EQ(toInt(std::numeric_limits<float>::infinity()), lowest);
  EXPECT_EQ(toInt(-std::numeric_limits<float>::infinity()), lowest);
  EXPECT_EQ(toInt(std::numeric_limits<float>::quiet_NaN()), lowest);
}

TEST(ToInt, HoldsWhatADoubleHoldsOfTheInts) {
  EXPECT_EQ(toInt(2147483647.9), highest);
  EXPECT_EQ(toInt(2147483648.0), lowest);
  EXPECT_EQ(toInt(-2147483648.9), lowest);
  EXPECT_EQ(toInt(-2147483647.9), lowest + 1);
}

TEST(Arithmetic, SeesVectorsAsTheirComponents) {
  Int3 values[] = {Int3(1, 2, 3), Int3(4, 5, 6)};
  static_assert(Arithmetic::componentCount<Int3> == 3 && Arithmetic::componentCount<float> == 1);
  EXPECT_EQ(Arithmetic::components(values)[4], 5);
  EXPECT_EQ(Arithmetic::components(static_cast<Int3*>(nullptr)), nullptr);
  float const number = 2.f;
  EXPECT_EQ(Arithmetic::components(&number), &number);
}

}  // namespace
}  // namespace Velmor::Processing
