#include "morph/morph_rows.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "morph/morph_kernels.h"

namespace quillon {
namespace {

void Fetch(Rows& input, uint8_t* row, int width) {
  const uint8_t* from = input.NextRow(row);
  if (from != row) std::memcpy(row, from, static_cast<size_t>(width));
}

// Has the input write its next rows, at most `most`, to row `first` of a ring and those after it;
// returns how many came.
int FetchRows(Rows& input, int most, RowRing& ring, int first, int width) {
  uint8_t* places[Rows::kStrip];
  const uint8_t* rows[Rows::kStrip];
  for (int i = 0; i < Rows::kStrip; ++i) places[i] = ring.Row(first + i);
  const int count = input.Next(places, most, rows);
  for (int i = 0; i < count; ++i) {
    if (rows[i] != places[i]) std::memcpy(places[i], rows[i], static_cast<size_t>(width));
  }
  return count;
}

// Next() of a stage that computes single rows by compute(out).
template <class Compute>
int ComputeEach(uint8_t* const* places, int most, const uint8_t** rows, Compute&& compute) {
  const int count = std::min(most, Rows::kStrip);
  for (int i = 0; i < count; ++i) {
    compute(places[i]);
    rows[i] = places[i];
  }
  return count;
}

constexpr size_t kLine = 64;  // of the cache

// Repeats the edge pixels of a ring's row on both sides. A small margin is filled with 16 bytes
// whatever its size, because the compiler turns a fixed count into one store and any other into a
// call; the rows of a ring have the room.
void FillMargins(uint8_t* row, int width, int margin) {
  constexpr size_t kFew = 16;
  static_assert(kFew <= kLine && kFew <= size_t{ExtremeKernels::kReadBeyond});
  const auto bytes = static_cast<size_t>(margin);
  if (bytes == 0) return;
  if (bytes <= kFew) {
    std::memset(row - kFew, row[0], kFew);
    std::memset(row + width, row[width - 1], kFew);
  } else {
    std::memset(row - bytes, row[0], bytes);
    std::memset(row + width, row[width - 1], bytes);
  }
}

// The kernel of runs reads whole vectors, so rows need this much memory behind their last pixel.
constexpr size_t kReadBeyond = ExtremeKernels::kReadBeyond;

int RoundUp(int value, int step) { return (value + step - 1) / step * step; }

size_t WholeLines(size_t bytes) { return (bytes + kLine - 1) / kLine * kLine; }

}  // namespace

// Column 0 of the image lies at the start of a cache line, as it does in most images. Rows lie an
// odd number of cache lines apart: at even distances, rows that are read together would compete for
// the same few places of the cache.
RowRing::RowRing(int rows, Columns columns, int margin, int slant)
    : mask_(std::bit_ceil(static_cast<unsigned>(rows)) - 1),
      offset_(WholeLines(static_cast<size_t>(margin)) + static_cast<size_t>(columns.first)) {
  const size_t used = offset_ + static_cast<size_t>(columns.count) + static_cast<size_t>(margin);
  stride_ = WholeLines(used + kReadBeyond) | kLine;
  stride_ += static_cast<size_t>(slant);
  if (mask_ < PTRDIFF_MAX / stride_) store_ = Buffer<uint8_t>((mask_ + 1) * stride_);
}

int ImageRows::Next(uint8_t* const*, int most, const uint8_t** rows) {
  const int count = std::min({most, kStrip, left_});
  for (int i = 0; i < count; ++i) rows[i] = image_.rows[--left_];
  return count;
}

// ---- along rows ---------------------------------------------------------------------------------

HorizontalWindow::HorizontalWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns,
                                   int radius, int inset)
    : kernels_(kernels),
      input_(std::move(input)),
      window_{columns.count, radius, inset},
      margin_(radius - inset),
      padded_(kStrip, columns, margin_) {
  const size_t length = static_cast<size_t>(columns.count) + 2 * static_cast<size_t>(margin_);
  work_[0] = Buffer<uint8_t>(length);
  work_[1] = Buffer<uint8_t>(length);
  Plan();
}

