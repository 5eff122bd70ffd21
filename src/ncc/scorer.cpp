#include "ncc/scorer.h"

#include <algorithm>

#include "ncc/correlation.h"
#include "ncc/correlation_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kRoom = 64;  // kernels write whole blocks
constexpr double kFlatPatch = 0.0001;
constexpr uint32_t kBandValues = 33'024;  // times 255^2 is below 2^31

}  // namespace

bool Scorer::Allocate(int columns, size_t rows, size_t runs) {
  const size_t room = static_cast<size_t>(columns) + kRoom;
  return Grow(rows, packedRows_) && Grow(rows, bands_) &&
         (sumsJoint_ ? Grow(runs, jointRuns_) : Grow(runs, runs_)) && Grow(room, bandValues_) &&
         Grow(room, bandSquares_) && Grow(room, bandProducts_) && Grow(room, promising_);
}

bool Scorer::Open(const Kernels& kernels, const Variant& variant, Patch& patch) {
  kernels_ = &kernels;
  columns_ = variant.count == 0 ? 0 : std::max(patch.Width() - variant.width + 1, 0);
  rows_ = variant.count == 0 ? 0 : std::max(patch.Height() - variant.height + 1, 0);
  if (columns_ == 0 || rows_ == 0) {
    columns_ = rows_ = 0;
    return true;
  }
  count_ = variant.count;
  sum_ = variant.sum;
  mean_ = variant.mean;
  deviation_ = variant.deviation;
  packedStride_ = patch.PackedStride();
  sumStride_ = patch.SumStride();
  sumsJoint_ = variant.longestRun * variant.planes <= kMostJoint;
  if (!patch.AddSums(kernels, sumsJoint_)) return false;
  const size_t rows = static_cast<size_t>(variant.height) * variant.planes;
  if (!Allocate(columns_, rows, static_cast<size_t>(variant.runCount))) return false;
  AddBands(variant, patch);
  const size_t room = static_cast<size_t>(columns_) + kRoom;
  return bandCount_ == 1 || (Grow(room, values_) && Grow(room, squares_) && Grow(room, products_));
}

// Bands of whole rows of all planes.
void Scorer::AddBands(const Variant& variant, const Patch& patch) {
  const int elementBytes = kernels_->correlation.elementBytes;
  bandCount_ = 0;
  int packedRow = 0, run = 0;
  uint32_t values = 0;
  for (int y = 0; y < variant.height; ++y) {
    const VariantRow& row = variant.rows[y];
    if (row.count == 0) continue;
    const uint32_t added = static_cast<uint32_t>(row.count * variant.planes);
    if (bandCount_ == 0 || values + added > kBandValues) {
      bands_[bandCount_++] = {packedRow, 0, run, 0, 0};
      values = 0;
    }
    values += added;
    Band& band = bands_[bandCount_ - 1];
    for (int plane = 0; plane < variant.planes; ++plane) {
      packedRows_[packedRow++] = {patch.Packed(plane, y) + row.first * elementBytes,
                                  variant.Packed(plane, y), row.count};
      ++band.rowCount;
    }
    for (; run < variant.runCount && variant.runs[run].y == y; ++run, ++band.runCount) {
      const MaskRun& careRun = variant.runs[run];
      const int length = careRun.last - careRun.first + 1;
      if (sumsJoint_) {
        jointRuns_[run] = {patch.JointSums(y) + careRun.first, length};
      } else {
        runs_[run] = {patch.Values(y) + careRun.first, patch.Squares(y) + careRun.first, length};
      }
      band.valueCount += length * variant.planes;
    }
  }
}

// Adds up several bands, their products made those with the pattern itself. The only one stays as
// it is.
void Scorer::CloseBand(int band, int count) {
  if (bandCount_ == 1) return;
  const uint32_t bias = static_cast<uint32_t>(kernels_->correlation.patternBias);
  for (int x = 0; x < count; ++x) {
    const uint32_t products = bandProducts_[x] + bias * bandValues_[x];
    values_[x] = bandValues_[x] + (band == 0 ? 0.0 : values_[x]);
    squares_[x] = bandSquares_[x] + (band == 0 ? 0.0 : squares_[x]);
    products_[x] = products + (band == 0 ? 0.0 : products_[x]);
  }
}

