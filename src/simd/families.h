// The families of kernels, listed once. A family is a struct of row functions, defined in its
// X_kernels.h. Compiling X_kernels.cpp once per level defines one constant of it per level, in the
// level's namespace; the declarations below give these constants external linkage. The structs are
// only named here, so that a change to one rebuilds nothing but the workers that call it.
#pragma once

#include "simd/levels.h"

// clang-format off
#define QUILLON_FOR_EACH_FAMILY(DO)      \
  DO(ArithmeticKernels, arithmetic)      \
  DO(RotationKernels, rotation)          \
  DO(QuarterTurnKernels, quarterTurn)    \
  DO(ScalingKernels, scaling)            \
  DO(GreyKernels, grey)                  \
  DO(LookupKernels, lookup)              \
  DO(ThresholdKernels, threshold)        \
  DO(GradientKernels, gradient)          \
  DO(MedianKernels, median)              \
  DO(SmoothingKernels, smoothing)        \
  DO(ConvolutionKernels, convolution)    \
  DO(MorphKernels, morph)                \
  DO(RunsKernels, runs)                  \
  DO(HullKernels, hull)                  \
  DO(PyramidKernels, pyramid)            \
  DO(GeomatchKernels, geomatch)          \
  DO(CorrelationKernels, correlation)    \
  DO(FitKernels, fit)                    \
  DO(ColourKernels, colour)
// clang-format on

namespace quillon {

#define QUILLON_NAME_FAMILY(Type, name) struct Type;
QUILLON_FOR_EACH_FAMILY(QUILLON_NAME_FAMILY)
#undef QUILLON_NAME_FAMILY

#define QUILLON_DECLARE_FAMILY(Type, name) extern const Type name;
#define QUILLON_DECLARE_LEVEL(level)              \
  namespace level {                               \
  QUILLON_FOR_EACH_FAMILY(QUILLON_DECLARE_FAMILY) \
  }
QUILLON_FOR_EACH_LEVEL(QUILLON_DECLARE_LEVEL)
#undef QUILLON_DECLARE_LEVEL
#undef QUILLON_DECLARE_FAMILY

}  // namespace quillon
