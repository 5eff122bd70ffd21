// Running a check at every instruction-set level that the machine has.
#pragma once

#include "simd/kernels.h"
#include "support/images.h"

namespace quillon::test {

void ForEachLevel(const std::function<void(const Kernels&)>& check);

// Every level x size x content.
void ForEachLevelAndImage(const std::function<void(const Kernels&, const GreyImage&)>& check);

}  // namespace quillon::test
