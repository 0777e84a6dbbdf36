#include <cassert>

#include "core/tile_kernel.h"
#include "core/tile_width.h"

namespace Velmor::Processing {

namespace {

constexpr int blockEdge = denseEdge;
constexpr int blockCount = blockEdge * blockEdge * blockEdge;

template <class T>
class HaloVisitor final : public API::Visitor {
 public:
  HaloVisitor(API::Channel src, API::Channel dst, HaloFilter<T> const* filter)
      : src_(std::move(src)),
        dst_(std::move(dst)),
        width_(API::Layout(src_.layout()).tileDimInfo(0).width),
        filter_(filter),
        kernel_(findTileKernel(*filter)) {
    cache_.init(API::VoxelChannel(src_));
  }

  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    auto const& tile = cache_.tile(index);
    auto const out = dst_.tileData<T>(index);
    // Its lines arrive while the block is gathered: a store that waits for one
    // would hold up all stores after it, those of the next block among them.
    auto const* const first = reinterpret_cast<char const*>(out.data);
    for (std::size_t at = 0; at < out.count * sizeof(T); at += 64)
      __builtin_prefetch(first + at, 1);
    cache_.update(index);
    if (!storesWidth(out, width_)) return;
    assert(width_ <= blockEdge);
    if (kernel_ == nullptr) {
      for (int i = 0; i < width_; ++i) {
        for (int j = 0; j < width_; ++j) {
          for (int k = 0; k < width_; ++k) {
            out.data[out.offset(i, j, k)] = filter_->compute(tile, i, j, k);
          }
        }
      }
    } else if (isDense(out, width_)) {
      kernel_(*filter_, tile, out.data);
    } else {
      scatter(tile, out);
    }
  }

  API::Visitor* copy() const override { return new HaloVisitor(src_, dst_, filter_); }

 private:
  void scatter(API::VoxelTile<T, 1, blockEdge> const& tile, API::TileData<T> const& out) const {
    T values[blockCount];
    kernel_(*filter_, tile, values);
    for (int k = 0; k < width_; ++k) {
      for (int j = 0; j < width_; ++j) {
        for (int i = 0; i < width_; ++i) {
          out.data[out.offset(i, j, k)] = values[(k * blockEdge + j) * blockEdge + i];
        }
      }
    }
  }

  API::Channel src_, dst_;
  int width_;                    // of the layout's tiles
  API::HaloedCache<T> cache_;    // of this worker alone
  HaloFilter<T> const* filter_;  // not owned; outlives the traversal
  TileKernel<HaloFilter<T>> kernel_;
};

}  // namespace

template <class T>
HaloFilter<T>::HaloFilter() = default;
template <class T>
HaloFilter<T>::HaloFilter(HaloFilter const&) = default;
template <class T>
HaloFilter<T>::HaloFilter(HaloFilter&&) noexcept = default;
template <class T>
HaloFilter<T>& HaloFilter<T>::operator=(HaloFilter const&) = default;
template <class T>
HaloFilter<T>& HaloFilter<T>::operator=(HaloFilter&&) noexcept = default;
template <class T>
HaloFilter<T>::~HaloFilter() = default;

template <class T>
void HaloFilter<T>::filter(API::Channel src, API::Channel dst) const {
  HaloVisitor<T> visitor(src, dst, this);
  this->traverse(src.layout(), visitor);
}

VELMOR_INSTANTIATE_FAMILY(HaloFilter);

}  // namespace Velmor::Processing
