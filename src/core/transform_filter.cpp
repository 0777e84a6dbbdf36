#include "core/tile_kernel.h"

namespace Velmor::Processing {

namespace {

template <class T>
class TransformVisitor final : public API::Visitor {
 public:
  TransformVisitor(API::Channel src, API::Channel dst, TransformFilter<T> const* filter)
      : src_(std::move(src)),
        dst_(std::move(dst)),
        filter_(filter),
        kernel_(findTileKernel(*filter)) {}

  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    auto const in = src_.tileData<T>(index);
    // A pointer, not all that is known of the tile: copying what was only just
    // written by words stalls for a tenth of the time that a tile takes.
    T* const out = src_ == dst_ ? in.data : dst_.tileData<T>(index).data;
    // A channel of another type has no values of type T.
    if (in.data == nullptr || out == nullptr) return;
    if (kernel_ != nullptr) {
      kernel_(*filter_, in.data, out, in.count);
    } else {
      for (std::size_t e = 0; e < in.count; ++e) out[e] = filter_->compute(in.data[e]);
    }
  }

  API::Visitor* copy() const override { return new TransformVisitor(*this); }

 private:
  API::Channel src_, dst_;
  TransformFilter<T> const* filter_;  // not owned; outlives the traversal
  TileKernel<TransformFilter<T>> kernel_;
};

}  // namespace

template <class T>
TransformFilter<T>::TransformFilter() = default;
template <class T>
TransformFilter<T>::TransformFilter(TransformFilter const&) = default;
template <class T>
TransformFilter<T>::TransformFilter(TransformFilter&&) noexcept = default;
template <class T>
TransformFilter<T>& TransformFilter<T>::operator=(TransformFilter const&) = default;
template <class T>
TransformFilter<T>& TransformFilter<T>::operator=(TransformFilter&&) noexcept = default;
template <class T>
TransformFilter<T>::~TransformFilter() = default;

template <class T>
void TransformFilter<T>::filter(API::Channel src, API::Channel dst) const {
  TransformVisitor<T> visitor(src, dst, this);
  this->traverse(src.layout(), visitor);
}

VELMOR_INSTANTIATE_FAMILY(TransformFilter);

}  // namespace Velmor::Processing
