// Rows on their way through a morphological operation. Every stage yields its rows one a call, from
// the bottom up as they lie in memory, and asks the stage before it for those it needs; what it
// must keep, it keeps in a ring. So a whole chain of operations runs over a band of rows while they
// are in cache, reads each row of the image once and writes it once, and may write over what it has
// read.
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
  // The next row: written to `scratch`, or where it lies already, until the next call.
  virtual const uint8_t* Next(uint8_t* scratch) = 0;
  // Whether rows that lie somewhere already stay there while the next stage keeps them among its
  // RecentRows. Those of an image stay until the whole chain has yielded kRowsKept more rows.
  static constexpr int kRowsKept = 4;
  virtual bool Stay() const { return false; }
};

using RowsPtr = std::unique_ptr<Rows>;

// A stage that also tells the first row it reads, before any of its own is taken.
class WindowedRows : public Rows {
 public:
  virtual const uint8_t* FirstInput() = 0;
};

// A new stage; null when it, or a stage before it, finds no memory.
template <class Stage, class... Arguments>
std::unique_ptr<Stage> Make(Arguments&&... arguments) {
  std::unique_ptr<Stage> stage(new (std::nothrow) Stage(std::forward<Arguments>(arguments)...));
  if (stage && !stage->IsReady()) stage.reset();
  return stage;
}

// A run of the image's columns.
struct Columns {
  int first, count;
};

// Rows of these columns, each with room for copies of its edge pixels on both sides.
class RowRing {
 public:
  RowRing(int rows, Columns columns, int margin);
  explicit operator bool() const { return static_cast<bool>(store_); }
  // Row i, as long as no row that is `rows` away has taken its place.
  uint8_t* Row(int i) {
    return store_.data() + offset_ + (static_cast<unsigned>(i) & mask_) * stride_;
  }
  ptrdiff_t Stride() const { return static_cast<ptrdiff_t>(stride_); }

 private:
  const size_t mask_;  // for a power of two rows
  const size_t offset_;
  size_t stride_;
  Buffer<uint8_t> store_;
};

// The rows of an image.
class ImageRows final : public Rows {
 public:
  ImageRows(const GreyImage& image, bool isOverwritten)
      : image_(image), isOverwritten_(isOverwritten), left_(image.height) {}
  bool IsReady() const { return true; }
  const uint8_t* Next(uint8_t*) override { return image_.rows[--left_]; }
  bool Stay() const override { return !isOverwritten_; }

 private:
  const GreyImage& image_;
  const bool isOverwritten_;
  int left_;
};

// Of a line of `length` pixels (or rows): an extreme over 2 * radius + 1 of them, clipped at the
// line's ends, for every place but the first and last `inset`.
struct Window {
  int length, radius, inset;
  int Count() const { return length - 2 * inset; }
};

// Extremes along each row, in steps: an extreme of many neighbours comes from a few that cover some
// of them. So the cost grows with the logarithm of the radius (I. Pitas, "Fast algorithms for
// running ordering and max/min calculation", IEEE Trans. Circuits and Systems 36(6), 1989). Input
// that has its margins filled already is not copied.
class HorizontalWindow final : public Rows {
 public:
  HorizontalWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns, int radius,
                   int inset, bool hasMargins = false);
  bool IsReady() const { return input_ && padded_ && work_[0] && work_[1]; }
  // How many copies of the edge pixels are read on both sides.
  static int Margin(const Window& window) { return window.radius - window.inset; }
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
  const bool hasMargins_;
  int run_ = 1, runCount_ = 0;  // what a first step covers, and how many results it has
  Step steps_[kMaxSteps];       // the others
  int stepCount_ = 0;
  RowRing padded_;
  Buffer<uint8_t> work_[2];
};

// The last rows of a stage, straight where the stage before it leaves them.
class RecentRows {
 public:
  static constexpr int kMaxRows = 10;

  RecentRows(RowsPtr input, int rows, Columns columns);
  explicit operator bool() const { return input_ && ring_ && rows_; }
  void ReadUpTo(int row);
  const uint8_t* Row(int i) { return rows_[static_cast<unsigned>(i) & mask_]; }

 private:
  RowsPtr input_;
  const bool inputStays_;
  const int width_;
  const unsigned mask_;  // for a power of two rows
  RowRing ring_;
  Buffer<const uint8_t*> rows_;
  int read_ = 0;
};

