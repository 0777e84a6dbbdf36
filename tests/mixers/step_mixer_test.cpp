#include <gtest/gtest.h>

#include <limits>

#include "mixers/mixed_channels.h"
#include "processing/mixer.h"

namespace Velmor::Processing {
namespace {

using namespace Test;
using Float3 = orlen::Math::vec<3, float>;
constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

TEST(StepMixer, AddsTheScaledSecondToTheFirst) {
  EXPECT_EQ(StepMixer<int>(0.5f).compute(10, -3), 9);
  EXPECT_EQ(StepMixer<float>(0.3f).compute(0.3f, 5.f), 1.79999995f);
  EXPECT_EQ(StepMixer<Float3>(2.f).compute({1.f, 2.f, 3.f}, {1.f, -1.f, 0.5f}),
            Float3(3.f, 0.f, 4.f));
  EXPECT_EQ(StepMixer<int>(1.f).compute(1, highest), orlen::Math::detail::add(1, lowest));
}

TEST(StepMixer, MayWriteItsFirstInput) {
  MixedChannels const c;
  API::Channel a = c.add("a", 1.f);
  auto const b = c.add("b", 2.f);
  EXPECT_TRUE(StepMixer<float>(3.f).mix(a, b, a));
  EXPECT_EQ(valueAt<float>(a), 7.f);
  API::Channel second = b;
  EXPECT_TRUE(StepMixer<float>(1.f).mix(a, b, second));
  EXPECT_EQ(valueAt<float>(b), 9.f);
}

}  // namespace
}  // namespace Velmor::Processing
