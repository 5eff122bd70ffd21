#include "morph/morph_rows.h"

#include <algorithm>
#include <cstring>

#include "morph/morph_kernels.h"

namespace quillon {
namespace {

void Fetch(Rows& input, uint8_t* row, int width) {
  const uint8_t* from = input.Next(row);
  if (from != row) std::memcpy(row, from, static_cast<size_t>(width));
}

// Copies of the row's edge pixels on both sides.
void FillMargins(uint8_t* row, int width, int margin) {
  std::memset(row - margin, row[0], static_cast<size_t>(margin));
  std::memset(row + width, row[width - 1], static_cast<size_t>(margin));
}

// Whole cache lines, an odd number of them: rows at even distances would share a few cache sets.
size_t RingStride(int width, int margin) {
  constexpr size_t kLine = 64;
  const size_t lines = (static_cast<size_t>(width) + 2 * static_cast<size_t>(margin)) / kLine + 1;
  return (lines | 1) * kLine;
}

}  // namespace

RowRing::RowRing(int rows, int width, int margin)
    : rows_(rows), margin_(margin), stride_(RingStride(width, margin)) {
  if (static_cast<size_t>(rows) <= PTRDIFF_MAX / stride_) {
    store_ = Buffer<uint8_t>(static_cast<size_t>(rows) * stride_);
  }
}

const uint8_t* ImageRows::Next(uint8_t* scratch) {
  const uint8_t* row = image_.rows[next_++];
  if (!isOverwritten_) return row;
  std::memcpy(scratch, row, static_cast<size_t>(image_.width));
  return scratch;
}

// ---- along rows ---------------------------------------------------------------------------------

HorizontalWindow::HorizontalWindow(const ExtremeKernels& kernels, RowsPtr input, Window window)
    : kernels_(kernels),
      input_(std::move(input)),
      window_(window),
      margin_(window.radius - window.inset) {
  const size_t length = static_cast<size_t>(window.length) + 2 * static_cast<size_t>(margin_);
  padded_ = Buffer<uint8_t>(length);
  work_[0] = Buffer<uint8_t>(length);
  work_[1] = Buffer<uint8_t>(length);
  Plan();
}

// Even steps, as few as kMaxTerms allows.
void HorizontalWindow::Plan() {
  const int64_t covered = 2 * static_cast<int64_t>(window_.radius) + 1;
  const int64_t length = window_.length + 2 * static_cast<int64_t>(margin_);
  const auto power = [](int64_t base, int exponent) {
    int64_t product = 1;
    while (exponent-- > 0) product *= base;
    return product;
  };
  int stepsLeft = 1;
  while (power(kMaxTerms, stepsLeft) < covered) ++stepsLeft;
  for (int64_t reach = 1; reach < covered; --stepsLeft) {
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
  if (margin_ == 0) {
    row = input_->Next(padded_.data());
  } else {
    uint8_t* padded = padded_.data() + margin_;
    Fetch(*input_, padded, window_.length);
    FillMargins(padded, window_.length, margin_);
    row = padded_.data();
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

ThinVerticalWindow::ThinVerticalWindow(const ExtremeKernels& kernels, RowsPtr input, int width,
                                       Window window)
    : kernels_(kernels),
      input_(std::move(input)),
      width_(width),
      window_(window),
      ring_(2 * window.radius + 1, width, 0) {}

void ThinVerticalWindow::ReadUpTo(int row) {
  for (; read_ <= row; ++read_) rows_[read_ % Span()] = input_->Next(ring_.Row(read_));
}

const uint8_t* ThinVerticalWindow::Next(uint8_t* scratch) {
  const int centre = next_++ + window_.inset;
  const int last = window_.length - 1;
  ReadUpTo(std::min(centre + window_.radius, last));
  const uint8_t* from[2 * kMaxRadius + 1];
  for (int i = 0; i < Span(); ++i) {
    from[i] = rows_[std::clamp(centre + i - window_.radius, 0, last) % Span()];
  }
  kernels_.OfRows(from, Span(), scratch, width_);
  return scratch;
}

const uint8_t* ThinVerticalWindow::LastInput() {
  ReadUpTo(window_.length - 1);
  return rows_[(read_ - 1) % Span()];
}

VerticalWindow::VerticalWindow(const ExtremeKernels& kernels, RowsPtr input, int width,
                               Window window)
    : kernels_(kernels),
      input_(std::move(input)),
      width_(width),
      window_(window),
      blockRows_(2 * window.radius + 1),
      block_(blockRows_, width, 0),
      prefix_(static_cast<size_t>(width)),
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
    if (phase_ == 1) std::memcpy(prefix_.data(), row, static_cast<size_t>(width_));
    kernels_.Slide(row, block_.Row(phase_), prefix_.data(), scratch, width_);
  }
  phase_ = (phase_ + 1) % blockRows_;
  return scratch;
}

const uint8_t* VerticalWindow::LastInput() { return block_.Row(slot_); }

// ---- diamonds -----------------------------------------------------------------------------------

Cross::Cross(const ExtremeKernels& kernels, RowsPtr input, int width, int rows)
    : kernels_(kernels),
      input_(std::move(input)),
      width_(width),
      inputRows_(rows),
      ring_(kRows, width, 0) {}

void Cross::ReadUpTo(int row) {
  for (; read_ <= row; ++read_) rows_[read_ % kRows] = input_->Next(ring_.Row(read_));
}

const uint8_t* Cross::Next(uint8_t* scratch) {
  ReadUpTo(next_ + 2);
  const uint8_t* above = rows_[next_ % kRows];
  const uint8_t* centre = rows_[(next_ + 1) % kRows];
  const uint8_t* below = rows_[(next_ + 2) % kRows];
  const uint8_t* from[] = {centre + 1, centre, centre + 2, above + 1, below + 1};
  kernels_.OfRows(from, 5, scratch, width_ - 2);
  ++next_;
  return scratch;
}

const uint8_t* Cross::LastInput() {
  ReadUpTo(inputRows_ - 1);
  return rows_[(read_ - 1) % kRows];
}

DiamondGrowth::DiamondGrowth(const ExtremeKernels& kernels, RowsPtr input, int width, int rows,
                             int step)
    : kernels_(kernels),
      input_(std::move(input)),
      width_(width),
      rows_(rows),
      step_(step),
      margin_(std::min(step, width)),
      ring_(static_cast<int>(std::min<int64_t>(2 * int64_t{step} + 1, rows)), width, margin_) {}

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