// Extremes along each column, small radius: straight from the rows, for four results at a time.
// These have `margin` copies of their edge pixels on both sides.
class ThinVerticalWindow final : public WindowedRows {
 public:
  static constexpr int kMaxRadius = 3;

  ThinVerticalWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns, Window window,
                     int margin);
  bool IsReady() const { return input_ && strip_; }
  const uint8_t* Next(uint8_t* scratch) override;
  const uint8_t* FirstInput() override;

 private:
  static constexpr int kStrip = 4;
  static_assert(2 * kMaxRadius + kStrip <= RecentRows::kMaxRows);

  const ExtremeKernels& kernels_;
  const int width_, margin_;
  const Window window_;
  RecentRows input_;
  RowRing strip_;
  int next_ = 0;
};

// The same at three comparisons a pixel for every radius: blocks as long as the window, extremes
// from each row to its block's end and from the block's start to each row (M. van Herk, "A fast
// algorithm for local minimum and maximum filters on rectangular and octagonal kernels", Pattern
// Recognition Letters 13(7), 1992; J. Gil, M. Werman, "Computing 2-D min, median, and max filters",
// IEEE Trans. PAMI 15(5), 1993).
class VerticalWindow final : public WindowedRows {
 public:
  VerticalWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns, Window window);
  bool IsReady() const { return input_ && block_ && prefix_; }
  const uint8_t* Next(uint8_t* scratch) override;
  const uint8_t* FirstInput() override;

 private:
  void ReadInto(int slot);

  const ExtremeKernels& kernels_;
  RowsPtr input_;
  const int width_;
  const Window window_;
  const int blockRows_;
  RowRing block_, prefix_;
  int position_;  // of the next row to take in; rows off the line repeat its ends
  bool hasRead_ = false;
  int slot_ = 0;   // where the last row went
  int phase_ = 0;  // of the next result within its block
};

// The extreme of each pixel and its four neighbours, for all pixels but those of the first and last
// row and column.
class Cross final : public WindowedRows {
 public:
  static constexpr int kStrip = 4;

  Cross(const ExtremeKernels& kernels, RowsPtr input, int width);
  bool IsReady() const { return static_cast<bool>(input_); }
  const uint8_t* Next(uint8_t* scratch) override;
  // The next kStrip rows at once.
  void NextStrip(uint8_t* const* out);
  const uint8_t* FirstInput() override;

 private:
  const ExtremeKernels& kernels_;
  const int width_;
  RecentRows input_;
  int next_ = 0;
};

// Grows extremes over diamonds of radius 1 to radius 1 + steps: a step joins the four diamonds
// beside each pixel, whose centres are two pixels along one diagonal and two along the other. So
// all steps come to a window along each diagonal. Outside the image the edge pixels repeat: of the
// image, the diamond around an edge pixel covers whatever the one around a pixel beyond it does.
class DiagonalGrowth final : public Rows {
 public:
  static constexpr int kMinSteps = 2, kMaxSteps = 6;

  DiagonalGrowth(const ExtremeKernels& kernels, std::unique_ptr<Cross> input, Columns columns,
                 int rows, int steps);
  bool IsReady() const { return input_ && ring_ && falling_ && strip_; }
  const uint8_t* Next(uint8_t* scratch) override;
  bool Stay() const override { return true; }

 private:
  static constexpr int kStrip = Cross::kStrip;
  void ReadStrip();
  void ComputeFalling();

  const ExtremeKernels& kernels_;
  std::unique_ptr<Cross> input_;
  const int width_, rows_, steps_, margin_;
  RowRing ring_, falling_, strip_;
  int read_ = 0;
  int nextFalling_;  // rows of the windows along falling diagonals begin above the image
  int next_ = 0;
};

// Grows extremes over diamonds of radius r >= step to radius r + step: the four diamonds at that
// distance cover the larger one. So n steps of one pixel come to log2(n) (R. van den Boomgaard, R.
// van Balen, "Methods for fast morphological image transforms using bitmapped binary images",
// CVGIP: Graphical Models and Image Processing 54(3), 1992). Outside the image the edge pixels
// repeat, as above.
class DiamondGrowth final : public Rows {
 public:
  DiamondGrowth(const ExtremeKernels& kernels, RowsPtr input, Columns columns, int rows, int step);
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