// The first step covers a run of 5, 7, 8 or 16 pixels: its kernel does this in registers. Then come
// as few steps as kMaxTerms allows, each multiplying the reach by about the same factor.
void HorizontalWindow::Plan() {
  const int64_t covered = 2 * static_cast<int64_t>(window_.radius) + 1;
  const int64_t length = window_.length + 2 * static_cast<int64_t>(margin_);
  const auto power = [](int64_t base, int exponent) {
    int64_t product = 1;
    while (exponent-- > 0) product *= base;
    return product;
  };
  if (covered >= 5) {
    run_ = covered >= 16 ? 16 : covered >= 8 ? 8 : covered >= 7 ? 7 : 5;
    runCount_ = static_cast<int>(length - run_ + 1);
  }
  int64_t reach = run_;
  int stepsLeft = 1;
  while (reach * power(kMaxTerms, stepsLeft) < covered) ++stepsLeft;
  for (; reach < covered; --stepsLeft) {
    int64_t factor = 2;
    while (reach * power(factor, stepsLeft) < covered) ++factor;
    const int64_t grown = std::min(reach * factor, covered);
    Step& step = steps_[stepCount_++];
    step.terms = static_cast<int>((grown + reach - 1) / reach);
    for (int i = 0; i < step.terms; ++i) {
      step.offsets[i] = static_cast<int>(std::min(i * reach, grown - reach));
    }
    step.count = static_cast<int>(length - grown + 1);
    reach = grown;
  }
}

void HorizontalWindow::Widen(const uint8_t* row, uint8_t* out) {
  if (runCount_ > 0) {
    uint8_t* to = stepCount_ == 0 ? out : work_[1].data();
    kernels_.OfRuns(row, run_, to, runCount_);
    row = to;
  }
  for (int i = 0; i < stepCount_; ++i) {
    const Step& step = steps_[i];
    const uint8_t* from[kMaxTerms];
    for (int k = 0; k < step.terms; ++k) from[k] = row + step.offsets[k];
    uint8_t* to = i == stepCount_ - 1 ? out : work_[i % 2].data();
    kernels_.OfRows(from, step.terms, to, step.count);
    row = to;
  }
}

int HorizontalWindow::Next(uint8_t* const* places, int most, const uint8_t** rows) {
  uint8_t* padded[kStrip];
  for (int i = 0; i < kStrip; ++i) padded[i] = padded_.Row(i);
  const int count = input_->Next(padded, most, rows);
  for (int i = 0; i < count; ++i) {
    const uint8_t* row = rows[i];
    // Written over its own input, a row would read neighbours that it has already replaced.
    if (row != padded[i] && (margin_ > 0 || row + window_.inset == places[i])) {
      std::memcpy(padded[i], row, static_cast<size_t>(window_.length));
      row = padded[i];
    }
    if (row == padded[i]) FillMargins(padded[i], window_.length, margin_);
    Widen(row - margin_, places[i]);
    rows[i] = places[i];
  }
  return count;
}

// ---- small rectangles ---------------------------------------------------------------------------

// The input yields up to kStrip rows at once, so the ring has room for that many more than are
// kept.
RecentRows::RecentRows(RowsPtr input, int length, int rows, Columns columns, int margin,
                       bool mayStay)
    : input_(std::move(input)),
      stay_(mayStay && input_ && input_->Stay()),
      length_(length),
      width_(columns.count),
      slots_(rows + Rows::kStrip - 1),
      mask_(std::bit_ceil(static_cast<unsigned>(slots_)) - 1),
      ring_(stay_ ? 1 : slots_, columns, margin, input_ ? input_->Slant() : 0),
      rows_(mask_ + size_t{1}) {}

