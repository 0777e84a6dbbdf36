// Compiled as C++17: what a plug-in of an older compiler sees of the library.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>

#include "processing/bounds.h"
#include "processing/extend_filter.h"
#include "processing/intersector.h"
#include "processing/mesher.h"
#include "processing/mixer.h"
#include "processing/points.h"
#include "processing/pointwise_filters.h"
#include "processing/sampler.h"
#include "processing/smooth_filter.h"
#include "processing/stencil_filters.h"
#include "processing/surface.h"
#include "processing/volume.h"

static_assert(__cplusplus == 201703L);

namespace Velmor::Processing {
namespace {

class Squared final : public TransformFilter<float> {
 public:
  float compute(float const& value) const override { return value * value; }
};

// Whether a filter template can be made for a type.
template <template <class> class Family, class T, class = void>
constexpr bool exists = false;
template <template <class> class Family, class T>
constexpr bool exists<Family, T, std::void_t<decltype(sizeof(Family<T>))>> = true;

static_assert(exists<MeanFilter, float> && !exists<MeanFilter, int>);
static_assert(exists<MedianFilter, float> && !exists<MedianFilter, int>);
static_assert(exists<LaplacianFilter, float> && !exists<LaplacianFilter, int>);
static_assert(exists<CurvatureFilter, float> && !exists<CurvatureFilter, int>);

/// The place of a virtual operation in its class's table; both forms of the
/// destructor come first, at 0 and 1.
template <class Operation>
std::size_t placeOf(Operation operation) {
  std::size_t words[2];
  static_assert(sizeof words == sizeof operation);
  std::memcpy(words, &operation, sizeof words);
  EXPECT_EQ(words[0] % sizeof(void*), 1u);  // else it is not virtual
  return words[0] / sizeof(void*);
}

template <class T>
void expectFamilyPlaces() {
  EXPECT_EQ(placeOf(&TransformFilter<T>::filter), 2u);
  EXPECT_EQ(placeOf(&TransformFilter<T>::compute), 3u);
  EXPECT_EQ(placeOf(&RemapFilter<T>::compute), 3u);
  EXPECT_EQ(placeOf(&HaloFilter<T>::filter), 2u);
  EXPECT_EQ(placeOf(&HaloFilter<T>::compute), 3u);
  EXPECT_EQ(placeOf(&MixerT<T>::mix), 2u);
  EXPECT_EQ(placeOf(&MixerT<T>::compute), 3u);
  EXPECT_EQ(placeOf(&AlphaMixer<T>::mix), 2u);
  EXPECT_EQ(placeOf(&AlphaMixer<T>::compute), 3u);
  EXPECT_EQ(placeOf(&StepMixer<T>::compute), 3u);
}

TEST(Interface, KeepsVirtualOperationsInTheirPlaces) {
  expectFamilyPlaces<int>();
  expectFamilyPlaces<float>();
  expectFamilyPlaces<orlen::Math::vec<2, int>>();
  expectFamilyPlaces<orlen::Math::vec<2, float>>();
  expectFamilyPlaces<orlen::Math::vec<3, int>>();
  expectFamilyPlaces<orlen::Math::vec<3, float>>();
  EXPECT_EQ(placeOf(&Filter::filter), 2u);
  EXPECT_EQ(placeOf(&SmoothFilter<float>::filter), 2u);
  EXPECT_EQ(placeOf(&ExtendFilter::filter), 2u);
  EXPECT_EQ(placeOf(&Mixer::mix), 2u);
  EXPECT_EQ(placeOf(&Mesher::mesh), 2u);
  EXPECT_EQ(placeOf(&Shape::bbox), 2u);
  EXPECT_EQ(placeOf(&ShapeParameters::str), 2u);
}

TEST(Interface, KeepsTheHostsHooksInTheirPlaces) {
  EXPECT_EQ(placeOf(&API::Visitor::beginTraverse), 2u);
  EXPECT_EQ(placeOf(&API::Visitor::endTraverse), 3u);
  EXPECT_EQ(placeOf(&API::Visitor::beginTile), 4u);
  EXPECT_EQ(placeOf(&API::Visitor::endTile), 5u);
  EXPECT_EQ(placeOf(&API::Visitor::visitVoxel), 6u);
  EXPECT_EQ(placeOf(&API::Visitor::copy), 7u);
  EXPECT_EQ(placeOf(&API::Visitor::join), 8u);
}

TEST(Interface, LinksFromOlderLanguageStandards) {
  std::unique_ptr<Filter> const filters[] = {
      std::make_unique<OffsetFilter<int>>(1),
      std::make_unique<DilateFilter<orlen::Math::vec<3, float>>>(orlen::Math::vec<3, float>(1.f)),
      std::make_unique<MeanFilter<float>>(), std::make_unique<Squared>()};
  for (auto const& filter : filters) filter->filter(API::Channel(), API::Channel());
  Status status;
  status.fail() << "text " << 1.5f;
  EXPECT_FALSE(status);
  EXPECT_EQ(SurfaceParameters().str().empty(), false);
  EXPECT_NE(dynamic_cast<TransformFilter<int>*>(filters[0].get()), nullptr);
  EXPECT_EQ(dynamic_cast<HaloFilter<float>*>(filters[0].get()), nullptr);
}

}  // namespace
}  // namespace Velmor::Processing
