// The exported functions of Quillon, by family.
//
// Rules for every function
// - C calling convention, plain names. Images are objects that the host constructed (image.h).
// - There are no error codes and no messages: a call that cannot do its work does nothing, or
//   returns the failure value named below. No call throws, whatever it is given.
// - A null image, or one without pixels, where pixels are read: nothing happens.
// - A destination is re-created at the size the operation needs; its old size and contents are
//   discarded. Where the source may also be the destination, the comment says so.
// - Results are the same bytes on every machine, at every instruction-set level.
// - Calls on different objects may run on different threads; one object serves one call at a time.
#pragma once

#include "quillon/image.h"
#include "quillon/records.h"

#if !defined(_WIN32)
#define QUILLON_API extern "C" __attribute__((visibility("default")))
#define QUILLON_CALL
#elif defined(QUILLON_BUILDING)
#define QUILLON_API extern "C"
#define QUILLON_CALL __cdecl
#else
#define QUILLON_API extern "C" __declspec(dllimport)
#define QUILLON_CALL __cdecl
#endif

namespace quillon {

// ---- colour to grey -----------------------------------------------------------------------------

// Grey of a colour image, re-creating `result` at the source's size.
//   columns 0 ... 8 * (width / 8) - 1:  B * 116 / 1024 + G * 600 / 1024 + R * 305 / 1024, each
//                                       product truncated on its own (white becomes 252)
//   the remaining columns:              G * 0.587 + B * 0.114 + R * 0.2989, truncated (254)
// Depths: the source deeper than 8 bits, read as three bytes a pixel; the result must already
// report 8. Otherwise nothing happens.
QUILLON_API void QUILLON_CALL IxColorToGray(const ColourImage* source, GreyImage* result);

// ---- thresholds ---------------------------------------------------------------------------------
// All work in place on an 8-bit image; other depths: nothing happens.

// 255 where the pixel is above `threshold`, else 0.
// A threshold outside 0 ... 255: the last width % 8 columns follow the rule (all 255 below 0, all 0
// from 255 on); the columns before them compare with its low 8 bits.
QUILLON_API void QUILLON_CALL IxThreshold(GreyImage* image, int threshold);

// 255 where min(low, high) < pixel < high, else 0. So swapped bounds give an empty band.
// Bounds outside 0 ... 255: as for IxThreshold, each bound by its low 8 bits in the columns before
// the last width % 8.
QUILLON_API void QUILLON_CALL IxDoubleThreshold(GreyImage* image, int low, int high);

// IxThreshold at the level that maximises the variance between the two classes (N. Otsu, "A
// threshold selection method from gray-level histograms", IEEE Trans. SMC 9(1), 1979). Among equal
// maxima the lowest level wins; a constant image gets level 0.
QUILLON_API void QUILLON_CALL IxOtsuThreshold(GreyImage* image);

// ---- edges and sharpening -----------------------------------------------------------------------
// 3 x 3 neighbours of a grey image, here as the rows t, m and b above, at and below the pixel.
//
// Frame: rows 1 ... height - 2 and columns 1 ... width - 2 are computed, from unmodified pixels of
// the source. Then column 0 repeats column 1, column width - 1 repeats width - 2, row 0 repeats
// row 1 and row height - 1 repeats height - 2. Results are clamped to 0 ... 255.
// Block columns are columns 1 ... 8 * ((width - 1) / 8), tail columns those after them. Where
// width - 1 is a multiple of 8, the blocks take in column width - 1: its right neighbour is the
// padding byte after the row (0 where rows have no padding), and the border repeats it into that
// byte of the result's rows 1 ... height - 2.
// The destination may be the source, with the same pixels. Depth is not tested: the first `width`
// bytes of each row are read. Fewer than 3 rows or columns: sharpening copies the source, the other
// results are 0.

// (|gx| + |gy|) / 4, truncated, with
//   gx = 2 (m[x+1] - m[x-1]) + (t[x+1] - t[x-1]) + (b[x+1] - b[x-1])
//   gy = 2 (b[x] - t[x]) + (b[x-1] - t[x-1]) + (b[x+1] - t[x+1])
QUILLON_API void QUILLON_CALL IxSobel(const GreyImage* source, GreyImage* result);

// The same with 1 in place of 2 in the block columns; the tail columns are Sobel's.
QUILLON_API void QUILLON_CALL IxPrewitt(const GreyImage* source, GreyImage* result);

// 2 (|m[x] - b[x+1]| + |b[x] - m[x+1]|), the cross of 2 x 2 pixels, in the frame of the others
// (L. Roberts, "Machine perception of three-dimensional solids", MIT, 1963).
QUILLON_API void QUILLON_CALL IxRobert(const GreyImage* source, GreyImage* result);

// 8 m[x] less the sum of the eight neighbours.
QUILLON_API void QUILLON_CALL IxLaplacian(const GreyImage* source, GreyImage* result);

// 9 m[x] less the sum of the eight neighbours in the block columns, 7 m[x] less it in the tail: a
// flat area stays as it is in the first and becomes black in the second.
QUILLON_API void QUILLON_CALL IxLaplacianSharping(const GreyImage* source, GreyImage* result);

// ---- medians ------------------------------------------------------------------------------------
// The median of the n x n pixels around each pixel of a grey image, exact, at a cost that depends
// on neither data nor values. What neighbouring windows share is sorted once, as in A. Adams, "Fast
// median filters using separable sorting networks", ACM Transactions on Graphics 40(4), 2021.
// The destination may be the source, with the same pixels. Depth is not tested: the first `width`
// bytes of each row are read. An image smaller than the window is copied.

// 3 x 3, in the frame of the edge filters with blocks of 16: columns 1 ... 16 * ((width - 1) / 16).
// So where width - 1 is a multiple of 16, column width - 1 is computed too, with the padding byte
// after the row (0 where rows have no padding) as its right neighbour, and the border repeats it
// into that byte of the result's rows 1 ... height - 2.
QUILLON_API void QUILLON_CALL IxMedianFilter3x3(const GreyImage* source, GreyImage* result);

// 5 x 5. The two outermost columns on either side repeat the third, the two outermost rows too.
QUILLON_API void QUILLON_CALL IxMedianFilter5x5(const GreyImage* source, GreyImage* result);

// ---- pixel arithmetic ---------------------------------------------------------------------------
// Grey images of 8 bits. When any image, the result included, reports another depth, nothing
// happens. The result may be a source; otherwise it is re-created at the sources' size.

// Two images of one size (else nothing happens): result(x, y) from a(x, y) and b(x, y).
//   Add  min(a + b, 255)     Sub  max(a - b, 0)     Mul  min(a * b, 255)
//   Div  a / b truncated; where b is 0: 255 for a > 0, 0 for a = 0
QUILLON_API void QUILLON_CALL IxImageAdd(const GreyImage* a, const GreyImage* b, GreyImage* result);
QUILLON_API void QUILLON_CALL IxImageSub(const GreyImage* a, const GreyImage* b, GreyImage* result);
QUILLON_API void QUILLON_CALL IxImageMul(const GreyImage* a, const GreyImage* b, GreyImage* result);
QUILLON_API void QUILLON_CALL IxImageDiv(const GreyImage* a, const GreyImage* b, GreyImage* result);

// Bit by bit: a & b, a | b, a ^ b.
QUILLON_API void QUILLON_CALL IxImageBirwiseAND(const GreyImage* a, const GreyImage* b,
                                                GreyImage* result);
QUILLON_API void QUILLON_CALL IxImageBirwiseOR(const GreyImage* a, const GreyImage* b,
                                               GreyImage* result);
QUILLON_API void QUILLON_CALL IxImageBirwiseXOR(const GreyImage* a, const GreyImage* b,
                                                GreyImage* result);

// 255 where a = b, else 0; and the other way round.
QUILLON_API void QUILLON_CALL IxImageEqual(const GreyImage* a, const GreyImage* b,
                                           GreyImage* result);
QUILLON_API void QUILLON_CALL IxImageNOTEqual(const GreyImage* a, const GreyImage* b,
                                              GreyImage* result);

// (pixel << bits) & 255 and pixel >> bits. Bits of 8 or more give 0; below 0 nothing happens.
QUILLON_API void QUILLON_CALL IxImageShiftLeft(const GreyImage* source, GreyImage* result,
                                               int bits);
QUILLON_API void QUILLON_CALL IxImageShiftRight(const GreyImage* source, GreyImage* result,
                                                int bits);

// 255 - pixel.
QUILLON_API void QUILLON_CALL IxImageInvert(const GreyImage* source, GreyImage* result);

// v = pixel * gain + offset in double: 255 where v >= 255, 0 where v <= 0 or not a number, else v
// truncated. Any gain and offset, infinite and not-a-number included.
QUILLON_API void QUILLON_CALL IxImageGainOffset(const GreyImage* source, GreyImage* result,
                                                double gain, double offset);

// ---- geometric transforms -----------------------------------------------------------------------
// Grey images of 8 bits; when an image, the result included, reports another depth, nothing
// happens. The result may be the source, with the same pixels as out of place.

// Nearest neighbour at pixel centres. The result is re-created at trunc(width * scaleX + 0.5) x
// trunc(height * scaleY + 0.5); its column x shows column min(trunc((x + 0.5) / scaleX), width -
// 1), its rows likewise. A scale that is not finite and positive, or a side of the result outside
// 1 ... 32767: nothing happens.
QUILLON_API void QUILLON_CALL IxImageScaling(const GreyImage* source, GreyImage* result,
                                             double scaleX, double scaleY);

// result(x + dx, y + dy) = source(x, y), at the source's size; uncovered pixels are 0. Any
// distance.
QUILLON_API void QUILLON_CALL IxImageTranslation(const GreyImage* source, GreyImage* result, int dx,
                                                 int dy);

// The image turned about its centre by `angle` degrees at the source's size; a positive angle turns
// clockwise as displayed; uncovered pixels are 0. The pixel (x, y) shows the position
//   sx = ((x - cx) cos + (y - cy) sin) + cx        cx = (width - 1) / 2
//   sy = ((y - cy) cos - (x - cx) sin) + cy        cy = (height - 1) / 2
// IxImageRotation takes the nearest pixel, halves going up, of positions in [-0.5, width - 0.5) x
// [-0.5, height - 0.5). IxImageRotationBilinear interpolates between the four pixels around, in
// double, positions in [0, width - 1] x [0, height - 1] and up to 1e-9 beyond, and rounds to
// nearest, halves up. Any finite angle; multiples of 90 degrees are exact. An angle that is not
// finite: nothing happens.
QUILLON_API void QUILLON_CALL IxImageRotation(const GreyImage* source, GreyImage* result,
                                              double angle);
QUILLON_API void QUILLON_CALL IxImageRotationBilinear(const GreyImage* source, GreyImage* result,
                                                      double angle);

// ---- smoothing and convolution ------------------------------------------------------------------
// Every computed pixel is formed from unmodified source pixels. Pixels whose window leaves the
// image take the value of the nearest pixel whose window does not; an image smaller than the window
// in either direction is copied. `result` may be the source. Depths are not tested: rows are read
// as `width` bytes.

// Binomial weights in each direction, rounded to nearest.
//   3 x 3:  1 2 1,           (sum + 8) / 16
//   5 x 5:  1 4 6 4 1,       (sum + 128) / 256
//   7 x 7:  1 6 15 20 15 6 1, (sum + 2048) / 4096
QUILLON_API void QUILLON_CALL IxGaussianSmoothing3x3(const GreyImage* source, GreyImage* result);
QUILLON_API void QUILLON_CALL IxGaussianSmoothing5x5(const GreyImage* source, GreyImage* result);
QUILLON_API void QUILLON_CALL IxGaussianSmoothing7x7(const GreyImage* source, GreyImage* result);

// The mean of a window of size x size pixels, rounded to nearest: (sum + n / 2) / n for n pixels.
// Any odd size, at a cost per pixel that does not depend on it; 1 copies; even sizes and sizes
// below 1: nothing happens.
QUILLON_API void QUILLON_CALL IxMeanSmoothing(const GreyImage* source, GreyImage* result, int size);
QUILLON_API void QUILLON_CALL IxMeanSmoothing3x3(const GreyImage* source, GreyImage* result);
QUILLON_API void QUILLON_CALL IxMeanSmoothing5x5(const GreyImage* source, GreyImage* result);
QUILLON_API void QUILLON_CALL IxMeanSmoothing7x7(const GreyImage* source, GreyImage* result);

// The sum of the window's pixels, each times its weight in `kernel` (9, 25 or 49 of them, row by
// row; the first one belongs to the top left neighbour), divided by the sum of the weights where
// that is positive, truncated toward zero and clamped to 0 ... 255. Any weights: sums are exact. A
// null kernel: nothing happens.
QUILLON_API void QUILLON_CALL IxArbitraryConvolution3x3(const GreyImage* source, GreyImage* result,
                                                        const int* kernel);
QUILLON_API void QUILLON_CALL IxArbitraryConvolution5x5(const GreyImage* source, GreyImage* result,
                                                        const int* kernel);
QUILLON_API void QUILLON_CALL IxArbitraryConvolution7x7(const GreyImage* source, GreyImage* result,
                                                        const int* kernel);

// ---- regions of interest ------------------------------------------------------------------------
// A region object holds a region of interest as horizontal runs, and every result of the last
// labelling made into it. Its tables have fixed capacities: 300,000 runs of the region of interest,
// 300,000 runs of blobs, 50,000 labels, 20,000 feature records. Whatever fills a table stops there.
// A null region: nothing happens; false, 0 or null is returned. The same where a table that a call
// works on is null; but without the table of its runs a region of interest counts as empty.

// A new region object without runs. Null when there is no memory for it (about 18 MB, touched only
// as far as used).
QUILLON_API RLERegion* QUILLON_CALL CreateRLERegion();
// Frees the region, its tables and its display image.
QUILLON_API void QUILLON_CALL DestroyRLERegion(RLERegion* region);

// Makes the inside of a closed polygon the region of interest. `points` are count pairs x, y.
//   Edges are drawn pixel by pixel: n = max(|dx|, |dy|) steps, the shorter axis advancing where its
//   counter, which starts at 1 and grows by the shorter length a step, exceeds n.
//   Points in clockwise order as displayed: all boundary pixels belong to the region. In the other
//   order, the rows of upper and lower boundaries do not: the rectangle (0,0) (9,0) (9,4) (0,4) has
//   50 pixels, (0,0) (0,4) (9,4) (9,0) has 30.
//   Points may lie outside the image that is labelled later; those parts hold no pixels.
// No points, or a count below 1: the region of interest stays as it was. A polygon without extent
// gives an empty one, and so does a boundary of more than 2^24 steps. Beyond 300,000 runs the lower
// rows are dropped.
QUILLON_API void QUILLON_CALL IxPointToRegion(RLERegion* region, const int* points, int count);

// Remembers an image to display the region on, and makes a new black display image of its size. The
// image's bitmap is read when displayed, so the image must stay alive. A null image: false, and
// nothing changes.
QUILLON_API bool QUILLON_CALL IxImgAssignToRegion(RLERegion* region, const GreyImage* image);

// Draws the runs of the region of interest into the display image as lines of red 125 that lack
// their last pixel, combines the assigned image into it by exclusive-or, and returns its bitmap,
// which stays the region's. The display image is not cleared in between: a second call shows the
// lines combined with the image on black. For the first picture again, assign again.
// Null while there is no display image with pixels.
QUILLON_API HBITMAP QUILLON_CALL IxGetRegDisplay(RLERegion* region);

// ---- blobs --------------------------------------------------------------------------------------
// Blobs are groups of pixels that touch, diagonals included. Rows are scanned from the top, each
// from the left; a run that touches nothing above starts a label, and where a run joins several,
// the leftmost one's is kept. Blobs are numbered 0, 1, 2 ... in the order of the labels that were
// kept. Pixels are read as bytes, whatever the image's depth.

// Labels the pixels whose value is at least min(low, high) and at most max(low, high), inside the
// region of interest.
//   Where a run of the region ends at the image's last column, that column is left out: a region
//   that is exactly the image labels width - 1 columns. A region that reaches beyond the image
//   labels all of them.
//   Where the region skips rows, the last row seen counts as the row above.
// Without a region of interest there are no blobs. Beyond 300,000 runs or 50,000 labels, what was
// found so far is kept and the rest is not labelled. An image without pixels: nothing happens.
// Selection and features stay as they were until IxComputeAllBlobFeature.
QUILLON_API void QUILLON_CALL IxGrayBlobLabel(const GreyImage* image, RLERegion* region, int low,
                                              int high);

// Fills holes in place: every group of pixels that differ from `value` (its low 8 bits), diagonals
// included, is set to it unless the group touches the top row or the last column. Groups that touch
// only the left edge or the bottom row are filled too. The region of interest is not used; the
// tables of the region object are, so its blobs must be labelled again before they are read. Beyond
// 300,000 runs or 50,000 labels, the rows below stay as they are.
// False when an object is missing, or memory.
QUILLON_API bool QUILLON_CALL IxBinaryFillUp(GreyImage* image, RLERegion* region, int value);

// Blobs of the last labelling.
QUILLON_API int QUILLON_CALL IxGetBlobCount(const RLERegion* region);

// Of blob n. A number that no blob has gives area 0, centre (0, 0), means of 0, an empty bound and
// no rectangle (false, the result untouched).

// Pixels.
QUILLON_API int QUILLON_CALL IxGetnBlobArea(const RLERegion* region, int n);

// result[0], result[1] = mean column and mean row. Each run adds (first + last) * length / 2 to the
// column's sum, in integers: a run with an odd product loses a half.
QUILLON_API void QUILLON_CALL IxGetnBlobCenter(const RLERegion* region, int n, float* result);

// result[0 ... 3] = left, right, top, bottom, all inclusive. An empty bound is 99999, 0, 99999, 0.
QUILLON_API void QUILLON_CALL IxGetnBlobBound(const RLERegion* region, int n, int* result);

// The rectangle of least area around the centres of the blob's pixels, as 13 floats: centre x, y;
// height, the length of the first side; width, of the second; the angle of the first side; corners
// x, y. One of its sides lies along an edge of the convex hull (H. Freeman, R. Shapira,
// "Determining the minimum-area encasing rectangle", Comm. ACM 18(7), 1975), and that is the first
// side.
//   angle: atan2(-dy, dx) in degrees; 0 where dx is 0; 90 is added to negative ones
//   one pixel: 1 x 1, angle 0, all corners the pixel
//   pixels on one line from p to q: height |q - p|, width 0, corners p, (q.x, p.y), p, q
//   otherwise with the first side e1 from corner o and the second e2: corners o + e2, o, o + e1,
//   o + e1 + e2; of equal rectangles the last one found around the hull
QUILLON_API bool QUILLON_CALL IxGetBlobMinRect(const RLERegion* region, int n, float* result);

// Mean of the image's pixels inside blob n, or inside the region of interest, divided by the area.
// The colour means are result[0 ... 2] = red, green, blue. Sums are 32 bits wide and wrap beyond
// 16.8 million white pixels. Pixels outside the image add nothing; an image without pixels gives 0.
QUILLON_API double QUILLON_CALL IxGetnBlobGrayMean(const GreyImage* image, RLERegion* region,
                                                   int n);
QUILLON_API void QUILLON_CALL IxGetnBlobColorMean(const ColourImage* image, RLERegion* region,
                                                  int n, double* result);
QUILLON_API double QUILLON_CALL IxGetnRegionGrayMean(const GreyImage* image,
                                                     const RLERegion* region);
QUILLON_API void QUILLON_CALL IxGetnRegionColorMean(const ColourImage* image,
                                                    const RLERegion* region, double* result);

// ---- selecting blobs ----------------------------------------------------------------------------
// The feature table holds one record a blob, each in or out of the selection. Every selection works
// within the current one. All bounds are inclusive; the sizes take the upper bound first.
// False, and nothing changes: no current selection, or none left in it.

// Fills the feature table, blob by blob, and selects all of it. Of more than 20,000 blobs the first
// 20,000 have records. False when nothing was labelled.
QUILLON_API bool QUILLON_CALL IxComputeAllBlobFeature(RLERegion* region);

// Pixels.
QUILLON_API bool QUILLON_CALL IxSelectBlobArea(RLERegion* region, int maxArea, int minArea);
// Width and height of the minimum rectangle, compared as floats.
QUILLON_API bool QUILLON_CALL IxSelectBlobWidth(RLERegion* region, int maxWidth, int minWidth);
QUILLON_API bool QUILLON_CALL IxSelectBlobHeight(RLERegion* region, int maxHeight, int minHeight);
// Mean column and mean row.
QUILLON_API bool QUILLON_CALL IxLocateBlobCenter(RLERegion* region, int xMin, int xMax, int yMin,
                                                 int yMax);

// Selects all blobs again. An empty selection stays empty: only IxComputeAllBlobFeature undoes it.
QUILLON_API bool QUILLON_CALL IxReSelectBlob(RLERegion* region);

// Blobs in the current selection.
QUILLON_API int QUILLON_CALL IxGetSelectBlobCount(const RLERegion* region);

// Copies the selected records one after another, in the order of their blobs. `result` has room for
// IxGetSelectBlobCount records; never more are written.
QUILLON_API bool QUILLON_CALL IxGetBlobList(const RLERegion* region, BlobFeature* result);

// ---- morphology ---------------------------------------------------------------------------------
// Grey dilation (the largest value under the element) and erosion (the smallest). The cost per
// pixel grows with the logarithm of the element's size at most (van Herk 1992; Gil and Werman 1993;
// Pitas 1989; van den Boomgaard and van Balen 1992).
//
// Elements, by passes of a small one:
//   h, v passes  a rectangle, 2h + 1 wide and 2v + 1 high
//   Diamond, n   all offsets with |dx| + |dy| <= n
//   Circle, n    crosses of 5 and squares of 9 pixels in turns, a cross first: an octagon
// Counts below 1 make no pass, but for the first one (horizontal, or a cross) into another image:
// that is always made. No count takes long: passes that change nothing are not made.
//
// Borders, of a W x H image. Elements are cut at the edges; a cross does not reach the corners.
//   - The edge columns copy the columns beside them after any horizontal or cross pass, the top row
//     copies the row below it after any vertical or cross pass.
//   - A horizontal pass leaves row H - 1 as it is: the source's in place, zero in another image.
//   - A vertical or cross pass leaves row H - 2 as it is and copies it to row H - 1. So, with a
//     rectangle of v >= 1, both rows hold row H - 2 of the horizontal passes. With a diamond both
//     hold row H - 2 of the source in place, and zero in another image; that zero row enters the
//     later passes of an erosion from below. With a circle, row H - 2 is widened by the horizontal
//     passes besides.
//
// Source and result may be the same image. A result is re-created at the source's size. Depths are
// not tested: rows are read as `width` bytes. Images less than 3 pixels wide or high, and memory
// that is not there: nothing happens.

// Dilation and erosion.
QUILLON_API void QUILLON_CALL IxDilation(const GreyImage* source, GreyImage* result,
                                         int horizontalPasses, int verticalPasses);
QUILLON_API void QUILLON_CALL IxDilationDiamond(const GreyImage* source, GreyImage* result,
                                                int passes);
QUILLON_API void QUILLON_CALL IxDilationCircle(const GreyImage* source, GreyImage* result,
                                               int passes);
QUILLON_API void QUILLON_CALL IxErosion(const GreyImage* source, GreyImage* result,
                                        int horizontalPasses, int verticalPasses);
QUILLON_API void QUILLON_CALL IxErosionDiamond(const GreyImage* source, GreyImage* result,
                                               int passes);
QUILLON_API void QUILLON_CALL IxErosionCircle(const GreyImage* source, GreyImage* result,
                                              int passes);

// Opening: erosion, then dilation of that in place. Closing: dilation, then erosion.
QUILLON_API void QUILLON_CALL IxOpening(const GreyImage* source, GreyImage* result,
                                        int horizontalPasses, int verticalPasses);
QUILLON_API void QUILLON_CALL IxClosing(const GreyImage* source, GreyImage* result,
                                        int horizontalPasses, int verticalPasses);

// The same in place only. Into another image only the second of the two acts on the source: an
// opening is its IxDilationDiamond or IxDilationCircle, a closing its IxErosionDiamond or
// IxErosionCircle. For a true one, copy the source and work in place.
QUILLON_API void QUILLON_CALL IxOpeningDiamond(const GreyImage* source, GreyImage* result,
                                               int passes);
QUILLON_API void QUILLON_CALL IxOpeningCircle(const GreyImage* source, GreyImage* result,
                                              int passes);
QUILLON_API void QUILLON_CALL IxClosingDiamond(const GreyImage* source, GreyImage* result,
                                               int passes);
QUILLON_API void QUILLON_CALL IxClosingCircle(const GreyImage* source, GreyImage* result,
                                              int passes);

// Gradient: dilation (as in place) - erosion (as into another image). White top-hat: source -
// opening; black top-hat: closing - source; both begin as into another image.
// Differences below 0 become 0. In the last width % 8 columns no other difference is stored: the
// first operand stays. So a flat image's gradient is 0, but there the image's value.
// Gradient and white top-hat leave their result in the source as well, and the result's row padding
// is the source's. The black top-hat leaves the source alone.
// In place each call leaves behind one image of the source's size that nobody can release: hosts
// have come to count on the memory figures. Give another image as the result to avoid it.
QUILLON_API void QUILLON_CALL IxMorphGradient(GreyImage* source, GreyImage* result,
                                              int horizontalPasses, int verticalPasses);
QUILLON_API void QUILLON_CALL IxMorphGradientDiamond(GreyImage* source, GreyImage* result,
                                                     int passes);
QUILLON_API void QUILLON_CALL IxMorphGradientCircle(GreyImage* source, GreyImage* result,
                                                    int passes);
QUILLON_API void QUILLON_CALL IxMorphWhiteTopHat(GreyImage* source, GreyImage* result,
                                                 int horizontalPasses, int verticalPasses);
QUILLON_API void QUILLON_CALL IxMorphWhiteTopHatDiamond(GreyImage* source, GreyImage* result,
                                                        int passes);
QUILLON_API void QUILLON_CALL IxMorphWhiteTopHatCircle(GreyImage* source, GreyImage* result,
                                                       int passes);
QUILLON_API void QUILLON_CALL IxMorphBlackTopHat(const GreyImage* source, GreyImage* result,
                                                 int horizontalPasses, int verticalPasses);
QUILLON_API void QUILLON_CALL IxMorphBlackTopHatDiamond(const GreyImage* source, GreyImage* result,
                                                        int passes);
QUILLON_API void QUILLON_CALL IxMorphBlackTopHatCircle(const GreyImage* source, GreyImage* result,
                                                       int passes);

// ---- colour spaces ------------------------------------------------------------------------------
// A set of three tables of 16,777,216 bytes each, which the host allocates, holds a colour space:
// the entry for the pixel bytes b0, b1, b2 (blue, green, red) is at b0 + 256 b1 + 65536 b2. One set
// serves any number of conversions, from any thread. With B, G, R = b / 255:

// Fills hue, saturation and intensity. 1, or 0 when a pointer is null.
//   c1 = 0.81649 B - 0.40824 R - 0.40824 G,  c2 = 0.8761 G - 0.8761 R
//   saturation = 312.3099 sqrt(c1^2 + c2^2), intensity = 147.2243 * 0.57736 (R + B + G)
//   angle = acos(((B - G) + (B - R)) / 2 / sqrt((G - R)(B - R) + (B - G)^2)), 0 for grey colours
//   and cosines above 0.99999; hue = 57.2957 * 0.708 angle, and 255 less that where G < R
// All are clamped to 0 ... 255 and truncated. Blue takes the part of the textbook's red. The arc
// cosine is the platform's: its last bit may move an entry that lies on the edge of two bytes.
QUILLON_API uint8_t QUILLON_CALL IxCreateCToHSI(uint8_t* hue, uint8_t* saturation,
                                                uint8_t* intensity);

// Fills CIE L*a*b* scaled to bytes. 1, or 0 when a pointer is null.
//   X = (0.412453 R + 0.180423 B + 0.35758 G) * 1.0521265581994328
//   Y = 0.212671 R + 0.71516 G + 0.072169 B
//   Z = (0.019334 R + 0.119193 G + 0.950227 B) * 0.9182247410147117
//   f(t) = t^0.333333 above 0.008856, else 7.787 t + 0.1379
//   L = 295.8 f(Y) - 40.8, a = 691.37 (f(X) - f(Y)) + 119.16633, b = 252.054 (f(Y) - f(Z)) +
//   135.93486
// All are clamped to 0 ... 255 and rounded. The power is the platform's, as above.
QUILLON_API uint8_t QUILLON_CALL IxCreateCToLab(uint8_t* lightness, uint8_t* a, uint8_t* b);

// Converts a picture through the tables of either space: byte k of every pixel of `result`,
// re-created at the source's size, is the entry of table k. `result` may be the source. Depth:
// above 8. 1 when done; 0 for a null table or image, or no memory; not 0, and nothing done, for a
// grey source.
// IxColorToLab is a second name of the same function.
QUILLON_API uint8_t QUILLON_CALL IxColorToHSI(const ColourImage* source, ColourImage* result,
                                              const uint8_t* table0, const uint8_t* table1,
                                              const uint8_t* table2);
QUILLON_API uint8_t QUILLON_CALL IxColorToLab(const ColourImage* source, ColourImage* result,
                                              const uint8_t* table0, const uint8_t* table1,
                                              const uint8_t* table2);

// Copies byte `channel` (0, 1, 2) of every pixel into `result`, re-created at the source's size;
// with any other channel the new image is all zero. 1, or 0 when the source has no pixels or memory
// is short.
// IxGetCIELab is a second name of the same function.
QUILLON_API uint8_t QUILLON_CALL IxGetHSI(const ColourImage* source, GreyImage* result,
                                          int channel);
QUILLON_API uint8_t QUILLON_CALL IxGetCIELab(const ColourImage* source, GreyImage* result,
                                             int channel);

// Copies the three bytes of pixel (x, y). 1; 0, and `channels` untouched, when the image has no
// pixels or the point lies outside it. IxGetCIELabPoint is a second name of the same function.
QUILLON_API uint8_t QUILLON_CALL IxGetHSIPoint(const ColourImage* image, int x, int y,
                                               uint8_t* channels);
QUILLON_API uint8_t QUILLON_CALL IxGetCIELabPoint(const ColourImage* image, int x, int y,
                                                  uint8_t* channels);

// ---- flat field ---------------------------------------------------------------------------------
// Evens out a region's brightness by a gain per grey level, target / level. The gains are kept in
// the image object; they survive re-creation of its pixels and go with CImage::Destroy. A region
// has columns xStart ... xEnd - 1 and rows yStart ... yEnd - 1. No depth is tested.

// Gives the image the gains for `target` (clamped to 0 ... 255) and writes them with the region to
// a file of 2072 bytes. 1; 0 when the file cannot be opened (the image keeps the new gains).
QUILLON_API uint8_t QUILLON_CALL IxFFCParaBuild(GreyImage* image, int target, int xStart, int xEnd,
                                                int yStart, int yEnd, const char* fileName);

// Takes gains and region, four ints xStart, xEnd, yStart, yEnd, from a file. 1; 0 when it cannot be
// opened: the image is then without gains. Of a short file, gains that it lacks are 0 and words of
// the region stay as they were.
QUILLON_API uint8_t QUILLON_CALL IxFFCParaLoad(GreyImage* image, int* region, const char* fileName);

// Corrects the part of the region that lies inside the image, in place: pixel * gain, truncated,
// 255 at most. The product falls one short of the target for some pairs of target and level (49
// with target 1 gives 0). Black stays black. Nothing happens without gains.
QUILLON_API void QUILLON_CALL IxFFCCalibrate(GreyImage* image, int xStart, int xEnd, int yStart,
                                             int yEnd);

// ---- lens distortion ----------------------------------------------------------------------------
// A bivariate cubic maps ideal grid positions to measured ones. Parameters, coefficients and the
// pixel map are kept in the image object. Build or load, pre-calculate, then calibrate any number
// of images of that size made with the same object. No depth is tested.

// Fits the cubic to `count` points, pairs x, y, measured on a square grid with an odd number of
// points a side, row by row from the top left; the middle one becomes the centre. A grid step is
// trunc(pitch * 10000 / pixelSize + 0.5) pixels. Least squares by orthogonal rotations; where the
// points leave coefficients undetermined (nine points do), those of least norm. The points are
// rewritten as x - centreX, centreY - y. Writes a file of 208 bytes; one that cannot be opened is
// not reported. 1; 0, and nothing changed, for an even count or one below 1, null points, or no
// memory.
QUILLON_API uint8_t QUILLON_CALL IxDistortionParaBuild(GreyImage* image, int* points, int count,
                                                       float xPitch, float yPitch, float xPixelSize,
                                                       float yPixelSize, const char* fileName);

// Takes parameters and coefficients from a file. 1; 0 when it cannot be opened: the image is then
// without coefficients. Of a short file, coefficients that it lacks are 0 and parameters that it
// lacks keep the image's values.
QUILLON_API uint8_t QUILLON_CALL IxDistortionParaLoad(GreyImage* image, const char* fileName);

// Makes the pixel map, pairs source x, source y for every pixel of the corrected rectangle, for the
// image's present size. The map's y grows upwards from the centre. Where a source lies outside the
// image its x stays 0. Nothing happens without coefficients; a rectangle that is empty, or
// whose map needs 2 GiB or more, leaves no map.
QUILLON_API void QUILLON_CALL IxDistortionPreCalculate(GreyImage* image);

// Resamples the image through its map, nearest neighbour, in place; sources outside the image give
// 0. The result is stored top row first without row padding, over a store that is bottom up and
// padded: rows appear upside down, which undoes the map's direction; where the width is not a
// multiple of 4 they are also sheared. 1 when corrected; 0 without coefficients, map or pixels.
QUILLON_API uint8_t QUILLON_CALL IxDistortionCalibrate(GreyImage* image);

// ---- image pyramid ------------------------------------------------------------------------------

// The image reduced by 16, re-creating `result` at width / 16 x height / 16: a pixel is the sum of
// the left half of its 16 x 16 block / 512 plus that of the right half / 512, each truncated. That
// is half of the block's mean: a uniform 200 becomes 100. Cut blocks at the right and bottom edges
// are dropped; a source smaller than 16 either way gives a result without pixels, 0 wide or high.
// In place: the reduced image is written into the top left corner, the rest stays as it was.
// Depths are not tested: rows are read as `width` bytes.
QUILLON_API void QUILLON_CALL IxImgPyramid(const GreyImage* source, GreyImage* result);

// ---- edge-based matching ------------------------------------------------------------------------
// Finds a taught pattern by the directions of gradients at its edge points, so that brightness and
// contrast may change. (C. Steger, "Similarity measures for occlusion, clutter, and illumination
// invariant object recognition", DAGM 2001.)

// A new tool without a model, or null when memory is short. IxDestroyMatchModel releases it.
QUILLON_API GeoMatchTool* QUILLON_CALL IxCreateGeoTool();

// Teaches the edge points of a template, at full resolution and at up to six reduced levels
// (n = pixels / 64 rounded; level k exists from n = 4^k on; a coarsest level of fewer than 15
// points is dropped, once). At each level:
//   gradients    Sobel, inner pixels
//   suppression  a pixel stays unless its magnitude is below one of its two neighbours' across the
//                edge: right and left; but with the angle a = atan(gy / gx) upper right and lower
//                left for 22.5 < a < 67.5 degrees, above and below for a > 67.5. Negative angles
//                and vertical gradients compare right and left.
//   thresholds   on v = magnitude / greatest magnitude of the level * 255, truncated: an edge point
//                has v >= high, or v >= low and one of its eight neighbours has v >= high
// The template's reference point is its pixel (width / 2, height / 2). Teaching again replaces the
// model. Thresholds may be any numbers: the rules hold as they stand.
// True when the tool holds a model; false, and nothing changes, for null or empty arguments; false,
// and no model, when memory is short. Depths are not tested: rows are read as `width` bytes.
QUILLON_API bool QUILLON_CALL IxCreateGeoMatchModel(const GreyImage* image, GeoMatchTool* tool,
                                                    double high, double low);

// Finds the taught template: `position`, two ints, gets the place of its reference point.
// Result: the template's angle in degrees, from lowestAngle to highestAngle, positive turning
// clockwise as displayed, when the low byte of angleSearch is not 0; else 0. Where the
// limits are infinite on the wrong side, so is the result.
//
//   score at (x, y)  mean over the n model points, in raster order, of
//                      (model gradient . image gradient) * model inverse magnitude
//                        * image inverse magnitude
//                    at (x + xi, y + yi); a point outside the image, or on a pixel without
//                    gradient, adds nothing. 1 is a perfect match at any contrast. Contrast
//                    reversed: below 0.
//   abandoned        after a point j that lies inside the image, when sum / j is below
//                      min((s - 1) + (1 - greediness * minScore) / (1 - greediness) * j / n,
//                          minScore * j / n);
//                    sum / j is then the score; j counts points outside too. s is minScore, and
//                    follows every new best score of the scan. Greediness near 1 is fastest; near
//                    0, nothing good is missed.
//   scan             the coarsest level: all positions that keep the template within the image, in
//                    raster order; the first of equal scores wins. Each finer level: the 3 x 3
//                    positions around twice the one found before.
//   angles           at the coarsest level every 2 s from -50 s to 50 s that is within s / 2 of the
//                    limits, s = acos(1 - 1 / radius^2); at finer levels the angle found and 2 s to
//                    both sides of it, s halving each time; each angle's best score is the minScore
//                    of the next. At last a quadric through 27 scores refines the angle.
//                    Sine, cosine and arc cosine are the platform's: their last bits decide where a
//                    turned point falls on a pixel border.
//
// minScore and greediness mean 0 to 1, greediness below 1; other numbers are put into the formulas
// as they are, and where the threshold is not a number nothing is abandoned.
// A level at which no score is above 0 leaves the position as it was; the search then goes on from
// the numbers in it. Null arguments, an empty image, a tool without model, short memory: 0, and the
// position untouched. Depths are not tested. One tool may serve several searches at a time.
QUILLON_API double QUILLON_CALL IxFindGeoMatchModel(const GreyImage* image,
                                                    const GeoMatchTool* tool, double minScore,
                                                    double greediness, int* position,
                                                    double highestAngle, double lowestAngle,
                                                    int angleSearch);

// Releases the tool. Null: nothing happens.
QUILLON_API void QUILLON_CALL IxDestroyMatchModel(GeoMatchTool* tool);

// ---- template matching: the tool and its template -----------------------------------------------
// A tool holds one template (the model) with its pyramid and the results of the last search. Level
// k of the pyramid has width / 2^k x height / 2^k pixels, truncated block means of the template,
// those of level 4 half as bright. The coarsest level is the largest L with (pixels + 32) / 64 >=
// 4^L, at most 6, where a mask's care pixels count alone. A null tool: nothing happens, the result
// is 0.

// A tool without a model; null when memory is short.
QUILLON_API NccTool* QUILLON_CALL IxCreateNCCTool();

// Frees the tool. Null is ignored.
QUILLON_API void QUILLON_CALL IxDestroyNCCModel(NccTool* tool);

// Teaches a grey template in place of what the tool held. With `useMask`, pixels of value 0 do not
// take part in matching; at reduced levels a block takes part when the mean of its mask (255 for
// each such pixel) truncates to 0 by the level's own rule, so that one such pixel excludes a block
// of levels 1 to 3, while levels 4, 5 and 6 let up to 2 a half block, 4 and 16 pass. A flat
// template, and a mask that leaves nothing, can be taught; a search finds nothing then. Result 1; 0
// when the image is not an 8-bit one with pixels (the tool stays as it is) or memory is short (the
// tool has no model then).
QUILLON_API bool QUILLON_CALL IxCreateNCCMatchModel(const GreyImage* image, NccTool* tool,
                                                    bool useMask);

// The same for a colour template: a pixel is masked when all its three bytes are 0. Statistics are
// pooled over the three planes. Any depth but 8 is accepted and read as three bytes a pixel.
QUILLON_API bool QUILLON_CALL IxCreateNCCMatchColorModel(const ColourImage* image, NccTool* tool,
                                                         bool useMask);

// The coarsest level of the model, and the level where a search starts: both L after teaching, 0
// before.
QUILLON_API int QUILLON_CALL IxGet_DefaultPyramidLevel(const NccTool* tool);
QUILLON_API int QUILLON_CALL IxGet_CurrentPyramidLevel(const NccTool* tool);

// Lets searches start at `level`. 0 and no change when it is not one of 0 ... L.
QUILLON_API bool QUILLON_CALL IxSetPyramidLevel(NccTool* tool, int level);

// Copies a level of the template, re-creating `result` at its size; before anything was taught the
// level is 0 x 0 and the result becomes empty. 0 and no change when the level is not one of 0 ... L
// or the model is of the other kind.
QUILLON_API bool QUILLON_CALL IxGet_Pyramid_GrayImage(const NccTool* tool, GreyImage* result,
                                                      int level);
QUILLON_API bool QUILLON_CALL IxGet_Pyramid_ColorImage(const NccTool* tool, ColourImage* result,
                                                       int level);

// ---- template matching: search ------------------------------------------------------------------

// Finds the template in an image, at any whole-pixel position where it fits and over ranges of
// angle and scale: a sweep at the tool's current level, the candidates refined level by level, then
// fitted at full resolution to fractions of a pixel, degree and per cent (docs/ncc-accuracy.md).
// Levels where fewer than 16 pixels of the template take part, or where they are all alike, are
// left out, and the sweep is at the next finer one: of lines and scattered pixels that a mask
// leaves only the full resolution remains, and the search takes longer.
//   minScore            only matches that score at least this are reported; 0.7 to 0.9 is usual
//   angleMax, angleMin  degrees, clockwise as displayed: the template turned by +a is found at +a.
//                       Searched with `rotate` alone; without it the template is upright. Reached
//                       are 50 angular steps of the coarsest level to either side, all angles for
//                       most templates. The angle of a match is brought into the limits in any
//                       case: at most angleMax, then at least angleMin
//   scaleMax, scaleMin  sizes relative to the template; 1, 1 for the size as it is. Within 0.001 of
//                       1 a match has the template's own size, and 1 is reported. A copy a few per
//                       cent beyond the limits may be found: with the scale, at most scaleMax and
//                       then at least scaleMin, at which it was measured
//   maxResults          at most this many, at most 500, and at most as many templates as fill the
//                       image's area; below 1: none
// A match lies in the image with the whole template, turned and scaled as it is reported. A copy
// that the border cuts is not found, or beside its place, where the whole template fits and still
// scores enough; a template larger than the image only where scaleMin lets it shrink until it fits.
// The score of a match is the correlation over all of the template's pixels that take part, pooled
// over the planes of a colour model, as stated for IxFindNCCMatchColorModel_ROI: of the best
// whole-pixel position where neither angle nor scale is searched or the template as it is scores
// best, else of the template interpolated at the fitted pose. An exact copy scores exactly 1.0, and
// no match more.
// Candidates nearer than half the template's smaller side along both axes are one match, the better
// of them, before they are fitted at full resolution; so are fits that end at the same place.
// Results are in decreasing order of score, and finite whatever the template or the image. A flat
// template, a mask that leaves nothing, templates whose longer side is beyond 15000 pixels, limits
// of what is searched that are not numbers: no results. Limits in the wrong order are no range:
// only what lies within a step of both of them is found. Result: the number of matches; 0 also when
// the image has no pixels or the wrong depth (8 for the grey search, any other for the colour
// search), when the model is of the other kind (the results of the search before stay then), or
// memory is short. Image and model are not changed.
QUILLON_API int QUILLON_CALL IxFindNCCMatchModel(const GreyImage* image, NccTool* tool,
                                                 double minScore, double angleMax, double angleMin,
                                                 double scaleMax, double scaleMin, bool rotate,
                                                 int maxResults);
QUILLON_API int QUILLON_CALL IxFindNCCMatchColorModel(const ColourImage* image, NccTool* tool,
                                                      double minScore, double angleMax,
                                                      double angleMin, double scaleMax,
                                                      double scaleMin, bool rotate, int maxResults);

// Copies match number `index` of the last search. 0, nothing written, when there is none.
// `x` and `y` are the centre, on the scale where whole numbers are pixel centres.
QUILLON_API bool QUILLON_CALL IxGetNCCMatchResults(const NccTool* tool, int index,
                                                   NccResult* result);

// ---- template matching: one position ------------------------------------------------------------

// Teaches a colour template of level 0 only, for IxFindNCCMatchColorModel_ROI. Other levels, the
// level numbers and the mask of an earlier model stay. 0 as for IxCreateNCCMatchColorModel, but no
// depth is refused.
QUILLON_API bool QUILLON_CALL IxCreateNCCMatchColorModel_ROI(const ColourImage* image,
                                                             NccTool* tool);

// The correlation of an image, cut to the template's size, with a colour template, over the n =
// 3 * width * height values of the three planes together:
//   (sum(I T) - n mean(I) mean(T)) / sqrt(dev(I) dev(T)),  dev(I) = sum(I^2) - n mean(I)^2
// -1 to 1; exactly 1.0 for the template itself. A mask changes nothing of n, but mean(T) and dev(T)
// are the model's: where it was taught with a mask they are those of the pixels that take part, and
// the score is no correlation then and may lie outside -1 to 1. 0.0 for a flat image, another size,
// no pixels, or a tool without a colour model.
// A flat template, or a mask that leaves nothing, gives a value that is not a number or infinite:
// test for it when templates come from users. No other result can be not a number.
QUILLON_API double QUILLON_CALL IxFindNCCMatchColorModel_ROI(const ColourImage* image,
                                                             const NccTool* tool);

}  // namespace quillon
