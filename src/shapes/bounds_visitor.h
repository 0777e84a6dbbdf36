#pragma once

#include "velmorapi/channel.h"
#include "velmorapi/layout.h"

namespace Velmor::Processing {

/// Finds the smallest and the largest value in the visited tiles of a channel.
template <class T>
class BoundsVisitor;

/// Covers the tile's whole array. NaN counts as neither; without any value
/// `min()` is the largest and `max()` the lowest float.
template <>
class BoundsVisitor<float> final : public API::Visitor {
 public:
  explicit BoundsVisitor(API::Channel const& channel) : channel_(channel) {}

  float min() const noexcept { return min_; }
  float max() const noexcept { return max_; }

  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    auto const values = channel_.tileData<float>(index);
    for (std::size_t e = 0; e < values.count; ++e) {
      if (values.data[e] < min_) min_ = values.data[e];
      if (values.data[e] > max_) max_ = values.data[e];
    }
  }

  // Starts anew: what this visitor has seen reaches the result without the copy.
  API::Visitor* copy() const override { return new BoundsVisitor(channel_); }

  void join(API::Visitor const& visitor) override {
    auto const& other = static_cast<BoundsVisitor const&>(visitor);
    if (other.min_ < min_) min_ = other.min_;
    if (other.max_ > max_) max_ = other.max_;
  }

 private:
  API::Channel channel_;
  float min_ = 3.4028235e38f;
  float max_ = -3.4028235e38f;
};

}  // namespace Velmor::Processing
