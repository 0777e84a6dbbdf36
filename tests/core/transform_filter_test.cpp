#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "processing/pointwise_filters.h"
#include "support/scene.h"
#include "support/seed.h"

namespace Velmor::Processing {
namespace {

using Test::addChannel;
using Test::channelOf;
using Test::emptyScene;
using Test::forTiles;
using Test::Scene;
using Test::Threads;
using Test::valuesOf;
using Float2 = orlen::Math::vec<2, float>;
using Float3 = orlen::Math::vec<3, float>;
using Int2 = orlen::Math::vec<2, int>;
using Int3 = orlen::Math::vec<3, int>;

/// One leaf tile with all its ancestors.
Scene chainScene() {
  auto scene = emptyScene();
  Host::addLeafTiles(scene.layout, {{0, 0, 0}});
  return scene;
}

/// The value of all elements of each depth's one tile; fails where they differ.
std::vector<int> valueByDepth(API::Channel const& channel) {
  std::vector<int> values;
  forTiles(API::Layout(channel.layout()), 0, 7, [&](API::TreeIndex const& index) {
    auto const tile = channel.tileData<int>(index);
    for (std::size_t e = 0; e < tile.count; ++e) EXPECT_EQ(tile.data[e], tile.data[0]);
    values.push_back(tile.data[0]);
  });
  return values;
}

TEST(TransformFilter, DepthsBelowOneMeanAllAndOthersARange) {
  auto const scene = chainScene();
  auto const src = addChannel<int>(scene.server, scene.volume, "src", 1);
  OffsetFilter<int> filter(1);
  auto const written = [&](int minDepth, int maxDepth) {
    auto const dst = addChannel<int>(scene.server, scene.volume, "dst", 9);
    EXPECT_TRUE(filter.setDepths(minDepth, maxDepth));
    filter.filter(src, dst);
    return valueByDepth(dst);
  };
  std::vector<int> const all(8, 2);
  EXPECT_EQ(written(-1, -1), all);
  EXPECT_EQ(written(0, 5), all);
  EXPECT_EQ(written(-5, -1), all);
  EXPECT_EQ(written(2, 4), (std::vector<int>{9, 9, 2, 2, 2, 9, 9, 9}));
  EXPECT_EQ(written(2, 2), (std::vector<int>{9, 9, 2, 9, 9, 9, 9, 9}));
  EXPECT_FALSE(filter.setDepths(2, -1));
}

TEST(TransformFilter, LeavesAChannelOfTheWrongTypeAlone) {
  auto const channel = channelOf<float>({1.f, 2.f, 3.f});
  ScaleFilter<Float3>(Float3(2, 2, 2)).filter(channel, channel);
  EXPECT_EQ(valuesOf<float>(channel), (std::vector{1.f, 2.f, 3.f}));
}

TEST(TransformFilter, AnswersNothingForInvalidChannels) {
  OffsetFilter<int>(1).filter(API::Channel(), API::Channel());
  auto const channel = channelOf<int>({1});
  OffsetFilter<int>(1).filter(API::Channel(), channel);
  OffsetFilter<int>(1).filter(channel, API::Channel());
  EXPECT_EQ(valuesOf<int>(channel), std::vector{1});
}

TEST(OffsetFilter, ShiftsEveryElementInPlace) {
  auto const channel = channelOf<float>({-1.f, 0.f, 2.5f});
  OffsetFilter<float>(0.5f).filter(channel, channel);
  EXPECT_EQ(valuesOf<float>(channel), (std::vector{-0.5f, 0.5f, 3.f}));
}

TEST(DilateFilter, TouchesCoarseTilesButNotTheBackgroundValue) {
  auto const scene = chainScene();
  auto const channel = addChannel<float>(scene.server, scene.volume, "channel", 0.5f);
  DilateFilter<float>(0.5f).filter(channel, channel);
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    EXPECT_EQ(channel.tileData<float>(index).data[77], 0.f);
  });
  EXPECT_EQ(channel.backgroundValue<float>(), 0.5f);
}

// Any bits at all, and every now and then a value with rules of its own.
class RandomBits {
 public:
  explicit RandomBits(unsigned int seed) : random_(seed) {}
  template <class T>
  T next() {
    T value;
    std::uint32_t bits[3];
    for (auto& word : bits) {
      auto const any = static_cast<std::uint32_t>(random_());
      word = any % 4 != 0 ? any : special[random_() % std::size(special)];
    }
    std::memcpy(static_cast<void*>(&value), bits, sizeof(T));
    return value;
  }

