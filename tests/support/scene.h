#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "velmorapi/state_server.h"
#include "velmorhost/scene.h"
#include "velmorhost/settings.h"

/// Scenes for tests and benchmarks, each made in one line with the embedded
/// host's public interface.
namespace Velmor::Test {

using Vec3 = orlen::Math::vec<3, float>;

/// A state with one object "object", one voxel component "volume" and one
/// float channel "distance" in it.
struct Scene {
  API::StateServer server;
  API::Object object;
  API::VoxelComponent volume;
  API::Layout layout;
  API::VoxelChannel distance;
};

/// A channel of a component; `background` also becomes its value everywhere.
template <class T>
API::VoxelChannel addChannel(API::StateServer const& server, API::Component const& component,
                             char const* name, T const& background = T()) {
  API::VoxelChannel const channel(server.createChannel(component, API::dataTypeOf<T>, name));
  channel.setBackgroundValue(background);
  return channel;
}

/// A scene without tiles.
inline Scene emptyScene(float voxelScale = 1.f, float background = 0.f) {
  Scene scene;
  scene.server = Host::createStateServer("state");
  scene.object = Host::createObject(scene.server, "object");
  scene.volume = API::VoxelComponent(
      scene.server.createComponent(API::VoxelComponentType, "volume", voxelScale));
  scene.object.addComponent(scene.volume);
  scene.layout = API::Layout(scene.volume.layout());
  scene.distance = addChannel<float>(scene.server, scene.volume, "distance", background);
  return scene;
}

/// Calls `function(TreeIndex)` for all tiles of some depths in tree order.
template <class Function>
void forTiles(API::Layout const& layout, int minDepth, int maxDepth, Function const& function) {
  for (auto it = layout.tileIterator(minDepth, maxDepth, API::TraversalMode::Serial); it.valid();
       it.next()) {
    function(it.index());
  }
}

/// Sets every cell of every tile to `value(x, y, z)` of its centre in voxels.
template <class T, class Function>
void fillCells(API::Channel const& channel, Function const& value) {
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  forTiles(layout, 0, layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const tile = accessor.tile(index);
    auto const cells = channel.tileData<T>(index);
    auto const edge = static_cast<double>(tile.info().extent) / 5;
    if (cells.data == nullptr) return;
    for (int c = 0; c < 125; ++c) {
      cells.data[cells.offset(c % 5, c / 5 % 5, c / 25)] = static_cast<T>(
          value(tile.coord().i + (c % 5 + 0.5) * edge, tile.coord().j + (c / 5 % 5 + 0.5) * edge,
                tile.coord().k + (c / 25 + 0.5) * edge));
    }
  });
}

/// The leaf tiles with a voxel centre within `reach` voxels of a sphere's surface.
inline std::vector<API::TileCoord> sphereTiles(float radius, Vec3 const& centre, float reach) {
  auto const bound = static_cast<int>(std::ceil(radius + reach)) + 5;
  auto const base = [](float c) { return static_cast<int>(std::floor(c / 5.f)) * 5 + 3; };
  std::array<int, 3> const middle{base(centre.x), base(centre.y), base(centre.z)};
  std::array<double, 3> const at{centre.x, centre.y, centre.z};
  int const tiles = bound / 5 + 1;
  std::vector<API::TileCoord> coords;
  for (int z = -tiles; z <= tiles; ++z) {
    for (int y = -tiles; y <= tiles; ++y) {
      for (int x = -tiles; x <= tiles; ++x) {
        std::array<int, 3> const low{middle[0] + 5 * x, middle[1] + 5 * y, middle[2] + 5 * z};
        // Distances of the tile's nearest and farthest voxel centres.
        double nearest = 0, farthest = 0;
        for (std::size_t a = 0; a < 3; ++a) {
          double const from = low[a] + 0.5 - at[a], to = low[a] + 4.5 - at[a];
          double const near = from > 0 ? from : (to < 0 ? to : 0);
          nearest += near * near;
          farthest += std::max(from * from, to * to);
        }
        if (std::sqrt(nearest) <= radius + reach && std::sqrt(farthest) >= radius - reach) {
          coords.push_back({low[0], low[1], low[2]});
        }
      }
    }
  }
  return coords;
}

