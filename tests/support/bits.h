#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace Velmor::Test {

/// Unlike `==`, tells zeros apart by their sign and finds a NaN equal to itself.
inline void expectSameBits(std::vector<float> const& a, std::vector<float> const& b) {
  ASSERT_EQ(a.size(), b.size());
  ASSERT_FALSE(a.empty());
  EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(float)), 0);
}

}  // namespace Velmor::Test
