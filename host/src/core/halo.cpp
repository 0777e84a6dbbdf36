#include "velmorapi/halo.h"

#include <array>
#include <bit>
#include <cstdint>
#include <exception>

#include "core/channel_item.h"
#include "core/halo_block.h"
#include "core/neighbourhood.h"

namespace Velmor::API {

namespace {

// The rows of seven sources along x that a cell's 27 sources lie in: three along
// y and three along z, a bit each, from (0, 0, 0) on.
constexpr std::uint64_t rowsAround = 0b111 * (1 | 1 << blockEdge | 1 << (2 * blockEdge));

}  // namespace

struct HaloedCacheBase::State {
  explicit State(VoxelChannel const& handle)
      : channel(handle), near(*static_cast<VoxelChannelItem const*>(handle.item())) {}

  VoxelChannel channel;
  Neighbourhood near;
  FillBlock fill = blockFillers(near.channel().size()).front();
  // Of a tile's children and those around it: the next tile's block is most
  // often made of the same ones.
  std::array<CellSource, static_cast<std::size_t>(blockEdge* blockEdge* blockEdge)> around;
  std::uint64_t known = 0;  // a bit per row along x

  Branch const* parent = nullptr;
  int cell = 0;
  std::uint64_t stamp = 0;

  // The parent's next child, which most often is what is asked for next.
  TreeIndex expected{-1, -1};
  int expectedCell = 0;

  /// The first of a tile's 27 sources; the others lie behind it as in a block.
  CellSource const* sources(TreeIndex const& index) {
    auto const& layout = near.channel().layout();
    if (index == expected && layout.stamp() == stamp) {
      cell = expectedCell;
    } else if (index.depth == 0) {
      return rootSources(index);
    } else {
      stamp = layout.stamp();
      auto const& record = layout.record(index.depth, index.slot);
      parent = &layout.branch(index.depth - 1, record.parent);
      cell = record.cell;
      if (near.centre(index.depth - 1, parent->coord)) known = 0;
    }
    return sourcesAround(cell);
  }

  /// Finds the next tile's sources, so that their values are on their way
  /// through the caches while this tile is worked on.
  void expect(TreeIndex const& index) {
    expected = {-1, -1};
    if (index.depth == 0) return;
    for (int next = cell + 1; next < tileCells; ++next) {
      auto const& entry = parent->children[static_cast<std::size_t>(next)];
      if (auto const slot = entry.load(std::memory_order_acquire); slot > 0) {
        expected = {slot - 1, index.depth};
        expectedCell = next;
        sourcesAround(next);
        return;
      }
    }
  }

 private:
  CellSource const* rootSources(TreeIndex const& index) {  // the root has no neighbours
    auto const& item = near.channel();
    known = 0;
    around.fill({item.background(), 0});
    around[1 + blockEdge + blockEdge * blockEdge] = {item.values(0, index.slot), ~std::uint32_t{0}};
    return around.data();
  }

  CellSource const* sourcesAround(int child) {
    auto const at = cellPositions[static_cast<std::size_t>(child)];
    int const row = at.y + blockEdge * at.z;
    for (auto missing = rowsAround << row & ~known; missing != 0; missing &= missing - 1) {
      int const r = std::countr_zero(missing);
      near.row(r % blockEdge - 1, r / blockEdge - 1,
               &around[static_cast<std::size_t>(blockEdge * r)]);
      known |= std::uint64_t{1} << r;
    }
    return &around[static_cast<std::size_t>(at.x + blockEdge * row)];
  }
};

HaloedCacheBase::~HaloedCacheBase() { delete state_; }

Status HaloedCacheBase::bind(VoxelChannel const& channel, DataType type) {
  delete state_;
  state_ = nullptr;
  if (!channel.valid()) return Status::failure("cannot read the halo of an invalid channel");
  if (channel.dataType() != type) {
    return Status::failure("channel '" + channel.name() + "' is of another type");
  }
  try {
    state_ = new State(channel);
  } catch (std::exception const& error) {
    return Status::failure(error.what());
  }
  return {};
}

Status HaloedCacheBase::gather(TreeIndex const& index, void* block) {
  if (state_ == nullptr) return Status::failure("the haloed cache has no channel");
  auto const& channel = state_->near.channel();
  if (!channel.layout().exists(index)) return Status::failure("no such tile");
  state_->fill(state_->sources(index), block);
  state_->expect(index);
  return {};
}

}  // namespace Velmor::API
