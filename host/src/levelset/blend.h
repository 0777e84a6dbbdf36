#pragma once

#include <vector>

#include "levelset/field.h"
#include "levelset/particles.h"
#include "levelset/region.h"

namespace Velmor::Host {

/// Sums up the field of the particles, voxel by voxel.
///
/// The bulk is the distance to the weighted mean of the particles around, less
/// the weighted mean of their radii (Zhu and Bridson, "Animating Sand as a Fluid",
/// SIGGRAPH 2005). Where the mean moves faster than the voxel, as in concave
/// gaps, the radius shrinks with the largest eigenvalue of the mean's gradient
/// (Solenthaler, Schläfli and Pajarola, "A unified particle model for fluid-solid
/// interactions", Computer Animation and Virtual Worlds 2007). Droplets are
/// spheres, joined to it by the minimum.
///
/// Serves one thread.
class Blend {
 public:
  explicit Blend(Particles const& particles) noexcept;

  /// Whether the bulk is so dense around a tile of the output that all of it is
  /// inside, farther than a voxel from the surface.
  bool isDeep(API::TileCoord const& origin) const noexcept;

  /// Fills the tile's field, gradient and masks. `droplets` are those that may
  /// reach into it.
  void evaluate(FieldTile& tile, API::TileCoord const& origin,
                std::vector<std::uint32_t> const& droplets);

 private:
  template <bool adaptive>
  void evaluateBulk(FieldTile& tile);
  template <bool adaptive>
  void evaluateBulk(FieldTile& tile, int cell);
  void addDroplet(FieldTile& tile, API::TileCoord const& origin, Droplet const& droplet) const;

  Particles const* particles_;
  Region region_;
  float solid_;  // a voxel with full point voxels so far around is deep; 0: none is
  std::vector<float> squaredInverses_;
  std::vector<Region::Row> rows_;
  std::vector<Region::Run> runs_;
};

}  // namespace Velmor::Host
