#include "processing/extend_filter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "core/blocks.h"
#include "core/bulk_calls.h"
#include "core/tile_width.h"
#include "core/to_int.h"
#include "filters/ocean_mask.h"
#include "filters/tile_bits.h"
#include "velmorapi/object_model.h"
#include "velmorapi/state_server.h"

namespace Velmor::Processing {

namespace {

/// Writes the signed distance to the plane into every value, halo included.
class PlaneSdfVisitor final : public API::Visitor {
 public:
  PlaneSdfVisitor(API::Channel const& plane, float height, float voxelScale)
      : plane_(plane), voxelScale_(voxelScale), heightVox_(height / voxelScale) {}

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const data = plane_.tileData<float>(index);
    auto const tile = accessor.tile(index);
    int const width = tile.info().width;
    if (!storesWidth(data, width)) return;
    int const cell = tile.info().extent / width;
    auto const valueAt = [&](int y) {
      // A host may have tiles up to the last number.
      std::int64_t const lowest = std::int64_t{y} * cell + tile.coord().j;
      float const centre = static_cast<float>(lowest) + static_cast<float>(cell) * 0.5f;
      return (centre - heightVox_) * voxelScale_;
    };
    if (isDense(data, width)) {
      float layer[denseEdge * denseEdge];
      float* row = layer;
      for (int y = 0; y < denseEdge; ++y) row = std::fill_n(row, denseEdge, valueAt(y));
      for (int z = 0; z < denseEdge; ++z) {
        std::memcpy(data.data + data.offset(0, 0, z), layer, sizeof layer);
      }
      return;
    }
    int const first = -data.halo, end = width + data.halo;
    for (int y = first; y < end; ++y) {
      float const value = valueAt(y);
      for (int z = first; z < end; ++z) {
        for (int x = first; x < end; ++x) data.data[data.offset(x, y, z)] = value;
      }
    }
  }

  API::Visitor* copy() const override { return new PlaneSdfVisitor(*this); }

 private:
  API::Channel plane_;
  float voxelScale_, heightVox_;
};

constexpr std::size_t lineOfFloats = 16;  // of the cache

/// Joins liquid and plane.
class MergeVisitor final : public API::Visitor {
 public:
  MergeVisitor(API::Channel const& liquid, API::Channel const& plane, API::Channel const& mask,
               API::Channel const& out)
      : liquid_(liquid),
        plane_(plane),
        mask_(mask),
        out_(out),
        background_(liquid.backgroundValue<float>()) {}

  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    auto const out = out_.tileData<float>(index);
    auto const* const liquid = liquid_.tileData<float>(index).data;
    auto const* const plane = plane_.tileData<float>(index).data;
    auto const* const mask = mask_.tileData<float>(index).data;
    if (out.data == nullptr || liquid == nullptr || plane == nullptr || mask == nullptr) return;
    // Tiles that follow one another lie apart in memory: ask for all three at once.
    for (std::size_t at = 0; at < out.count; at += lineOfFloats) {
      __builtin_prefetch(liquid + at);
      __builtin_prefetch(plane + at);
      __builtin_prefetch(mask + at);
    }
    // Always six, whatever the leaf depth: where the host's leaves are at seven
    // these are the cells without leaves, and background there is open water.
    // Elsewhere nothing is: a NaN equals no value.
    float const openWater =
        index.depth == 6 ? background_ : std::numeric_limits<float>::quiet_NaN();
    forEachInBlocks(out.data, out.count, [=](std::size_t i) {
      // All loaded at once, and no jump: this has to become vector code.
      float const toPlane = plane[i], toLiquid = liquid[i], ocean = mask[i];
      float const l = toLiquid == openWater ? toPlane : toLiquid;
      float const larger = toPlane < l ? l : toPlane;
      float const p = ocean == 0.f ? larger : toPlane;
      return (p + l) - std::sqrt(p * p + l * l);
    });
  }

  API::Visitor* copy() const override { return new MergeVisitor(*this); }

 private:
  API::Channel liquid_, plane_, mask_, out_;
  float background_;
};

using Matrix = std::array<std::array<float, 3>, 3>;

Matrix operator*(Matrix const& a, Matrix const& b) {
  Matrix product{};
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t c = 0; c < 3; ++c) {
      product[r][c] = a[r][0] * b[0][c] + a[r][1] * b[1][c] + a[r][2] * b[2][c];
    }
  }
  return product;
}

/// Writes the place of each voxel's lower corner in a rectangle.
class ExtendUVVisitor final : public API::Visitor {
 public:
  using Vec = orlen::Math::vec<2, float>;

  ExtendUVVisitor(Vec const& lo, Vec const& hi, API::Channel const& uv) : uv_(uv) {
    float const vs = API::Layout(uv.layout()).voxelScale();
    Matrix const toWorld{{{vs, 0.f, 0.f}, {0.f, vs, 0.f}, {0.f, 0.f, 1.f}}};
    Matrix const toCorner{{{1.f, 0.f, 0.f}, {0.f, 1.f, 0.f}, {-lo.x, -lo.y, 1.f}}};
    Matrix const toUnit{
        {{1.f / (hi.x - lo.x), 0.f, 0.f}, {0.f, 1.f / (hi.y - lo.y), 0.f}, {0.f, 0.f, 1.f}}};
    matrix_ = toWorld * toCorner * toUnit;
  }

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const data = uv_.tileData<Vec>(index);
    auto const tile = accessor.tile(index);
    int const width = tile.info().width;
    if (!storesWidth(data, width)) return;
    for (int z = 0; z < width; ++z) {
      for (int x = 0; x < width; ++x) {
        auto const wx = static_cast<float>(tile.coord().i + x);
        auto const wz = static_cast<float>(tile.coord().k + z);
        Vec const uv(wx * matrix_[0][0] + wz * matrix_[1][0] + matrix_[2][0],
                     wx * matrix_[0][1] + wz * matrix_[1][1] + matrix_[2][1]);
        for (int y = 0; y < width; ++y) data.data[data.offset(x, y, z)] = uv;
      }
    }
  }

  API::Visitor* copy() const override { return new ExtendUVVisitor(*this); }

 private:
  API::Channel uv_;
  Matrix matrix_{};  // takes the row (x, z, 1) to (u, v, 1)
};

