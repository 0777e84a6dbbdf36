#include "render/fog_tracer.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "render/ray_box.h"
#include "render/render.h"
#include "velmorapi/object_model.h"

namespace Velmor::Render {

namespace {

// The leaf tiles of a channel and one ring of tiles around them. The walk
// passes over the first leaf behind a coarse face; with the ring that leaf is
// empty.
API::Layout ringed(API::VoxelChannel const& channel) {
  API::Layout const source(channel.layout());
  API::StateServer const server(API::ObjectModel::stateServer(channel.stateID()));
  API::Layout layout(server.createLayout("fog"));
  layout.setVoxelScale(source.voxelScale());
  auto const from = source.tileAccessor();
  auto const to = layout.tileAccessor();
  int const leaf = source.maxDepth();
  int const width = source.tileDimInfo(leaf).extent;
  for (auto i = source.tileIterator(leaf, leaf, API::TraversalMode::Serial); i.valid(); i.next()) {
    auto const o = from.tile(i.index()).coord();
    for (int dz = -width; dz <= width; dz += width) {
      for (int dy = -width; dy <= width; dy += width) {
        for (int dx = -width; dx <= width; dx += width) {
          to.addTile(o.i + dx, o.j + dy, o.k + dz, leaf);
        }
      }
    }
  }
  return layout;
}

// Calls `use(value, cell)` with each value above 0 in leaf tiles and with where it is.
template <class Use>
void forEachFoggy(API::VoxelChannel const& channel, Use&& use) {
  API::Layout const layout(channel.layout());
  auto const accessor = layout.tileAccessor();
  int const leaf = layout.maxDepth();
  for (auto at = layout.tileIterator(leaf, leaf, API::TraversalMode::Serial); at.valid();
       at.next()) {
    auto const data = channel.tileData<float>(at.index());
    if (data.data == nullptr) continue;
    auto const tile = accessor.tile(at.index());
    int const width = tile.info().extent;
    for (int k = 0; k < width; ++k) {
      for (int j = 0; j < width; ++j) {
        for (int i = 0; i < width; ++i) {
          float const value = data.data[data.offset(i, j, k)];
          if (!(value > 0.f) || !std::isfinite(value)) continue;
          auto const first = tile.coord();
          use(double{value}, Vec3d(first.i + i, first.j + j, first.k + k));
        }
      }
    }
  }
}

double largestValue(API::VoxelChannel const& channel) {
  double largest = 0.;
  forEachFoggy(channel,
               [&largest](double value, Vec3d const&) { largest = std::max(largest, value); });
  return largest;
}

}  // namespace

Box reachOfFog(API::VoxelChannel const& density) {
  double const voxel = API::Layout(density.layout()).voxelScale();
  constexpr double far = std::numeric_limits<double>::max();
  Box box{{far, far, far}, {-far, -far, -far}};
  forEachFoggy(density, [&](double, Vec3d const& cell) {
    for (int a = 0; a < 3; ++a) {
      // The sampler spreads a value over the voxels beside it.
      box.min[a] = std::min(box.min[a], (cell[a] - 1.) * voxel);
      box.max[a] = std::max(box.max[a], (cell[a] + 2.) * voxel);
    }
  });
  return box;
}

FogTracer::FogTracer(API::VoxelChannel const& density, Vec3d const& light)
    : field_(density), light_(toFloat(light)) {
  auto const layout = ringed(density);
  tiles_ = Processing::Intersector(layout);
  reach_ = reachOf(layout);
  voxel_ = layout.voxelScale();
  // Solvers use densities of very different size; the thickest fog always hides
  // what lies some 20 voxels behind it.
  extinction_ = 0.15 / (voxel_ * std::max(largestValue(density), 1e-6));
}

double FogTracer::densityAt(Vec3f const& position) const {
  Processing::Sample sample;
  field_.sample(position, sample);
  double const value = sample.as<float>();
  return value > 0. && std::isfinite(value) ? value : 0.;
}

double FogTracer::lightAt(Vec3f const& position) const {
  // Longer and longer steps: what is near throws the sharper shadow.
  double depth = 0.;
  double step = voxel_;
  double at = 0.5 * step;
  for (int n = 0; n < 6; ++n) {
    depth += densityAt(position + light_ * static_cast<float>(at)) * step;
    at += 0.5 * step;
    step *= 1.7;
    at += 0.5 * step;
  }
  return std::exp(-0.7 * extinction_ * depth);
}

Fog FogTracer::trace(Vec3d const& origin, Vec3d const& direction) {
  Fog fog;
  double near = 0., far = std::numeric_limits<double>::max();
  if (!clipToBox(reach_, origin, direction, near, far)) return fog;
  Vec3f const o = toFloat(origin + direction * near);
  Vec3f const d = toFloat(direction);
  double const step = 0.5 * voxel_;
  double clear = 1.;  // share of light that passes
  double mean = 0.;   // of t, weighted by what is hidden there
  tiles_.init(o, d, 0.f, static_cast<float>(far - near));
  for (auto i = tiles_.next(); i.valid() && clear > 1e-3; i = tiles_.next()) {
    double const span = double{i.t1} - double{i.t0};
    auto const count = static_cast<long>(std::ceil(span / step));
    double const length = span / static_cast<double>(count);
    for (long n = 0; n < count && clear > 1e-3; ++n) {
      double const t = double{i.t0} + (static_cast<double>(n) + 0.5) * length;
      Vec3f const position = o + d * static_cast<float>(t);
      double const density = densityAt(position);
      if (density <= 0.) continue;
      double const hidden = clear * (1. - std::exp(-extinction_ * density * length));
      fog.light += hidden * (0.12 + 0.88 * lightAt(position));
      mean += hidden * t;
      clear -= hidden;
    }
  }
  fog.alpha = 1. - clear;
  if (fog.alpha > 1e-6) fog.where = near + mean / fog.alpha;
  return fog;
}

}  // namespace Velmor::Render
