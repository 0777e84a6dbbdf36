#include "processing/status.h"

#include <gtest/gtest.h>

#include <locale>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/failing_allocation.h"

namespace Velmor::Processing {
namespace {

static_assert(!std::is_copy_constructible_v<Status> && !std::is_move_constructible_v<Status>);
static_assert(std::is_copy_assignable_v<Status>);
static_assert(std::is_copy_constructible_v<Stream> && std::is_copy_assignable_v<Stream>);
static_assert(sizeof(Stream) == sizeof(void*) && sizeof(Status) == sizeof(void*));
static_assert(!std::is_polymorphic_v<Stream> && !std::is_polymorphic_v<Status>);

std::vector<std::string> warningsOf(Status const& status) {
  std::vector<std::string> texts;
  for (auto const& text : status.warnings()) texts.push_back(text.str());
  return texts;
}

template <class... Values>
std::string written(Values const&... values) {
  Stream stream;
  (stream << ... << values);
  return stream.str().str();
}

TEST(Status, StartsGoodAndEmpty) {
  Status const status;
  EXPECT_TRUE(status);
  EXPECT_TRUE(status.error().empty());
  EXPECT_EQ(status.warnings().count(), 0u);
}

TEST(Status, StaysGoodUntilTheErrorHoldsACharacter) {
  Status status;
  status.fail();
  EXPECT_TRUE(status);
  status.fail() << "";
  EXPECT_TRUE(status);
  status.fail() << '\0';
  EXPECT_FALSE(status);
}

TEST(Status, EveryFailContinuesOneText) {
  Status status;
  auto& first = status.fail();
  first << "a";
  status.fail() << "b";
  EXPECT_EQ(&first, &status.fail());
  EXPECT_EQ(status.error(), API::String("ab"));
  EXPECT_FALSE(status);
}

TEST(Status, EveryWarnIsAnEntryEmptyOnesToo) {
  Status status;
  status.warn() << "x";
  status.warn();
  EXPECT_EQ(warningsOf(status), (std::vector<std::string>{"x", ""}));
  EXPECT_TRUE(status);
}

TEST(Status, KeepsManyWarningsInOrder) {
  Status status;
  for (int i = 0; i < 1000; ++i) status.warn() << i;
  auto const texts = status.warnings();
  ASSERT_EQ(texts.count(), 1000u);
  EXPECT_EQ(texts[0], API::String("0"));
  EXPECT_EQ(texts[999], API::String("999"));
}

TEST(Status, AssignedOnesShareTheMessages) {
  Status a;
  Status b;
  a.fail() << "x";
  b = a;
  b.fail() << "y";
  b.warn() << "w";
  EXPECT_EQ(a.error(), API::String("xy"));
  EXPECT_EQ(warningsOf(a), (std::vector<std::string>{"w"}));
}

TEST(Status, SurvivesTheOneItWasAssignedFrom) {
  Status b;
  {
    Status a;
    a.fail() << "x";
    b = a;
    auto const& same = b;
    b = same;
  }
  EXPECT_EQ(b.error(), API::String("x"));
}

TEST(Status, WithoutMemoryTakesNothingAndStaysGood) {
  for (int after = 0;; ++after) {
    FailingAllocation const failing(after);
    Status status;
    if (!failing.happened()) {
      EXPECT_GE(after, 3);  // or nothing was tried
      break;
    }
    Status other;
    other = status;
    other.fail() << "lost " << 1 << 2.f;
    status.warn() << "a warning that may be lost as well";
    EXPECT_TRUE(status);
    EXPECT_TRUE(status.error().empty());
    EXPECT_LE(status.warnings().count(), 1u);
    Status good;
    status = good;
    status.fail() << "x";
    EXPECT_EQ(good.error(), API::String("x"));
  }
}

TEST(Status, LosesOneWarningAtMostWhenMemoryRunsOutLater) {
  // Enough entries that the sequence itself must grow.
  for (int after = 0; after < 200; ++after) {
    Status status;
    {
      FailingAllocation const failing(after);
      for (int i = 0; i < 100; ++i) status.warn();
    }
    status.warn() << "last";
    auto const texts = warningsOf(status);
    EXPECT_GE(texts.size(), 100u);
    EXPECT_EQ(texts.back(), "last");
    EXPECT_TRUE(status);
  }
}

TEST(Status, ReadingWithoutMemoryGivesEmptyTexts) {
  std::string const text(1000, 'x');
  Status status;
  status.fail() << text;
  status.warn() << text;
  {
    FailingAllocation const failing(0);
    EXPECT_TRUE(status.error().empty());
    EXPECT_FALSE(status);
  }
  for (int after = 0; after < 3; ++after) {
    FailingAllocation const failing(after);
    EXPECT_LE(status.warnings().count(), 1u);
  }
  EXPECT_EQ(status.error(), API::String(text));
}

TEST(Stream, CopySharesTheText) {
  Stream s;
  s << "p";
  Stream t(s);
  t << "q";
  s << "r";
  EXPECT_EQ(s.str(), API::String("pqr"));
  EXPECT_EQ(t.str(), API::String("pqr"));
}

TEST(Stream, CopiesMayBeDestroyedInEitherOrder) {
  for (bool const originalFirst : {true, false}) {
    auto s = std::make_unique<Stream>();
    auto t = std::make_unique<Stream>(*s);
    *t << "q";
    (originalFirst ? s : t).reset();
    auto& rest = originalFirst ? t : s;
    *rest << "r";
    EXPECT_EQ(rest->str(), API::String("qr"));
  }
}

TEST(Stream, AssignedOnesShareTheTextAndAreBothDestructible) {
  Stream s;
  {
    Stream t;
    t << "lost";
    t = s;
    t << "q";
    auto const& same = t;
    t = same;
  }
  EXPECT_EQ(s.str(), API::String("q"));
}

TEST(Stream, CopiesMayBeDestroyedOnOtherThreads) {
  for (int round = 0; round < 50; ++round) {
    auto original = std::make_unique<Stream>();
    *original << "shared";
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([copy = std::make_unique<Stream>(*original)]() mutable {
        EXPECT_EQ(copy->str(), API::String("shared"));
        copy.reset();
      });
    }
    original.reset();
    for (auto& thread : threads) thread.join();
  }
}

TEST(Stream, AssignedOnesMayBeDestroyedOnOtherThreads) {
  for (int round = 0; round < 50; ++round) {
    auto original = std::make_unique<Stream>();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      auto assigned = std::make_unique<Stream>();
      *assigned = *original;
      threads.emplace_back([assigned = std::move(assigned)]() mutable { assigned.reset(); });
    }
    original.reset();
    for (auto& thread : threads) thread.join();
  }
}