void addBoxTiles(API::Layout const& layout, int width, float height,
                 orlen::Math::vec<2, float> const& center,
                 orlen::Math::vec<2, float> const& dimension) {
  float const vs = layout.voxelScale();
  auto const below = [vs](float v) { return toInt(std::floor(v / vs)); };
  auto const above = [vs](float v) { return toInt(std::ceil(v / vs)); };
  int const x0 = below(center.x - dimension.x / 2.f), x1 = above(center.x + dimension.x / 2.f);
  int const z0 = below(center.y - dimension.y / 2.f), z1 = above(center.y + dimension.y / 2.f);
  int const y0 = below(height), y1 = above(height);
  // What no int can hold has become the lowest. Any other float leaves room for
  // a step beyond it.
  if (std::min({x0, x1, y0, y1, z0, z1}) == std::numeric_limits<int>::min()) return;
  std::array<API::TileCoord, 256> row;
  int const maxDepth = layout.maxDepth();
  for (int y = y0 - width; y <= y1 + width; y += width) {
    for (int x = x0; x <= x1; x += width) {
      std::size_t count = 0;
      for (int z = z0; z <= z1; z += width) {
        row[count++] = {x, y, z};
        if (count < row.size() && z <= z1 - width) continue;
        Bulk::addTiles(layout, row.data(), count, maxDepth);
        count = 0;
      }
    }
  }
}

API::StateServer serverOf(API::Channel const& channel) {
  return API::ObjectModel::stateServer(channel.stateID());
}

void fillWithPlane(API::Channel const& channel, float height) {
  API::Layout const layout(channel.layout());
  PlaneSdfVisitor visitor(channel, height, layout.voxelScale());
  layout.traverse(visitor, API::TraversalMode::Tiles);
}

void merge(API::Channel const& liquid, API::Channel const& plane, API::Channel const& mask,
           API::Channel const& out) {
  MergeVisitor visitor(liquid, plane, mask, out);
  API::Layout(out.layout()).traverse(visitor, API::TraversalMode::Tiles);
}

}  // namespace

ExtendFilter::ExtendFilter(float height, orlen::Math::vec<2, float> const& center,
                           orlen::Math::vec<2, float> const& dimension, float radius,
                           API::String const& outChannel)
    : height_(height),
      center_(center),
      dimension_(dimension),
      radius_(radius),
      outChannel_(outChannel) {}
ExtendFilter::ExtendFilter(ExtendFilter const&) = default;
ExtendFilter::ExtendFilter(ExtendFilter&& other) : ExtendFilter(std::as_const(other)) {}
ExtendFilter& ExtendFilter::operator=(ExtendFilter const&) = default;
ExtendFilter& ExtendFilter::operator=(ExtendFilter&& other) { return *this = std::as_const(other); }
ExtendFilter::~ExtendFilter() = default;

void ExtendFilter::filter(API::Channel src, API::Channel dst) const {
  API::Layout const srcLayout(src.layout());
  int const width = srcLayout.tileDimInfo(0).width;
  if (width < 1 || width > oceanTileEdge) return;
  addBoxTiles(srcLayout, width, height_, center_, dimension_);

  auto const server = serverOf(src);
  API::Channel const mask(server.createChannel(src.component(), API::DataType::Float,
                                               outChannel_.empty() ? "oceanTmp" : outChannel_));

  API::Layout const layout(dst.layout());
  OceanScene const scene{.layout = layout,
                         .liquid = dst,
                         .mask = mask,
                         .height = height_,
                         .voxelScale = layout.voxelScale(),
                         .width = width,
                         .maxDepth = layout.maxDepth()};
  seedOcean(scene);
  floodOcean(scene);
  if (radius_ > 0.f) widenOcean(scene, radius_);

  if (src == dst) {
    API::Channel const plane(server.createChannel(src.component(), API::DataType::Float, "tmp"));
    fillWithPlane(plane, height_);
    merge(dst, plane, mask, dst);
    if (plane.valid()) server.removeChannel(plane.fullPathName());
  } else {
    fillWithPlane(dst, height_);
    merge(src, dst, mask, dst);
  }
  if (outChannel_.empty() && mask.valid()) server.removeChannel(mask.fullPathName());
}

void ExtendFilter::uvs(API::Channel const& uv) const {
  API::Layout const layout(uv.layout());
  orlen::Math::vec<2, float> const lo = center_ - dimension_ * 0.5f;
  orlen::Math::vec<2, float> const hi = center_ + dimension_ * 0.5f;
  ExtendUVVisitor visitor(lo, hi, uv);
  layout.traverse(visitor, API::TraversalMode::Tiles, layout.maxDepth(), layout.maxDepth());
}

}  // namespace Velmor::Processing
