#include "processing/mixer.h"

#include "core/tile_kernel.h"

namespace Velmor::Processing {

namespace {

/// Whether two channels are valid, on the same layout (not only alike) and of one type.
bool channelsCompatible(API::Channel const& x, API::Channel const& y) {
  return x.valid() && y.valid() && x.layout() == y.layout() && x.dataType() == y.dataType();
}

template <class T>
class MixerTVisitor final : public API::Visitor {
 public:
  MixerTVisitor(API::Channel const& a, API::Channel const& b, API::Channel const& out,
                MixerT<T> const* mixer)
      : a_(a), b_(b), out_(out), mixer_(mixer), kernel_(findTileKernel(*mixer)) {}

  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    auto const a = a_.tileData<T>(index);
    auto const b = b_.tileData<T>(index);
    auto const out = out_.tileData<T>(index);
    if (kernel_ != nullptr) {
      kernel_(*mixer_, a.data, b.data, out.data, out.count);
    } else {
      for (std::size_t e = 0; e < out.count; ++e) {
        out.data[e] = mixer_->compute(a.data[e], b.data[e]);
      }
    }
  }

  API::Visitor* copy() const override { return new MixerTVisitor(*this); }

 private:
  API::Channel a_, b_, out_;
  MixerT<T> const* mixer_;  // not owned; outlives the traversal
  TileKernel<MixerT<T>> kernel_;
};

}  // namespace

Mixer::Mixer() = default;
Mixer::Mixer(Mixer const&) = default;
Mixer& Mixer::operator=(Mixer const&) = default;
Mixer::~Mixer() = default;

template <class T>
MixerT<T>::MixerT() = default;
template <class T>
MixerT<T>::MixerT(MixerT const&) = default;
template <class T>
MixerT<T>::MixerT(MixerT&&) noexcept = default;
template <class T>
MixerT<T>& MixerT<T>::operator=(MixerT const&) = default;
template <class T>
MixerT<T>& MixerT<T>::operator=(MixerT&&) noexcept = default;
template <class T>
MixerT<T>::~MixerT() = default;

template <class T>
bool MixerT<T>::mix(API::Channel const& a, API::Channel const& b, API::Channel& out) const {
  if (!mixable(a, b, out)) return false;
  MixerTVisitor<T> visitor(a, b, out, this);
  this->traverse(out.layout(), visitor);
  return true;
}

template <class T>
bool MixerT<T>::mixable(API::Channel const& a, API::Channel const& b,
                        API::Channel const& out) const {
  return channelsCompatible(a, b) && channelsCompatible(a, out) &&
         a.dataType() == API::dataTypeOf<T>;
}

VELMOR_INSTANTIATE_FAMILY(MixerT);

}  // namespace Velmor::Processing