void RecentRows::ReadUpTo(int last) {
  last = std::min(last, length_ - 1);
  while (read_ <= last) {
    uint8_t* places[Rows::kStrip] = {};
    const uint8_t* rows[Rows::kStrip];
    const int most = std::min(Rows::kStrip, length_ - read_);
    if (stay_) {
      const int count = input_->Next(places, most, rows);
      for (int i = 0; i < count; ++i) rows_[static_cast<unsigned>(read_++) & mask_] = rows[i];
      continue;
    }
    for (int i = 0; i < Rows::kStrip; ++i) places[i] = ring_.Row(Slot(slot_ + i));
    const int count = input_->Next(places, most, rows);
    for (int i = 0; i < count; ++i) {
      if (rows[i] != places[i]) {
        std::memcpy(places[i], rows[i], static_cast<size_t>(width_));
      }
      rows_[static_cast<unsigned>(read_++) & mask_] = places[i];
    }
    slot_ = Slot(slot_ + count);
  }
}

void RecentRows::CopyRows(int first, int count, const uint8_t** rows) const {
  if (first >= 0 && first + count <= length_) {
    for (int i = 0; i < count; ++i) rows[i] = rows_[static_cast<unsigned>(first + i) & mask_];
  } else {
    for (int i = 0; i < count; ++i) rows[i] = Row(first + i);
  }
}

ThinWindow::ThinWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns,
                       Window vertical, Window horizontal)
    : kernels_(kernels),
      vertical_(vertical),
      horizontal_(horizontal),
      input_(std::move(input), vertical.length, 2 * vertical.radius + kStrip, columns),
      strip_(columns) {}

void ThinWindow::Compute(uint8_t* const* out) {
  const int first = next_ + vertical_.inset - vertical_.radius;
  const int terms = 2 * vertical_.radius + 1, count = terms + kStrip - 1;
  input_.ReadUpTo(first + count - 1);
  const uint8_t* from[kMaxRows];
  input_.CopyRows(first, count, from);
  if (horizontal_.radius == 0) {
    kernels_.FourOfRows(from, terms, out, horizontal_.length);
  } else {
    kernels_.FourOfBoxes(from, terms, out, horizontal_.length, horizontal_.inset);
  }
  next_ += kStrip;
}

int ThinWindow::Next(uint8_t* const* places, int most, const uint8_t** rows) {
  return strip_.Next(places, most, rows, [&](uint8_t* const* out) { Compute(out); });
}

const uint8_t* ThinWindow::FirstInput() {
  input_.ReadUpTo(0);
  return input_.Row(0);
}

// ---- along columns ------------------------------------------------------------------------------

VerticalWindow::VerticalWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns,
                               Window window)
    : kernels_(kernels),
      input_(std::move(input)),
      width_(columns.count),
      window_(window),
      blockRows_(2 * window.radius + 1),
      block_(blockRows_, columns, 0),
      prefix_(1, columns, 0),
      position_(window.inset - window.radius) {}

void VerticalWindow::ReadInto(int slot) {
  const bool repeats = position_ > window_.length - 1 || (position_ <= 0 && hasRead_);
  if (repeats) {
    std::memcpy(block_.Row(slot), block_.Row(slot_), static_cast<size_t>(width_));
  } else {
    Fetch(*input_, block_.Row(slot), width_);
    hasRead_ = true;
  }
  ++position_;
  slot_ = slot;
}

// The ring holds one block. At phase 0 it is filled, and Suffixes turns each row into the extreme
// from there to the block's end. At phase i, row i - 1 of the next block comes in, over a suffix
// that is no longer needed, joins the running prefix of its block, and prefix and suffix give the
// result.
void VerticalWindow::Compute(uint8_t* out) {
  if (phase_ == 0) {
    if (!hasRead_) ReadInto(0);
    while (slot_ < blockRows_ - 1) ReadInto(slot_ + 1);
    kernels_.Suffixes(block_.Row(0), block_.Stride(), blockRows_, width_);
    std::memcpy(out, block_.Row(0), static_cast<size_t>(width_));
  } else {
    ReadInto(phase_ - 1);
    const uint8_t* row = block_.Row(slot_);
    if (phase_ == 1) std::memcpy(prefix_.Row(0), row, static_cast<size_t>(width_));
    kernels_.Slide(row, block_.Row(phase_), prefix_.Row(0), out, width_);
  }
  phase_ = (phase_ + 1) % blockRows_;
}

