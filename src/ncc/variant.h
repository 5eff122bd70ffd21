// A template as it is looked for: one level of it, scaled and turned, packed for correlation.
#pragma once

#include "ncc/tool.h"

namespace quillon {

struct Kernels;
struct PixelSums;

// Longer rows would overflow 32-bit sums of three planes.
constexpr int kMaxPatternSide = 22'016;

struct VariantRow {
  int first, count;  // the columns from the first to the last that takes part
};

struct Variant {
  int width = 0, height = 0;  // the upright box around it; its middle is the template's centre
  bool turned = false;
  int planes = 0;
  uint32_t count = 0;  // values, all planes
  uint64_t sum = 0;    // of the values
  double mean = 0, deviation = 0;
  int rowBytes = 0;
  Buffer<uint8_t> packed;  // rows of each plane from their first column on
  Buffer<VariantRow> rows;
  Buffer<MaskRun> runs;
  int runCount = 0;
  int longestRun = 0;  // in columns

  const uint8_t* Packed(int plane, int y) const {
    return packed.data() + (static_cast<ptrdiff_t>(plane) * height + y) * rowBytes;
  }
};

// Draws variants, keeping its scratch memory from one to the next.
class VariantMaker {
 public:
  VariantMaker(const Kernels& kernels, const NccLevel& level, const NccMask* mask);
  ~VariantMaker();

  // Variants that are larger than the picture searched are not drawn: they are empty.
  void FitInto(int width, int height) { most_ = {width, height}; }

  // Scaling takes the nearest pixel, turning interpolates; only pixels that come from inside the
  // template and its mask take part. Positive degrees turn clockwise as displayed; 0 is not turned.
  // False when memory is short. A variant that is flat or empty has count 0.
  bool Make(double scale, double degrees, Variant& variant);

 private:
  struct Picture {
    static constexpr int kVector = 16;  // which may reach behind a plane
    int width = 0, height = 0;
    Buffer<uint8_t> pixels;    // planes, then care: 255 where a pixel takes part, else 0
    Buffer<VariantRow> spans;  // outside of them, no pixel takes part, and all are 0
    ptrdiff_t PlaneSize() const { return static_cast<ptrdiff_t>(width) * height; }
    uint8_t* Plane(int plane) { return pixels.data() + plane * (PlaneSize() + kVector); }
  };

  struct Size {
    int width, height;
  };

  Size ScaledSize(double scale) const;
  static Size TurnedSize(Size size, double c, double s);
  bool Reserve(Size size, Picture& picture) const;
  bool Scale(double scale);
  bool Turn(double c, double s);
  bool Pack(Picture& picture, Variant& variant) const;
  void FindRuns(Picture& picture, Variant& variant, PixelSums& sums) const;
  void TakeSpans(Picture& picture, Variant& variant, PixelSums& sums) const;
  bool PrepareCells();

  const Kernels& kernels_;
  const NccLevel& level_;
  const NccMask* mask_;
  Size most_ = {kMaxPatternSide, kMaxPatternSide};
  double scale_ = 0;  // of scaled_
  Picture scaled_, turned_;
  Buffer<int> columns_;     // of the level, that those of scaled_ come from
  Buffer<uint32_t> cells_;  // of scaled_, plane after plane
  bool hasCells_ = false;
};

}  // namespace quillon
