// The choice between the levels of the finder's kernels: as BestKernels and AvailableKernels of
// simd/kernels.h.
#pragma once

#include <span>

#include "finder/finder_kernels.h"

namespace quillon {

const FinderKernels& BestFinderKernels();
std::span<const FinderKernels* const> AvailableFinderKernels();

}  // namespace quillon
