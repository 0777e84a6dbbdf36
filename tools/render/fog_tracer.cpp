#include "render/fog_tracer.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "render/ray_box.h"
#include "render/render.h"
#include "velmorapi/object_model.h"

namespace Velmor::Render {

namespace {

using Vec3f = orlen::Math::vec<3, float>;

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

double largestValue(API::VoxelChannel const& channel) {
  API::Layout const layout(channel.layout());
  int const leaf = layout.maxDepth();
  double largest = 0.;
  for (auto i = layout.tileIterator(leaf, leaf, API::TraversalMode::Serial); i.valid(); i.next()) {
    auto const data = channel.tileData<float>(i.index());
    for (std::size_t e = 0; e < data.count; ++e) {
      if (std::isfinite(data.data[e])) largest = std::max(largest, double{data.data[e]});
    }
  }
  return largest;
}

}  // namespace

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
