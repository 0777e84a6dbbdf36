#include <utility>

#include "core/arithmetic.h"
#include "core/blocks.h"
#include "mixers/rules.h"
#include "processing/mixer.h"

namespace Velmor::Processing {

namespace {

template <class T>
class AlphaMixerVisitor final : public API::Visitor {
 public:
  AlphaMixerVisitor(API::Channel const& a, API::Channel const& b, API::Channel const& alpha,
                    API::Channel const& out)
      : a_(a), b_(b), alpha_(alpha), out_(out) {}

  void beginTile(API::TileAccessor const&, API::TreeIndex const& index) override {
    auto const out = out_.tileData<T>(index);
    auto const* const a = Arithmetic::components(a_.tileData<T>(index).data);
    auto const* const b = Arithmetic::components(b_.tileData<T>(index).data);
    auto const* const alpha = Arithmetic::components(alpha_.tileData<T>(index).data);
    forEachInBlocks(Arithmetic::components(out.data), out.count * Arithmetic::componentCount<T>,
                    [=](std::size_t i) { return MixRules::blend(a[i], b[i], alpha[i]); });
  }

  API::Visitor* copy() const override { return new AlphaMixerVisitor(*this); }

 private:
  API::Channel a_, b_, alpha_, out_;
};

}  // namespace

template <class T>
AlphaMixer<T>::AlphaMixer(float alpha) : alpha_(alpha) {}
template <class T>
AlphaMixer<T>::AlphaMixer(API::Channel const& alphaChannel)
    : alpha_(1.f), alphaChannel_(alphaChannel) {}
template <class T>
AlphaMixer<T>::AlphaMixer(AlphaMixer const&) = default;
template <class T>
AlphaMixer<T>::AlphaMixer(AlphaMixer&& other) noexcept : AlphaMixer(std::as_const(other)) {}
template <class T>
AlphaMixer<T>& AlphaMixer<T>::operator=(AlphaMixer const&) = default;
template <class T>
AlphaMixer<T>& AlphaMixer<T>::operator=(AlphaMixer&& other) noexcept {
  return *this = std::as_const(other);
}
template <class T>
AlphaMixer<T>::~AlphaMixer() = default;

template <class T>
bool AlphaMixer<T>::mix(API::Channel const& a, API::Channel const& b, API::Channel& out) const {
  if (!alphaChannel_.valid()) return MixerT<T>::mix(a, b, out);
  if (alphaChannel_.dataType() != API::dataTypeOf<T>) return false;
  if (!this->mixable(a, b, out)) return false;
  if (alphaChannel_.layout() != a.layout()) return false;
  AlphaMixerVisitor<T> visitor(a, b, alphaChannel_, out);
  this->traverse(out.layout(), visitor);
  return true;
}

template <class T>
T AlphaMixer<T>::compute(T const& a, T const& b) const {
  return Arithmetic::perComponent<T>(MixRule<AlphaMixer<T>>(*this), a, b);
}

VELMOR_INSTANTIATE_FAMILY(AlphaMixer);

}  // namespace Velmor::Processing
