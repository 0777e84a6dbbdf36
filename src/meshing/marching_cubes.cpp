#include <bit>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "core/bulk_calls.h"
#include "core/tile_width.h"
#include "meshing/cell_block.h"
#include "meshing/marching_cubes_tables.h"
#include "meshing/partial_mesh.h"
#include "meshing/vertex_map.h"
#include "processing/mesher.h"
#include "velmorapi/layout.h"

namespace Velmor::Processing {

namespace {

namespace Tables = MarchingCubesTables;

// Up to so many corners per axis a tile is one block, its rows are bit masks.
constexpr int maxBlockCorners = 32;

/// Voxels along an axis of a tile, a bit each, as the range that they span.
struct VoxelRange {
  std::uint32_t set = 0;
  int first() const noexcept { return std::countr_zero(set); }
  int count() const noexcept { return static_cast<int>(std::bit_width(set)) - first(); }
};

class MarchingCubesVisitor final : public API::Visitor {
 public:
  MarchingCubesVisitor(API::VoxelChannel const& channel, unsigned int subdivisions)
      : MarchingCubesVisitor(channel, API::Layout(channel.layout()),
                             static_cast<int>(subdivisions + 1u)) {}

  void beginTile(API::TileAccessor const& accessor, API::TreeIndex const& index) override {
    auto const values = channel_.tileData<float>(index);
    if (res_ < 1 || !storesWidth(values, tileWidth_)) return;
    auto const origin = accessor.tile(index).coord();
    if (std::int64_t{tileWidth_} * res_ < maxBlockCorners) {
      meshTile(values, origin);
    } else {
      for (int x = 0; x < tileWidth_; ++x) {
        for (int y = 0; y < tileWidth_; ++y) {
          for (int z = 0; z < tileWidth_; ++z) {
            if (nearSurface(values.data[values.offset(x, y, z)])) meshVoxel(origin, x, y, z);
          }
        }
      }
    }
  }

  API::Visitor* copy() const override { return new MarchingCubesVisitor(channel_, layout_, res_); }

  void join(API::Visitor const& visitor) override {
    auto const& other = static_cast<MarchingCubesVisitor const&>(visitor);
    auto offset = own_->triangles.count();
    if (!meshes_.empty()) {
      offset = meshes_.back().triangleOffset + meshes_.back().mesh->triangles.count();
    }
    for (auto const& [mesh, unused] : other.meshes_) {
      meshes_.push_back({mesh, offset});
      offset += mesh->triangles.count();
    }
    if (!other.own_->triangles.empty()) meshes_.push_back({other.own_, offset});
  }

  void endTraverse() override { weldMeshes(*own_, meshes_); }

  PartialMesh& result() { return *own_; }

 private:
  MarchingCubesVisitor(API::VoxelChannel const& channel, API::Layout const& layout, int res)
      : channel_(channel),
        layout_(layout),
        sampler_(channel.createSampler(API::VoxelSamplerQBSplineType, API::SamplerSpace::Index)),
        res_(res),
        invRes_(1.f / static_cast<float>(res)),
        tileWidth_(layout.tileDimInfo(0).width),
        voxelScale_(layout.voxelScale()),
        block_(invRes_, voxelScale_ * invRes_) {}

  bool nearSurface(float value) const noexcept { return std::abs(value) <= voxelScale_; }

  std::int32_t cellOf(std::int32_t first, int voxel) const noexcept {
    // unsigned, so that far tiles cut finely wrap
    auto const at = static_cast<std::uint32_t>(first) + static_cast<std::uint32_t>(voxel);
    return static_cast<std::int32_t>(at * static_cast<std::uint32_t>(res_));
  }

  void meshTile(API::TileData<float> const& values, API::TileCoord const& origin);
  void meshVoxel(API::TileCoord const& origin, int x, int y, int z);
  void weldBlock();

  API::VoxelChannel channel_;
  API::Layout layout_;
  API::VoxelSampler sampler_;
  int res_;
  float invRes_;
  int tileWidth_;
  float voxelScale_;

  // Shared with the visitor that joins this one; nothing changes it after that.
  std::shared_ptr<PartialMesh> own_ = std::make_shared<PartialMesh>();
  std::vector<JoinedMesh> meshes_;
  VertexMap vertexMap_;