int VerticalWindow::Next(uint8_t* const* places, int most, const uint8_t** rows) {
  return ComputeEach(places, most, rows, [&](uint8_t* out) { Compute(out); });
}

const uint8_t* VerticalWindow::FirstInput() {
  if (!hasRead_) ReadInto(0);
  return block_.Row(0);
}

// ---- diamonds -----------------------------------------------------------------------------------

Cross::Cross(const ExtremeKernels& kernels, RowsPtr input, int width, int height)
    : kernels_(kernels),
      width_(width),
      input_(std::move(input), height, kStrip + 2, {0, width}),
      strip_({1, width - 2}) {}

void Cross::Compute(uint8_t* const* out) {
  input_.ReadUpTo(next_ + kStrip + 1);
  const uint8_t* rows[kStrip + 2];
  for (int i = 0; i < kStrip + 2; ++i) rows[i] = input_.Row(next_ + i);
  kernels_.FourOfCrosses(rows, out, width_ - 2);
  next_ += kStrip;
}

int Cross::Next(uint8_t* const* places, int most, const uint8_t** rows) {
  return strip_.Next(places, most, rows, [&](uint8_t* const* out) { Compute(out); });
}

const uint8_t* Cross::FirstInput() {
  input_.ReadUpTo(0);
  return input_.Row(0);
}

DiagonalWindows::DiagonalWindows(const ExtremeKernels& kernels, RowsPtr input, Columns columns,
                                 int rows, int steps, int border)
    : kernels_(kernels),
      width_(columns.count),
      rows_(rows),
      steps_(steps),
      border_(border),
      input_(std::move(input), rows, steps + kStrip, columns, kMargin, width_ >= 2 * kEnd),
      ends_(steps + kStrip, {0, kRight + kEnd}, kMargin),
      falling_(RoundUp(steps, kStrip) + kStrip, columns, kMargin, -1),
      strip_({columns.first + border, columns.count - 2 * border}),
      nextFalling_(border - RoundUp(steps, kStrip)),
      next_(border) {
  static_assert(kMaxSteps + kStrip <= kMargin);
}

// Gives row i its margins; in ends_, if the row itself lies in the image.
void DiagonalWindows::Pad(int i) {
  const uint8_t* row = input_.Row(i);
  const bool hasCorners = border_ > 0 && (i == 0 || i == rows_ - 1);
  const uint8_t first = row[hasCorners ? 1 : 0];
  const uint8_t last = row[hasCorners ? width_ - 2 : width_ - 1];
  uint8_t *left, *rightEnd;
  if (input_.Stay()) {
    left = ends_.Row(i);
    rightEnd = left + kRight + kEnd;
    std::memcpy(left, row, kEnd);
    std::memcpy(left + kRight, row + width_ - kEnd, kEnd);
  } else {
    left = input_.OwnRow(i);
    rightEnd = left + width_;
  }
  left[0] = first;
  rightEnd[-1] = last;
  std::memset(left - kMargin, first, kMargin);
  std::memset(rightEnd, last, kMargin);
}

void DiagonalWindows::ReadUpTo(int last) {
  input_.ReadUpTo(last);
  for (; padded_ <= std::min(last, rows_ - 1); ++padded_) Pad(padded_);
}

