// Rows on their way through a morphological operation. Every stage yields its next rows at a call,
// from the bottom up as they lie in memory, and asks the stage before it for those it needs; what
// it must keep, it keeps in a ring. So a whole chain of operations runs over a band of rows while
// they are in cache, reads each row of the image once and writes it once, and may write over what
// it has read.
#pragma once

#include <algorithm>
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
  // Small elements are computed for so many rows at once, which share what they load.
  static constexpr int kStrip = 4;

  virtual ~Rows() = default;
  // The next rows: at least one, at most kStrip and `most`, which is no more than are left. Each is
  // written to its place, or it is where it lies already, until the next call.
  virtual int Next(uint8_t* const* places, int most, const uint8_t** rows) = 0;
  const uint8_t* NextRow(uint8_t* place) {
    const uint8_t* row;
    Next(&place, 1, &row);
    return row;
  }
  // Whether rows that lie somewhere already stay there while the next stage keeps them among its
  // RecentRows. Those of an image stay until the whole chain has yielded kRowsKept more rows.
  static constexpr int kRowsKept = 4;
  virtual bool Stay() const { return false; }
  // The slant of places that are fastest to write.
  virtual int Slant() const { return 0; }
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

// Rows of these columns, each with room for copies of its edge pixels on both sides. With a slant,
// each lies a byte further right (1) or left (-1) against the lines of the cache than the one
// before: pixels along a diagonal are then aligned alike.
class RowRing {
 public:
  RowRing(int rows, Columns columns, int margin, int slant = 0);
  explicit operator bool() const { return static_cast<bool>(store_); }
  // Row i, as long as no row that is `rows` away has taken its place.
  uint8_t* Row(int i) {
    return store_.data() + offset_ + (static_cast<unsigned>(i) & mask_) * stride_;
  }
  int Count() const { return static_cast<int>(mask_) + 1; }
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
  int Next(uint8_t* const* places, int most, const uint8_t** rows) override;
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
// running ordering and max/min calculation", IEEE Trans. Circuits and Systems 36(6), 1989).
class HorizontalWindow final : public Rows {
 public:
  HorizontalWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns, int radius,
                   int inset);
  bool IsReady() const { return input_ && padded_ && work_[0] && work_[1]; }
  int Next(uint8_t* const* places, int most, const uint8_t** rows) override;

 private:
  static constexpr int kMaxTerms = 5;
  static constexpr int kMaxSteps = 14;  // 5^14 > 2^32
  struct Step {
    int terms;
    int offsets[kMaxTerms];
    int count;
  };
  void Plan();
  void Widen(const uint8_t* row, uint8_t* out);

  const ExtremeKernels& kernels_;
  RowsPtr input_;
  const Window window_;
  const int margin_;            // how many copies of the edge pixels are read on both sides
  int run_ = 1, runCount_ = 0;  // what a first step covers, and how many results it has
  Step steps_[kMaxSteps];       // the others
  int stepCount_ = 0;
  RowRing padded_;
  Buffer<uint8_t> work_[2];
};

// The last of a stage's `length` rows, straight where the stage before it leaves them. Those that
// lie here have `margin` pixels of room on both sides.
class RecentRows {
 public:
  // Keeps `rows` rows.
  RecentRows(RowsPtr input, int length, int rows, Columns columns, int margin = 0,
             bool mayStay = true);
  explicit operator bool() const { return input_ && ring_ && rows_; }
  // Whether rows lie elsewhere.
  bool Stay() const { return stay_; }
  // Reads up to row `last` of those there are.
  void ReadUpTo(int last);
  // Row i; beyond the first and last row these repeat.
  const uint8_t* Row(int i) {
    return rows_[static_cast<unsigned>(std::clamp(i, 0, length_ - 1)) & mask_];
  }
  // Row i, if rows lie here.
  uint8_t* OwnRow(int i) { return ring_.Row(Slot(slot_ + slots_ - (read_ - i))); }

 private:
  int Slot(int i) const { return i < slots_ ? i : i - slots_; }

  RowsPtr input_;
  const bool stay_;
  const int length_, width_;
  const int slots_;      // of the ring: a strip may be read ahead of the row that is asked for
  const unsigned mask_;  // for a power of two rows
  RowRing ring_;
  Buffer<const uint8_t*> rows_;
  int read_ = 0, slot_ = 0;
};

// Rows that a stage computes kStrip at a time. Where there are not places for all, they wait here.
class StripRows {
 public:
  explicit StripRows(Columns columns) : ring_(Rows::kStrip, columns, 0) {}
  explicit operator bool() const { return static_cast<bool>(ring_); }
  template <class Compute>
  int Next(uint8_t* const* places, int most, const uint8_t** rows, Compute&& compute) {
    if (waiting_ == 0 && most >= Rows::kStrip) {
      compute(places);
      std::copy_n(places, Rows::kStrip, rows);
      return Rows::kStrip;
    }
    if (waiting_ == 0) {
      uint8_t* own[Rows::kStrip];
      for (int i = 0; i < Rows::kStrip; ++i) own[i] = ring_.Row(i);
      compute(own);
      waiting_ = Rows::kStrip;
    }
    const int count = std::min(most, waiting_);
    for (int i = 0; i < count; ++i) rows[i] = ring_.Row(Rows::kStrip - waiting_ + i);
    waiting_ -= count;
    return count;
  }

