#include <openvdb/points/PointAttribute.h>
#include <openvdb/points/PointDataGrid.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <tuple>
#include <utility>
#include <vector>

#include "files/keys.h"
#include "files/vdb_encode.h"
#include "files/vdb_metadata.h"
#include "files/vdb_plan.h"
#include "files/vdb_points.h"
#include "velmorhost/scene.h"
#include "velmorhost/settings.h"

namespace Velmor::Host::Files {

namespace {

namespace vp = openvdb::points;
using PointLeaf = vp::PointDataTree::LeafNodeType;
using orlen::Math::vec;

/// Where a point goes: its leaf, the voxel in it, and the place it came from.
struct Placed {
  openvdb::Coord leaf;
  openvdb::Index voxel;
  std::uint32_t from;
  openvdb::Vec3s inVoxel;
};

/// The points that have a voxel: positions may be any numbers, and readers step
/// from voxels to their neighbours.
std::vector<Placed> place(vec<3, float> const* positions, std::size_t count,
                          double const (&offset)[3]) {
  constexpr double farthest = 1 << 30;
  std::vector<Placed> placed(count);
  std::vector<std::uint8_t> nowhere(count, 0);
  tbb::parallel_for(std::size_t{0}, count, [&](std::size_t n) {
    openvdb::Coord voxel;
    auto& point = placed[n];
    point.from = static_cast<std::uint32_t>(n);
    for (int a = 0; a < 3; ++a) {
      auto const at = static_cast<double>(positions[n][a]) + offset[a];
      auto const nearest = std::floor(at + 0.5);
      if (!(std::abs(nearest) < farthest)) {
        nowhere[n] = 1;
        return;
      }
      voxel.data()[a] = static_cast<int>(nearest);
      point.inVoxel[a] = static_cast<float>(at - nearest);
    }
    point.leaf = voxel & ~static_cast<int>(PointLeaf::DIM - 1);
    point.voxel = PointLeaf::coordToOffset(voxel);
  });
  std::erase_if(placed, [&](Placed const& point) { return nowhere[point.from] != 0; });
  std::sort(placed.begin(), placed.end(), [](Placed const& a, Placed const& b) {
    return std::tie(a.leaf, a.voxel, a.from) < std::tie(b.leaf, b.voxel, b.from);
  });
  return placed;
}

/// Whether a reader, which keeps the order of the file within each tile, would
/// get the points back in the order of the state.
bool keepsOrder(std::vector<Placed> const& placed, API::PointChannel const& position) {
  auto const& ranges = API::itemAs<API::PointChannelItem>(position)->ranges();
  std::vector<std::uint32_t> tile(ranges.count());
  for (std::size_t t = 0; t + 1 < ranges.starts.size(); ++t) {
    std::fill(tile.begin() + static_cast<std::ptrdiff_t>(ranges.starts[t]),
              tile.begin() + static_cast<std::ptrdiff_t>(ranges.starts[t + 1]),
              static_cast<std::uint32_t>(t));
  }
  std::vector<std::int64_t> last(ranges.starts.size(), -1);
  return std::all_of(placed.begin(), placed.end(), [&](Placed const& point) {
    return std::exchange(last[tile[point.from]], std::int64_t{point.from}) < point.from;
  });
}

/// A name for the attribute of a channel, which takes fewer characters than ours.
std::string attributeName(API::Channel const& channel, std::vector<std::string>& taken) {
  auto base = channel.dictionary().value<API::String>(Keys::attributeName).str();
  if (base.empty() || base == "P") {
    base = channel.name() == "velocity" ? "v" : channel.name().str();
  }
  if (base.empty()) base = Plan::unnamed;
  for (char& c : base) {
    bool const letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (!letter && !(c >= '0' && c <= '9') && c != '|' && c != ':') c = '_';
  }
  auto name = base;
  for (int n = 2; std::find(taken.begin(), taken.end(), name) != taken.end(); ++n) {
    name = base + "_" + std::to_string(n);
  }
  taken.push_back(name);
  return name;
}

template <class To, class From>
void setValues(vp::AttributeArray& array, Placed const* points, std::size_t count,
               From const* values) {
  constexpr auto stride = static_cast<openvdb::Index>(sizeof(From) / sizeof(To));
  vp::AttributeWriteHandle<To> handle(array);
  for (std::size_t n = 0; n < count; ++n) {
    To parts[stride];
    std::memcpy(static_cast<void*>(parts), &values[points[n].from], sizeof(From));
    for (openvdb::Index s = 0; s < stride; ++s) {
      handle.set(static_cast<openvdb::Index>(n), s, parts[s]);
    }
  }
}

/// How a channel type is kept as an attribute; pairs as two numbers per point.
struct Kind {
  openvdb::NamePair type;
  openvdb::Index stride;
  void (*set)(vp::AttributeArray&, Placed const*, std::size_t, void const*);
};

template <class To, class From>
void setFrom(vp::AttributeArray& array, Placed const* points, std::size_t count,
             void const* values) {
  setValues<To>(array, points, count, static_cast<From const*>(values));
}

Kind kindOf(API::DataType type) {
  using vp::TypedAttributeArray;
  switch (type) {
    case API::DataType::Float:
      return {TypedAttributeArray<float>::attributeType(), 1, &setFrom<float, float>};
    case API::DataType::Float2:
      return {TypedAttributeArray<float>::attributeType(), 2, &setFrom<float, vec<2, float>>};
    case API::DataType::Int:
      return {TypedAttributeArray<std::int32_t>::attributeType(), 1,
              &setFrom<std::int32_t, std::int32_t>};
    case API::DataType::Int2:
      return {TypedAttributeArray<std::int32_t>::attributeType(), 2,
              &setFrom<std::int32_t, vec<2, int>>};
    case API::DataType::Int3:
      return {TypedAttributeArray<openvdb::Vec3i>::attributeType(), 1,
              &setFrom<openvdb::Vec3i, vec<3, int>>};
    default:
      return {TypedAttributeArray<openvdb::Vec3s>::attributeType(), 1,
              &setFrom<openvdb::Vec3s, vec<3, float>>};
  }
}

}  // namespace

openvdb::GridBase::Ptr encodePoints(API::PointComponent const& points, double const (&offset)[3]) {
  API::PointChannel const position(points.findChannel("position"));
  auto const* const positions = pointData<vec<3, float>>(position);
  auto grid = vp::PointDataGrid::create();
  grid->setName("points");
  if (points.elementCount() == 0) return grid;
  if (positions == nullptr) {
    report(Severity::Warning,
           "The points of '" + points.name().str() + "' have no positions and are left out");
    return grid;
  }
  writeMetadata(position.dictionary(), {Keys::attributeName, openvdb::GridBase::META_GRID_CLASS},
                *grid);
  auto const placed = place(positions, points.elementCount(), offset);
  if (auto const lost = points.elementCount() - placed.size(); lost > 0) {
    report(Severity::Warning, std::to_string(lost) + " points of '" + points.name().str() +
                                  "' have positions that no file can hold and are left out");
  }

  using Position = vp::TypedAttributeArray<openvdb::Vec3s>;
  auto const descriptor = vp::AttributeSet::Descriptor::create(Position::attributeType());
  std::vector<std::pair<PointLeaf*, std::size_t>> leaves;
  for (std::size_t first = 0; first < placed.size();) {
    std::vector<PointLeaf::ValueType> offsets(PointLeaf::SIZE, 0);
    auto end = first;
    for (; end < placed.size() && placed[end].leaf == placed[first].leaf; ++end) {
      offsets[placed[end].voxel] = offsets[placed[end].voxel] + 1;
    }
    for (std::size_t v = 1; v < offsets.size(); ++v) offsets[v] = offsets[v] + offsets[v - 1];
    auto* const leaf = grid->tree().touchLeaf(placed[first].leaf);
    leaf->initializeAttributes(descriptor, static_cast<openvdb::Index>(end - first));
    leaf->setOffsets(offsets);
    leaves.emplace_back(leaf, first);
    first = end;
  }
  auto const sizeOf = [&](std::size_t l) {
    return (l + 1 < leaves.size() ? leaves[l + 1].second : placed.size()) - leaves[l].second;
  };
  tbb::parallel_for(std::size_t{0}, leaves.size(), [&](std::size_t l) {
    vp::AttributeWriteHandle<openvdb::Vec3s> handle(leaves[l].first->attributeArray("P"));
    for (std::size_t n = 0; n < sizeOf(l); ++n) {
      handle.set(static_cast<openvdb::Index>(n), placed[leaves[l].second + n].inVoxel);
    }
  });

  if (!keepsOrder(placed, position)) {
    std::vector<std::int32_t> places(points.elementCount(), 0);
    for (auto const& point : placed) places[point.from] = 1;
    std::exclusive_scan(places.begin(), places.end(), places.begin(), 0);
    auto const kind = kindOf(API::DataType::Int);
    vp::appendAttribute(grid->tree(), Keys::order, kind.type);
    tbb::parallel_for(std::size_t{0}, leaves.size(), [&](std::size_t l) {
      kind.set(leaves[l].first->attributeArray(Keys::order), placed.data() + leaves[l].second,
               sizeOf(l), places.data());
    });
  }

  std::vector<std::string> taken{"P", Keys::order};
  for (auto const& channel : points.channels()) {
    if (channel == position) continue;
    auto const name = attributeName(channel, taken);
    if (auto const own = channel.name().str(); attributeChannel(name) != own) {
      grid->insertMeta(Keys::channelOf + name, openvdb::StringMetadata(own));
    }
    auto const kind = kindOf(channel.dataType());
    auto const* const values = pointStorage(channel, channel.dataType());
    vp::appendAttribute(grid->tree(), name, kind.type, kind.stride);
    tbb::parallel_for(std::size_t{0}, leaves.size(), [&](std::size_t l) {
      kind.set(leaves[l].first->attributeArray(name), placed.data() + leaves[l].second, sizeOf(l),
               values);
    });
  }
  return grid;
}

}  // namespace Velmor::Host::Files
