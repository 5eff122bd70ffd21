// What repeated passes of a small element over an image come to, without making them one by one.
//
// Each operation is a chain of stages (morph_rows.h). The stage on the right yields the result, and
// asks the one on its left for rows, and so on down to the image:
//
//   rectangle           image - vertical window - horizontal window - RectangleRows
//   rectangle, v = 0    image - horizontal window - WideRows
//   diamond             image - Cross - DiagonalWindows - DiamondGrowth ... - StarRows
//   circle              image - Cross or DiagonalWindows - DiamondGrowth ...
//                             - vertical window - horizontal window - StarRows
//
//   vertical window     ThinWindow up to radius 3 (which takes in a horizontal one of the same
//                       radius), VerticalWindow above
//   horizontal window   HorizontalWindow
//
// Stages that a size does not need are left out. The last stage adds the borders described below.
// An opening or closing is two chains, the first one in place of the second one's image. A "star"
// is what crosses and squares make together: a diamond, or the octagon that is called a circle
// here.
//
// A pass leaves borders behind: the edge columns and the top row copy the result beside them, and
// the last rows are written late or never. W and H are the image's sizes, 3 or more; `in` and `out`
// the images before the first and after the last pass. A dilation is described, with maxima; an
// erosion has minima. "Fresh" means that the passes write into a new image, which is all zero, and
// not over their source; the first pass is then made whatever the count.
//
// Rectangle, h horizontal passes, then v vertical ones:
//   Along a row x - h ... x + h, clipped at the row's ends. Columns 0 and W - 1 copy columns 1 and
//   W - 2. The last row takes no part: it stays, or is zero when fresh.
//   Along a column y - v ... y + v, clipped to rows 0 ... H - 2. That holds for rows 1 ... H - 3.
//   Row 0 copies row 1. Row H - 2 never receives its result, and row H - 1 copies it.
//
// Diamond, n passes:
//   |dx| + |dy| <= n, over rows 0 ... H - 2 without their four corners, which no cross reaches.
//   That holds for rows 1 ... H - 3 and columns 1 ... W - 2; columns 0 and W - 1 and row 0 copy
//   what is beside them. Rows H - 2 and H - 1 both hold row H - 2 of `in`, or zero when fresh. That
//   zero row is read from the second pass on: fresh erosions are zero in the n - 1 rows above it.
//
// Circle, n passes, a cross and a square (vertical, then horizontal) in turns, the cross first:
//   The first cross brings in the border pixels as for the diamond. From then on the edge columns
//   and the top row only repeat what is beside them, and elements clipped to a rectangle add up in
//   any order: (n + 1) / 2 crosses make a diamond, n / 2 squares a square. What is left is row H -
//   2, which squares widen along itself but which takes in nothing from above. Row H - 3 holds all
//   it has to give, but for its corners: the first square brings them in from (0, H - 2) and (W -
//   1, H - 2), and n - 2 passes spread them on. Row H - 1 copies row H - 2 as it is before the last
//   vertical pass widens it. Fresh: as for the diamond.
#pragma once

#include "morph/morph.h"
#include "morph/morph_rows.h"

namespace quillon {

struct ExtremeKernels;

// The rows of an image of width x height after the element's passes over the rows of `input`. Null
// when there is no memory.
RowsPtr ApplyPasses(const ExtremeKernels& kernels, Extreme extreme, const Element& element,
                    bool isFresh, RowsPtr input, int width, int height);

}  // namespace quillon