  CellBlock block_;
  std::vector<std::uint32_t> near_, positive_;  // a bit per voxel or corner along z
  std::vector<std::uint32_t> numbers_;  // of the block's vertices: first hashes, then indices
};

void MarchingCubesVisitor::meshTile(API::TileData<float> const& values,
                                    API::TileCoord const& origin) {
  // Most tiles of a band are nowhere near the surface.
  int isNear = 0;
  for (std::size_t e = 0; e < values.count; ++e) isNear |= nearSurface(values.data[e]) ? 1 : 0;
  if (isNear == 0) return;

  auto const width = static_cast<std::size_t>(tileWidth_);
  near_.resize(width * width);
  auto* nearRow = near_.data();
  VoxelRange xs, ys, zs;
  for (int x = 0; x < tileWidth_; ++x) {
    for (int y = 0; y < tileWidth_; ++y) {
      std::uint32_t voxels = 0;
      for (int z = 0; z < tileWidth_; ++z) {
        voxels |= (nearSurface(values.data[values.offset(x, y, z)]) ? 1u : 0u) << z;
      }
      *nearRow++ = voxels;
      std::uint32_t const any = voxels != 0 ? 1u : 0u;
      xs.set |= any << x;
      ys.set |= any << y;
      zs.set |= voxels;
    }
  }
  if (zs.set == 0) return;  // all in the halo

  // The box that they fill. All its corners are sampled: together they cost less
  // than those alone that near voxels need.
  int const nx = xs.count() * res_ + 1, ny = ys.count() * res_ + 1, nz = zs.count() * res_ + 1;
  block_.place({nx, ny, nz}, {cellOf(origin.i, xs.first()), cellOf(origin.j, ys.first()),
                              cellOf(origin.k, zs.first())});
  Bulk::sampleGrid(sampler_, block_.samplePoints(), block_.values());
  auto const corners = static_cast<std::size_t>(ny);
  positive_.resize(static_cast<std::size_t>(nx) * corners);
  float const* samples = block_.values();
  for (auto& positive : positive_) {
    positive = CellBlock::positive(samples, nz);
    samples += nz;
  }

  std::uint32_t const voxelCells = (1u << res_) - 1u;
  for (int x = 0; x < xs.count(); ++x) {
    for (int y = 0; y < ys.count(); ++y) {
      auto voxels = near_[static_cast<std::size_t>(x + xs.first()) * width +
                          static_cast<std::size_t>(y + ys.first())] >>
                    zs.first();
      while (voxels != 0) {
        // Where a voxel is one cell, all of a row at once: the same cells in the same order.
        auto const taken = res_ == 1 ? voxels : voxels & -voxels;
        auto const cells = res_ == 1 ? taken : voxelCells << (std::countr_zero(taken) * res_);
        voxels ^= taken;
        for (int i = x * res_; i < (x + 1) * res_; ++i) {
          for (int j = y * res_; j < (y + 1) * res_; ++j) {
            auto const* row =
                &positive_[static_cast<std::size_t>(i) * corners + static_cast<std::size_t>(j)];
            auto const r0 = row[0], r3 = row[1], r1 = row[corners], r2 = row[corners + 1];
            auto const some = r0 | r1 | r2 | r3, all = r0 & r1 & r2 & r3;
            auto crossed = cells & (some | (some >> 1)) & ~(all & (all >> 1));
            for (; crossed != 0; crossed &= crossed - 1) {
              int const k = std::countr_zero(crossed);
              auto const two = [k](std::uint32_t r) { return (r >> k) & 3u; };
              auto const at0 = two(r0), at1 = two(r1), at2 = two(r2), at3 = two(r3);
              unsigned const cube = (at0 & 1u) | (at1 & 1u) << 1 | (at2 & 1u) << 2 |
                                    (at3 & 1u) << 3 | (at0 & 2u) << 3 | (at1 & 2u) << 4 |
                                    (at2 & 2u) << 5 | (at3 & 2u) << 6;
              block_.polygonise(i, j, k, cube);
            }
          }
        }
      }
    }
  }
  weldBlock();
}

// Cut finely, a tile's corners would take too much memory: two layers of one
// voxel's corners at a time.
void MarchingCubesVisitor::meshVoxel(API::TileCoord const& origin, int x, int y, int z) {
  int const n = res_ + 1;
  block_.place({2, n, n}, {cellOf(origin.i, x), cellOf(origin.j, y), cellOf(origin.k, z)});
  auto const sampleLayer = [&](int i) {
    Bulk::sampleGrid(sampler_, block_.samplePoints(i), block_.values() + block_.at(i, 0, 0));
  };
  sampleLayer(0);
  for (int a = 0; a < res_; ++a) {
    if (a > 0) block_.advance();
    sampleLayer(1);
    for (int b = 0; b < res_; ++b) {
      for (int c = 0; c < res_; ++c) {
        unsigned cube = 0;
        for (unsigned corner = 0; corner < 8; ++corner) {
          auto const& o = Tables::corners[corner];
          if (block_.value(block_.at(o.x, b + o.y, c + o.z)) > 0.f) cube |= 1u << corner;
        }
        if (Tables::edgeMasks[cube] != 0) block_.polygonise(0, b, c, cube);
      }
    }
  }
  weldBlock();
}

void MarchingCubesVisitor::weldBlock() {
  auto const& vertices = block_.vertices();
  auto& points = own_->points;
  numbers_.resize(vertices.size());
  vertexMap_.reserve(vertices.size());
  for (std::size_t v = 0; v < vertices.size(); ++v) {
    if (vertices[v].meetings == 0) continue;
    numbers_[v] = scatteredHash(vertices[v].position);
    vertexMap_.prefetch(numbers_[v]);
  }
  for (std::size_t v = 0; v < vertices.size(); ++v) {
    auto const next = static_cast<std::uint32_t>(points.count());
    auto const& [position, meetings] = vertices[v];
    if (meetings != 0) {
      numbers_[v] = vertexMap_.findOrInsert(position, numbers_[v], next);
      if (numbers_[v] != next) {
        // Once all have met, no mesh of another worker has it.
        auto& left = own_->meetings[numbers_[v]];
        left = static_cast<CellBlock::Meetings>(left - (left != CellBlock::many ? 1 : 0));
        continue;
      }
    } else {
      numbers_[v] = next;
    }
    points.add(position);
    own_->meetings.push_back(meetings);
  }
  auto const number = [this](int v) {
    return static_cast<int>(numbers_[static_cast<std::size_t>(v)]);
  };
  auto const first = own_->triangles.count();
  own_->triangles.resize(first + block_.triangles().size());
  auto* to = own_->triangles.data() + first;
  for (auto const& t : block_.triangles()) *to++ = {number(t.x), number(t.y), number(t.z)};
}

}  // namespace

Mesher::Mesher() = default;
Mesher::Mesher(Mesher const&) = default;
Mesher& Mesher::operator=(Mesher const&) = default;
Mesher::~Mesher() = default;

MarchingCubes::MarchingCubes(unsigned int subdivisions) : subdivisions_(subdivisions) {
  // The corners along a voxel's edge, two more, are counted in an int.
  assert(subdivisions <= static_cast<unsigned int>(std::numeric_limits<int>::max() - 2));
}
MarchingCubes::MarchingCubes(MarchingCubes const&) = default;
MarchingCubes::MarchingCubes(MarchingCubes&&) noexcept = default;
MarchingCubes& MarchingCubes::operator=(MarchingCubes const&) = default;
MarchingCubes& MarchingCubes::operator=(MarchingCubes&&) noexcept = default;
MarchingCubes::~MarchingCubes() = default;

void MarchingCubes::mesh(API::VoxelChannel const& channel,
                         API::Array<orlen::Math::vec<3, float>>& points,
                         API::Array<orlen::Math::vec<3, int>>& triangles) const {
  MarchingCubesVisitor visitor(channel, subdivisions_);
  API::Layout const layout(channel.layout());
  layout.traverse(visitor, API::TraversalMode::Mesh, layout.maxDepth(), layout.maxDepth());
  points = std::move(visitor.result().points);
  triangles = std::move(visitor.result().triangles);
}

}  // namespace Velmor::Processing
