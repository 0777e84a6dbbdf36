// Compiled as C++17: what a plug-in of an older compiler sees of the library.

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "processing/bounds.h"
#include "processing/mesher.h"
#include "processing/points.h"
#include "processing/pointwise_filters.h"
#include "processing/stencil_filters.h"
#include "processing/surface.h"

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
