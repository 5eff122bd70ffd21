// Row kernels of the morphology: extremes of a few rows, sliding extremes of many, and the
// difference of two results.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// One set for maxima (dilation), one for minima (erosion). Results may not overlap what is read,
// but for the rows named as updated.
struct ExtremeKernels {
  static constexpr int kMaxTerms = 7;

  // out[x] = the extreme of from[i][x] over i = 0 ... terms - 1; terms is 2 ... kMaxTerms.
  void (*OfRows)(const uint8_t* const* from, int terms, uint8_t* out, int count);

  // out[x] = the extreme of row[x] ... row[x + run - 1]; run is 5, 7, 8 or 16. Up to kReadBeyond
  // bytes after the last of them are read.
  static constexpr int kReadBeyond = 64;
  void (*OfRuns)(const uint8_t* row, int run, uint8_t* out, int count);

  // Four results: out[i][x] = the extreme of from[i][x] ... from[i + terms - 1][x]; terms is 3 ...
  // 7. What neighbouring windows share is loaded once.
  void (*FourOfRows)(const uint8_t* const* from, int terms, uint8_t* const* out, int count);

  // The same with columns that differ from row to row: out[i][x] = the extreme of from[i + k][x +
  // slant * k] over k = 0 ... terms - 1. slant is 1 or -1.
  void (*FourOfSlants)(const uint8_t* const* from, int terms, int slant, uint8_t* const* out,
                       int count);

  // Four rows of boxes of size x size pixels, 3, 5 or 7, over rows from[0] ... from[size + 2] of
  // `width` pixels. Outside them the edge pixels repeat. out[i][x] is for the box around column x +
  // inset, x = 0 ... width - 2 * inset - 1; inset is 0 or 1.
  void (*FourOfBoxes)(const uint8_t* const* from, int size, uint8_t* const* out, int width,
                      int inset);

  // Four rows of crosses over rows[0] ... rows[5]: out[i][x] = the extreme of rows[i + 1][x] ...
  // rows[i + 1][x + 2] and of what is above and below the middle one.
  void (*FourOfCrosses)(const uint8_t* const* rows, uint8_t* const* out, int count);

  // The two halves of a sliding window over rows (VerticalWindow in morph_rows.h). Suffixes
  // prepares a block: every row becomes the extreme of itself and all rows after it.
  void (*Suffixes)(uint8_t* rows, ptrdiff_t stride, int rowCount, int count);
  // Slide goes through the next block: prefix[x] takes in row[x], out[x] = the extreme of suffix[x]
  // and prefix[x].
  void (*Slide)(const uint8_t* row, const uint8_t* suffix, uint8_t* prefix, uint8_t* out,
                int count);
};

struct MorphKernels {
  ExtremeKernels maximum, minimum;

  // out[x] = max(a[x] - b[x], 0) in the columns before the last count % 8; there a[x] where that is
  // not below b[x], else 0. `out` may be `a` or `b`.
  void (*Subtract)(const uint8_t* a, const uint8_t* b, uint8_t* out, int count);

  // The subtraction of what is smallest from what is largest in the 3 x 3 pixels around each one,
  // in rows 1 ... rowCount of rows[0] ... rows[rowCount + 1]; rowCount is at most
  // kMaxGradientRows. The edge columns have the extremes of the columns beside them. count is 3 or
  // more.
  static constexpr int kMaxGradientRows = 8;
  void (*GradientOf3x3)(const uint8_t* const* rows, int rowCount, uint8_t* const* out, int count);
};

}  // namespace quillon
