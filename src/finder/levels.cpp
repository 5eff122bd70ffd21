// The table of the finder's kernels.
#include "finder/levels.h"

#include "simd/processor.h"

namespace quillon {
namespace {

#define QUILLON_KERNELS_OF_LEVEL(level) &level::search,
constinit const FinderKernels* const kLevels[] = {QUILLON_FOR_EACH_LEVEL(QUILLON_KERNELS_OF_LEVEL)};
#undef QUILLON_KERNELS_OF_LEVEL

}  // namespace

const FinderKernels& BestFinderKernels() { return *kLevels[LevelCount() - 1]; }

std::span<const FinderKernels* const> AvailableFinderKernels() { return {kLevels, LevelCount()}; }

}  // namespace quillon
