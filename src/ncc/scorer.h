// The correlation of one variant of a template at positions of a patch.
#pragma once

#include "ncc/patch.h"
#include "ncc/variant.h"

namespace quillon {

// A position is where the variant's box has its top left pixel, within the patch.
struct Position {
  int x = 0, y = 0;
  double score = 0;
};

class Scorer {
 public:
  // False when memory is short. Positions range over 0 ... Columns() - 1, 0 ... Rows() - 1; there
  // are none when the variant is flat, empty or larger than the patch.
  bool Open(const Kernels& kernels, const Variant& variant, Patch& patch);
  int Columns() const { return columns_; }
  int Rows() const { return rows_; }

  // Calls accept(x, score) for each position of row y that may score above `threshold`, left to
  // right; those left out do not.
  template <class Accept>
  void ScoreRow(int y, double threshold, Accept&& accept) {
    CorrelateRow(y);
    const int found = FindAbove(threshold, columns_);
    for (int i = 0; i < found; ++i) accept(promising_[i], ScoreAt(promising_[i]));
  }

  // The best position of a window, both ends included and clipped to the positions there are, if it
  // beats best.score; the first of equals.
  void FindBest(int left, int top, int right, int bottom, Position& best);

  // The score at one position.
  double Score(int x, int y);

 private:
  struct Band {
    int firstRow, rowCount;  // of packedRows_
    int firstRun, runCount;  // of runs_ or jointRuns_
    int valueCount;          // that take part
  };

  bool Allocate(int columns, size_t rows, size_t runs);
  void AddBands(const Variant& variant, const Patch& patch);
  void CorrelateRow(int y);
  void CorrelateWindow(int x, int y, int count);
  void SumRuns(const Band& band, ptrdiff_t offset, int count);
  void CloseBand(int band, int count);
  int FindAbove(double threshold, int count);
  double ScoreAt(int x) const;

  const Kernels* kernels_ = nullptr;
  int columns_ = 0, rows_ = 0;
  int packedStride_ = 0, sumStride_ = 0;
  uint32_t count_ = 0;
  uint64_t sum_ = 0;
  double mean_ = 0, deviation_ = 0;
  int bandCount_ = 0;
  bool sumsJoint_ = false;
  Buffer<PackedRow> packedRows_;
  Buffer<RunSum> runs_;
  Buffer<JointRun> jointRuns_;  // instead, where all are short
  Buffer<Band> bands_;          // so many rows that sums of 31 bits do not overflow
  Buffer<uint32_t> bandValues_, bandSquares_, bandProducts_;
  Buffer<double> values_, squares_, products_;  // of several bands; whole numbers
  Buffer<int> promising_;
};

}  // namespace quillon
