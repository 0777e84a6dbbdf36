#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <vector>

#include "core/layout_item.h"
#include "core/next_tile.h"
#include "core/workers.h"
#include "velmorapi/layout.h"
#include "velmorhost/settings.h"

namespace Velmor::API {

namespace {

/// The tiles of some depths as one numbered sequence, coarse first.
class TileSequence {
 public:
  TileSequence(LayoutItem const& layout, int minDepth, int maxDepth) : layout_(&layout) {
    for (int d = std::max(minDepth, 0); d <= std::min(maxDepth, layout.leafDepth()); ++d) {
      auto tiles = layout.tiles(d);
      if (tiles.count == 0) continue;
      parts_[partCount_++] = {d, count_, std::move(tiles)};
      count_ += static_cast<std::size_t>(parts_[partCount_ - 1].tiles.count);
    }
  }

  std::size_t count() const { return count_; }

  void visit(Visitor& visitor, TileAccessor const& accessor, std::size_t begin,
             std::size_t end) const {
    for (std::size_t p = 0; p < partCount_; ++p) {
      auto const& part = parts_[p];
      auto const first = std::max(begin, part.first);
      auto const last = std::min(end, part.first + static_cast<std::size_t>(part.tiles.count));
      for (auto t = first; t < last; ++t) {
        auto const index = part.index(t);
        if (part.tiles.order && t + 1 < last) nextTile = {layout_, index, part.index(t + 1)};
        visitor.beginTile(accessor, index);
        visitor.endTile(accessor, index);
      }
    }
    nextTile = {};
  }

 private:
  struct Part {
    int depth = 0;
    std::size_t first = 0;
    LayoutItem::DepthTiles tiles;

    TreeIndex index(std::size_t t) const {
      return {tiles.slot(static_cast<std::int32_t>(t - first)), depth};
    }
  };
  LayoutItem const* layout_;
  std::array<Part, maxLeafDepth + 1> parts_;
  std::size_t partCount_ = 0;
  std::size_t count_ = 0;
};

// Depends on nothing but the number of tiles, so that what is joined, and in
// which order, is the same for any number of workers.
std::size_t chunkCount(std::size_t tiles) {
  constexpr std::size_t smallestChunk = 16, mostChunks = 128;
  return std::min((tiles + smallestChunk - 1) / smallestChunk, mostChunks);
}

void visitParallel(LayoutItem& layout, Visitor& visitor, TileSequence const& tiles) {
  auto const chunks = chunkCount(tiles.count());
  std::vector<std::unique_ptr<Visitor>> copies;
  for (std::size_t c = 0; c < chunks; ++c) {
    copies.emplace_back(visitor.copy());
    if (!copies.back()) {
      tiles.visit(visitor, TileAccessor(Ref(&layout)), 0, tiles.count());
      return;
    }
  }
  auto const run = [&](std::size_t c) {
    tiles.visit(*copies[c], TileAccessor(Ref(&layout)), tiles.count() * c / chunks,
                tiles.count() * (c + 1) / chunks);
  };
  if (int const threads = Host::threadCount(); threads > 1 && chunks > 1) {
    Host::withWorkers(threads, [&] {
      tbb::parallel_for(std::size_t{0}, chunks, run, tbb::simple_partitioner());
    });
  } else {
    for (std::size_t c = 0; c < chunks; ++c) run(c);
  }
  for (auto const& copy : copies) visitor.join(*copy);
}

}  // namespace

Visitor::~Visitor() = default;
void Visitor::beginTraverse() {}
void Visitor::endTraverse() {}
void Visitor::beginTile(TileAccessor const&, TreeIndex const&) {}
void Visitor::endTile(TileAccessor const&, TreeIndex const&) {}
void Visitor::visitVoxel(TileAccessor const&, TreeIndex const&, int, int, int) {}
Visitor* Visitor::copy() const { return nullptr; }
void Visitor::join(Visitor const&) {}

Status Layout::traverse(Visitor& visitor, TraversalMode mode) const {
  return traverse(visitor, mode, 0, maxLeafDepth);
}

Status Layout::traverse(Visitor& visitor, TraversalMode mode, int minDepth, int maxDepth) const {
  if (!valid()) return Status::failure("cannot traverse an invalid layout");
  if (Host::mustFail(Host::Call::Traverse)) return Status::failure("traversal failed on request");
  try {
    auto& layout = *static_cast<LayoutItem*>(item());
    visitor.beginTraverse();
    TileSequence const tiles(layout, minDepth, maxDepth);
    if (mode == TraversalMode::Serial) {
      tiles.visit(visitor, TileAccessor(*this), 0, tiles.count());
    } else {
      visitParallel(layout, visitor, tiles);
    }
    visitor.endTraverse();
    return {};
  } catch (std::exception const& error) {
    return Status::failure(std::string("traversal failed: ") + error.what());
  }
}

}  // namespace Velmor::API
