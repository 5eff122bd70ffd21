// The search image, and regions of its pyramid made ready for correlation.
#pragma once

#include "ncc/correlation_kernels.h"
#include "ncc/pose.h"
#include "ncc/tool.h"
#include "quillon/image.h"

namespace quillon {

struct Kernels;

// The full resolution as planes of rows. A grey image is read where it is.
struct SearchImage {
  int width = 0, height = 0, planes = 0;
  const uint8_t* const* rows[3] = {};
  Buffer<uint8_t> pixels;  // the planes of a colour image
  Buffer<uint8_t*> rowTable;
};

// False when memory is short.
bool OpenSearchImage(const Kernels& kernels, const GreyImage& image, SearchImage& opened);
bool OpenSearchImage(const Kernels& kernels, const ColourImage& image, SearchImage& opened);

// The cells of a plane of packed rows, one for each pixel. Those of the last column have two pixels
// of the next row, to which samples give no weight.
void PackCells(const Kernels& kernels, const uint8_t* pixels, int width, int height,
               uint32_t* cells);

struct Region {
  int left, top, right, bottom;  // right and bottom are outside
};

// A region of one level of the search image: its pixels, the same packed for the kernels, running
// sums along each row, pooled over the planes, and cells of four neighbouring pixels.
class Patch {
 public:
  // Cuts `region`, clipped to the level. Memory is kept from cut to cut. False when it is short.
  bool Cut(const Kernels& kernels, const SearchImage& image, int level, const Region& region);
  // Cuts the pixels alone.
  bool CutPixels(const Kernels& kernels, const SearchImage& image, int level, const Region& region);
  // Add to what was cut, unless it is there already: sums of values and squared values, joint sums
  // of both, cells. False when memory is short.
  bool AddSums(const Kernels& kernels, bool joint);
  bool AddCells(const Kernels& kernels);

  int Left() const { return left_; }
  int Top() const { return top_; }
  int Width() const { return width_; }
  int Height() const { return height_; }
  // The whole image in pixels of the level, with the parts of blocks that the level leaves out.
  Extent Image() const { return image_; }
  int PackedStride() const { return packedStride_; }
  int SumStride() const { return width_ + 1; }

  const uint8_t* Pixels(int plane, int y) const {
    return pixels_.data() + RowOf(plane, y) * width_;
  }
  const uint8_t* Packed(int plane, int y) const {
    return packed_.data() + RowOf(plane, y) * packedStride_;
  }
  // A cell for each pixel.
  const uint32_t* Cells(int plane) const { return cells_.data() + RowOf(plane, 0) * width_; }
  // Entry x is the sum of the columns before x, modulo 2^32.
  const uint32_t* Values(int y) const { return values_.data() + RowOf(0, y) * SumStride(); }
  const uint32_t* Squares(int y) const { return squares_.data() + RowOf(0, y) * SumStride(); }
  const uint32_t* JointSums(int y) const { return joint_.data() + RowOf(0, y) * SumStride(); }

 private:
  ptrdiff_t RowOf(int plane, int y) const { return static_cast<ptrdiff_t>(plane) * height_ + y; }

  int left_ = 0, top_ = 0, width_ = 0, height_ = 0, packedStride_ = 0;
  int planes_ = 0;
  bool hasSums_[2] = {};  // apart, joint
  Extent image_;
  Buffer<uint8_t> pixels_, packed_;
  Buffer<uint32_t> values_, squares_, joint_, cells_;
};

}  // namespace quillon
