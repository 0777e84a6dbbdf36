#pragma once

#include "velmorapi/channel.h"
#include "velmorapi/export.h"
#include "velmorapi/status.h"
#include "velmorapi/types.h"

namespace Velmor::API {

/// A dense block of one tile of `W` voxels per axis with a halo of `H` voxels
/// on each side, x fastest, then y, then z. Voxel coordinates run from -H to
/// W + H - 1.
template <class T, int H, int W>
struct VoxelTile {
  static constexpr int edge = W + 2 * H;
  static constexpr int count = edge * edge * edge;
  alignas(64) T values[count];

  static constexpr int offset(int i, int j, int k) noexcept {
    return ((k + H) * edge + (j + H)) * edge + (i + H);
  }
  T& operator[](int at) noexcept { return values[at]; }
  T const& operator[](int at) const noexcept { return values[at]; }
  T const& at(int i, int j, int k) const noexcept { return values[offset(i, j, k)]; }
};

/// What a haloed cache does, whatever its value type.
class VELMOR_EXPORT HaloedCacheBase {
 public:
  HaloedCacheBase() noexcept = default;
  HaloedCacheBase(HaloedCacheBase const&) = delete;
  HaloedCacheBase& operator=(HaloedCacheBase const&) = delete;
  ~HaloedCacheBase();

 protected:
  Status bind(VoxelChannel const& channel, DataType type);
  /// Writes 343 values of the bound type to `block`; untouched on failure.
  Status gather(TreeIndex const& index, void* block);

 private:
  struct State;
  State* state_ = nullptr;
};

/// Gathers tiles of 5 x 5 x 5 voxels with a border of one voxel from the
/// neighbouring tiles. Where no tile of the same depth is next to the tile, the
/// border holds the value of the coarser cell there, and outside the root the
/// background. Each worker has a cache of its own; one cache serves one thread.
template <class T>
class HaloedCache : private HaloedCacheBase {
 public:
  /// Binds the cache to a channel. Fails if the channel does not hold `T`.
  Status init(VoxelChannel const& channel) { return bind(channel, dataTypeOf<T>); }
  /// Refills the block for the tile at `index`.
  Status update(TreeIndex const& index) { return gather(index, block_.values); }
  /// The one block of this cache, whatever the index; `update` fills it.
  VoxelTile<T, 1, 5> const& tile(TreeIndex const&) const noexcept { return block_; }

 private:
  VoxelTile<T, 1, 5> block_{};
};

}  // namespace Velmor::API