/// Adds the level set of a sphere in world units: radius and centre in voxels,
/// leaf tiles wherever a voxel lies within `halfWidth` voxels of the surface,
/// background 5 voxels, values clamped to it, coarse cells 5 voxels or minus that.
inline API::VoxelChannel addSphere(API::StateServer const& server,
                                   API::VoxelComponent const& component, char const* name,
                                   float radius, Vec3 const& centre = Vec3(0.f),
                                   float halfWidth = 3.f) {
  API::Layout const layout(component.layout());
  float const voxelScale = layout.voxelScale();
  float const band = 5.f * voxelScale;
  auto const channel = addChannel<float>(server, component, name, band);
  Host::setFieldClass(channel, Host::FieldClass::LevelSet);
  Host::addLeafTiles(layout, sphereTiles(radius, centre, halfWidth));
  fillCells<float>(channel, [&](double x, double y, double z) {
    auto const distance =
        (std::hypot(x - centre.x, y - centre.y, z - centre.z) - radius) * voxelScale;
    return std::clamp(static_cast<float>(distance), -band, band);
  });
  forTiles(layout, 0, layout.maxDepth() - 1, [&](API::TreeIndex const& index) {
    auto const cells = channel.tileData<float>(index);
    for (int c = 0; c < 125; ++c) cells.data[c] = cells.data[c] < 0.f ? -band : band;
  });
  return channel;
}

/// A scene with the sphere of `addSphere` as its distance.
inline Scene sphereScene(float radius, Vec3 const& centre = Vec3(0.f), float voxelScale = 1.f,
                         float halfWidth = 3.f) {
  auto scene = emptyScene(voxelScale);
  scene.server.removeChannel("volume/distance");
  scene.distance = addSphere(scene.server, scene.volume, "distance", radius, centre, halfWidth);
  return scene;
}

/// A wavy water surface around y = 0, as a level set over [-halfExtent, halfExtent)
/// in x and z; it ends there. Heights are taken along y, so its gradient is a
/// little longer than 1.
inline Scene poolScene(int halfExtent, float voxelScale = 1.f, float halfWidth = 3.f) {
  auto const height = [](double x, double z) {
    return 4.0 * std::sin(x * 0.05) * std::cos(z * 0.04) + 0.7 * std::sin(x * 0.31 + z * 0.23);
  };
  std::vector<API::TileCoord> coords;
  for (int z = -halfExtent; z < halfExtent; z += 5) {
    for (int x = -halfExtent; x < halfExtent; x += 5) {
      double low = 1e9, high = -1e9;
      for (int c = 0; c < 25; ++c) {
        double const h = height(x + c % 5 - 1.5, z + c / 5 - 1.5);
        low = std::min(low, h);
        high = std::max(high, h);
      }
      for (int y = -20; y <= 20; y += 5) {
        // The tile of voxel y holds the centres from y - 1.5 to y + 2.5.
        if (y + 2.5 >= low - halfWidth && y - 1.5 <= high + halfWidth) coords.push_back({x, y, z});
      }
    }
  }
  float const band = 5.f * voxelScale;
  auto scene = emptyScene(voxelScale, band);
  Host::setFieldClass(scene.distance, Host::FieldClass::LevelSet);
  Host::addLeafTiles(scene.layout, coords);
  fillCells<float>(scene.distance, [&](double x, double y, double z) {
    return std::clamp(static_cast<float>((y - height(x, z)) * voxelScale), -band, band);
  });
  return scene;
}

/// A float, int or vector channel with enough leaf tiles in a row, from voxel
/// (0, 0, 0) along x, to hold the values; the rest is zero.
template <class T>
API::VoxelChannel channelOf(std::vector<T> const& values) {
  auto const scene = emptyScene();
  auto const channel = addChannel<T>(scene.server, scene.volume, "values");
  std::vector<API::TileCoord> coords;
  for (std::size_t first = 0; first < values.size(); first += 125) {
    coords.push_back({static_cast<int>(first / 25), 0, 0});
  }
  Host::addLeafTiles(scene.layout, coords);
  std::size_t next = 0;
  forTiles(scene.layout, scene.layout.maxDepth(), scene.layout.maxDepth(),
           [&](API::TreeIndex const& index) {
             auto const cells = channel.template tileData<T>(index);
             for (std::size_t c = 0; c < cells.count && next < values.size(); ++c) {
               cells.data[c] = values[next++];
             }
           });
  channel.dictionary().set("values", static_cast<int>(values.size()));
  return channel;
}
template <class T>
API::VoxelChannel channelOf(std::initializer_list<T> values) {
  return channelOf(std::vector<T>(values));
}

