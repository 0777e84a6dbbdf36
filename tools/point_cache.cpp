#include "point_cache.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "failure.h"
#include "velmorapi/state_server.h"
#include "velmorhost/files.h"
#include "velmorhost/scene.h"
#include "voxel_size.h"

namespace Velmor::Tool {

namespace {

using orlen::Math::vec;

// Beyond this many voxels from the origin a float's step exceeds a thousandth of
// a voxel.
constexpr double kFarOut = 8192.;

float toFloat(double x) {
  constexpr double largest = static_cast<double>(std::numeric_limits<float>::max());
  if (std::abs(x) > largest) {
    return std::copysign(std::numeric_limits<float>::infinity(),
                         static_cast<float>(x > 0. ? 1 : -1));
  }
  return static_cast<float>(x);
}

bool finite(Particles const& particles, std::size_t p) {
  auto const* const at = particles.positions.data() + 3 * p;
  return std::isfinite(at[0]) && std::isfinite(at[1]) && std::isfinite(at[2]);
}

bool fitsInt(std::vector<double> const& values) {
  constexpr double least = std::numeric_limits<int>::min(), most = std::numeric_limits<int>::max();
  return std::all_of(values.begin(), values.end(),
                     [](double x) { return x >= least && x <= most; });
}

template <class T, int N, class Value>
Value valueOf(double const* from) {
  auto const convert = [](double x) {
    if constexpr (std::is_same_v<T, float>) {
      return toFloat(x);
    } else {
      return static_cast<T>(x);
    }
  };
  if constexpr (N == 1) {
    return convert(*from);
  } else {
    Value value{};
    for (int c = 0; c < N; ++c) value[c] = convert(from[c]);
    return value;
  }
}

// `source` says which particle each stored point was.
template <class T, int N>
void addChannel(API::StateServer const& server, API::PointComponent const& points,
                Particles::Attribute const& attribute, std::vector<std::size_t> const& source) {
  using Value = std::conditional_t<N == 1, T, vec<std::max(N, 2), T>>;
  API::PointChannel const channel(
      server.createChannel(points, API::dataTypeOf<Value>, attribute.name));
  auto* const data = Host::pointData<Value>(channel);
  if (data == nullptr) return;
  for (std::size_t n = 0; n < source.size(); ++n) {
    data[n] = valueOf<T, N, Value>(attribute.values.data() + source[n] * std::size_t{N});
  }
}

template <class T>
void addChannel(API::StateServer const& server, API::PointComponent const& points,
                Particles::Attribute const& attribute, std::vector<std::size_t> const& source) {
  switch (attribute.components) {
    case 1:
      return addChannel<T, 1>(server, points, attribute, source);
    case 2:
      return addChannel<T, 2>(server, points, attribute, source);
    default:
      return addChannel<T, 3>(server, points, attribute, source);
  }
}

// Channel names become parts of paths and of names in files.
std::string channelName(std::string name) {
  for (char& c : name) {
    if (c == '/' || static_cast<unsigned char>(c) < ' ' || c == '\x7F') c = '_';
  }
  return name == "position" ? "position_other" : name;
}

}  // namespace

std::optional<PointGrid> measureGrid(Particles const& particles, std::optional<double> voxelSize) {
  std::vector<double> positions;
  for (std::size_t p = 0; p < particles.count(); ++p) {
    if (!finite(particles, p)) continue;
    positions.insert(positions.end(),
                     particles.positions.begin() + static_cast<std::ptrdiff_t>(3 * p),
                     particles.positions.begin() + static_cast<std::ptrdiff_t>(3 * p + 3));
  }
  if (positions.empty()) return std::nullopt;
  PointGrid grid;
  grid.voxelSize = voxelSize ? *voxelSize : measureVoxelSize(positions);
  grid.voxelSize = static_cast<double>(static_cast<float>(grid.voxelSize));
  if (!(grid.voxelSize > 0.) || !std::isfinite(grid.voxelSize)) grid.voxelSize = 1.;

  std::vector<double> axis(positions.size() / 3);
  auto const middle = axis.begin() + static_cast<std::ptrdiff_t>(axis.size() / 2);
  bool far = false;
  std::array<double, 3> origin{};
  for (std::size_t a = 0; a < 3; ++a) {
    for (std::size_t p = 0; p < axis.size(); ++p) axis[p] = positions[3 * p + a];
    // The middle one, not the mean: a single stray must not pull the origin away.
    std::nth_element(axis.begin(), middle, axis.end());
    far = far || std::abs(*middle) > kFarOut * grid.voxelSize;
    origin[a] = static_cast<double>(toFloat(*middle));
  }
  if (far && std::all_of(origin.begin(), origin.end(), [](double x) { return std::isfinite(x); })) {
    grid.origin = origin;
  }
  return grid;
}

StoredPoints writePoints(Particles const& particles, PointGrid const& grid,
                         PointObject const& target, std::string const& path) {
  StoredPoints stored;
  std::vector<std::size_t> source;
  std::vector<vec<3, float>> positions;
  positions.reserve(particles.count());
  for (std::size_t p = 0; p < particles.count(); ++p) {
    if (!finite(particles, p)) {
      ++stored.notFinite;
      continue;
    }
    vec<3, float> position{};
    for (std::size_t a = 0; a < 3; ++a) {
      position[static_cast<int>(a)] =
          toFloat((particles.positions[3 * p + a] - grid.origin[a]) / grid.voxelSize);
    }
    positions.push_back(position);
    source.push_back(p);
  }

  auto const server = Host::createStateServer("import");
  auto const object = Host::createObject(server, target.name);
  API::PointComponent const points(server.createComponent(API::PointComponentType, "particle",
                                                          static_cast<float>(grid.voxelSize)));
  object.addComponent(points);
  auto const order = Host::setPoints(points, positions);
  stored.count = order.size();
  stored.outside = positions.size() - order.size();
  std::vector<std::size_t> from(order.size());
  for (std::size_t n = 0; n < order.size(); ++n) from[n] = source[order[n]];

  for (auto attribute : particles.attributes) {
    attribute.name = channelName(attribute.name);
    if (attribute.name.empty() || std::find(stored.channels.begin(), stored.channels.end(),
                                            attribute.name) != stored.channels.end()) {
      continue;
    }
    stored.channels.push_back(attribute.name);
    // Droplets are told by a threshold between numbers, whatever the file holds.
    bool const known =
        attribute.name == "velocity" || attribute.name == "density" || attribute.name == "droplet";
    if (attribute.integer && !known && fitsInt(attribute.values)) {
      addChannel<int>(server, points, attribute, from);
    } else {
      addChannel<float>(server, points, attribute, from);
    }
  }
  auto const dictionary = object.dictionary();
  if (target.dropletThreshold) dictionary.set("dropletThreshold", *target.dropletThreshold);
  if (target.spatialAdaptivity) dictionary.set("enableSpatialAdapt", true);
  if (grid.origin != std::array<double, 3>{}) {
    dictionary.set("origin", vec<3, float>(static_cast<float>(grid.origin[0]),
                                           static_cast<float>(grid.origin[1]),
                                           static_cast<float>(grid.origin[2])));
  }
  auto const status = Host::writeObject(object, path);
  if (!status.succeeded()) throw Failure(ExitCode::Output, path, status.message().str());
  return stored;
}

}  // namespace Velmor::Tool
