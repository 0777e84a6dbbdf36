#include "levelset/construction.h"

#include <tbb/enumerable_thread_specific.h>

#include <algorithm>
#include <atomic>
#include <cmath>

#include "levelset/crossed_cells.h"
#include "levelset/holes.h"
#include "levelset/parallel.h"
#include "levelset/redistance.h"

namespace Velmor::Host {

namespace {

using API::cellPositions;
using API::tileCells;
using API::tileWidth;

std::int32_t floorOf(double a) { return static_cast<std::int32_t>(std::floor(a)); }

/// Calls `function(place)` for the places of leaf tiles that a box of voxels touches.
template <class Function>
void forPlaces(TileGrid const& grid, double const (&low)[3], double const (&high)[3],
               Function const& function) {
  auto const place = [&](double const(&v)[3]) {
    return grid.place(API::TileCoord{floorOf(v[0]), floorOf(v[1]), floorOf(v[2])});
  };
  auto const from = place(low), to = place(high);
  for (auto z = from.z; z <= to.z; ++z) {
    for (auto y = from.y; y <= to.y; ++y) {
      for (auto x = from.x; x <= to.x; ++x) function(TilePlace{x, y, z});
    }
  }
}

}  // namespace

Construction::Construction(Particles& particles, TileGrid const& output,
                           API::LevelSetOptions const& options)
    : particles_(&particles), blend_(particles), field_(output) {
  if (options.surfaceRadius > 0.f) addBulkTiles();
  addDropletTiles();
  sortParticlesAround();

  tbb::enumerable_thread_specific<Blend> blends([this] { return Blend(*particles_); });
  forEach(field_.count(), [&](std::size_t t) {
    auto& tile = field_.tile(t);
    blends.local().evaluate(tile, output.voxel(tile.place), dropletsAt(tile.place));
  });
  InsideAt const inside = [this](TilePlace const& place) { return insideAt(place); };
  double const voxelSize = particles.voxelSize() / options.resolutionFactor;
  closeHoles(field_, inside, options.maxVolumeOfHolesToClose / std::pow(voxelSize, 3), filled_);
  redistance(field_, inside);
  keepCrossedCells(field_);
}

std::vector<std::uint32_t> const& Construction::dropletsAt(TilePlace const& place) const noexcept {
  static std::vector<std::uint32_t> const none;
  auto const t = static_cast<std::size_t>(field_.number(place));  // huge for no tile
  return t < droplets_.size() ? droplets_[t] : none;
}

// The tiles of the output near particles, but for those deep inside.
void Construction::addBulkTiles() {
  auto const& scale = particles_->scale();
  TileMap seen;
  std::vector<TilePlace> places;
  for (auto const& tile : particles_->tiles()) {
    if (tile.bulk == 0) continue;
    int least[3] = {tileWidth, tileWidth, tileWidth}, most[3] = {-1, -1, -1};
    for (int c = 0; c < tileCells; ++c) {
      if (!tile.occupied.test(c)) continue;
      auto const p = cellPositions[static_cast<std::size_t>(c)];
      int const at[3] = {p.x, p.y, p.z};
      for (int a = 0; a < 3; ++a) {
        least[a] = std::min(least[a], at[a]);
        most[a] = std::max(most[a], at[a]);
      }
    }
    auto const corner = particles_->grid().voxel(tile.place);
    std::int32_t const origin[3] = {corner.i, corner.j, corner.k};
    double const reach = double{tile.radius} + scale.margin;
    double low[3], high[3];
    for (int a = 0; a < 3; ++a) {
      low[a] = (origin[a] + least[a]) * scale.factor - reach;
      high[a] = (origin[a] + most[a] + 1) * scale.factor + reach;
    }
    forPlaces(field_.grid(), low, high, [&](TilePlace const& place) {
      // A fine output reaches less far than the points, whose places may be too
      // far out to have keys.
      if (!field_.grid().inRoot(place)) return;
      auto const number = static_cast<std::int32_t>(places.size());
      if (seen.insert(place, number) == number) places.push_back(place);
    });
  }
  std::vector<std::uint8_t> deep(places.size());
  forEach(places.size(),
          [&](std::size_t p) { deep[p] = blend_.isDeep(field_.grid().voxel(places[p])) ? 1 : 0; });
  for (std::size_t p = 0; p < places.size(); ++p) {
    if (deep[p] == 0) field_.add(places[p]);
  }
}

// The droplets that reach into each tile of the field.
void Construction::addDropletTiles() {
  auto const& droplets = particles_->droplets();
  for (std::size_t d = 0; d < droplets.size(); ++d) {
    if (!(droplets[d].radius > 0.f)) continue;
    double const reach = Region::reachOf(droplets[d].radius, particles_->scale().margin);
    auto const& c = droplets[d].centre;
    double const low[3] = {c.x - reach, c.y - reach, c.z - reach};
    double const high[3] = {c.x + reach, c.y + reach, c.z + reach};
    forPlaces(field_.grid(), low, high, [&](TilePlace const& place) {
      if (!field_.grid().inRoot(place)) return;
      // Deep tiles stay out: a droplet changes nothing there.
      if (field_.find(place) == nullptr && blend_.isDeep(field_.grid().voxel(place))) return;
      field_.add(place);
      auto const t = field_.number(place);
      if (t < 0) return;
      droplets_.resize(field_.count());
      droplets_[static_cast<std::size_t>(t)].push_back(static_cast<std::uint32_t>(d));
    });
  }
}

// Those that sums in the field's tiles run over.
void Construction::sortParticlesAround() {
  auto const& scale = particles_->scale();
  std::vector<std::uint8_t> wanted(particles_->tiles().size());
  double const reach = Region::reachOf(particles_->largestRadius(), scale.margin);
  forEach(field_.count(), [&](std::size_t t) {
    auto const corner = field_.grid().voxel(field_.tile(t).place);
    std::int32_t const origin[3] = {corner.i, corner.j, corner.k};
    double low[3], high[3];
    for (int a = 0; a < 3; ++a) {
      low[a] = (origin[a] - reach) / scale.factor - 2.0;
      high[a] = (origin[a] + tileWidth + reach) / scale.factor + 2.0;
    }
    forPlaces(particles_->grid(), low, high, [&](TilePlace const& place) {
      auto const n = particles_->number(place);
      if (n < 0) return;
      // Many field tiles want one tile of particles; all of them write the same.
      std::atomic_ref<std::uint8_t> const flag(wanted[static_cast<std::size_t>(n)]);
      if (flag.load(std::memory_order_relaxed) == 0) flag.store(1, std::memory_order_relaxed);
    });
  });
  particles_->sort(wanted);
}

bool Construction::insideAt(TilePlace const& place) const noexcept {
  if (filled_.find(place) >= 0) return true;
  if (!(particles_->scale().surfaceRadius > 0.f)) return false;
  auto const voxel = field_.grid().voxel(place);
  auto const centre = [this](std::int32_t a) {
    return floorOf((a + 0.5 * tileWidth) / particles_->scale().factor);
  };
  // Places that are near particles and not deep have tiles.
  return particles_->occupied({centre(voxel.i), centre(voxel.j), centre(voxel.k)});
}

}  // namespace Velmor::Host
