#include "processing/points.h"

#include <algorithm>

#include "shapes/parameter_lines.h"

namespace Velmor::Processing {

PointsParameters::PointsParameters()
    : position_channel("position"),
      radius(0.1f),
      enable_radius_channel(false),
      radius_channel("density") {}

PointsParameters::PointsParameters(PointsParameters const&) = default;
PointsParameters::PointsParameters(PointsParameters&& other)
    : PointsParameters(static_cast<PointsParameters const&>(other)) {}
PointsParameters& PointsParameters::operator=(PointsParameters const&) = default;
PointsParameters::~PointsParameters() = default;

API::String PointsParameters::str() const {
  Stream out;
  out << ShapeParameters::str();
  writeParameter(out, "position_channel", position_channel);
  writeParameter(out, "radius", radius);
  writeParameter(out, "enable_radius_channel", enable_radius_channel);
  writeParameter(out, "radius_channel", radius_channel);
  return out.str();
}

Points::Points(PointsParameters const& parameters)
    : Shape(parameters), positionChannel_(points_.findChannel(parameters.position_channel)) {}

Points::Points(Points const&) = default;
Points& Points::operator=(Points const&) = default;
Points::~Points() = default;

API::PointChannel const& Points::positionChannel() const { return positionChannel_; }

bool Points::positions(API::Array<orlen::Math::vec<3, float>>& out) const {
  if (!points_.valid() || !positionChannel_.valid()) return false;
  API::Layout const layout(points_.layout());
  out.clear();
  out.resize(points_.elementCount());
  float const s = layout.voxelScale();
  int const depth = layout.maxDepth();
  std::size_t written = 0;
  for (auto tiles = layout.tileIterator(depth, depth, API::TraversalMode::Serial); tiles.valid();
       tiles.next()) {
    auto const tile = positionChannel_.tileData<orlen::Math::vec<3, float>>(tiles.index());
    auto const count = std::min(tile.count, out.count() - written);
    for (std::size_t p = 0; p < count; ++p) out[written + p] = tile.data[p] * s;
    written += count;
  }
  return true;
}

}  // namespace Velmor::Processing
