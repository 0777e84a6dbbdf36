#include "files/vdb_points.h"

#include <openvdb/points/PointDataGrid.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <limits>
#include <optional>

#include "files/keys.h"
#include "files/vdb_metadata.h"

namespace Velmor::Host::Files {

namespace {

namespace vp = openvdb::points;
using PointLeaf = vp::PointDataTree::LeafNodeType;
using orlen::Math::vec;

struct Leaves {
  std::vector<PointLeaf const*> nodes;
  std::vector<std::uint64_t> first{0};  // of each node's points, and one more
  std::vector<std::uint32_t> kept;      // of all points in order; used if `clipped`
  bool clipped = false;

  std::uint64_t count() const { return clipped ? kept.size() : first.back(); }
};

Leaves listLeaves(vp::PointDataTree const& tree) {
  Leaves leaves;
  for (auto leaf = tree.cbeginLeaf(); leaf; ++leaf) {
    std::uint64_t last = 0;
    for (openvdb::Index n = 0; n < PointLeaf::SIZE; ++n) {
      std::uint64_t const end = leaf->getValue(n);
      if (end < last) OPENVDB_THROW(openvdb::IoError, "its point offsets are damaged");
      last = end;
    }
    leaves.nodes.push_back(&*leaf);
    leaves.first.push_back(leaves.first.back() + last);
    if (leaves.first.back() > std::numeric_limits<std::uint32_t>::max()) {
      OPENVDB_THROW(openvdb::IoError, "it holds more points than can be counted");
    }
  }
  return leaves;
}

/// An attribute as all leaves that have points agree on it.
struct Attribute {
  std::string type;
  openvdb::Index stride = 1;
};

std::optional<Attribute> describe(Leaves const& leaves, std::string const& name,
                                  std::string& reason) {
  std::optional<Attribute> result;
  for (std::size_t l = 0; l < leaves.nodes.size(); ++l) {
    auto const count = leaves.first[l + 1] - leaves.first[l];
    if (count == 0) continue;
    auto const* const array = leaves.nodes[l]->attributeSet().getConst(name);
    if (array == nullptr) {
      reason = "not all points have it";
      return std::nullopt;
    }
    if (!array->hasConstantStride()) {
      reason = "its number of values varies";
      return std::nullopt;
    }
    if (array->size() < count) {
      OPENVDB_THROW(openvdb::IoError, "attribute '" << name << "' has too few values");
    }
    Attribute const here{array->valueType(), array->stride()};
    if (!result) result = here;
    if (result->type != here.type || result->stride != here.stride) {
      reason = "its type changes within the grid";
      return std::nullopt;
    }
  }
  if (!result) reason = "there are no points";
  return result;
}

template <class To, class From>
struct Converted {
  static To of(From const& value) { return static_cast<To>(value); }
};
template <class T, class U>
struct Converted<vec<3, T>, openvdb::math::Vec3<U>> {
  static vec<3, T> of(openvdb::math::Vec3<U> const& v) {
    return {static_cast<T>(v.x()), static_cast<T>(v.y()), static_cast<T>(v.z())};
  }
};

/// Copies the `stride` values of each point to consecutive elements of `To`.
template <class To, class From>
bool copyValues(Leaves const& leaves, std::string const& name, openvdb::Index stride, To* out) {
  std::atomic<bool> fits{true};
  tbb::parallel_for(std::size_t{0}, leaves.nodes.size(), [&](std::size_t l) {
    auto const count = leaves.first[l + 1] - leaves.first[l];
    if (count == 0) return;
    auto const& array = *leaves.nodes[l]->attributeSet().getConst(name);
    vp::AttributeHandle<From> const handle(array);
    auto* to = out + leaves.first[l] * stride;
    for (openvdb::Index n = 0; n < count; ++n) {
      for (openvdb::Index s = 0; s < stride; ++s) {
        auto const value = handle.get(n, s);
        if constexpr (std::is_same_v<From, std::int64_t>) {
          if (value != static_cast<std::int32_t>(value)) fits = false;
        }
        *to++ = Converted<To, From>::of(value);
      }
    }
  });
  return fits;
}

API::DataType dataType(bool integer, unsigned components) {
  switch (components) {
    case 1:
      return integer ? API::DataType::Int : API::DataType::Float;
    case 2:
      return integer ? API::DataType::Int2 : API::DataType::Float2;
    case 3:
      return integer ? API::DataType::Int3 : API::DataType::Float3;
    default:
      return API::DataType::None;
  }
}

/// A way to read one attribute type.
struct Reader {
  std::string type;
  bool integer;
  unsigned components;
  bool (*copy)(Leaves const&, std::string const&, openvdb::Index, std::byte*);
};

template <class From, class To>
bool copyAs(Leaves const& leaves, std::string const& name, openvdb::Index stride, std::byte* out) {
  return copyValues<To, From>(leaves, name, stride, reinterpret_cast<To*>(out));
}

std::vector<Reader> const& readers() {
  using openvdb::typeNameAsString;
  static std::vector<Reader> const all{
      {typeNameAsString<float>(), false, 1, &copyAs<float, float>},
      {typeNameAsString<double>(), false, 1, &copyAs<double, float>},
      {typeNameAsString<bool>(), true, 1, &copyAs<bool, int>},
      {typeNameAsString<std::int8_t>(), true, 1, &copyAs<std::int8_t, int>},
      {typeNameAsString<std::int16_t>(), true, 1, &copyAs<std::int16_t, int>},
      {typeNameAsString<std::int32_t>(), true, 1, &copyAs<std::int32_t, int>},
      {typeNameAsString<std::int64_t>(), true, 1, &copyAs<std::int64_t, int>},
      {typeNameAsString<openvdb::Vec3s>(), false, 3, &copyAs<openvdb::Vec3s, vec<3, float>>},
      {typeNameAsString<openvdb::Vec3d>(), false, 3, &copyAs<openvdb::Vec3d, vec<3, float>>},
      {typeNameAsString<openvdb::Vec3i>(), true, 3, &copyAs<openvdb::Vec3i, vec<3, int>>},
  };
  return all;
}

void compact(Leaves const& leaves, std::byte* data, std::size_t size) {
  for (std::size_t n = 0; n < leaves.kept.size(); ++n) {
    std::copy_n(data + std::size_t{leaves.kept[n]} * size, size, data + n * size);
  }
}

Span decodePositions(Leaves& leaves, PointsJob& job) {
  Span span;
  auto* const out = job.image.allocate<vec<3, float>>(leaves.first.back(), span);
  tbb::parallel_for(std::size_t{0}, leaves.nodes.size(), [&](std::size_t l) {
    if (leaves.first[l + 1] == leaves.first[l]) return;
    auto const& leaf = *leaves.nodes[l];
    vp::AttributeHandle<openvdb::Vec3s> const handle(*leaf.attributeSet().getConst("P"));
    auto* to = out + leaves.first[l];
    openvdb::Index n = 0;
    for (openvdb::Index voxel = 0; voxel < PointLeaf::SIZE; ++voxel) {
      auto const at = leaf.offsetToGlobalCoord(voxel).asVec3d();
      for (openvdb::Index const end = leaf.getValue(voxel); n < end; ++n) {
        auto const p = handle.get(n);
        for (int a = 0; a < 3; ++a) {
          (*to)[a] = static_cast<float>(at[a] + static_cast<double>(p[a]) + job.offset[a]);
        }
        ++to;
      }
    }
  });
  if (job.clipMin == nullptr) return span;
  leaves.clipped = true;
  for (std::uint64_t n = 0; n < span.count; ++n) {
    bool inside = true;
    for (int a = 0; a < 3; ++a) {
      auto const world = out[n][a] * job.voxelSize;
      inside = inside && world >= job.clipMin[a] && world <= job.clipMax[a];
    }
    if (inside) leaves.kept.push_back(static_cast<std::uint32_t>(n));
  }
  compact(leaves, reinterpret_cast<std::byte*>(out), sizeof *out);
  span.count = leaves.count();
  return span;
}

std::vector<std::string> attributeNames(Leaves const& leaves) {
  std::vector<std::pair<std::size_t, std::string>> places;
  for (std::size_t l = 0; l < leaves.nodes.size(); ++l) {
    for (auto const& entry : leaves.nodes[l]->attributeSet().descriptor().map()) {
      if (std::none_of(places.begin(), places.end(),
                       [&](auto const& known) { return known.second == entry.first; })) {
        places.emplace_back(entry.second, entry.first);
      }
    }
  }
  std::sort(places.begin(), places.end());
  std::vector<std::string> names;
  for (auto& [place, name] : places) names.push_back(std::move(name));
  return names;
}

/// Puts the values of the channels from `first` on into the order in which they
/// were written, if the file says which that was.
void restoreOrder(Leaves const& leaves, PointsJob& job, std::vector<ChannelRecord> const& channels,
                  std::size_t first) {
  std::string reason;
  auto const attribute = describe(leaves, Keys::order, reason);
  if (leaves.clipped || !attribute || attribute->stride != 1 ||
      attribute->type != openvdb::typeNameAsString<std::int32_t>()) {
    return;
  }
  auto const count = leaves.first.back();
  std::vector<std::int32_t> places(count);
  copyValues<std::int32_t, std::int32_t>(leaves, Keys::order, 1, places.data());
  std::vector<bool> seen(count, false);
  for (auto const place : places) {
    auto const at = static_cast<std::uint32_t>(place);
    if (at >= count || seen[at]) return;  // no permutation
    seen[at] = true;
  }
  std::vector<std::byte> sorted;
  for (auto c = first; c < channels.size(); ++c) {
    auto const size = API::valueSize(static_cast<API::DataType>(channels[c].type));
    auto* const values = job.image.at(channels[c].points);
    sorted.resize(count * size);
    for (std::uint64_t n = 0; n < count; ++n) {
      std::copy_n(values + n * size, size,
                  sorted.data() + static_cast<std::uint32_t>(places[n]) * size);
    }
    std::copy(sorted.begin(), sorted.end(), values);
  }
}

}  // namespace

std::string attributeChannel(std::string const& attribute) {
  return attribute == "P" ? "position" : attribute == "v" ? "velocity" : attribute;
}

bool isPointGrid(openvdb::GridBase const& grid) { return grid.isType<vp::PointDataGrid>(); }

void decodePoints(openvdb::GridBase const& grid, PointsJob& job,
                  std::vector<ChannelRecord>& channels) {
  auto const& tree = static_cast<vp::PointDataGrid const&>(grid).tree();
  auto leaves = listLeaves(tree);
  std::string reason;
  auto const position = describe(leaves, "P", reason);
  if (leaves.first.back() > 0 && (!position || position->stride != 1 ||
                                  position->type != openvdb::typeNameAsString<openvdb::Vec3s>())) {
    OPENVDB_THROW(openvdb::TypeError,
                  "its points have no positions" << (reason.empty() ? "" : ": ") << reason);
  }
  auto const first = channels.size();
  auto const add = [&](std::string const& attribute, std::string const& name, API::DataType type,
                       Span const& values) {
    ChannelRecord record;
    record.type = static_cast<std::int32_t>(type);
    record.points = values;
    record.name = job.image.text(name);
    std::vector<MetadataRecord> metadata;
    // The grid's own goes with its positions.
    if (attribute == "P") readMetadata(grid, job.image, metadata);
    addText(job.image, metadata, Keys::attributeName, attribute);
    record.metadata = job.image.records(metadata);
    channels.push_back(record);
  };
  auto const positionName = job.rename("P");
  add("P", positionName, API::DataType::Float3, decodePositions(leaves, job));

  for (auto const& name : attributeNames(leaves)) {
    if (name == "P" || name == Keys::order) continue;
    auto const channel = job.rename(name);
    if (!job.wanted(channel) || leaves.first.back() == 0) continue;
    auto const attribute = describe(leaves, name, reason);
    if (!attribute) {
      job.warn("attribute '" + name + "' is skipped: " + reason);
      continue;
    }
    auto const reader = std::find_if(readers().begin(), readers().end(),
                                     [&](Reader const& r) { return r.type == attribute->type; });
    // The stride is the file's: times the components it may be any number.
    auto const type = reader == readers().end() || attribute->stride > 3
                          ? API::DataType::None
                          : dataType(reader->integer, reader->components * attribute->stride);
    if (type == API::DataType::None) {
      job.warn("attribute '" + name + "' is skipped: values of type '" + attribute->type +
               "' times " + std::to_string(attribute->stride) + " are not supported");
      continue;
    }
    auto const mark = job.image.mark();
    Span span;
    auto* const out = job.image.allocateBytes(leaves.first.back(), API::valueSize(type), span);
    if (!reader->copy(leaves, name, attribute->stride, out)) {
      job.image.rewind(mark);
      job.warn("attribute '" + name + "' is skipped: its integers need more than 32 bits");
      continue;
    }
    if (leaves.clipped) compact(leaves, out, API::valueSize(type));
    span.count = leaves.count();
    add(name, channel, type, span);
  }
  restoreOrder(leaves, job, channels, first);
}

}  // namespace Velmor::Host::Files