void Scorer::SumRuns(const Band& band, ptrdiff_t offset, int count) {
  const auto& kernels = kernels_->correlation;
  if (sumsJoint_) {
    kernels.SumShortRuns(jointRuns_.data() + band.firstRun, band.runCount, band.valueCount, offset,
                         count, bandValues_.data(), bandSquares_.data());
  } else {
    kernels.SumRuns(runs_.data() + band.firstRun, band.runCount, offset, count, bandValues_.data(),
                    bandSquares_.data());
  }
}

void Scorer::CorrelateRow(int y) {
  const auto& kernels = kernels_->correlation;
  for (int i = 0; i < bandCount_; ++i) {
    const Band& band = bands_[i];
    kernels.CorrelateRow(packedRows_.data() + band.firstRow, band.rowCount,
                         static_cast<ptrdiff_t>(y) * packedStride_, columns_, bandProducts_.data());
    SumRuns(band, static_cast<ptrdiff_t>(y) * sumStride_, columns_);
    CloseBand(i, columns_);
  }
}

void Scorer::CorrelateWindow(int x, int y, int count) {
  const auto& kernels = kernels_->correlation;
  for (int i = 0; i < bandCount_; ++i) {
    const Band& band = bands_[i];
    kernels.CorrelateWindow(packedRows_.data() + band.firstRow, band.rowCount,
                            static_cast<ptrdiff_t>(y) * packedStride_ + x * kernels.elementBytes,
                            count, bandProducts_.data());
    SumRuns(band, static_cast<ptrdiff_t>(y) * sumStride_ + x, count);
    CloseBand(i, count);
  }
}

// All positions when the threshold is negative: even a flat patch scores 0 then.
int Scorer::FindAbove(double threshold, int count) {
  if (threshold < 0) {
    for (int x = 0; x < count; ++x) promising_[x] = x;
    return count;
  }
  const auto& kernels = kernels_->correlation;
  const double squared = threshold * threshold * deviation_;
  if (count_ <= kMostFew) {
    const int n = static_cast<int>(count_);
    const FewBound bound = {.count = n,
                            .cross = n * kernels.patternBias - static_cast<int>(sum_),
                            .squared = static_cast<float>(squared * n)};
    return kernels.PromisingOfFew(bandValues_.data(), bandSquares_.data(), bandProducts_.data(),
                                  count, bound, promising_.data());
  }
  const ScoreBound bound = {1.0 / count_, mean_, squared};
  if (bandCount_ == 1) {
    return kernels.PromisingOfBand(bandValues_.data(), bandSquares_.data(), bandProducts_.data(),
                                   count, bound, promising_.data());
  }
  return kernels.Promising(values_.data(), squares_.data(), products_.data(), count, bound,
                           promising_.data());
}

double Scorer::ScoreAt(int x) const {
  const uint32_t bias = static_cast<uint32_t>(kernels_->correlation.patternBias);
  PixelSums sums = {bandValues_[x], bandSquares_[x], bandProducts_[x] + bias * bandValues_[x]};
  if (bandCount_ > 1) {
    sums = {.image = static_cast<uint64_t>(values_[x]),
            .imageSquared = static_cast<uint64_t>(squares_[x]),
            .products = static_cast<uint64_t>(products_[x])};
  }
  return Correlation(sums, count_, mean_, deviation_, kFlatPatch);
}

void Scorer::FindBest(int left, int top, int right, int bottom, Position& best) {
  constexpr int kColumns = 7;  // at once
  left = std::max(left, 0), top = std::max(top, 0);
  right = std::min(right, columns_ - 1), bottom = std::min(bottom, rows_ - 1);
  for (int y = top; y <= bottom; ++y) {
    for (int x = left; x <= right; x += kColumns) {
      const int count = std::min(kColumns, right - x + 1);
      CorrelateWindow(x, y, count);
      const int found = FindAbove(best.score, count);
      for (int i = 0; i < found; ++i) {
        const double score = ScoreAt(promising_[i]);
        if (score > best.score) best = {x + promising_[i], y, score};
      }
    }
  }
}

double Scorer::Score(int x, int y) {
  CorrelateWindow(x, y, 1);
  return ScoreAt(0);
}

}  // namespace quillon
