#include "levelset/holes.h"

#include <algorithm>
#include <vector>

#include "levelset/parallel.h"

namespace Velmor::Host {

namespace {

using API::cellOf;
using API::cellPositions;
using API::tileCells;
using API::tileWidth;

constexpr int steps[6][3] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}};

/// For every line of places along an axis that holds tiles: from where to where.
class Lines {
 public:
  explicit Lines(Field const& field) {
    for (int a = 0; a < 3; ++a) {
      for (std::size_t t = 0; t < field.count(); ++t) {
        auto const [line, at] = split(field.tile(t).place, a);
        auto const found = maps_[a].insert(line, static_cast<std::int32_t>(ranges_[a].size()));
        if (static_cast<std::size_t>(found) == ranges_[a].size()) ranges_[a].push_back({at, at});
        auto& range = ranges_[a][static_cast<std::size_t>(found)];
        range = {std::min(range.low, at), std::max(range.high, at)};
      }
    }
  }
  /// Whether a straight way along an axis leads out from a place without a tile.
  bool isOpen(TilePlace const& place) const {
    for (int a = 0; a < 3; ++a) {
      auto const [line, at] = split(place, a);
      auto const found = maps_[a].find(line);
      if (found < 0) return true;
      auto const& range = ranges_[a][static_cast<std::size_t>(found)];
      if (at < range.low || at > range.high) return true;
    }
    return false;
  }

 private:
  struct Range {
    std::int32_t low, high;
  };
  struct Split {
    TilePlace line;
    std::int32_t at;
  };
  static Split split(TilePlace place, int axis) noexcept {
    auto& along = axis == 0 ? place.x : (axis == 1 ? place.y : place.z);
    auto const at = along;
    along = 0;
    return {place, at};
  }

  TileMap maps_[3];
  std::vector<Range> ranges_[3];
};

/// Follows one connected set of voxels outside after the other.
class Flood {
 public:
  Flood(Field& field, InsideAt const& insideAt, double mostVoxels)
      : field_(field),
        insideAt_(insideAt),
        most_(mostVoxels),
        lines_(field),
        seen_(field.count()) {}

  void run(TileMap& filled) {
    std::int32_t filledPlaces = 0;
    for (std::size_t t = 0; t < field_.count(); ++t) {
      for (int c = 0; c < tileCells; ++c) {
        if (!take(t, c)) continue;
        follow();
        if (isHole()) {
          for (auto const& v : voxels_) turn(v);
          for (auto const& p : places_) filled.insert(p, filledPlaces++);
        }
        volume_ = 0;
        open_ = false;
        voxels_.clear();
        places_.clear();
      }
    }
  }

 private:
  struct Voxel {
    std::size_t tile;
    int cell;
  };

  bool isHole() const noexcept { return !open_ && volume_ <= most_; }

  // Adds a voxel outside that was not met before.
  bool take(std::size_t t, int cell) {
    if (field_.tile(t).inside.test(cell) || seen_[t].test(cell)) return false;
    seen_[t].set(cell);
    volume_ += 1;
    ways_.push_back({t, cell});
    if (isHole()) voxels_.push_back({t, cell});
    return true;
  }

  void follow() {
    while (!ways_.empty() || !placeWays_.empty()) {
      if (!ways_.empty()) {
        auto const v = ways_.back();
        ways_.pop_back();
        auto const p = cellPositions[static_cast<std::size_t>(v.cell)];
        for (auto const& s : steps) {
          int const x = p.x + s[0], y = p.y + s[1], z = p.z + s[2];
          auto const in = [](int a) { return a >= 0 && a < tileWidth; };
          if (in(x) && in(y) && in(z)) {
            take(v.tile, cellOf(x, y, z));
            continue;
          }
          auto const at = field_.tile(v.tile).place;
          TilePlace const next{at.x + s[0], at.y + s[1], at.z + s[2]};
          auto const wrap = [](int a) { return (a + tileWidth) % tileWidth; };
          if (auto const t = field_.number(next); t >= 0) {
            take(static_cast<std::size_t>(t), cellOf(wrap(x), wrap(y), wrap(z)));
          } else {
            takePlace(next);
          }
        }
        continue;
      }
      auto const place = placeWays_.back();
      placeWays_.pop_back();
      for (auto const& s : steps) {
        TilePlace const next{place.x + s[0], place.y + s[1], place.z + s[2]};
        auto const t = field_.number(next);
        if (t < 0) {
          takePlace(next);
          continue;
        }
        for (int c = 0; c < tileCells; ++c) {
          auto const p = cellPositions[static_cast<std::size_t>(c)];
          auto const touches = [](int step, int a) {
            return step == 0 || a == (step > 0 ? 0 : tileWidth - 1);
          };
          if (touches(s[0], p.x) && touches(s[1], p.y) && touches(s[2], p.z)) {
            take(static_cast<std::size_t>(t), c);
          }
        }
      }
    }
  }

  // A place without a tile. Nothing is looked at there once it is clear that
  // this is no hole.
  void takePlace(TilePlace const& place) {
    if (!isHole() || insideAt_(place)) return;
    if (lines_.isOpen(place)) {
      open_ = true;
      return;
    }
    auto const number = static_cast<std::int32_t>(placesSeen_++);
    if (seenPlaces_.insert(place, number) != number) return;
    volume_ += tileCells;
    placeWays_.push_back(place);
    places_.push_back(place);
  }

  void turn(Voxel const& v) {
    auto& tile = field_.tile(v.tile);
    auto& sample = tile.samples[static_cast<std::size_t>(v.cell)];
    tile.inside.set(v.cell);
    sample = {-sample.value, -sample.gx, -sample.gy, -sample.gz};
  }

  Field& field_;
  InsideAt const& insideAt_;
  double most_;
  Lines lines_;
  std::vector<CellMask> seen_;
  TileMap seenPlaces_;
  std::size_t placesSeen_ = 0;
  double volume_ = 0;
  bool open_ = false;  // a way out was found
  std::vector<Voxel> ways_, voxels_;
  std::vector<TilePlace> placeWays_, places_;
};

}  // namespace

void closeHoles(Field& field, InsideAt const& insideAt, double mostVoxels, TileMap& filled) {
  if (mostVoxels >= 1.0) Flood(field, insideAt, mostVoxels).run(filled);
}

}  // namespace Velmor::Host