 private:
  RowRing ring_;
  int waiting_ = 0;
};

// Extremes along columns, of small radius, a strip at a time, straight from the rows. Or over
// squares: `horizontal` has the same radius, not 0.
class ThinWindow final : public WindowedRows {
 public:
  static constexpr int kMaxRadius = 3;

  ThinWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns, Window vertical,
             Window horizontal);
  bool IsReady() const { return input_ && strip_; }
  int Next(uint8_t* const* places, int most, const uint8_t** rows) override;
  const uint8_t* FirstInput() override;

 private:
  static constexpr int kMaxRows = 2 * kMaxRadius + kStrip;
  void Compute(uint8_t* const* out);

  const ExtremeKernels& kernels_;
  const Window vertical_, horizontal_;
  RecentRows input_;
  StripRows strip_;
  int next_ = 0;
};

// Extremes along columns at three comparisons a pixel for every radius: blocks as long as the
// window, extremes from each row to its block's end and from the block's start to each row (M. van
// Herk, "A fast algorithm for local minimum and maximum filters on rectangular and octagonal
// kernels", Pattern Recognition Letters 13(7), 1992; J. Gil, M. Werman, "Computing 2-D min, median,
// and max filters", IEEE Trans. PAMI 15(5), 1993).
class VerticalWindow final : public WindowedRows {
 public:
  VerticalWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns, Window window);
  bool IsReady() const { return input_ && block_ && prefix_; }
  int Next(uint8_t* const* places, int most, const uint8_t** rows) override;
  const uint8_t* FirstInput() override;

 private:
  void ReadInto(int slot);
  void Compute(uint8_t* out);

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
  Cross(const ExtremeKernels& kernels, RowsPtr input, int width, int height);
  bool IsReady() const { return input_ && strip_; }
  int Next(uint8_t* const* places, int most, const uint8_t** rows) override;
  const uint8_t* FirstInput() override;

 private:
  void Compute(uint8_t* const* out);

  const ExtremeKernels& kernels_;
  const int width_;
  RecentRows input_;
  StripRows strip_;
  int next_ = 0;
};

// Extremes over windows along one diagonal, then along the other, of steps + 1 pixels each: over
// every other pixel of a diamond of radius `steps`. That fills a diamond where
// - crosses were made before: a step joins the four diamonds beside each pixel, whose centres are
//   two pixels along one diagonal and two along the other;
// - squares are made after: a pixel that was left out has neighbours towards whatever the square
//   around it covers.
// Of the latter, the input comes with its border, of which the corners take no part; the result is
// for the pixels within. Outside the image the edge pixels repeat: of the image, the diamond around
// an edge pixel covers whatever the one around a pixel beyond it does.
class DiagonalWindows final : public WindowedRows {
 public:
  static constexpr int kMinSteps = 2, kMaxSteps = 6;

  // `border` is 0 or 1 pixels wide.
  DiagonalWindows(const ExtremeKernels& kernels, RowsPtr input, Columns columns, int rows,
                  int steps, int border);
  bool IsReady() const { return input_ && ends_ && falling_ && strip_; }
  int Next(uint8_t* const* places, int most, const uint8_t** rows) override;
  const uint8_t* FirstInput() override;
  int Slant() const override { return 1; }

 private:
  // Of rows that lie elsewhere, so many columns at either end are copied, for there margins are.
  static constexpr int kEnd = 32;
  static constexpr int kMargin = 16;
  static constexpr int kRight = kEnd + 2 * kMargin;  // where the right end begins among the ends
  static constexpr int kMaxRows = kMaxSteps + kStrip;
  void ReadUpTo(int last);
  void Pad(int i);
  void ComputeFalling();
  void Compute(uint8_t* const* out);
  uint8_t* FallingRow(int i) { return falling_.Row(i - border_); }  // strips begin with their ring

  const ExtremeKernels& kernels_;
  const int width_, rows_, steps_, border_;
  RecentRows input_;
  RowRing ends_, falling_;
  StripRows strip_;
  int padded_ = 0;
  int nextFalling_;  // rows of the windows along falling diagonals begin above the image
  int next_;
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
  int Next(uint8_t* const* places, int most, const uint8_t** rows) override;

 private:
  void Compute(uint8_t* out);

  const ExtremeKernels& kernels_;
  RowsPtr input_;
  const int width_, rows_, step_, margin_;
  RowRing ring_;
  int read_ = 0;
  int next_ = 0;
};

}  // namespace quillon
