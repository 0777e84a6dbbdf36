#pragma once

#include "velmorapi/export.h"
#include "velmorapi/math.h"

// A class template's name cannot stand in parentheses here.
// NOLINTBEGIN(bugprone-macro-parentheses)

/// Declares that the library holds a class template for the six value types.
/// Stands right after the class: the export attribute counts only here. On the
/// template alone it loses the vector types, on the definition it comes too late.
#define VELMOR_DECLARE_FAMILY(Family)                                     \
  extern template class VELMOR_EXPORT Family<int>;                        \
  extern template class VELMOR_EXPORT Family<float>;                      \
  extern template class VELMOR_EXPORT Family<orlen::Math::vec<2, int>>;   \
  extern template class VELMOR_EXPORT Family<orlen::Math::vec<2, float>>; \
  extern template class VELMOR_EXPORT Family<orlen::Math::vec<3, int>>;   \
  extern template class VELMOR_EXPORT Family<orlen::Math::vec<3, float>>

/// Instantiates a declared family, at the end of its source file.
#define VELMOR_INSTANTIATE_FAMILY(Family)            \
  template class Family<int>;                        \
  template class Family<float>;                      \
  template class Family<orlen::Math::vec<2, int>>;   \
  template class Family<orlen::Math::vec<2, float>>; \
  template class Family<orlen::Math::vec<3, int>>;   \
  template class Family<orlen::Math::vec<3, float>>

// NOLINTEND(bugprone-macro-parentheses)
