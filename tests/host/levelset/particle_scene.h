#pragma once

#include <cmath>
#include <functional>
#include <random>
#include <utility>
#include <vector>

#include "support/object_builder.h"
#include "velmorapi/level_set.h"

namespace Velmor::Test {

/// Particles on a grid of `perEdge` to the voxel along each edge, moved at random by up to
/// `jitter` of their spacing, that `isFull` takes for inside, within `extent` voxels.
template <class Shape>
std::vector<Float3> jittered(int perEdge, float jitter, int extent, Shape const& isFull,
                             unsigned seed = 7) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> offset(-jitter, jitter);
  std::vector<Float3> positions;
  int const n = extent * perEdge;
  auto const step = 1.f / static_cast<float>(perEdge);
  for (int k = -n; k < n; ++k) {
    for (int j = -n; j < n; ++j) {
      for (int i = -n; i < n; ++i) {
        auto const at = [&](int a) { return (static_cast<float>(a) + 0.5f) * step; };
        Float3 const grid(at(i), at(j), at(k));
        auto const moved =
            grid + Float3(offset(random) * step, offset(random) * step, offset(random) * step);
        if (isFull(moved)) positions.push_back(moved);
      }
    }
  }
  return positions;
}

inline float lengthOf(Float3 const& v) { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }

/// Of an axis-aligned box around the origin, negative inside.
inline float boxDistance(Float3 const& p, Float3 const& half) {
  Float3 const q(std::abs(p.x) - half.x, std::abs(p.y) - half.y, std::abs(p.z) - half.z);
  auto const outside = lengthOf({std::max(q.x, 0.f), std::max(q.y, 0.f), std::max(q.z, 0.f)});
  return outside + std::min(std::max({q.x, q.y, q.z}), 0.f);
}

/// Particles, and what `createLevelSet` makes of them.
class ParticleScene {
 public:
  explicit ParticleScene(std::vector<Float3> const& positions, float voxelScale = 1.f)
      : builder_("liquid"),
        points_(builder_.points(positions, "particle", voxelScale)),
        volume_(builder_.voxels("volume", 123.f)),
        distance_(builder_.server().createChannel(volume_, API::DataType::Float, "distance")) {
    inputs = {"particle/position", ""};
    outputs = {"volume/distance"};
  }

  ObjectBuilder const& builder() const { return builder_; }
  API::PointComponent const& points() const { return points_; }
  API::VoxelComponent const& volume() const { return volume_; }
  API::VoxelChannel const& distance() const { return distance_; }
  API::Layout layout() const { return API::Layout(volume_.layout()); }

  /// The channel "droplet" with a value for each particle by its position.
  template <class Value>
  void droplets(Value const& value) {
    API::PointChannel const channel(
        builder_.server().createChannel(points_, API::DataType::Float, "droplet"));
    auto const* const at =
        Host::pointData<Float3>(API::PointChannel(points_.findChannel("position")));
    auto* const values = Host::pointData<float>(channel);
    for (std::size_t p = 0; p < points_.elementCount(); ++p) values[p] = value(at[p]);
    inputs[1] = "particle/droplet";
  }

  /// A channel to carry with a value for each particle by its position.
  template <class T, class Value>
  API::VoxelChannel carry(char const* name, Value const& value) {
    API::PointChannel const channel(
        builder_.server().createChannel(points_, API::dataTypeOf<T>, name));
    auto const* const at =
        Host::pointData<Float3>(API::PointChannel(points_.findChannel("position")));
    auto* const values = Host::pointData<T>(channel);
    for (std::size_t p = 0; p < points_.elementCount(); ++p) values[p] = value(at[p]);
    API::VoxelChannel const output(
        builder_.server().createChannel(volume_, API::dataTypeOf<T>, name));
    inputs.add(channel.partialPathName());
    outputs.add(output.partialPathName());
    return output;
  }

  API::Status build() const {
    return API::createLevelSet(options, points_, inputs, API::VoxelComponent(), "", volume_,
                               outputs);
  }

  /// The distance in output voxels, of the deepest cell at a point in voxels of the points.
  float at(float x, float y, float z) const {
    auto const factor = options.resolutionFactor;
    auto const voxel = [factor](float a) { return static_cast<int>(std::floor(a * factor)); };
    auto const accessor = layout().tileAccessor();
    auto const index = accessor.index({voxel(x), voxel(y), voxel(z)}, layout().maxDepth());
    if (!index.valid()) return distance_.backgroundValue<float>() / layout().voxelScale();
    auto const tile = accessor.tile(index);
    auto const edge = tile.info().extent / 5;
    auto const cells = distance_.tileData<float>(index);
    auto const origin = tile.coord();
    return cells.data[cells.offset((voxel(x) - origin.i) / edge, (voxel(y) - origin.j) / edge,
                                   (voxel(z) - origin.k) / edge)] /
           layout().voxelScale();
  }

  /// Calls `function(centre, distance)`, both in output voxels, for all voxels in leaf tiles.
  template <class Function>
  void forVoxels(Function const& function) const {
    auto const accessor = layout().tileAccessor();
    forTiles(layout(), layout().maxDepth(), layout().maxDepth(), [&](API::TreeIndex const& index) {
      auto const origin = accessor.tile(index).coord();
      auto const cells = distance_.tileData<float>(index);
      for (int c = 0; c < 125; ++c) {
        Float3 const centre(static_cast<float>(origin.i + c % 5) + 0.5f,
                            static_cast<float>(origin.j + c / 5 % 5) + 0.5f,
                            static_cast<float>(origin.k + c / 25) + 0.5f);
        function(centre, cells.data[c] / layout().voxelScale());
      }
    });
  }

  /// Calls `function(point)` for the places between neighbouring voxels where the distance,
  /// taken as linear, is 0; in output voxels.
  template <class Function>
  void forCrossings(Function const& function) const {
    auto const inverse = 1.f / options.resolutionFactor;
    forVoxels([&](Float3 const& c, float d) {
      for (int a = 0; a < 3; ++a) {
        auto next = c;
        next[a] += 1.f;
        auto const other = at(next.x * inverse, next.y * inverse, next.z * inverse);
        if ((d < 0.f) == (other < 0.f)) continue;
        auto point = c;
        point[a] += d / (d - other);
        function(point);
      }
    });
  }

  API::LevelSetOptions options;
  API::Array<API::String> inputs, outputs;

 private:
  ObjectBuilder builder_;
  API::PointComponent points_;
  API::VoxelComponent volume_;
  API::VoxelChannel distance_;
};

}  // namespace Velmor::Test
