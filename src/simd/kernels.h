// All kernels of one instruction-set level, and the one choice between the levels. Workers take a
// `const Kernels&`: exports pass BestKernels(), tests pass each of AvailableKernels() in turn.
#pragma once

#include <span>

#include "arith/arithmetic_kernels.h"
#include "arith/rotation_kernels.h"
#include "arith/scaling_kernels.h"
#include "blob/runs_kernels.h"
#include "color/colour_kernels.h"
#include "core/grey_kernels.h"
#include "filters/convolution_kernels.h"
#include "filters/gradient_kernels.h"
#include "filters/median_kernels.h"
#include "filters/smoothing_kernels.h"
#include "geomatch/geomatch_kernels.h"
#include "morph/morph_kernels.h"
#include "ncc/correlation_kernels.h"
#include "ncc/fit_kernels.h"
#include "ncc/pyramid_kernels.h"
#include "point/lookup_kernels.h"
#include "point/threshold_kernels.h"

namespace quillon {

struct Kernels {
  const char* level;
  const ArithmeticKernels& arithmetic;
  const RotationKernels& rotation;
  const ScalingKernels& scaling;
  const GreyKernels& grey;
  const LookupKernels& lookup;
  const ThresholdKernels& threshold;
  const GradientKernels& gradient;
  const MedianKernels& median;
  const SmoothingKernels& smoothing;
  const ConvolutionKernels& convolution;
  const MorphKernels& morph;
  const RunsKernels& runs;
  const PyramidKernels& pyramid;
  const GeomatchKernels& geomatch;
  const CorrelationKernels& correlation;
  const FitKernels& fit;
  const ColourKernels& colour;
};

// The widest level that this processor and its operating system run. A few bit tests, no state.
const Kernels& BestKernels();

// Every level that can run here, the floor first.
std::span<const Kernels* const> AvailableKernels();

}  // namespace quillon
