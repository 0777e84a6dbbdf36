#include "files/source_field.h"

#include <algorithm>
#include <cstring>

namespace Velmor::Host::Files {

namespace {

using Box = SourceField::Box;
constexpr int width = API::tileWidth;

bool meets(Box const& a, Box const& b) noexcept {
  for (int axis = 0; axis < 3; ++axis) {
    if (a.lo[axis] > b.hi[axis] || a.hi[axis] < b.lo[axis]) return false;
  }
  return true;
}

bool within(Box const& inner, Box const& outer) noexcept {
  for (int axis = 0; axis < 3; ++axis) {
    if (inner.lo[axis] < outer.lo[axis] || inner.hi[axis] > outer.hi[axis]) return false;
  }
  return true;
}

Box overlap(Box const& a, Box const& b) noexcept {
  Box box;
  for (int axis = 0; axis < 3; ++axis) {
    box.lo[axis] = std::max(a.lo[axis], b.lo[axis]);
    box.hi[axis] = std::min(a.hi[axis], b.hi[axis]);
  }
  return box;
}

/// The cells of a tile, from and to, that a box meets along each axis.
struct CellRange {
  int from[3], to[3];
  CellRange(Box const& box, API::TileCoord const& coord, std::int64_t extent) noexcept {
    std::int64_t const origin[3] = {coord.i, coord.j, coord.k};
    for (int axis = 0; axis < 3; ++axis) {
      auto const lo = std::max<std::int64_t>(box.lo[axis] - origin[axis], 0) / extent;
      auto const hi = std::min<std::int64_t>((box.hi[axis] - origin[axis]) / extent, width - 1);
      from[axis] = static_cast<int>(lo);
      to[axis] = static_cast<int>(hi);
    }
  }
};

template <class Function>
bool everyCell(CellRange const& range, Function const& function) {
  for (int z = range.from[2]; z <= range.to[2]; ++z) {
    for (int y = range.from[1]; y <= range.to[1]; ++y) {
      for (int x = range.from[0]; x <= range.to[0]; ++x) {
        if (!function(API::cellOf(x, y, z))) return false;
      }
    }
  }
  return true;
}

std::int64_t floorTo(std::int64_t v, std::int64_t edge) noexcept {
  auto const rest = v % edge;
  return v - (rest < 0 ? rest + edge : rest);
}

}  // namespace

SourceField::SourceField(API::VoxelChannelItem const& channel, std::int64_t detached)
    : channel_(channel),
      layout_(channel.layout()),
      handle_(API::Ref(const_cast<API::VoxelChannelItem*>(&channel))),
      empty_(findEmpty()),
      detached_(detached) {}

std::byte const* SourceField::findEmpty() const {
  auto const* const background = channel_.background();
  if (layout_.count(0) == 0) return background;
  auto const* const values = channel_.values(0, 0);
  std::vector<std::byte const*> plain;
  for (int c = 0; c < API::tileCells; ++c) {
    if (layout_.child(0, 0, c) < 0) plain.push_back(values + static_cast<std::size_t>(c) * size());
  }
  for (auto const* const value : plain) {
    auto const same = std::count_if(plain.begin(), plain.end(), [&](std::byte const* other) {
      return std::memcmp(value, other, size()) == 0;
    });
    if (2 * static_cast<std::size_t>(same) > plain.size()) return value;
  }
  return background;
}

CellMask SourceField::maskOf(int depth, std::int32_t slot) const {
  auto mask = activeMask(handle_, {slot, depth});
  CellMask stored;
  if (otherBackground() == nullptr || channel_.storedMask({slot, depth}, stored)) return mask;
  // Nobody chose these cells: they differ from a background that is no longer
  // the value of the empty world.
  auto const* const values = channel_.values(depth, slot);
  for (int c = 0; c < API::tileCells; ++c) {
    if (isEmpty(values + static_cast<std::size_t>(c) * size())) mask.reset(c);
  }
  return mask;
}

bool SourceField::add(Value& value, std::byte const* bytes, bool active) const noexcept {
  if (value.bytes == nullptr) {
    value = {bytes, active};
    return true;
  }
  return value.active == active &&
         (value.bytes == bytes || std::memcmp(value.bytes, bytes, size()) == 0);
}

Box SourceField::cellBox(int depth, API::TileCoord const& coord, int cell) const noexcept {
  auto const extent = std::int64_t{layout_.extent(depth) / width};
  auto const& at = API::cellPositions[static_cast<std::size_t>(cell)];
  return Box::cube(coord.i + at.x * extent, coord.j + at.y * extent, coord.k + at.z * extent,
                   extent);
}

Box SourceField::everything() const noexcept {
  auto const root = layout_.rootOrigin();
  return Box::cube(root.i, root.j, root.k, layout_.extent(0));
}

std::vector<SourceField::Block> SourceField::blocks(Box const& box, std::int64_t edge) const {
  std::vector<Block> out;
  if (layout_.count(0) > 0) collect(0, 0, layout_.rootOrigin(), box, edge, out);
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

void SourceField::collect(int depth, std::int32_t slot, API::TileCoord const& coord, Box const& box,
                          std::int64_t edge, std::vector<Block>& out) const {
  auto const mask = maskOf(depth, slot);
  auto const* const values = channel_.values(depth, slot);
  auto const extent = layout_.extent(depth) / width;
  auto const addBlocks = [&](Box const& part) {
    for (auto i = floorTo(part.lo[0], edge); i <= part.hi[0]; i += edge) {
      for (auto j = floorTo(part.lo[1], edge); j <= part.hi[1]; j += edge) {
        for (auto k = floorTo(part.lo[2], edge); k <= part.hi[2]; k += edge) {
          // Neighbouring cells mostly fall into one block.
          if (out.empty() || out.back() != Block{i, j, k}) out.push_back({i, j, k});
        }
      }
    }
  };
  everyCell(CellRange(box, coord, extent), [&](int c) {
    auto const reach = cellBox(depth, coord, c);
    if (!meets(reach, box)) return true;
    auto const child = depth < layout_.leafDepth() ? layout_.child(depth, slot, c) : -1;
    if (child >= 0 && extent > edge) {
      auto const lo = reach.lo;
      collect(depth + 1, child,
              {static_cast<std::int32_t>(lo[0]), static_cast<std::int32_t>(lo[1]),
               static_cast<std::int32_t>(lo[2])},
              box, edge, out);
    } else if (child >= 0) {
      addBlocks(overlap(reach, box));
    } else {
      auto const value = depth < layout_.leafDepth()
                             ? cellValue(depth, mask, values, c)
                             : Value{values + static_cast<std::size_t>(c) * size(), mask.test(c)};
      if (value.active || !isEmpty(value.bytes)) addBlocks(overlap(reach, box));
    }
    return true;
  });
}

bool SourceField::uniform(Box const& box, Value& value) const {
  auto const root = everything();
  if (layout_.count(0) > 0 && meets(box, root) &&
      !uniformIn(0, 0, layout_.rootOrigin(), box, value)) {
    return false;
  }
  return within(box, root) || add(value, empty(), false);
}

bool SourceField::uniformTile(int depth, std::int32_t slot) const {
  auto const* const values = channel_.values(depth, slot);
  // Most tiles can be told by their first values.
  if (depth == layout_.leafDepth() &&
      std::memcmp(values, values + size(), (API::tileCells - 1) * size()) != 0) {
    return false;
  }
  auto const coord = layout_.coord(depth, slot);
  Value value;
  return uniformIn(depth, slot, coord, Box::cube(coord.i, coord.j, coord.k, layout_.extent(depth)),
                   value);
}

bool SourceField::uniformIn(int depth, std::int32_t slot, API::TileCoord const& coord,
                            Box const& box, Value& value) const {
  auto const mask = maskOf(depth, slot);
  auto const* const values = channel_.values(depth, slot);
  return everyCell(CellRange(box, coord, layout_.extent(depth) / width), [&](int c) {
    auto const child = depth < layout_.leafDepth() ? layout_.child(depth, slot, c) : -1;
    if (child < 0) {
      auto const own = cellValue(depth, mask, values, c);
      return add(value, own.bytes, own.active);
    }
    auto const reach = cellBox(depth, coord, c);
    return uniformIn(
        depth + 1, child,
        {static_cast<std::int32_t>(reach.lo[0]), static_cast<std::int32_t>(reach.lo[1]),
         static_cast<std::int32_t>(reach.lo[2])},
        box, value);
  });
}

SourceField::Window::Window(SourceField const& field, Box const& box)
    : box_(box), size_(field.size()) {
  auto const root = field.everything();
  // A multiple of five below every voxel of the box, in step with the leaf tiles.
  auto const lowest = std::min({box.lo[0], box.lo[1], box.lo[2]});
  origin_ = root.lo[0] + floorTo(std::min(lowest, root.lo[0]) - root.lo[0], width);
  std::size_t cells = 1;
  for (int axis = 0; axis < 3; ++axis) {
    first_[axis] = (box.lo[axis] - origin_) / width;
    count_[axis] = (box.hi[axis] - origin_) / width - first_[axis] + 1;
    cells *= static_cast<std::size_t>(count_[axis]);
  }
  Cell outside;
  outside.values = field.empty();
  cells_.assign(cells, outside);
  if (field.layout_.count(0) > 0 && meets(box, root)) {
    fill(field, 0, 0, field.layout_.rootOrigin());
  }
}

void SourceField::Window::cover(Box const& box, Cell const& cell) {
  std::int64_t from[3], to[3];
  for (int axis = 0; axis < 3; ++axis) {
    from[axis] = cellAlong(axis, std::max(box.lo[axis], box_.lo[axis]));
    to[axis] = cellAlong(axis, std::min(box.hi[axis], box_.hi[axis]));
  }
  for (auto z = from[2]; z <= to[2]; ++z) {
    for (auto y = from[1]; y <= to[1]; ++y) {
      for (auto x = from[0]; x <= to[0]; ++x) {
        cells_[static_cast<std::size_t>((z * count_[1] + y) * count_[0] + x)] = cell;
      }
    }
  }
}

void SourceField::Window::fill(SourceField const& field, int depth, std::int32_t slot,
                               API::TileCoord const& coord) {
  auto const& layout = field.layout_;
  auto const mask = field.maskOf(depth, slot);
  auto const* const values = field.channel_.values(depth, slot);
  if (depth == layout.leafDepth()) {
    cover(Box::cube(coord.i, coord.j, coord.k, width), {values, mask, true});
    return;
  }
  everyCell(CellRange(box_, coord, layout.extent(depth) / width), [&](int c) {
    auto const reach = field.cellBox(depth, coord, c);
    auto const child = layout.child(depth, slot, c);
    if (child >= 0) {
      fill(field, depth + 1, child,
           {static_cast<std::int32_t>(reach.lo[0]), static_cast<std::int32_t>(reach.lo[1]),
            static_cast<std::int32_t>(reach.lo[2])});
    } else {
      auto const own = field.cellValue(depth, mask, values, c);
      Cell cell;
      cell.values = own.bytes;
      if (own.active) cell.mask.words = {~std::uint64_t{0}, ~std::uint64_t{0}};
      cover(reach, cell);
    }
    return true;
  });
}

SourceField::Window::Stretches SourceField::Window::stretches(int axis,
                                                              std::int64_t v) const noexcept {
  constexpr int edge = 8;
  Stretches result;
  for (int from = 0; from < edge;) {
    auto const within = static_cast<int>((v + from - origin_) % width);
    auto const length = std::min(width - within, edge - from);
    result.parts[result.count++] = {cellAlong(axis, v + from), from, within, length};
    from += length;
  }
  return result;
}

bool SourceField::Window::uniform(Stretches const& i, Stretches const& j, Stretches const& k,
                                  Value& value) const noexcept {
  // Bytes by hand: a call for each pair of values takes longer than all the rest.
  auto const differ = [size = size_](std::byte const* a, std::byte const* b) {
    std::uint32_t difference = 0;
    for (std::size_t at = 0; at < size; at += 4) {
      std::uint32_t left, right;
      std::memcpy(&left, a + at, 4);
      std::memcpy(&right, b + at, 4);
      difference |= left ^ right;
    }
    return difference != 0;
  };
  std::byte const* last = nullptr;
  for (auto const& z : k) {
    for (auto const& y : j) {
      for (auto const& x : i) {
        auto const& cell = at(x, y, z);
        if (cell.leaf) return false;
        if (cell.values == last) continue;
        last = cell.values;
        bool const active = cell.mask.test(0);
        if (value.bytes == nullptr) {
          value = {cell.values, active};
        } else if (value.active != active || differ(value.bytes, cell.values)) {
          return false;
        }
      }
    }
  }
  return true;
}

}  // namespace Velmor::Host::Files
