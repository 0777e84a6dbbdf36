#include <bit>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

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

  std::int32_t cellOf(std::int32_t voxel) const noexcept {
    // unsigned, so that far tiles cut finely wrap
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(voxel) *
                                     static_cast<std::uint32_t>(res_));
  }

  void meshTile(API::TileData<float> const& values, API::TileCoord const& origin);
  void meshVoxel(API::TileCoord const& origin, int x, int y, int z);
  std::uint32_t sampleRow(int i, int j, std::uint32_t corners);
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
  std::vector<std::uint32_t> near_, needed_, positive_;  // a bit per voxel or corner along z
  std::vector<std::uint32_t> numbers_;
};

// Samples corners of row (i, j) and returns those that are positive.
std::uint32_t MarchingCubesVisitor::sampleRow(int i, int j, std::uint32_t corners) {
  std::uint32_t positive = 0;
  for (; corners != 0; corners &= corners - 1) {
    int const k = std::countr_zero(corners);
    float const value = sampler_.sample<float>(block_.samplePosition(i, j, k));
    block_.value(block_.at(i, j, k)) = value;
    if (value > 0.f) positive |= 1u << k;
  }
  return positive;
}

void MarchingCubesVisitor::meshTile(API::TileData<float> const& values,
                                    API::TileCoord const& origin) {
  auto const width = static_cast<std::size_t>(tileWidth_), res = static_cast<std::size_t>(res_);
  near_.assign(width * width, 0);
  std::uint32_t any = 0;
  for (int x = 0; x < tileWidth_; ++x) {
    for (int y = 0; y < tileWidth_; ++y) {
      auto& row = near_[static_cast<std::size_t>(x) * width + static_cast<std::size_t>(y)];
      for (int z = 0; z < tileWidth_; ++z) {
        if (nearSurface(values.data[values.offset(x, y, z)])) row |= 1u << z;
      }
      any |= row;
    }
  }
  if (any == 0) return;

  int const n = tileWidth_ * res_ + 1;
  auto const corners = static_cast<std::size_t>(n);
  block_.place({n, n, n}, {cellOf(origin.i), cellOf(origin.j), cellOf(origin.k)});

  needed_.assign(corners * corners, 0);
  positive_.assign(corners * corners, 0);
  std::uint32_t const voxelCells = (1u << res_) - 1u;
  for (std::size_t x = 0; x < width; ++x) {
    for (std::size_t y = 0; y < width; ++y) {
      std::uint32_t cells = 0;
      for (auto voxels = near_[x * width + y]; voxels != 0; voxels &= voxels - 1) {
        cells |= voxelCells << (std::countr_zero(voxels) * res_);
      }
      if (cells == 0) continue;
      for (std::size_t a = 0; a <= res; ++a) {
        for (std::size_t b = 0; b <= res; ++b) {
          needed_[(x * res + a) * corners + y * res + b] |= cells | (cells << 1);
        }
      }
    }
  }
  // The last corner along an axis lies in the next tile. Tile by tile, because a
  // sampler is fastest where it was last.
  std::uint32_t const lastCorner = 1u << (n - 1);
  for (auto const& [iBegin, iEnd] : {std::pair(0, n - 1), std::pair(n - 1, n)}) {
    for (auto const& [jBegin, jEnd] : {std::pair(0, n - 1), std::pair(n - 1, n)}) {
      for (auto const part : {lastCorner - 1u, lastCorner}) {
        for (int i = iBegin; i < iEnd; ++i) {
          for (int j = jBegin; j < jEnd; ++j) {
            auto const row = static_cast<std::size_t>(i) * corners + static_cast<std::size_t>(j);
            positive_[row] |= sampleRow(i, j, needed_[row] & part);
          }
        }
      }
    }
  }

  for (int x = 0; x < tileWidth_; ++x) {
    for (int y = 0; y < tileWidth_; ++y) {
      auto voxels = near_[static_cast<std::size_t>(x) * width + static_cast<std::size_t>(y)];
      for (; voxels != 0; voxels &= voxels - 1) {
        auto const cells = voxelCells << (std::countr_zero(voxels) * res_);
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
  auto const cell = [this](std::int32_t first, int voxel) {
    return cellOf(static_cast<std::int32_t>(static_cast<std::uint32_t>(first) +
                                            static_cast<std::uint32_t>(voxel)));
  };
  int const n = res_ + 1;
  block_.place({2, n, n}, {cell(origin.i, x), cell(origin.j, y), cell(origin.k, z)});
  auto const sampleLayer = [&](int i) {
    for (int j = 0; j < n; ++j) {
      for (int k = 0; k < n; ++k) {
        block_.value(block_.at(i, j, k)) = sampler_.sample<float>(block_.samplePosition(i, j, k));
      }
    }
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
  std::size_t shared = 0;
  for (std::size_t v = 0; v < vertices.size(); ++v) {
    if (!vertices[v].shared) continue;
    numbers_[v] = scatteredHash(vertices[v].position);
    ++shared;
  }
  vertexMap_.reserve(shared);
  for (std::size_t v = 0; v < vertices.size(); ++v) {
    if (vertices[v].shared) vertexMap_.prefetch(numbers_[v]);
  }
  for (std::size_t v = 0; v < vertices.size(); ++v) {
    auto const next = static_cast<std::uint32_t>(points.count());
    auto const& position = vertices[v].position;
    if (vertices[v].shared) {
      numbers_[v] = vertexMap_.findOrInsert(position, numbers_[v], next);
      if (numbers_[v] != next) continue;
      own_->shared.push_back(next);
    } else {
      numbers_[v] = next;
    }
    points.add(position);
  }
  auto const number = [this](int v) {
    return static_cast<int>(numbers_[static_cast<std::size_t>(v)]);
  };
  for (auto const& t : block_.triangles()) {
    own_->triangles.add({number(t.x), number(t.y), number(t.z)});
  }
}

}  // namespace

Mesher::Mesher() = default;
Mesher::Mesher(Mesher const&) = default;
Mesher& Mesher::operator=(Mesher const&) = default;
Mesher::~Mesher() = default;

MarchingCubes::MarchingCubes(unsigned int subdivisions) : subdivisions_(subdivisions) {
  assert(subdivisions < static_cast<unsigned int>(std::numeric_limits<int>::max()));
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
