#include "core/arithmetic.h"
#include "core/blocks.h"
#include "core/tile_kernel.h"
#include "mixers/rules.h"

namespace Velmor::Processing {

namespace {

template <class M, class T>
void computeAll(MixerT<T> const& base, T const* a, T const* b, T* out, std::size_t count) {
  // A constant of its own: no store into the tile can change it.
  MixRule<M> const rule(static_cast<M const&>(base));
  auto const* const pa = Arithmetic::components(a);
  auto const* const pb = Arithmetic::components(b);
  forEachInBlocks(Arithmetic::components(out), count * Arithmetic::componentCount<T>,
                  [=](std::size_t i) { return rule(pa[i], pb[i]); });
}

}  // namespace

template <class T>
std::span<TileKernelEntry<MixerT<T>> const> MixerKernels<T>::all() {
  static TileKernelEntry<MixerT<T>> const entries[] = {
      {&typeid(AlphaMixer<T>), computeAll<AlphaMixer<T>, T>},
      {&typeid(StepMixer<T>), computeAll<StepMixer<T>, T>}};
  return entries;
}

VELMOR_INSTANTIATE_FAMILY(MixerKernels);

}  // namespace Velmor::Processing