 private:
  // Zeros, ones, extremes as int; zeros, denormals, infinities, NaN as float.
  static constexpr std::uint32_t special[] = {0,          1,          0xffffffff, 0x80000000,
                                              0x7fffffff, 0x3f800000, 0x00400000, 0x7f800000,
                                              0xff800000, 0x7fc00000};
  std::mt19937 random_;
};

/// A client's filter that asks one of the library element by element.
template <class T, class F>
class ByElement final : public TransformFilter<T> {
 public:
  explicit ByElement(F filter) : filter_(std::move(filter)) {}
  T compute(T const& value) const override { return filter_.compute(value); }

 private:
  F filter_;
};

std::vector<std::uint32_t> bitsOf(float const* values, std::size_t count) {
  std::vector<std::uint32_t> bits(count);
  std::memcpy(bits.data(), values, count * sizeof(float));
  // Which NaN comes out of two is up to the processor.
  for (std::size_t e = 0; e < count; ++e) {
    if (values[e] != values[e]) bits[e] = 0x7fc00000;
  }
  return bits;
}
std::vector<std::uint32_t> bitsOf(int const* values, std::size_t count) {
  std::vector<std::uint32_t> bits(count);
  std::memcpy(bits.data(), values, count * sizeof(int));
  return bits;
}

template <class T>
std::vector<std::uint32_t> bitsOf(API::Channel const& channel) {
  using Component = std::conditional_t<std::is_same_v<T, float> || std::is_same_v<T, Float2> ||
                                           std::is_same_v<T, Float3>,
                                       float, int>;
  auto const values = valuesOf<T>(channel);
  return bitsOf(reinterpret_cast<Component const*>(values.data()),
                values.size() * sizeof(T) / sizeof(Component));
}

template <class T>
class WholeTiles : public testing::Test {
 protected:
  template <class F>
  void expectSameBits(F const& filter) {
    auto const values = randomValues();
    auto const channel = channelOf<T>(values);
    auto const reference = channelOf<T>(values);
    auto const separate = channelOf<T>(values);
    filter.filter(channel, channel);
    ByElement<T, F>(filter).filter(reference, reference);
    EXPECT_EQ(bitsOf<T>(channel), bitsOf<T>(reference));
    // Into another channel, and on one worker.
    API::StateServer const server(API::ObjectModel::stateServer(separate.stateID()));
    API::VoxelChannel const dst(
        server.createChannel(API::Component(separate.component()), API::dataTypeOf<T>, "dst"));
    dst.dictionary().set("values", static_cast<int>(values.size()));
    F serial(filter);
    serial.setTraversalMode(API::TraversalMode::Serial);
    serial.filter(separate, dst);
    EXPECT_EQ(bitsOf<T>(dst), bitsOf<T>(reference));
  }

  T random() { return bits_.next<T>(); }

 private:
  std::vector<T> randomValues() {
    std::vector<T> values(20 * 125);
    for (auto& value : values) value = random();
    return values;
  }

  unsigned int const seed_ = Velmor::Test::newSeed();
  RandomBits bits_{(std::cout << "seed " << seed_ << '\n', seed_)};
};

using ValueTypes = testing::Types<int, float, Int2, Float2, Int3, Float3>;
TYPED_TEST_SUITE(WholeTiles, ValueTypes);

TYPED_TEST(WholeTiles, GiveTheBitsOfComputeElementByElement) {
  using T = TypeParam;
  Threads const threads(8);
  this->expectSameBits(IdentityFilter<T>());
  for (int round = 0; round < 5; ++round) {
    this->expectSameBits(OffsetFilter<T>(this->random()));
    this->expectSameBits(ScaleFilter<T>(this->random()));
    this->expectSameBits(DilateFilter<T>(this->random()));
    this->expectSameBits(ErodeFilter<T>(this->random()));
    // Bounds one apart: no division by an integer zero.
    auto const inMin = this->random();
    auto const inMax = OffsetFilter<T>(T(1)).compute(inMin);
    this->expectSameBits(RemapFilter<T>(inMin, inMax, this->random(), this->random()));
  }
}

TYPED_TEST(WholeTiles, IdentityCopiesEveryVisitedTile) {
  using T = TypeParam;
  auto const scene = chainScene();
  auto const src = addChannel<T>(scene.server, scene.volume, "src", T(3));
  auto const dst = addChannel<T>(scene.server, scene.volume, "dst", T(4));
  IdentityFilter<T>().filter(src, dst);
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const tile = dst.template tileData<T>(index);
    ASSERT_EQ(tile.count, 125u);
    for (std::size_t e = 0; e < tile.count; ++e) EXPECT_EQ(tile.data[e], T(3));
  });
}

}  // namespace
}  // namespace Velmor::Processing
