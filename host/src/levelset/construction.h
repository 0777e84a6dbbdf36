#pragma once

#include <memory>
#include <vector>

#include "levelset/blend.h"
#include "levelset/field.h"
#include "levelset/particles.h"

namespace Velmor::Host {

/// The signed distance around particles, before it is stored: tiles near the
/// surface, and the sign everywhere else. Made on the workers of the arena around it.
class Construction {
 public:
  /// `particles` must outlive it; tiles of it get sorted.
  Construction(Particles& particles, TileGrid const& output, API::LevelSetOptions const& options);

  Field const& field() const noexcept { return field_; }
  /// Of a leaf tile's place without a tile in the field.
  bool insideAt(TilePlace const& place) const noexcept;

 private:
  using DropletLists = std::vector<std::vector<std::uint32_t>>;

  void addBulkTiles();
  DropletLists addDropletTiles();
  void sortParticlesAround();

  Particles* particles_;
  Blend blend_;
  Field field_;
  TileMap filled_;  // places in closed holes
};

}  // namespace Velmor::Host
