#include "core/arithmetic.h"
#include "mixers/rules.h"
#include "processing/mixer.h"

namespace Velmor::Processing {

template <class T>
StepMixer<T>::StepMixer(float step) : step_(step) {}
template <class T>
StepMixer<T>::StepMixer(StepMixer const&) = default;
template <class T>
StepMixer<T>::StepMixer(StepMixer&&) noexcept = default;
template <class T>
StepMixer<T>& StepMixer<T>::operator=(StepMixer const&) = default;
template <class T>
StepMixer<T>& StepMixer<T>::operator=(StepMixer&&) noexcept = default;
template <class T>
StepMixer<T>::~StepMixer() = default;

template <class T>
T StepMixer<T>::compute(T const& a, T const& b) const {
  return Arithmetic::perComponent<T>(MixRule<StepMixer<T>>(*this), a, b);
}

VELMOR_INSTANTIATE_FAMILY(StepMixer);

}  // namespace Velmor::Processing
