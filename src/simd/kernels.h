// All kernels of one instruction-set level, and the one choice between the levels. Workers take a
// `const Kernels&`: exports pass BestKernels(), tests pass each of AvailableKernels() in turn.
#pragma once

#include <span>

#include "simd/families.h"

namespace quillon {

struct Kernels {
  const char* level;
#define QUILLON_FAMILY_MEMBER(Type, name) const Type& name;
  QUILLON_FOR_EACH_FAMILY(QUILLON_FAMILY_MEMBER)
#undef QUILLON_FAMILY_MEMBER
};

// The widest level that this processor and its operating system run. A few bit tests, no state.
const Kernels& BestKernels();

// Every level that can run here, the floor first.
std::span<const Kernels* const> AvailableKernels();

}  // namespace quillon
