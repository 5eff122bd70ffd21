// The stages of a morphological operation. A stage is an object that yields the rows of an image
// one after the other, from the bottom of the picture up, which is their order in memory. To
// compute them it asks the stage before it for rows, and keeps in a ring those that it needs again.
//
// Stages are put together to chains (morph_chain.h draws them). A chain holds a few rows at a time,
// so they stay in cache from the first stage to the last; each row of the image is read once and
// written once, and the result may lie where the source was.
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
  // Small elements are computed for this many rows at once: they share most of what they load.
  static constexpr int kStrip = 4;

  virtual ~Rows() = default;
  // Yields the next rows: at least one, at most kStrip, at most `most` (the caller asks for no more
  // than are left). rows[i] tells where row i is: at places[i], if the stage had to write it, or
  // where it lies already, for instance in the source image. It is there until the next call.
  virtual int Next(uint8_t* const* places, int most, const uint8_t** rows) = 0;
  const uint8_t* NextRow(uint8_t* place) {
    const uint8_t* row;
    Next(&place, 1, &row);
    return row;
  }
  // Whether the next stage may go on reading rows where they lie after it has asked for more, and
  // so need not copy them into its RecentRows. Only rows of an image that nothing overwrites stay;
  // whoever writes over that image after all (the gradient does) waits until the whole chain has
  // yielded kRowsKept more rows.
  static constexpr int kRowsKept = 4;
  virtual bool Stay() const { return false; }
  // Some kernels write row i of a strip i columns further left (1) or right (-1). They are fastest
  // when each place lies that much further right or left against the cache's lines than the one
  // before, so that all their stores are aligned; RowRing lays out its rows so. 0: straight.
  virtual int Slant() const { return 0; }
};

using RowsPtr = std::unique_ptr<Rows>;

// A stage that also shows the first row of its input, if asked before any row of its own. The
// border at the bottom of the result is made of that row.
class WindowedRows : public Rows {
 public:
  virtual const uint8_t* FirstInput() = 0;
};

// A new stage; null when it, or a stage before it, finds no memory.
template <class Stage, class... Arguments>
std::unique_ptr<Stage> Make(Arguments&&... arguments) {
  std::unique_ptr<Stage> stage(
      OrNote(new (std::nothrow) Stage(std::forward<Arguments>(arguments)...)));
  if (stage && !stage->IsReady()) stage.reset();
  return stage;
}

// A run of the image's columns.
struct Columns {
  int first, count;
};

// A ring of rows: the memory of a stage. Each row has the given columns and `margin` bytes on both
// sides, for copies of its edge pixels. With a slant, each row lies a byte further right (1) or
// left (-1) against the lines of the cache than the one before: pixels along a diagonal are then
// aligned alike.
class RowRing {
 public:
  RowRing(int rows, Columns columns, int margin, int slant = 0);
  explicit operator bool() const { return static_cast<bool>(store_); }
  // Row i of the picture; it shares its memory with the rows that are a multiple of Count() away.
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

// A sliding window along a line: a row of `length` pixels, or a column of `length` rows. Each place
// gets the extreme over the places up to `radius` away on either side, as far as the line has them.
// The first and last `inset` places get none.
struct Window {
  int length, radius, inset;
  int Count() const { return length - 2 * inset; }
};

// Extremes along each row, in steps. A step joins a few results of the step before, which lie so
// far apart that together they cover more neighbours: 16 pixels, then 80, then 400. So the cost
// grows with the logarithm of the radius (I. Pitas, "Fast algorithms for running ordering and
// max/min calculation", IEEE Trans. Circuits and Systems 36(6), 1989).
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
  int run_ = 1, runCount_ = 0;  // how many pixels the first step covers, and for how many places
  Step steps_[kMaxSteps];       // the steps after it
  int stepCount_ = 0;
  RowRing padded_;
  Buffer<uint8_t> work_[2];
};

