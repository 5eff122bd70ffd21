// The table of the finder's kernels.
#include "finder/levels.h"

#include "simd/processor.h"

namespace quillon {
namespace {

constinit const FinderKernels* const kLevels[] = {&sse2::search, &avx2::search, &avx512::search};

}  // namespace

const FinderKernels& BestFinderKernels() { return *kLevels[LevelCount() - 1]; }

std::span<const FinderKernels* const> AvailableFinderKernels() { return {kLevels, LevelCount()}; }

}  // namespace quillon
