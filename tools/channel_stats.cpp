#include "channel_stats.h"

#include <algorithm>
#include <limits>

#include "value_types.h"
#include "velmorapi/layout.h"
#include "velmorhost/scene.h"

namespace Velmor::Tool {

namespace {

constexpr int tileWidth = 5;

template <class T>
class Range {
 public:
  Range() {
    min_.fill(std::numeric_limits<Scalar>::max());
    max_.fill(std::numeric_limits<Scalar>::lowest());
  }
  void add(T const& value) {
    for (int c = 0; c < count; ++c) {
      auto const v = Components<T>::at(value, c);
      auto const at = static_cast<std::size_t>(c);
      // Written so that NaN changes nothing.
      if (v < min_[at]) min_[at] = v;
      if (v > max_[at]) max_[at] = v;
    }
  }
  void give(ChannelStats& stats) const {
    stats.min.assign(min_.begin(), min_.end());
    stats.max.assign(max_.begin(), max_.end());
  }

 private:
  using Scalar = typename Components<T>::Scalar;
  static constexpr int count = Components<T>::count;
  std::array<Scalar, static_cast<std::size_t>(count)> min_, max_;
};

template <class T>
ChannelStats voxelStatsOf(API::VoxelChannel const& channel) {
  API::Layout const layout = channel.layout();
  auto const accessor = layout.tileAccessor();
  int const leaf = layout.maxDepth();
  Range<T> range;
  ChannelStats stats;
  stats.lower.fill(std::numeric_limits<std::int64_t>::max());
  stats.upper.fill(std::numeric_limits<std::int64_t>::lowest());
  for (auto at = layout.tileIterator(0, leaf, API::TraversalMode::Serial); at.valid(); at.next()) {
    auto const tile = accessor.tile(at.index());
    auto const data = channel.tileData<T>(at.index());
    if (data.data == nullptr) continue;
    std::int64_t const cell = tile.info().extent / tileWidth;
    if (at.index().depth == leaf) stats.stored += tileWidth * tileWidth * tileWidth;
    auto const mask = Host::activeMask(channel, at.index());
    for (int bit = 0; bit < tileWidth * tileWidth * tileWidth; ++bit) {
      if (!mask.test(bit)) continue;
      std::array<int, 3> const ijk{bit % tileWidth, bit / tileWidth % tileWidth,
                                   bit / (tileWidth * tileWidth)};
      stats.active += static_cast<std::uint64_t>(cell * cell * cell);
      range.add(data.data[data.offset(ijk[0], ijk[1], ijk[2])]);
      std::array<std::int64_t, 3> const base{tile.coord().i, tile.coord().j, tile.coord().k};
      for (std::size_t axis = 0; axis < 3; ++axis) {
        auto const lower = base[axis] + ijk[axis] * cell;
        stats.lower[axis] = std::min(stats.lower[axis], lower);
        stats.upper[axis] = std::max(stats.upper[axis], lower + cell);
      }
    }
  }
  range.give(stats);
  return stats;
}

template <class T>
ChannelStats pointStatsOf(API::PointChannel const& channel) {
  API::Layout const layout = channel.layout();
  int const leaf = layout.maxDepth();
  Range<T> range;
  ChannelStats stats;
  for (auto at = layout.tileIterator(leaf, leaf, API::TraversalMode::Serial); at.valid();
       at.next()) {
    auto const data = channel.tileData<T>(at.index());
    stats.stored += data.count;
    for (std::size_t p = 0; p < data.count; ++p) range.add(data.data[p]);
  }
  stats.active = stats.stored;
  range.give(stats);
  return stats;
}

}  // namespace

ChannelStats voxelStats(API::VoxelChannel const& channel) {
  return byType(channel.dataType(),
                [&channel](auto value) { return voxelStatsOf<decltype(value)>(channel); });
}

ChannelStats pointStats(API::PointChannel const& channel) {
  return byType(channel.dataType(),
                [&channel](auto value) { return pointStatsOf<decltype(value)>(channel); });
}

}  // namespace Velmor::Tool