// The most recent rows of a stage's input, which has `length` rows in all. They are read where the
// stage before leaves them, if they stay there and `mayStay`; else they are copied into a ring,
// with `margin` pixels of room on both sides.
class RecentRows {
 public:
  // Keeps the last `rows` rows that were read.
  RecentRows(RowsPtr input, int length, int rows, Columns columns, int margin = 0,
             bool mayStay = true);
  explicit operator bool() const { return input_ && ring_ && rows_; }
  // Whether the rows lie in the image rather than in the ring.
  bool Stay() const { return stay_; }
  // Reads on up to row `last`, or to the last row that there is.
  void ReadUpTo(int last);
  // Row i. Above the first row and below the last one, these repeat.
  const uint8_t* Row(int i) const {
    return rows_[static_cast<unsigned>(std::clamp(i, 0, length_ - 1)) & mask_];
  }
  // Rows first, first + 1 ... likewise.
  void CopyRows(int first, int count, const uint8_t** rows) const;
  // Row i, to be written to: only if the rows lie in the ring.
  uint8_t* OwnRow(int i) { return ring_.Row(Slot(slot_ + slots_ - (read_ - i))); }

 private:
  int Slot(int i) const { return i < slots_ ? i : i - slots_; }

  RowsPtr input_;
  const bool stay_;
  const int length_, width_;
  const int slots_;      // of the ring: a strip of rows can come in before the oldest is done with
  const unsigned mask_;  // for a power of two rows
  RowRing ring_;
  Buffer<const uint8_t*> rows_;
  int read_ = 0, slot_ = 0;
};

// The output of a stage that computes kStrip rows at a time. Asked for fewer, it computes them into
// a ring of its own and hands out those that are left at the next calls.
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

// Extremes along columns for small radii: a strip at a time, each of its rows from all rows of its
// window. With a `horizontal` window, which must have the same radius, the extremes are over
// squares instead, in the same pass; a horizontal radius of 0 means none.
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

// Extremes along columns for larger radii, at three comparisons a pixel whatever the radius. The
// rows are cut into blocks as long as the window, so each window ends one block and begins the
// next. Its extreme joins two running ones: from its first row to the end of that block, and from
// the start of the next block to its last row (M. van Herk, "A fast algorithm for local minimum and
// maximum filters on rectangular and octagonal kernels", Pattern Recognition Letters 13(7), 1992;
// J. Gil, M. Werman, "Computing 2-D min, median, and max filters", IEEE Trans. PAMI 15(5), 1993).
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
  int position_;  // the next row to take in; one above or below the image is a copy of the edge row
  bool hasRead_ = false;
  int slot_ = 0;   // the place in block_ of the row that was taken in last
  int phase_ = 0;  // how far the next result is into its block
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

// Extremes over diamonds of radius `steps`, as two sliding windows of steps + 1 pixels: along one
// diagonal, then along the other. What they cover of the diamond is every other pixel, like the
// fields of one colour on a chessboard turned by 45 degrees. The rest is filled in by what comes
// before or after:
// - after a pass of crosses, each pixel already stands for its four neighbours, the fields of the
//   other colour;
// - before a pass of squares, the square around any pixel reaches all that a missing field would
//   have brought in, through the covered fields beside it.
// In the second case this is the chain's first stage: its input then has a border 1 pixel wide,
// whose corners take no part (no cross reaches them), and the result is for the pixels inside the
// border. Outside the image the edge pixels repeat, which adds nothing: of the image, the diamond
// around an edge pixel covers all that the diamond around a pixel outside does.
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
  // Rows that lie in the image have no margins. So the first and last kEnd columns are copied to
  // ends_, which has margins, and only the middle is read from the image.
  static constexpr int kEnd = 32;
  static constexpr int kMargin = 16;
  static constexpr int kRight = kEnd + 2 * kMargin;  // where in ends_ the right end begins
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

// Turns extremes over diamonds of radius r into those over diamonds of radius r + step, step <= r:
// the four diamonds whose centres lie `step` pixels left, right, above and below cover the larger
// one. Doubling the radius again and again makes n passes in about log2(n) stages (R. van den
// Boomgaard, R. van Balen, "Methods for fast morphological image transforms using bitmapped binary
// images", CVGIP: Graphical Models and Image Processing 54(3), 1992). Outside the image the edge
// pixels repeat, as above.
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
