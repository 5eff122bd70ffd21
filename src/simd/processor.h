// What this processor and its operating system run.
#pragma once

#include <cstddef>

namespace quillon {

// How many of the levels sse2, avx2, avx512 run here: 1 ... 3. A few bit tests, no state.
size_t LevelCount();

}  // namespace quillon
