#pragma once

#include "processing/family.h"
#include "processing/traverser.h"
#include "velmorapi/channel.h"

namespace Velmor::Processing {

/// Combines two voxel channels into a third, tile by tile. A mixer is set up
/// once and may then serve many threads, each with channels of its own.
class VELMOR_EXPORT Mixer : public Traverser {
 public:
  Mixer();
  Mixer(Mixer const& other);
  Mixer& operator=(Mixer const& other);
  ~Mixer() override;

  /// Writes `out` from `a` and `b`. False, and `out` untouched, if the channels
  /// cannot be mixed.
  virtual bool mix(API::Channel const& a, API::Channel const& b, API::Channel& out) const = 0;
};

/// Computes every element of `out` from those of `a` and `b` at the same place:
/// out[e] = compute(a[e], b[e]).
///
/// Covers the whole array of each visited tile of `out`, halo elements and
/// elements that hold the background included. `out` may be `a` or `b`. The
/// three channels must be valid, share one layout and hold `T`.
template <class T>
class MixerT : public Mixer {
 public:
  MixerT();
  MixerT(MixerT const& other);
  MixerT(MixerT&& other) noexcept;
  MixerT& operator=(MixerT const& other);
  MixerT& operator=(MixerT&& other) noexcept;
  ~MixerT() override;

  bool mix(API::Channel const& a, API::Channel const& b, API::Channel& out) const override;
  /// The new value of an element from the two old ones. Called from several threads.
  virtual T compute(T const& a, T const& b) const = 0;

 protected:
  /// Whether `mix` would take these channels. One of them being on a layout of
  /// its own rules it out, however alike the layouts are.
  bool mixable(API::Channel const& a, API::Channel const& b, API::Channel const& out) const;
};

VELMOR_DECLARE_FAMILY(MixerT);

template <class Family>
struct MixRule;  // what the library's own loops need of a mixer

/// Blends: out = (a - b) * alpha + b, in this order of operations. Nothing
/// clamps: an alpha outside 0 to 1 extrapolates.
///
/// A constant alpha scales the difference of integers as a float and truncates
/// the product toward zero; one that no integer can hold becomes -2147483648.
/// The elements of an alpha channel have the type `T` and act component by
/// component in its own arithmetic: with integers, 1 selects `a` and 0 `b`.
/// Integers wrap.
template <class T>
class AlphaMixer : public MixerT<T> {
 public:
  explicit AlphaMixer(float alpha);
  /// Blends by a channel, which must hold `T` and share the layout of the
  /// others, else `mix` refuses. An invalid handle stands for a constant 1.
  explicit AlphaMixer(API::Channel const& alphaChannel);
  AlphaMixer(AlphaMixer const& other);
  /// Moves are copies: `other` keeps its channel.
  AlphaMixer(AlphaMixer&& other) noexcept;
  AlphaMixer& operator=(AlphaMixer const& other);
  AlphaMixer& operator=(AlphaMixer&& other) noexcept;
  ~AlphaMixer() override;

  bool mix(API::Channel const& a, API::Channel const& b, API::Channel& out) const override;
  /// The blend by the constant, whether there is an alpha channel or not.
  T compute(T const& a, T const& b) const override;

 private:
  friend struct MixRule<AlphaMixer>;
  float alpha_;
  API::Channel alphaChannel_;
};

VELMOR_DECLARE_FAMILY(AlphaMixer);

/// Advances: out = a + step * b, such as a quantity and a step times its rate.
///
/// Integers of `b` are scaled as floats and truncated toward zero before they
/// are added; a product that no integer can hold becomes -2147483648. The sum
/// wraps.
template <class T>
class StepMixer : public MixerT<T> {
 public:
  explicit StepMixer(float step);
  StepMixer(StepMixer const& other);
  StepMixer(StepMixer&& other) noexcept;
  StepMixer& operator=(StepMixer const& other);
  StepMixer& operator=(StepMixer&& other) noexcept;
  ~StepMixer() override;

  T compute(T const& a, T const& b) const override;

 private:
  friend struct MixRule<StepMixer>;
  float step_;
};

VELMOR_DECLARE_FAMILY(StepMixer);

}  // namespace Velmor::Processing
