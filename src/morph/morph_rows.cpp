#include "morph/morph_rows.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "morph/morph_kernels.h"

namespace quillon {
namespace {

void Fetch(Rows& input, uint8_t* row, int width) {
  const uint8_t* from = input.Next(row);
  if (from != row) std::memcpy(row, from, static_cast<size_t>(width));
}

constexpr size_t kLine = 64;  // of the cache

// Copies of the edge pixels on both sides of a ring's row. Few are written as a fixed number, which
// takes no call: rings have room for a line of the cache.
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

// Runs are read whole vectors at a time.
constexpr size_t kReadBeyond = ExtremeKernels::kReadBeyond;

size_t WholeLines(size_t bytes) { return (bytes + kLine - 1) / kLine * kLine; }

}  // namespace

// Column 0 of the image lies at the start of a cache line, as it does in most images, and rows an
// odd number of lines apart: at even distances they would share a few sets of the cache.
RowRing::RowRing(int rows, Columns columns, int margin)
    : mask_(std::bit_ceil(static_cast<unsigned>(rows)) - 1),
      offset_(WholeLines(static_cast<size_t>(margin)) + static_cast<size_t>(columns.first)) {
  const size_t used = offset_ + static_cast<size_t>(columns.count) + static_cast<size_t>(margin);
  stride_ = WholeLines(used + kReadBeyond) | kLine;
  if (mask_ < PTRDIFF_MAX / stride_) store_ = Buffer<uint8_t>((mask_ + 1) * stride_);
}

// ---- along rows ---------------------------------------------------------------------------------

HorizontalWindow::HorizontalWindow(const ExtremeKernels& kernels, RowsPtr input, Columns columns,
                                   int radius, int inset, bool hasMargins)
    : kernels_(kernels),
      input_(std::move(input)),
      window_{columns.count, radius, inset},
      margin_(Margin(window_)),
      hasMargins_(hasMargins || margin_ == 0),
      padded_(1, columns, margin_) {
  const size_t length = static_cast<size_t>(columns.count) + 2 * static_cast<size_t>(margin_);
  work_[0] = Buffer<uint8_t>(length);
  work_[1] = Buffer<uint8_t>(length);
  Plan();
}

// Runs of 7, 8 or 16 first, which take no memory on their way. Then even steps, as few as kMaxTerms
// allows.
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

const uint8_t* HorizontalWindow::Next(uint8_t* scratch) {
  const uint8_t* row;
  if (hasMargins_) {
    row = input_->Next(padded_.Row(0));
    if (row + window_.inset == scratch) {
      // In place: neighbours would be read after they were written.
      std::memcpy(padded_.Row(0), row, static_cast<size_t>(window_.length));
      row = padded_.Row(0);
    }
    row -= margin_;
  } else {
    uint8_t* padded = padded_.Row(0);
    Fetch(*input_, padded, window_.length);
    FillMargins(padded, window_.length, margin_);
    row = padded - margin_;
  }
  if (runCount_ > 0) {
    uint8_t* out = stepCount_ == 0 ? scratch : work_[1].data();
    kernels_.OfRuns(row, run_, out, runCount_);
    row = out;
  }
  for (int i = 0; i < stepCount_; ++i) {
    const Step& step = steps_[i];
    const uint8_t* from[kMaxTerms];
    for (int k = 0; k < step.terms; ++k) from[k] = row + step.offsets[k];
    uint8_t* out = i == stepCount_ - 1 ? scratch : work_[i % 2].data();
    kernels_.OfRows(from, step.terms, out, step.count);
    row = out;
  }
  return scratch;
}

// ---- along columns ------------------------------------------------------------------------------

RecentRows::RecentRows(RowsPtr input, int rows, Columns columns)
    : input_(std::move(input)),
      inputStays_(input_ && input_->Stay()),
      width_(columns.count),
      mask_(std::bit_ceil(static_cast<unsigned>(rows)) - 1),
      ring_(inputStays_ ? 1 : rows, columns, 0),
      rows_(mask_ + size_t{1}) {}

void RecentRows::ReadUpTo(int row) {
  for (; read_ <= row; ++read_) {
    uint8_t* slot = ring_.Row(read_);
    const uint8_t* from = input_->Next(slot);
    if (!inputStays_ && from != slot) {
      std::memcpy(slot, from, static_cast<size_t>(width_));
      from = slot;
    }
    rows_[static_cast<unsigned>(read_) & mask_] = from;
  }
}

ThinVerticalWindow::ThinVerticalWindow(const ExtremeKernels& kernels, RowsPtr input,
                                       Columns columns, Window window, int margin)
    : kernels_(kernels),
      width_(columns.count),
      margin_(margin),
      window_(window),
      input_(std::move(input), 2 * window.radius + kStrip, columns),
      strip_(kStrip, columns, margin) {}

const uint8_t* ThinVerticalWindow::Next(uint8_t*) {
  const int first = next_ + window_.inset - window_.radius;
  if (next_ % kStrip == 0) {
    const int last = window_.length - 1, terms = 2 * window_.radius + 1;
    input_.ReadUpTo(std::min(first + terms + kStrip - 2, last));
    const uint8_t* from[2 * kMaxRadius + kStrip];
    for (int i = 0; i < terms + kStrip - 1; ++i) {
      from[i] = input_.Row(std::clamp(first + i, 0, last));
    }
    uint8_t* out[kStrip];
    for (int i = 0; i < kStrip; ++i) out[i] = strip_.Row(i);
    kernels_.FourOfRows(from, terms, out, width_);
    for (uint8_t* row : out) FillMargins(row, width_, margin_);
  }
  return strip_.Row(next_++);
}

const uint8_t* ThinVerticalWindow::FirstInput() {
  input_.ReadUpTo(0);
  return input_.Row(0);
}

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

// Result i of a block joins the extreme from row i to the block's end and that of the first i rows
// of the next block. Those rows take the slots of the extremes that are used up.
const uint8_t* VerticalWindow::Next(uint8_t* scratch) {
  if (phase_ == 0) {
    if (!hasRead_) ReadInto(0);
    while (slot_ < blockRows_ - 1) ReadInto(slot_ + 1);
    kernels_.Suffixes(block_.Row(0), block_.Stride(), blockRows_, width_);
    std::memcpy(scratch, block_.Row(0), static_cast<size_t>(width_));
  } else {
    ReadInto(phase_ - 1);
    const uint8_t* row = block_.Row(slot_);
    if (phase_ == 1) std::memcpy(prefix_.Row(0), row, static_cast<size_t>(width_));
    kernels_.Slide(row, block_.Row(phase_), prefix_.Row(0), scratch, width_);
  }
  phase_ = (phase_ + 1) % blockRows_;
  return scratch;
}

const uint8_t* VerticalWindow::FirstInput() {
  if (!hasRead_) ReadInto(0);
  return block_.Row(0);
}

// ---- diamonds -----------------------------------------------------------------------------------

Cross::Cross(const ExtremeKernels& kernels, RowsPtr input, int width)
    : kernels_(kernels), width_(width), input_(std::move(input), kStrip + 2, {0, width}) {}

const uint8_t* Cross::Next(uint8_t* scratch) {
  input_.ReadUpTo(next_ + 2);
  const uint8_t* centre = input_.Row(next_ + 1);
  const uint8_t* from[] = {centre + 1, centre, centre + 2, input_.Row(next_) + 1,
                           input_.Row(next_ + 2) + 1};
  kernels_.OfRows(from, 5, scratch, width_ - 2);
  ++next_;
  return scratch;
}

void Cross::NextStrip(uint8_t* const* out) {
  input_.ReadUpTo(next_ + kStrip + 1);
  const uint8_t* rows[kStrip + 2];
  for (int i = 0; i < kStrip + 2; ++i) rows[i] = input_.Row(next_ + i);
  kernels_.FourOfCrosses(rows, out, width_ - 2);
  next_ += kStrip;
}

const uint8_t* Cross::FirstInput() {
  input_.ReadUpTo(0);
  return input_.Row(0);
}

namespace {

int RoundUp(int value, int step) { return (value + step - 1) / step * step; }

}  // namespace

DiagonalGrowth::DiagonalGrowth(const ExtremeKernels& kernels, std::unique_ptr<Cross> input,
                               Columns columns, int rows, int steps)
    : kernels_(kernels),
      input_(std::move(input)),
      width_(columns.count),
      rows_(rows),
      steps_(steps),
      margin_(steps + kStrip - 1),
      ring_(RoundUp(steps, kStrip) + kStrip, columns, margin_),
      falling_(RoundUp(steps, kStrip) + kStrip, columns, margin_),
      strip_(RecentRows::kMaxRows + kStrip - 1, columns, kStrip - 1),
      nextFalling_(-RoundUp(steps, kStrip)) {}

void DiagonalGrowth::ReadStrip() {
  const int count = std::min(kStrip, rows_ - read_);
  uint8_t* rows[kStrip];
  for (int i = 0; i < count; ++i) rows[i] = ring_.Row(read_ + i);
  if (count == kStrip) {
    input_->NextStrip(rows);
  } else {
    for (int i = 0; i < count; ++i) input_->Next(rows[i]);
  }
  for (int i = 0; i < count; ++i) FillMargins(rows[i], width_, margin_);
  read_ += count;
}

// Row r, column x: the extreme of rows r ... r + steps, columns x ... x + steps. With every row
// shifted by one column against the one before, that is a window along columns.
void DiagonalGrowth::ComputeFalling() {
  const int last = rows_ - 1, first = nextFalling_;
  while (read_ <= std::min(first + steps_ + kStrip - 1, last)) ReadStrip();
  const uint8_t* from[kMaxSteps + kStrip];
  for (int i = 0; i < steps_ + kStrip; ++i) {
    from[i] = ring_.Row(std::clamp(first + i, 0, last)) + i - margin_;
  }
  uint8_t* out[kStrip];
  for (int i = 0; i < kStrip; ++i) out[i] = falling_.Row(first + i) + i - margin_;
  kernels_.FourOfRows(from, steps_ + 1, out, width_ + margin_);
  nextFalling_ += kStrip;
}

const uint8_t* DiagonalGrowth::Next(uint8_t*) {
  if (next_ % kStrip == 0) {
    while (nextFalling_ < next_ + kStrip) ComputeFalling();
    // The same along the rising diagonals, shifted the other way.
    const uint8_t* from[kMaxSteps + kStrip];
    for (int i = 0; i < steps_ + kStrip; ++i) from[i] = falling_.Row(next_ - steps_ + i) - i;
    uint8_t* out[kStrip];
    for (int i = 0; i < kStrip; ++i) out[i] = strip_.Row(next_ + i) - i;
    kernels_.FourOfRows(from, steps_ + 1, out, width_ + kStrip - 1);
  }
  return strip_.Row(next_++);
}

DiamondGrowth::DiamondGrowth(const ExtremeKernels& kernels, RowsPtr input, Columns columns,
                             int rows, int step)
    : kernels_(kernels),
      input_(std::move(input)),
      width_(columns.count),
      rows_(rows),
      step_(step),
      margin_(std::min(step, columns.count)),
      ring_(static_cast<int>(std::min<int64_t>(2 * int64_t{step} + 1, rows)), columns, margin_) {}

const uint8_t* DiamondGrowth::Next(uint8_t* scratch) {
  const auto clamped = [&](int64_t row) {
    return static_cast<int>(std::clamp<int64_t>(row, 0, rows_ - 1));
  };
  const int above = clamped(int64_t{next_} - step_);
  const int below = clamped(int64_t{next_} + step_);
  for (; read_ <= below; ++read_) {
    Fetch(*input_, ring_.Row(read_), width_);
    FillMargins(ring_.Row(read_), width_, margin_);
  }
  const uint8_t* centre = ring_.Row(next_++);
  const uint8_t* from[] = {centre - margin_, centre + margin_, ring_.Row(above), ring_.Row(below)};
  kernels_.OfRows(from, 4, scratch, width_);
  return scratch;
}

}  // namespace quillon
