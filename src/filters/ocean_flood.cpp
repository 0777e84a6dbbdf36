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

struct FloodTile {
  API::TreeIndex index;
  API::TileCoord origin;
  bool work;    // has something to do, as far as known
  bool queued;  // is in the queue
};

struct FloodTiles {
  std::vector<FloodTile> tiles;          // in tree order
  std::vector<API::TreeIndex> entering;  // those that have work at a face
};

class Flooding {
 public:
  explicit Flooding(OceanScene const& scene)
      : scene_(&scene),
        heightVox_(scene.height / scene.voxelScale),
        deepest_(-scene.voxelScale * 0.8660254f),
        all_(tileBox(0, last(), 0, last(), 0, last())) {}

  /// The voxels of a tile whose mask is 1.
  TileBits ocean(API::TreeIndex const& index) const {
    TileView const mask(scene_->mask.tileData<float>(index), scene_->width);
    return mask.where([](float m) { return m == 1.f; });
  }

  void mark(API::TreeIndex const& index, TileBits bits) const {
    TileView(scene_->mask.tileData<float>(index), scene_->width).set(bits, 1.f);
  }

  /// The voxels that a flood inside the tile adds to the mask: up to the plane
  /// all that connect to an ocean voxel through voxels not deeper than half a
  /// voxel diagonal in the liquid; above it each column goes on upwards as far
  /// as it is outside the liquid and not ocean yet.
  TileBits added(FloodTile const& tile, TileBits ocean) const {
    int const rows = rowsUpToPlane(tile.origin.j);
    if (rows == 0 || ocean == 0) return 0;
    if ((all_ & ~ocean) == 0) return 0;
    TileBits low = 0;
    for (int y = 0; y < rows; ++y) low |= tileLayers[1][y];
    TileView const liquid(scene_->liquid.tileData<float>(tile.index), scene_->width);
    TileBits const open = low & liquid.where([this](float l) { return !(l < deepest_); });
    TileBits flooded = ocean & open;
    for (TileBits before = 0; before != flooded;) {
      before = flooded;
      flooded = withNeighbours(flooded) & open;
    }
    TileBits result = flooded;
    TileBits rising = flooded & tileLayers[1][rows - 1];
    if (rows < scene_->width && rising != 0) {
      TileBits const free = liquid.where([](float l) { return l > 0.f; }) & ~ocean;
      for (int y = rows; y < scene_->width; ++y) {
        rising = (rising << tileStride(1)) & free;
        result |= rising;
      }
    }
    return result & ~ocean;
  }

  /// The leaf tile across a face, if the flood may enter it at all.
  API::TreeIndex neighbour(API::TileAccessor const& accessor, API::TileCoord const& origin,
                           Face face) const {
    int const below = face.axis != 1 ? 0 : (face.upper ? scene_->width : -scene_->width);
    return isAbovePlane(origin.j + below) ? API::TreeIndex() : across(accessor, origin, face);
  }

  /// The voxels of the neighbour across a face that a tile adds to the mask.
  /// A stricter test than inside a tile: nothing in the liquid is entered.
  TileBits addedAcross(Face face, TileBits ocean, API::TreeIndex const& neighbour) const {
    int const shift = tileStride(face.axis) * last();
    TileBits touching = ocean & faceBits(face);
    touching = face.upper ? touching >> shift : touching << shift;
    int const at = face.upper ? 0 : last();
    auto const mask = scene_->mask.tileData<float>(neighbour);
    touching &= layerWhere(mask, face.axis, at, [](float m) { return m == 0.f; });
    if (touching == 0) return 0;
    auto const liquid = scene_->liquid.tileData<float>(neighbour);
    return touching & layerWhere(liquid, face.axis, at, [](float l) { return l >= 0.f; });
  }

  TileBits faceBits(Face face) const { return tileLayers[face.axis][face.upper ? last() : 0]; }

  /// Whether a flood inside the tile adds anything, as things stand; and calls
  /// enters(index) for each neighbour from which one across a face does. What
  /// lies open is asked for from its own side: of most of the ocean the mask
  /// says that nothing is left, and all else need not be read.
  template <class Enters>
  bool hasWork(API::TileAccessor const& accessor, FloodTile const& tile, Enters enters) const {
    if (isAbovePlane(tile.origin.j)) return false;
    TileView const mask(scene_->mask.tileData<float>(tile.index), scene_->width);
    auto const marked = mask.where([](float m) { return m == 1.f; });
    if (marked == all_) return false;
    TileView const liquid(scene_->liquid.tileData<float>(tile.index), scene_->width);
    auto const open = mask.where([](float m) { return m == 0.f; }) &
                      liquid.where([](float l) { return l >= 0.f; });
    for (Face const face : faces) {
      auto const touched = open & faceBits(face);
      if (touched == 0) continue;
      auto const next = across(accessor, tile.origin, face);
      if (next.valid() && (reached(face, next) & touched) != 0) enters(next);
    }
    return added(tile, marked) != 0;
  }

 private:
  int last() const { return scene_->width - 1; }

  bool isAbovePlane(int originY) const { return !(static_cast<float>(originY) <= heightVox_); }

