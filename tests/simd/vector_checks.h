// Checks of the vector layer and of the walkers over blocks, made once per level.
#pragma once

namespace quillon {

// Null, or what came out wrong first.
namespace sse2 {
const char* CheckVectors();
}
namespace avx2 {
const char* CheckVectors();
}
namespace avx512 {
const char* CheckVectors();
}

}  // namespace quillon