/// The values of the leaf tiles in tree order: as many as `channelOf` was given,
/// or all of a channel that was made otherwise.
template <class T>
std::vector<T> valuesOf(API::Channel const& channel) {
  auto const dictionary = channel.dictionary();
  auto const count = dictionary.hasValue("values")
                         ? static_cast<std::size_t>(dictionary.value<int>("values"))
                         : ~std::size_t{0};
  API::Layout const layout(channel.layout());
  std::vector<T> values;
  forTiles(layout, layout.maxDepth(), layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const cells = channel.tileData<T>(index);
    for (std::size_t c = 0; c < cells.count && values.size() < count; ++c) {
      values.push_back(cells.data[c]);
    }
  });
  return values;
}

/// The values of the tiles of all depths in tree order, root first.
inline std::vector<float> allValues(API::Channel const& channel) {
  API::Layout const layout(channel.layout());
  std::vector<float> values;
  forTiles(layout, 0, layout.maxDepth(), [&](API::TreeIndex const& index) {
    auto const cells = channel.tileData<float>(index);
    values.insert(values.end(), cells.data, cells.data + cells.count);
  });
  return values;
}

/// A copy of a channel as plain maps, one per depth, from a cell's first voxel
/// to its value: slow, obvious, and independent of how the host finds tiles.
template <class T>
class BruteForce {
 public:
  explicit BruteForce(API::Channel const& channel) : background_(channel.backgroundValue<T>()) {
    API::Layout const layout(channel.layout());
    auto const accessor = layout.tileAccessor();
    depths_.resize(static_cast<std::size_t>(layout.maxDepth()) + 1);
    for (int d = 0; d <= layout.maxDepth(); ++d) {
      depths_[static_cast<std::size_t>(d)].edge = layout.tileDimInfo(d).extent / 5;
    }
    forTiles(layout, 0, layout.maxDepth(), [&](API::TreeIndex const& index) {
      auto const coord = accessor.tile(index).coord();
      auto& depth = depths_[static_cast<std::size_t>(index.depth)];
      if (index.depth == 0) root_ = coord;
      auto const cells = channel.tileData<T>(index);
      for (int c = 0; c < 125; ++c) {
        depth.cells[{coord.i + c % 5 * depth.edge, coord.j + c / 5 % 5 * depth.edge,
                     coord.k + c / 25 * depth.edge}] = cells.data[c];
      }
    });
  }

  /// The value of the deepest cell, no deeper than `depth`, that holds the voxel.
  T at(int i, int j, int k, int depth = 7) const {
    for (int d = std::min(depth, static_cast<int>(depths_.size()) - 1); d >= 0; --d) {
      auto const& cells = depths_[static_cast<std::size_t>(d)];
      auto const down = [&](std::int64_t a, std::int64_t first) {
        auto const steps = a - first;
        auto const low =
            steps >= 0 ? steps / cells.edge : -((-steps + cells.edge - 1) / cells.edge);
        return static_cast<int>(first + low * cells.edge);
      };
      auto const found = cells.cells.find({down(i, root_.i), down(j, root_.j), down(k, root_.k)});
      if (found != cells.cells.end()) return found->second;
    }
    return background_;
  }

 private:
  struct Depth {
    int edge = 1;
    std::map<std::tuple<int, int, int>, T> cells;
  };
  std::vector<Depth> depths_;
  API::TileCoord root_;
  T background_;
};

/// Settings of the host for the length of a test.
class LayoutShape {
 public:
  explicit LayoutShape(Host::LayoutSettings const& settings) : before_(Host::layoutSettings()) {
    Host::setLayoutSettings(settings);
  }
  LayoutShape(LayoutShape const&) = delete;
  LayoutShape& operator=(LayoutShape const&) = delete;
  ~LayoutShape() { Host::setLayoutSettings(before_); }

 private:
  Host::LayoutSettings before_;
};

class Threads {
 public:
  explicit Threads(int count) { Host::setThreadCount(count); }
  Threads(Threads const&) = delete;
  Threads& operator=(Threads const&) = delete;
  ~Threads() { Host::setThreadCount(0); }
};

}  // namespace Velmor::Test
