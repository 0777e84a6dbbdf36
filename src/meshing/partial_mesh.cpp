#include "meshing/partial_mesh.h"

#include <tbb/parallel_for.h>
#include <tbb/parallel_for_each.h>

#include <algorithm>
#include <bit>

#include "meshing/vertex_map.h"

namespace Velmor::Processing {

namespace {

using Point = orlen::Math::vec<3, float>;

// A point that may occur again, and its ordinal among the points of all parts.
struct Candidate {
  Point position;
  std::uint32_t ordinal;
};

// One mesh on its way into the whole; the first part is the whole itself.
struct Part {
  PartialMesh const* mesh = nullptr;
  std::size_t triangleOffset = 0;
  std::uint32_t pointCount = 0;
  std::size_t sharedCount = 0;
  std::uint32_t firstOrdinal = 0;
  std::uint32_t firstIndex = 0;     // of its points that no earlier part has
  std::vector<Candidate> shared;    // sorted by shard, stable
  std::vector<std::uint32_t> from;  // where each shard begins in `shared`
};

// A shard's table should stay in a core's cache.
unsigned shardBitsFor(std::size_t candidates) {
  constexpr std::size_t perShard = 8192;
  auto const bits = static_cast<unsigned>(std::bit_width(candidates / perShard));
  return std::min(bits, 10u);
}

void sortIntoShards(Part& part, unsigned shardBits) {
  auto const shardOf = [shardBits](Point const& p) {
    return static_cast<std::size_t>(std::uint64_t{scatteredHash(p)} >> (32 - shardBits));
  };
  auto const& points = part.mesh->points;
  part.from.assign((std::size_t{1} << shardBits) + 1, 0);
  auto const& meetings = part.mesh->meetings;
  for (std::uint32_t i = 0; i < part.pointCount; ++i) {
    if (meetings[i] != 0) ++part.from[shardOf(points[i]) + 1];
  }
  for (std::size_t s = 1; s < part.from.size(); ++s) part.from[s] += part.from[s - 1];
  auto next = part.from;
  part.shared.resize(part.sharedCount);
  for (std::uint32_t i = 0; i < part.pointCount; ++i) {
    if (meetings[i] == 0) continue;
    part.shared[next[shardOf(points[i])]++] = {points[i], part.firstOrdinal + i};
  }
}

// Enters the first ordinal of each of the shard's candidates into `first`.
void weldShard(std::vector<Part> const& parts, std::size_t shard, std::uint32_t* first) {
  std::size_t count = 0;
  for (Part const& part : parts) count += part.from[shard + 1] - part.from[shard];
  VertexMap map;
  map.reserve(count);
  for (Part const& part : parts) {
    for (auto c = part.from[shard]; c < part.from[shard + 1]; ++c) {
      auto const& [position, ordinal] = part.shared[c];
      first[ordinal] = map.findOrInsert(position, scatteredHash(position), ordinal);
    }
  }
}

}  // namespace

void weldMeshes(PartialMesh& own, std::vector<JoinedMesh> const& meshes) {
  if (meshes.empty()) return;

  std::vector<Part> parts(1 + meshes.size());
  parts[0].mesh = &own;
  for (std::size_t m = 0; m < meshes.size(); ++m) {
    parts[m + 1].mesh = meshes[m].mesh.get();
    parts[m + 1].triangleOffset = meshes[m].triangleOffset;
  }
  std::size_t ordinals = 0, candidates = 0;
  for (Part& part : parts) {
    auto const& meetings = part.mesh->meetings;
    part.firstOrdinal = static_cast<std::uint32_t>(ordinals);
    part.pointCount = static_cast<std::uint32_t>(part.mesh->points.count());
    part.sharedCount = meetings.size() - static_cast<std::size_t>(std::count(
                                             meetings.begin(), meetings.end(), std::uint8_t{0}));
    ordinals += part.pointCount;
    candidates += part.sharedCount;
  }
  auto const shardBits = shardBitsFor(candidates);

  // `first` names, for each point, the first with its position. Points that
  // cannot occur again, NaN among them, are their own first.
  std::vector<std::uint32_t> first(ordinals), index(ordinals);
  tbb::task_group_context context;
  tbb::parallel_for_each(
      parts.begin(), parts.end(),
      [&](Part& part) {
        sortIntoShards(part, shardBits);
        for (std::uint32_t i = 0; i < part.pointCount; ++i) {
          first[part.firstOrdinal + i] = part.firstOrdinal + i;
        }
      },
      context);
  tbb::parallel_for(
      std::size_t{0}, std::size_t{1} << shardBits,
      [&](std::size_t shard) { weldShard(parts, shard, first.data()); }, context);

  std::uint32_t count = 0;
  for (Part& part : parts) {
    part.firstIndex = count;
    count += part.pointCount;
    for (auto const& [position, ordinal] : part.shared) count -= first[ordinal] != ordinal ? 1 : 0;
  }

  own.points.resize(count);
  own.triangles.resize(meshes.back().triangleOffset + meshes.back().mesh->triangles.count());
  tbb::parallel_for_each(
      parts.begin(), parts.end(),
      [&](Part const& part) {
        auto next = part.firstIndex;
        for (std::uint32_t i = 0; i < part.pointCount; ++i) {
          auto const ordinal = part.firstOrdinal + i;
          if (first[ordinal] != ordinal) continue;
          index[ordinal] = next;
          own.points[next++] = part.mesh->points[i];
        }
      },
      context);
  tbb::parallel_for_each(
      parts.begin() + 1, parts.end(),
      [&](Part const& part) {
        auto const global = [&](int local) {
          return static_cast<int>(
              index[first[part.firstOrdinal + static_cast<std::uint32_t>(local)]]);
        };
        auto* out = own.triangles.data() + part.triangleOffset;
        for (auto const& t : part.mesh->triangles) *out++ = {global(t.x), global(t.y), global(t.z)};
      },
      context);
}

}  // namespace Velmor::Processing
