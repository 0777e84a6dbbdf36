#include "velmorapi/string.h"

#include <gtest/gtest.h>

namespace Velmor::API {
namespace {

using Pieces = Array<String>;

TEST(String, OfANullTextIsEmpty) {
  char const* const null = nullptr;
  EXPECT_TRUE(String(null).empty());
  EXPECT_EQ(String(null), String());
}

TEST(String, SplitKeepsEmptyPieces) {
  EXPECT_EQ(String(",a,,b,").split(','), (Pieces{"", "a", "", "b", ""}));
  EXPECT_EQ(String().split(','), Pieces{""});
}

TEST(String, SplitsAtAWholeText) {
  EXPECT_EQ(String("name=a name=b").split("name="), (Pieces{"", "a ", "b"}));
}

TEST(String, SplitAtNothingIsTheWholeText) {
  EXPECT_EQ(String("abc").split(""), Pieces{"abc"});
  EXPECT_EQ(String("abc").split(nullptr), Pieces{"abc"});
  EXPECT_EQ(String().split(""), Pieces{""});
}

}  // namespace
}  // namespace Velmor::API
