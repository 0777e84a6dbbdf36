#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "filters/ocean_mask.h"
#include "filters/tile_bits.h"

namespace Velmor::Processing {

namespace {

/// One face of a tile: the voxels of an axis' lower or upper end.
struct Face {
  int axis;
  bool upper;
};
constexpr std::array<Face, 6> faces{
    {{0, false}, {0, true}, {1, false}, {1, true}, {2, false}, {2, true}}};

/// What the flood knows of a tile.
struct TileState {
  API::TileCoord origin;
  TileBits ocean = 0;     // the mask is 1
  TileBits dry = 0;       // the mask is 0
  TileBits open = 0;      // not more than half a voxel diagonal inside the liquid
  TileBits outside = 0;   // not in the liquid
  TileBits positive = 0;  // and not on its surface either
};

class Flooding {
 public:
  explicit Flooding(OceanScene const& scene)
      : scene_(&scene),
        heightVox_(scene.height / scene.voxelScale),
        deepest_(-scene.voxelScale * 0.8660254f) {}

  TileState read(API::TileCoord const& origin, API::TreeIndex const& index) const {
    TileView const liquid(scene_->liquid.tileData<float>(index), scene_->width);
    TileView const mask(scene_->mask.tileData<float>(index), scene_->width);
    TileState state;
    state.origin = origin;
    if (!liquid.valid() || !mask.valid()) return state;
    state.ocean = mask.where([](float m) { return m == 1.f; });
    state.dry = mask.where([](float m) { return m == 0.f; });
    state.open = liquid.where([this](float l) { return !(l < deepest_); });
    state.outside = liquid.where([](float l) { return l >= 0.f; });
    state.positive = liquid.where([](float l) { return l > 0.f; });
    return state;
  }

  void mark(API::TreeIndex const& index, TileBits bits) const {
    TileView(scene_->mask.tileData<float>(index), scene_->width).set(bits, 1.f);
  }

  /// The voxels that a flood inside the tile adds to the mask: up to the plane
  /// all that open voxels connect to an ocean voxel; above it each column goes
  /// on upwards as far as it is outside the liquid and not ocean yet.
  TileBits added(TileState const& tile) const {
    int const rows = rowsUpToPlane(tile.origin.j);
    TileBits low = 0;
    for (int y = 0; y < rows; ++y) low |= tileLayers[1][y];
    TileBits flooded = tile.ocean & low & tile.open;
    for (TileBits before = 0; before != flooded;) {
      before = flooded;
      flooded = withNeighbours(flooded) & low & tile.open;
    }
    TileBits result = flooded;
    if (rows > 0) {
      TileBits rising = flooded & tileLayers[1][rows - 1];
      for (int y = rows; y < scene_->width; ++y) {
        rising = (rising << tileStride(1)) & tile.positive & ~tile.ocean;
        result |= rising;
      }
    }
    return result & ~tile.ocean;
  }

  /// The voxels of the neighbour across a face that the tile adds to the mask.
  /// A stricter test than inside a tile: nothing in the liquid is entered.
  TileBits addedAcross(Face face, TileState const& tile, TileState const& neighbour) const {
    if (!(static_cast<float>(neighbour.origin.j) <= heightVox_)) return 0;
    int const last = scene_->width - 1;
    int const shift = tileStride(face.axis) * last;
    TileBits const touching = tile.ocean & faceBits(face);
    return (face.upper ? touching >> shift : touching << shift) & neighbour.dry & neighbour.outside;
  }

  TileBits faceBits(Face face) const {
    return tileLayers[face.axis][face.upper ? scene_->width - 1 : 0];
  }

  API::Tile neighbour(API::TileAccessor const& accessor, API::TileCoord const& origin,
                      Face face) const {
    int const step = face.upper ? scene_->width : -1;
    auto const tile = accessor.tile(origin.i + (face.axis == 0 ? step : 0),
                                    origin.j + (face.axis == 1 ? step : 0),
                                    origin.k + (face.axis == 2 ? step : 0), scene_->maxDepth);
    return tile.index().depth == scene_->maxDepth ? tile : API::Tile();
  }

  /// Whether there is anything to do at a tile, as things stand.
  bool hasWork(API::TileAccessor const& accessor, API::TreeIndex const& index,
               TileState const& tile) const {
    if (tile.ocean == 0) return false;
    if (added(tile) != 0) return true;
    for (Face const face : faces) {
      if ((tile.ocean & faceBits(face)) == 0) continue;
      auto const next = neighbour(accessor, tile.origin, face);
      if (!next.valid() || next.index() == index) continue;
      if (addedAcross(face, tile, read(next.coord(), next.index())) != 0) return true;
    }
    return false;
  }

