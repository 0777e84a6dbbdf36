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
  /// The droplets near a place, by their numbers.
  std::vector<std::uint32_t> const& dropletsAt(TilePlace const& place) const noexcept;
  /// Sorts the particles around the whole field, not just around what was summed up.
  void sortParticlesAround();

 private:
  void addBulkTiles();
  void addDropletTiles();

  Particles* particles_;
  Blend blend_;
  Field field_;
  std::vector<std::vector<std::uint32_t>> droplets_;  // by tile of the field, as far as it goes
  TileMap filled_;                                    // places in closed holes
};

}  // namespace Velmor::Host
