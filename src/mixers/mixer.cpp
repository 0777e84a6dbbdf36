#include "processing/mixer.h"

#include <typeinfo>

#include "core/arithmetic.h"
#include "core/blocks.h"
#include "mixers/mixable.h"
#include "mixers/rules.h"

namespace Velmor::Processing {

bool channelsCompatible(API::Channel const& x, API::Channel const& y) {
  return x.valid() && y.valid() && x.layout() == y.layout() && x.dataType() == y.dataType();
}

/// Mixes `count` elements at once.
template <class T>
using MixElements = void (*)(MixerT<T> const& mixer, T const* a, T const* b, T* out,
                             std::size_t count);

/// The loops of the library's own mixers, free of a virtual call per element.
template <class T>
struct MixLoops {
  /// Null for any other class: a client's mixer is asked through `compute`, also
  /// if it derives from one of ours.
  static MixElements<T> of(MixerT<T> const& mixer) {
    if (typeid(mixer) == typeid(StepMixer<T>)) return &advance;
    if (typeid(mixer) == typeid(AlphaMixer<T>)) return &blend;
    return nullptr;
  }

 private:
  template <class Rule>
  static void forComponents(T const* a, T const* b, T* out, std::size_t count, Rule rule) {
    auto const* const pa = Arithmetic::components(a);
    auto const* const pb = Arithmetic::components(b);
    forEachInBlocks(Arithmetic::components(out), count * Arithmetic::componentCount<T>,
                    [=](std::size_t i) { return rule(pa[i], pb[i]); });
  }

  static void advance(MixerT<T> const& mixer, T const* a, T const* b, T* out, std::size_t count) {
    forComponents(a, b, out, count,
                  [step = static_cast<StepMixer<T> const&>(mixer).step_](auto x, auto y) {
                    return MixRules::advance(x, y, step);
                  });
  }

  static void blend(MixerT<T> const& mixer, T const* a, T const* b, T* out, std::size_t count) {
    forComponents(a, b, out, count,
                  [alpha = static_cast<AlphaMixer<T> const&>(mixer).alpha_](auto x, auto y) {
                    return MixRules::blend(x, y, alpha);
                  });
  }
};

namespace {

template <class T>
class MixerTVisitor final : public API::Visitor {
 public:
  MixerTVisitor(API::Channel const& a, API::Channel const& b, API::Channel const& out,
                MixerT<T> const* mixer)
      : a_(a), b_(b), out_(out), mixer_(mixer), elements_(MixLoops<T>::of(*mixer)) {}

  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    auto const a = a_.tileData<T>(index);
    auto const b = b_.tileData<T>(index);
    auto const out = out_.tileData<T>(index);
    if (elements_ != nullptr) {
      elements_(*mixer_, a.data, b.data, out.data, out.count);
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
  MixElements<T> elements_;
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
MixerT<T>::MixerT(MixerT&& other) noexcept : Mixer(other) {}
template <class T>
MixerT<T>& MixerT<T>::operator=(MixerT const&) = default;
template <class T>
MixerT<T>& MixerT<T>::operator=(MixerT&& other) noexcept {
  Mixer::operator=(other);
  return *this;
}
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