TEST(Stream, WithoutMemoryTakesNothing) {
  for (int after = 0;; ++after) {
    FailingAllocation const failing(after);
    Stream stream;
    if (!failing.happened()) {
      EXPECT_GE(after, 2);
      break;
    }
    Stream copy(stream);
    copy << "x" << 1;
    stream = copy;
    EXPECT_TRUE(stream.str().empty());
  }
}

TEST(Stream, CopyWithoutMemoryLeavesTheOriginalAlone) {
  Stream stream;
  stream << "x";
  FailingAllocation const failing(0);
  Stream copy(stream);
  EXPECT_TRUE(failing.happened());
  copy << "y";
  EXPECT_EQ(stream.str(), API::String("x"));
  EXPECT_TRUE(copy.str().empty());
}

TEST(Stream, RunningOutOfMemoryWhileWritingThrowsNothing) {
  std::string const text(10000, 'x');
  Stream stream;
  stream << "a";
  {
    FailingAllocation const failing(0);
    EXPECT_NO_THROW(stream << text);
  }
  EXPECT_EQ(stream.str().str().substr(0, 1), "a");
}

TEST(Stream, WritesNumbersAsStandardStreamsDoByDefault) {
  EXPECT_EQ(written(0.1f, ' ', 1e7f, ' ', -3, ' ', 3.4028235e38f), "0.1 1e+07 -3 3.40282e+38");
  EXPECT_EQ(written(1.0, ' ', 123456789.0, ' ', 1e-5), "1 1.23457e+08 1e-05");
  EXPECT_EQ(written(4000000000u, ' ', -5000000000l, ' ', 18446744073709551615ull, ' ', -1ll),
            "4000000000 -5000000000 18446744073709551615 -1");
}

TEST(Stream, WritesTextsAsTheyAre) {
  EXPECT_EQ(written("a", std::string("b\n"), API::String("'c'"), 'd'), "ab\n'c'd");
}

TEST(Stream, TakesANullTextForNothing) {
  char const* const null = nullptr;
  EXPECT_EQ(written("a", null, "b"), "ab");
}

TEST(Stream, WritesVectorsAndBoxesWithSingleBlanks) {
  using orlen::Math::vec;
  EXPECT_EQ(written(vec<2, float>(0.5f, -2.f)), "0.5 -2");
  orlen::Math::bbox<vec<3, float>> const box(vec<3, float>(-1.f), vec<3, float>(1.f));
  EXPECT_EQ(written(box), "min=-1 -1 -1 max=1 1 1");
  EXPECT_EQ(written(orlen::Math::bbox<vec<3, float>>()),
            "min=3.40282e+38 3.40282e+38 3.40282e+38 max=-3.40282e+38 -3.40282e+38 -3.40282e+38");
}

TEST(Stream, IgnoresTheGlobalLocale) {
  struct Comma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  auto const former = std::locale::global(std::locale(std::locale::classic(), new Comma));
  auto const text = written(0.1f, ' ', 1234567);
  std::locale::global(former);
  EXPECT_EQ(text, "0.1 1234567");
}

}  // namespace
}  // namespace Velmor::Processing