 private:
  // The number of the tile's rows whose voxel centres are not above the plane.
  int rowsUpToPlane(int originY) const {
    int rows = 0;
    while (rows < scene_->width && static_cast<float>(originY + rows) + 0.5f <= heightVox_) ++rows;
    return rows;
  }

  OceanScene const* scene_;
  float heightVox_;
  float deepest_;
};

struct FloodTile {
  API::TreeIndex index;
  API::TileCoord origin;
  bool work;    // has something to do, as far as known
  bool queued;  // is in the queue
};

/// Collects the leaf tiles. Nothing is written before the traversal is over:
/// a flood enters tiles that other workers may be reading.
class FloodVisitor final : public API::Visitor {
 public:
  explicit FloodVisitor(Flooding const& flooding) : flooding_(&flooding) {}

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const origin = accessor.tile(index).coord();
    bool const work = flooding_->hasWork(accessor, index, flooding_->read(origin, index));
    tiles_.push_back({index, origin, work, true});
  }

  API::Visitor* copy() const override { return new FloodVisitor(*flooding_); }

  void join(API::Visitor const& other) override {
    auto const& more = static_cast<FloodVisitor const&>(other).tiles_;
    tiles_.insert(tiles_.end(), more.begin(), more.end());
  }

  std::vector<FloodTile> take() { return std::move(tiles_); }

 private:
  Flooding const* flooding_;
  std::vector<FloodTile> tiles_;
};

/// The work list: all tiles in tree order, then those that were entered from a
/// neighbour, first in, first out, each at most once at a time. The order is
/// fixed because it shows above the plane, where a column that was entered from
/// across a face blocks one that comes from below.
class WorkList {
 public:
  WorkList(Flooding const& flooding, API::TileAccessor accessor, std::vector<FloodTile> tiles)
      : flooding_(flooding), accessor_(std::move(accessor)), tiles_(std::move(tiles)) {
    std::int32_t slots = 0;
    for (auto const& tile : tiles_) slots = std::max(slots, tile.index.slot + 1);
    bySlot_.assign(static_cast<std::size_t>(slots), none);
    for (std::size_t at = 0; at < tiles_.size(); ++at) {
      bySlot_[static_cast<std::size_t>(tiles_[at].index.slot)] = at;
    }
  }

  void run() {
    for (std::size_t at = 0; at < tiles_.size(); ++at) visit(at);
    for (std::size_t next = 0; next < entered_.size(); ++next) visit(entered_[next]);
  }

 private:
  static constexpr std::size_t none = static_cast<std::size_t>(-1);

  void visit(std::size_t at) {
    auto& tile = tiles_[at];
    tile.queued = false;
    if (!tile.work) return;
    tile.work = false;
    auto state = flooding_.read(tile.origin, tile.index);
    auto const inside = flooding_.added(state);
    flooding_.mark(tile.index, inside);
    state.ocean |= inside;
    for (Face const face : faces) {
      if ((state.ocean & flooding_.faceBits(face)) == 0) continue;
      auto const next = flooding_.neighbour(accessor_, tile.origin, face);
      if (!next.valid()) continue;
      auto const across =
          flooding_.addedAcross(face, state, flooding_.read(next.coord(), next.index()));
      if (across == 0) continue;
      flooding_.mark(next.index(), across);
      enter(next.index());
    }
  }

  void enter(API::TreeIndex const& index) {
    auto const slot = static_cast<std::size_t>(index.slot);
    if (slot >= bySlot_.size() || bySlot_[slot] == none) return;
    auto& tile = tiles_[bySlot_[slot]];
    tile.work = true;
    if (tile.queued) return;
    tile.queued = true;
    entered_.push_back(bySlot_[slot]);
  }

  Flooding const& flooding_;
  API::TileAccessor accessor_;
  std::vector<FloodTile> tiles_;
  std::vector<std::size_t> bySlot_;
  std::vector<std::size_t> entered_;
};

}  // namespace

void floodOcean(OceanScene const& scene) {
  Flooding const flooding(scene);
  FloodVisitor visitor(flooding);
  scene.layout.traverse(visitor, API::TraversalMode::Tiles, scene.maxDepth, scene.maxDepth);
  WorkList(flooding, scene.layout.tileAccessor(), visitor.take()).run();
}

}  // namespace Velmor::Processing
