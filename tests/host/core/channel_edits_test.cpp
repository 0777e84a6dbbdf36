#include <gtest/gtest.h>

#include "support/scene.h"

namespace Velmor::Host {
namespace {

using namespace Test;

template <class T>
struct ComponentType {
  using Type = T;
};
template <int N, class C>
struct ComponentType<orlen::Math::vec<N, C>> {
  using Type = C;
};
template <class T>
using ComponentOf = typename ComponentType<T>::Type;

template <class T>
class CopyChannel : public testing::Test {};
using ValueTypes = testing::Types<int, float, orlen::Math::vec<2, int>, orlen::Math::vec<2, float>,
                                  orlen::Math::vec<3, int>, orlen::Math::vec<3, float>>;
TYPED_TEST_SUITE(CopyChannel, ValueTypes);

TYPED_TEST(CopyChannel, HoldsTheSameInEveryRespect) {
  using T = TypeParam;
  auto const valueOf = [](int number) { return T(static_cast<ComponentOf<T>>(number)); };
  auto const scene = emptyScene();
  addLeafTiles(scene.layout, {{0, 0, 0}, {-20, 3, 9}});
  auto const from = addChannel<T>(scene.server, scene.volume, "from", valueOf(7));
  int next = 0;
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const data = from.template tileData<T>(index);
    for (std::size_t e = 0; e < data.count; ++e) data.data[e] = valueOf(next++ % 50);
  });
  setFieldClass(from, FieldClass::FogVolume);
  auto const leaf = scene.layout.tileAccessor().tile(0, 0, 0, 7).index();
  CellMask mask;
  mask.set(3);
  mask.set(77);
  setActiveMask(from, leaf, mask);
  from.dictionary().set("unit", "kelvin");
  from.dictionary().set("count", 3);

  auto const to = copyChannel(from, "to");
  ASSERT_TRUE(to.valid());
  EXPECT_EQ(API::Channel(scene.volume.findChannel("to")), to);
  EXPECT_EQ(to.template backgroundValue<T>(), valueOf(7));
  EXPECT_EQ(fieldClass(to), FieldClass::FogVolume);
  EXPECT_EQ(activeMask(to, leaf), mask);
  EXPECT_EQ(to.dictionary().template value<API::String>("unit"), "kelvin");
  EXPECT_EQ(to.dictionary().template value<int>("count"), 3);
  forTiles(scene.layout, 0, 7, [&](API::TreeIndex const& index) {
    auto const a = from.template tileData<T>(index), b = to.template tileData<T>(index);
    for (std::size_t e = 0; e < a.count; ++e) ASSERT_EQ(a.data[e], b.data[e]);
  });
  // Two channels from now on.
  to.dictionary().set("count", 4);
  EXPECT_EQ(from.dictionary().template value<int>("count"), 3);
}

TEST(CopyChannelFailure, IsAnInvalidChannel) {
  auto const scene = emptyScene();
  failCalls(Call::CreateChannel);
  EXPECT_FALSE(copyChannel(scene.distance, "to").valid());
  clearFailures();
  EXPECT_FALSE(copyChannel(API::VoxelChannel(), "to").valid());
}

TEST(MovePlateau, TakesWhatLiesBeyondTheBandAndNothingElse) {
  auto const scene = emptyScene(1.f, 3.f);
  setFieldClass(scene.distance, FieldClass::LevelSet);
  addLeafTiles(scene.layout, {{0, 0, 0}});
  auto const leaf = scene.layout.tileAccessor().tile(0, 0, 0, 7).index();
  auto const data = scene.distance.tileData<float>(leaf);
  float const values[] = {3.f, -3.f, 2.999f, -2.999f, 0.f, 3.5f, -100.f};
  std::copy(std::begin(values), std::end(values), data.data);
  auto const coarse = scene.layout.tileAccessor().tile(0, 0, 0, 4).index();
  scene.distance.tileData<float>(coarse).data[5] = -3.f;

  EXPECT_TRUE(movePlateau(scene.distance, 5.f));
  float const moved[] = {5.f, -5.f, 2.999f, -2.999f, 0.f, 5.f, -5.f};
  for (std::size_t e = 0; e < std::size(moved); ++e) EXPECT_EQ(data.data[e], moved[e]) << e;
  EXPECT_EQ(data.data[20], 5.f);
  EXPECT_EQ(scene.distance.tileData<float>(coarse).data[5], -5.f);
  EXPECT_EQ(scene.distance.tileData<float>(coarse).data[6], 5.f);
  EXPECT_EQ(scene.distance.backgroundValue<float>(), 5.f);
  // The same voxels are active as before: those inside the band.
  EXPECT_FALSE(activeMask(scene.distance, leaf).test(0));
  EXPECT_FALSE(activeMask(scene.distance, leaf).test(1));
  EXPECT_TRUE(activeMask(scene.distance, leaf).test(2));
}

TEST(MovePlateau, NeverInwardsNorWithoutABand) {
  auto const wide = emptyScene(1.f, 6.f), none = emptyScene(1.f, 0.f),
             negative = emptyScene(1.f, -3.f);
  for (auto const* scene : {&wide, &none, &negative}) {
    float const before = scene->distance.backgroundValue<float>();
    EXPECT_FALSE(movePlateau(scene->distance, 5.f));
    EXPECT_EQ(scene->distance.backgroundValue<float>(), before);
  }
  EXPECT_FALSE(movePlateau(addChannel<int>(wide.server, wide.volume, "ints", 3), 5.f));
  EXPECT_FALSE(movePlateau(API::VoxelChannel(), 5.f));
}

}  // namespace
}  // namespace Velmor::Host
