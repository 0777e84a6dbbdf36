#include "processing/pointwise_filters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <type_traits>

#include "support/copies.h"

namespace Velmor::Processing {
namespace {

using Int2 = orlen::Math::vec<2, int>;
using Int3 = orlen::Math::vec<3, int>;
using Float2 = orlen::Math::vec<2, float>;
using Float3 = orlen::Math::vec<3, float>;

constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

TEST(IdentityFilter, KeepsEveryValue) {
  EXPECT_EQ(IdentityFilter<int>().compute(lowest), lowest);
  EXPECT_EQ(IdentityFilter<Float3>().compute(Float3(1, 2, 3)), Float3(1, 2, 3));
  EXPECT_TRUE(std::signbit(IdentityFilter<float>().compute(-0.f)));
}

TEST(OffsetFilter, AddsPerComponent) {
  EXPECT_EQ(OffsetFilter<float>(0.5f).compute(-1.f), -0.5f);
  EXPECT_EQ(OffsetFilter<Int3>(Int3(1, -2, 0)).compute(Int3(1, 1, 1)), Int3(2, -1, 1));
}

TEST(OffsetFilter, IntegersWrap) {
  EXPECT_EQ(OffsetFilter<int>(1).compute(highest), lowest);
  EXPECT_EQ(OffsetFilter<Int2>(Int2(-1, 1)).compute(Int2(lowest, highest)), Int2(highest, lowest));
}

TEST(ScaleFilter, MultipliesPerComponent) {
  EXPECT_EQ(ScaleFilter<Float3>(Float3(2, 0, -1)).compute(Float3(1, 2, 3)), Float3(2, 0, -3));
  EXPECT_EQ(ScaleFilter<Int2>(Int2(3, -1)).compute(Int2(4, 5)), Int2(12, -5));
}

TEST(ScaleFilter, IntegersWrap) {
  EXPECT_EQ(ScaleFilter<int>(2).compute(1 << 30), lowest);
  EXPECT_EQ(ScaleFilter<int>(-1).compute(lowest), lowest);
}

TEST(RemapFilter, ExtrapolatesInsteadOfClamping) {
  RemapFilter<float> const filter(0, 1, 10, 20);
  EXPECT_EQ(filter.compute(0.5f), 15.f);
  EXPECT_EQ(filter.compute(2.f), 30.f);
  EXPECT_EQ(filter.compute(-1.f), 0.f);
}

TEST(RemapFilter, RemapsEveryComponentByItsOwnBounds) {
  RemapFilter<Float2> const filter(Float2(0, 1), Float2(1, 3), Float2(10, 0), Float2(20, -4));
  EXPECT_EQ(filter.compute(Float2(0.5f, 2)), Float2(15, -2));
}

TEST(RemapFilter, TruncatesTheFactorOfIntegersWhenItIsMade) {
  RemapFilter<int> const flat(0, 10, 0, 5);
  for (int const value : {-100, 0, 7, 10, 100}) EXPECT_EQ(flat.compute(value), 0);
  EXPECT_EQ(RemapFilter<int>(0, 10, 0, 25).compute(3), 6);
  EXPECT_EQ(RemapFilter<int>(0, 10, 0, -25).compute(3), -6);
  EXPECT_EQ(RemapFilter<Int3>(Int3(0, 0, 1), Int3(10, 10, 11), Int3(0, 0, 7), Int3(5, 25, -18))
                .compute(Int3(7, 3, 4)),
            Int3(0, 6, 1));
}

TEST(RemapFilter, IntegersWrapInEveryStep) {
  // The factor is INT_MIN / -1, which wraps to INT_MIN.
  RemapFilter<int> const filter(1, 0, 0, lowest);
  EXPECT_EQ(filter.compute(2), lowest);
  EXPECT_EQ(filter.compute(3), 0);
  // Both differences wrap to -1: the factor is 1.
  EXPECT_EQ(RemapFilter<int>(lowest, highest, lowest, highest).compute(highest), highest);
  // 5 - INT_MIN wraps before the multiplication.
  EXPECT_EQ(RemapFilter<int>(lowest, lowest + 1, highest, lowest).compute(5), 4);
}

TEST(RemapFilter, EqualBoundsOfFloatsGiveNoFiniteValue) {
  EXPECT_FALSE(std::isfinite(RemapFilter<float>(1, 1, 0, 1).compute(0.5f)));
  EXPECT_FALSE(std::isfinite(RemapFilter<float>(1, 1, 0, 1).compute(1.f)));
  EXPECT_TRUE(std::isnan(RemapFilter<float>(1, 1, 2, 2).compute(3.f)));
  auto const mixed = RemapFilter<Float2>(Float2(0, 1), Float2(1, 1), Float2(0, 0), Float2(1, 1))
                         .compute(Float2(0.25f, 5));
  EXPECT_EQ(mixed.x, 0.25f);
  EXPECT_FALSE(std::isfinite(mixed.y));
}

TEST(DilateFilter, SubtractsTheAmount) {
  EXPECT_EQ(DilateFilter<float>(0.5f).compute(-0.2f), -0.7f);
  EXPECT_EQ(DilateFilter<Int2>(Int2(1, -2)).compute(Int2(0, 0)), Int2(-1, 2));
}

TEST(DilateFilter, NegatesTheAmountItself) {
  // -0.0 + -0.0 keeps the sign that 0 - 0.0 would lose.
  EXPECT_TRUE(std::signbit(DilateFilter<float>(0.f).compute(-0.f)));
  // INT_MIN negated is INT_MIN.
  EXPECT_EQ(DilateFilter<int>(lowest).compute(0), lowest);
  EXPECT_EQ(DilateFilter<int>(lowest).compute(-1), highest);
}

TEST(ErodeFilter, AddsTheAmount) {
  EXPECT_EQ(ErodeFilter<float>(0.5f).compute(-0.2f), 0.3f);
  EXPECT_EQ(ErodeFilter<Int3>(Int3(1, 2, 3)).compute(Int3(0, 0, 0)), Int3(1, 2, 3));
}

TEST(DilateFilter, ServesWhereverAnOffsetFilterIsExpected) {
  auto const apply = [](OffsetFilter<float> const& filter) { return filter.compute(1.f); };
  EXPECT_EQ(apply(DilateFilter<float>(0.25f)), 0.75f);
  EXPECT_EQ(apply(ErodeFilter<float>(0.25f)), 1.25f);
}

/// What the copies of a filter make of a value.
template <class F, class T>
std::set<T> outcomes(F const& original, F const& other, T const& value) {
  std::set<T> values;
  for (auto const& filter : Test::copiesOf(original, other)) values.insert(filter.compute(value));
  return values;
}

TEST(PointwiseFilters, CopyTheirParameters) {
  EXPECT_EQ(outcomes(OffsetFilter<int>(3), OffsetFilter<int>(0), 4), std::set{7});
  EXPECT_EQ(outcomes(ScaleFilter<int>(3), ScaleFilter<int>(0), 4), std::set{12});
  EXPECT_EQ(outcomes(DilateFilter<int>(3), DilateFilter<int>(0), 4), std::set{1});
  EXPECT_EQ(outcomes(ErodeFilter<int>(3), ErodeFilter<int>(0), 4), std::set{7});
  EXPECT_EQ(outcomes(RemapFilter<int>(1, 2, 5, 8), RemapFilter<int>(0, 1, 0, 1), 4), std::set{14});
}

template <class F, class Base>
constexpr bool isFamilyMember =
    std::is_base_of_v<Base, F>&& std::is_copy_constructible_v<F>&& std::is_move_constructible_v<F>&&
        std::is_copy_assignable_v<F>&& std::is_move_assignable_v<F>&&
            std::has_virtual_destructor_v<F> &&
    !std::is_abstract_v<F>;

template <class T>
constexpr bool familiesHold =
    isFamilyMember<IdentityFilter<T>, TransformFilter<T>>&& isFamilyMember<
        OffsetFilter<T>, TransformFilter<T>>&& isFamilyMember<ScaleFilter<T>, TransformFilter<T>>&&
        isFamilyMember<RemapFilter<T>, TransformFilter<T>>&& isFamilyMember<
            DilateFilter<T>, OffsetFilter<T>>&& isFamilyMember<ErodeFilter<T>, OffsetFilter<T>>&&
            std::is_abstract_v<TransformFilter<T>>&& std::is_abstract_v<HaloFilter<T>>&&
                std::is_base_of_v<Filter, HaloFilter<T>> &&
    sizeof(IdentityFilter<T>) == sizeof(Traverser) && sizeof(HaloFilter<T>) == sizeof(Traverser) &&
    sizeof(DilateFilter<T>) == sizeof(OffsetFilter<T>);

static_assert(familiesHold<int> && familiesHold<float> && familiesHold<Int2> &&
              familiesHold<Float2> && familiesHold<Int3> && familiesHold<Float3>);
static_assert(sizeof(Filter) == sizeof(Traverser) && std::is_abstract_v<Filter>);
static_assert(!std::is_convertible_v<float, OffsetFilter<float>>);

}  // namespace
}  // namespace Velmor::Processing
