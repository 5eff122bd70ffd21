// Rows on their way through a morphological operation. Every stage yields its rows from the top
// down, one a call, and asks the stage before it for the rows it needs; what it must keep, it keeps
// in a ring. So a whole chain of operations runs over a band of rows while they are in cache, reads
// each row of the image once and writes it once, and may write over the image it reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "core/buffer.h"
#include "quillon/image.h"

namespace quillon {

struct ExtremeKernels;

class Rows {
 public:
  virtual ~Rows() = default;
  // The next row: written to `scratch`, or where it lies already if it stays there to the end.
  virtual const uint8_t* Next(uint8_t* scratch) = 0;
};

using RowsPtr = std::unique_ptr<Rows>;

// A stage that also tells the last row it reads. Asked for when all its own rows are taken.
class WindowedRows : public Rows {
 public:
  virtual const uint8_t* LastInput() = 0;
};

// A new stage; null when it, or a stage before it, finds no memory.
template <class Stage, class... Arguments>
std::unique_ptr<Stage> Make(Arguments&&... arguments) {
  std::unique_ptr<Stage> stage(new (std::nothrow) Stage(std::forward<Arguments>(arguments)...));
  if (stage && !stage->IsReady()) stage.reset();
  return stage;
}

// The last rows of many, each with room for copies of its edge pixels on both sides.
class RowRing {
 public:
  RowRing() = default;
  RowRing(int rows, int width, int margin);
  explicit operator bool() const { return static_cast<bool>(store_); }
  uint8_t* Row(int i) { return store_.data() + margin_ + static_cast<size_t>(i % rows_) * stride_; }
  ptrdiff_t Stride() const { return static_cast<ptrdiff_t>(stride_); }

 private:
  int rows_ = 0;
  int margin_ = 0;
  size_t stride_ = 0;
  Buffer<uint8_t> store_;
};

// The rows of an image. One that is overwritten meanwhile is copied row by row.
class ImageRows final : public Rows {
 public:
  ImageRows(const GreyImage& image, bool isOverwritten)
      : image_(image), isOverwritten_(isOverwritten) {}
  bool IsReady() const { return true; }
  const uint8_t* Next(uint8_t* scratch) override;

 private:
  const GreyImage& image_;
  const bool isOverwritten_;
  int next_ = 0;
};

// Of a line of `length` pixels (or rows): an extreme over 2 * radius + 1 of them, clipped at the
// line's ends, for every place but the first and last `inset`.
struct Window {
  int length, radius, inset;
  int Count() const { return length - 2 * inset; }
};

// Extremes along each row, in steps: an extreme of many neighbours comes from a few that cover some
// of them. So the cost grows with the logarithm of the radius (I. Pitas, "Fast algorithms for
// running ordering and max/min calculation", IEEE Trans. Circuits and Systems 36(6), 1989).
class HorizontalWindow final : public Rows {
 public:
  HorizontalWindow(const ExtremeKernels& kernels, RowsPtr input, Window window);
  bool IsReady() const { return input_ && padded_ && work_[0] && work_[1]; }
  const uint8_t* Next(uint8_t* scratch) override;

 private:
  static constexpr int kMaxTerms = 5;
  static constexpr int kMaxSteps = 14;  // 5^14 > 2^32
  struct Step {
    int terms;
    int offsets[kMaxTerms];
    int count;
  };
  void Plan();

  const ExtremeKernels& kernels_;
  RowsPtr input_;
  const Window window_;
  const int margin_;
  Step steps_[kMaxSteps];
  int stepCount_ = 0;
  Buffer<uint8_t> padded_, work_[2];
};

// Extremes along each column of rows of `width` pixels, small radius: straight from the rows.
class ThinVerticalWindow final : public WindowedRows {
 public:
  static constexpr int kMaxRadius = 3;

  ThinVerticalWindow(const ExtremeKernels& kernels, RowsPtr input, int width, Window window);
  bool IsReady() const { return input_ && ring_; }
  const uint8_t* Next(uint8_t* scratch) override;
  const uint8_t* LastInput() override;

 private:
  int Span() const { return 2 * window_.radius + 1; }
  void ReadUpTo(int row);

  const ExtremeKernels& kernels_;
  RowsPtr input_;
  const int width_;
  const Window window_;
  RowRing ring_;
  const uint8_t* rows_[2 * kMaxRadius + 1];
  int read_ = 0;
  int next_ = 0;
};

// The same at three comparisons a pixel for every radius: blocks as long as the window, extremes
// from each row to its block's end and from the block's start to each row (M. van Herk, "A fast
// algorithm for local minimum and maximum filters on rectangular and octagonal kernels", Pattern
// Recognition Letters 13(7), 1992; J. Gil, M. Werman, "Computing 2-D min, median, and max filters",
// IEEE Trans. PAMI 15(5), 1993).
class VerticalWindow final : public WindowedRows {
 public:
  VerticalWindow(const ExtremeKernels& kernels, RowsPtr input, int width, Window window);
  bool IsReady() const { return input_ && block_ && prefix_; }
  const uint8_t* Next(uint8_t* scratch) override;
  const uint8_t* LastInput() override;

 private:
  void ReadInto(int slot);

  const ExtremeKernels& kernels_;
  RowsPtr input_;
  const int width_;
  const Window window_;
  const int blockRows_;
  RowRing block_;
  Buffer<uint8_t> prefix_;
  int position_;  // of the next row to take in; rows off the line repeat its ends
  bool hasRead_ = false;
  int slot_ = 0;   // where the last row went
  int phase_ = 0;  // of the next result within its block
};

// The extreme of each pixel and its four neighbours, for all pixels but those of the first and last
// row and column.
class Cross final : public WindowedRows {
 public:
  Cross(const ExtremeKernels& kernels, RowsPtr input, int width, int rows);
  bool IsReady() const { return input_ && ring_; }
  const uint8_t* Next(uint8_t* scratch) override;
  const uint8_t* LastInput() override;

 private:
  static constexpr int kRows = 3;
  void ReadUpTo(int row);

  const ExtremeKernels& kernels_;
  RowsPtr input_;
  const int width_, inputRows_;
  RowRing ring_;
  const uint8_t* rows_[kRows];
  int read_ = 0;
  int next_ = 0;
};

// Grows extremes over diamonds of radius r >= step to radius r + step: the four diamonds at that
// distance cover the larger one. So n steps of one pixel come to log2(n) (R. van den Boomgaard, R.
// van Balen, "Methods for fast morphological image transforms using bitmapped binary images",
// CVGIP: Graphical Models and Image Processing 54(3), 1992). Outside the image the edge pixels
// repeat: of the image, the diamond around an edge pixel covers whatever the one around a pixel
// beyond it does.
class DiamondGrowth final : public Rows {
 public:
  DiamondGrowth(const ExtremeKernels& kernels, RowsPtr input, int width, int rows, int step);
  bool IsReady() const { return input_ && ring_; }
  const uint8_t* Next(uint8_t* scratch) override;

 private:
  const ExtremeKernels& kernels_;
  RowsPtr input_;
  const int width_, rows_, step_, margin_;
  RowRing ring_;
  int read_ = 0;
  int next_ = 0;
};

}  // namespace quillon
