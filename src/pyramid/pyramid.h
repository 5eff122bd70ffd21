// Image pyramids: level k holds the means of the 2^k x 2^k blocks of the full resolution, each
// level made from level 0 directly. Blocks that the right or bottom edge cuts are dropped.
#pragma once

#include <cstdint>

#include "pyramid/pyramid_kernels.h"
#include "quillon/image.h"

namespace quillon {

struct Kernels;

// Columns or rows of a level, from those of level 0.
constexpr int ReducedSize(int size, int level) { return size >> level; }

// The coarsest level, 0 to 6, that keeps about 16 or more of a template's `pixels`.
int CoarsestLevel(uint32_t pixels);

// Level `level`, 1 to 6, of the width x height image in `source`, written to the first
// ReducedSize(width, level) bytes of the first ReducedSize(height, level) rows of `result`. Values
// are truncated block means; those of level 4 are half as large. Writing into the source's own rows
// is fine at level 4 and above.
void ReduceByBlockMean(const Kernels& kernels, int level, const uint8_t* const* source, int width,
                       int height, uint8_t* const* result);

// A stand-alone level 4. In place, the reduced image fills the top left corner.
void ReduceImageBy16(const Kernels& kernels, const GreyImage& source, GreyImage& result);

}  // namespace quillon
