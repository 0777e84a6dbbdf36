# For sources whose loops over voxels must become vector code: they do only
# where a square root may not set errno and a comparison not trap, and gcc slows
# stencils down by keeping loads for the next round. None of this changes a value.
set(VELMOR_VECTOR_OPTIONS
  -fno-math-errno -fno-trapping-math
  $<$<CXX_COMPILER_ID:GNU>:-fno-predictive-commoning>)