  // The leaf tile across a face.
  API::TreeIndex across(API::TileAccessor const& accessor, API::TileCoord const& origin,
                        Face face) const {
    int const step = face.upper ? scene_->width : -1;
    auto const index = accessor.index(
        {origin.i + (face.axis == 0 ? step : 0), origin.j + (face.axis == 1 ? step : 0),
         origin.k + (face.axis == 2 ? step : 0)},
        scene_->maxDepth);
    return index.depth == scene_->maxDepth ? index : API::TreeIndex();
  }

  // The voxels at a tile's face that touch the ocean in the neighbour across it.
  TileBits reached(Face face, API::TreeIndex const& neighbour) const {
    auto const touching = layerWhere(scene_->mask.tileData<float>(neighbour), face.axis,
                                     face.upper ? 0 : last(), [](float m) { return m == 1.f; });
    int const shift = tileStride(face.axis) * last();
    return face.upper ? touching << shift : touching >> shift;
  }

  // The number of the tile's rows whose voxel centres are not above the plane.
  int rowsUpToPlane(int originY) const {
    int rows = 0;
    while (rows < scene_->width && static_cast<float>(originY + rows) + 0.5f <= heightVox_) ++rows;
    return rows;
  }

  // The voxels at place `at` along an axis for whose value `test` holds.
  template <class Test>
  TileBits layerWhere(API::TileData<float> const& data, int axis, int at, Test test) const {
    if (!storesWidth(data, scene_->width)) return 0;
    int const u = axis == 0 ? 1 : 0, v = axis == 2 ? 1 : 2;
    auto const* const first =
        data.data + data.offset(axis == 0 ? at : 0, axis == 1 ? at : 0, axis == 2 ? at : 0);
    TileBits bits = 0;
    for (int b = 0; b < scene_->width; ++b) {
      unsigned row = 0;
      for (int a = 0; a < scene_->width; ++a) {
        auto const* const value =
            first + std::ptrdiff_t{a} * data.strides[u] + std::ptrdiff_t{b} * data.strides[v];
        row |= (test(*value) ? 1u : 0u) << (a * tileStride(u));
      }
      bits |= TileBits{row} << (b * tileStride(v));
    }
    return bits << (at * tileStride(axis));
  }

  OceanScene const* scene_;
  float heightVox_;
  float deepest_;
  TileBits all_;  // of a tile's voxels
};

/// Collects the leaf tiles. Nothing is written before the traversal is over:
/// a flood enters tiles that other workers may be reading.
class FloodVisitor final : public API::Visitor {
 public:
  explicit FloodVisitor(Flooding const& flooding) : flooding_(&flooding) {}

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    FloodTile tile{index, accessor.tile(index).coord(), false, true};
    tile.work = flooding_->hasWork(accessor, tile, [this](API::TreeIndex const& neighbour) {
      found_.entering.push_back(neighbour);
    });
    found_.tiles.push_back(tile);
  }

  API::Visitor* copy() const override { return new FloodVisitor(*flooding_); }

  void join(API::Visitor const& other) override {
    auto const& more = static_cast<FloodVisitor const&>(other).found_;
    found_.tiles.insert(found_.tiles.end(), more.tiles.begin(), more.tiles.end());
    found_.entering.insert(found_.entering.end(), more.entering.begin(), more.entering.end());
  }

  FloodTiles take() { return std::move(found_); }

 private:
  Flooding const* flooding_;
  FloodTiles found_;
};

/// The work list: all tiles in tree order, then those that were entered from a
/// neighbour, first in, first out, each at most once at a time. The order is
/// fixed because it shows above the plane, where a column that was entered from
/// across a face blocks one that comes from below.
class WorkList {
 public:
  WorkList(Flooding const& flooding, API::TileAccessor accessor, FloodTiles found)
      : flooding_(flooding), accessor_(std::move(accessor)), tiles_(std::move(found.tiles)) {
    std::int32_t slots = 0;
    for (auto const& tile : tiles_) slots = std::max(slots, tile.index.slot + 1);
    bySlot_.assign(static_cast<std::size_t>(slots), none);
    for (std::size_t at = 0; at < tiles_.size(); ++at) {
      bySlot_[static_cast<std::size_t>(tiles_[at].index.slot)] = at;
    }
    for (auto const& index : found.entering) {
      if (auto* const tile = find(index)) tile->work = true;
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
    auto ocean = flooding_.ocean(tile.index);
    auto const inside = flooding_.added(tile, ocean);
    flooding_.mark(tile.index, inside);
    ocean |= inside;
    for (Face const face : faces) {
      if ((ocean & flooding_.faceBits(face)) == 0) continue;
      auto const next = flooding_.neighbour(accessor_, tile.origin, face);
      if (!next.valid()) continue;
      auto const across = flooding_.addedAcross(face, ocean, next);
      if (across == 0) continue;
      flooding_.mark(next, across);
      enter(next);
    }
  }

  FloodTile* find(API::TreeIndex const& index) {
    auto const slot = static_cast<std::size_t>(index.slot);
    return slot < bySlot_.size() && bySlot_[slot] != none ? &tiles_[bySlot_[slot]] : nullptr;
  }

  void enter(API::TreeIndex const& index) {
    auto* const tile = find(index);
    if (tile == nullptr) return;
    tile->work = true;
    if (tile->queued) return;
    tile->queued = true;
    entered_.push_back(static_cast<std::size_t>(tile - tiles_.data()));
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