// The next strip of windows along the falling diagonal: row r, column x is the extreme of (r, x),
// (r + 1, x + 1) ... (r + steps, x + steps). Once each row is shifted by one column against the one
// before, these are windows along columns, for which there is a kernel.
void DiagonalWindows::ComputeFalling() {
  const int first = nextFalling_, count = steps_ + kStrip;
  ReadUpTo(first + count - 1);
  const uint8_t *rows[kMaxRows], *ends[kMaxRows];
  uint8_t* to[kStrip];
  for (int i = 0; i < count; ++i) {
    const int row = std::clamp(first + i, 0, rows_ - 1);
    rows[i] = input_.Row(row) + i;
    ends[i] = ends_.Row(row) + i;
  }
  for (int i = 0; i < kStrip; ++i) to[i] = FallingRow(first + i) + i;
  // Computes `length` columns, in row i from column x + i on. `lying` are the rows or their ends,
  // and `place` is where column x is in them.
  const auto compute = [&](const uint8_t* const* lying, int place, int x, int length) {
    const uint8_t* from[kMaxRows];
    uint8_t* out[kStrip];
    for (int i = 0; i < count; ++i) from[i] = lying[i] + place;
    for (int i = 0; i < kStrip; ++i) out[i] = to[i] + x;
    kernels_.FourOfRows(from, steps_ + 1, out, length);
  };
  const int begin = border_ - steps_ - (kStrip - 1), end = width_ - border_;
  if (!input_.Stay()) return compute(rows, begin, begin, end - begin);
  constexpr int kBlock = 16;
  compute(ends, begin, begin, kBlock);
  compute(ends, end - kBlock - width_ + kEnd + kRight, end - kBlock, kBlock);
  compute(rows, border_, border_, end - border_ - steps_ - (kStrip - 1));
}

// Windows along the rising diagonals, over the results of the falling ones; they end at (r, x).
void DiagonalWindows::Compute(uint8_t* const* out) {
  while (nextFalling_ < next_ + kStrip) {
    ComputeFalling();
    nextFalling_ += kStrip;
  }
  const uint8_t* from[kMaxRows];
  for (int i = 0; i < steps_ + kStrip; ++i) from[i] = FallingRow(next_ - steps_ + i) + border_;
  kernels_.FourOfSlants(from, steps_ + 1, -1, out, width_ - 2 * border_);
  next_ += kStrip;
  // Read the next strip's input now, before the caller works on this one: loading a row right after
  // it was stored would wait for the stores.
  ReadUpTo(nextFalling_ + steps_ + kStrip - 1);
}

const uint8_t* DiagonalWindows::FirstInput() {
  input_.ReadUpTo(0);
  return input_.Row(0);
}

int DiagonalWindows::Next(uint8_t* const* places, int most, const uint8_t** rows) {
  return strip_.Next(places, most, rows, [&](uint8_t* const* out) { Compute(out); });
}

DiamondGrowth::DiamondGrowth(const ExtremeKernels& kernels, RowsPtr input, Columns columns,
                             int rows, int step)
    : kernels_(kernels),
      input_(std::move(input)),
      width_(columns.count),
      rows_(rows),
      step_(step),
      margin_(std::min(step, columns.count)),
      ring_(static_cast<int>(
                std::min<int64_t>(2 * int64_t{step} + (step < kStrip ? kStrip : 1), rows)),
            columns, margin_) {}

void DiamondGrowth::Compute(uint8_t* out) {
  const auto clamped = [&](int64_t row) {
    return static_cast<int>(std::clamp<int64_t>(row, 0, rows_ - 1));
  };
  const int above = clamped(int64_t{next_} - step_);
  const int below = clamped(int64_t{next_} + step_);
  while (read_ <= below) {
    // No more rows than fit without replacing row `above`.
    const int most = std::min({kStrip, rows_ - read_, ring_.Count() - (read_ - above)});
    const int end = read_ + FetchRows(*input_, most, ring_, read_, width_);
    for (; read_ < end; ++read_) FillMargins(ring_.Row(read_), width_, margin_);
  }
  const uint8_t* centre = ring_.Row(next_++);
  const uint8_t* from[] = {centre - margin_, centre + margin_, ring_.Row(above), ring_.Row(below)};
  kernels_.OfRows(from, 4, out, width_);
}

int DiamondGrowth::Next(uint8_t* const* places, int most, const uint8_t** rows) {
  return ComputeEach(places, most, rows, [&](uint8_t* out) { Compute(out); });
}

}  // namespace quillon
