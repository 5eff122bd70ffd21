// Joins the runs of successive rows into blobs: two runs of neighbouring rows belong together when
// they touch, diagonals included. The runs of the row above are a slice of the run table, and each
// run's `blob` holds its raw label meanwhile, so there are no row lists beside the tables.
#pragma once

#include <algorithm>

#include "blob/region.h"

namespace quillon {

// The band of a labelling as FindRuns takes it.
struct Band {
  uint8_t first, span;
};

class RunLinker {
 public:
  // With a border label, label 0 exists from the start and survives every merge.
  RunLinker(RLERegion& region, bool withBorder)
      : blobs_(region.blobs), runs_(region.runs), border_(withBorder ? 0 : -1) {}

  int RunCount() const { return runCount_; }
  int LabelCount() const { return labelCount_; }
  bool IsFull() const { return runCount_ >= kMaxRuns || labelCount_ >= kMaxLabels; }

  // Begins a row: the runs added since the last call are now the row above.
  void StartRow() {
    resume_ = rowBegin_;
    rowBegin_ = runCount_;
  }

  // Adds a run to the right of the row's earlier ones. False when a table is full: nothing is
  // added.
  bool Add(int xStart, int xEnd, int y) {
    if (runCount_ == kMaxRuns) return false;
    int blob = -1;
    while (resume_ < rowBegin_ && runs_[resume_].xEnd + 1 < xStart) ++resume_;
    int above = resume_;
    for (; above < rowBegin_ && runs_[above].xStart <= xEnd + 1; ++above) {
      blob = Join(blob, Root(runs_[above].blob));
    }
    // The last run above may touch the next run of this row too.
    resume_ = std::max(resume_, above - 1);
    if (blob < 0) {
      if (labelCount_ == kMaxLabels) return false;
      blob = NewLabel();
    } else {
      BlobRecord& record = blobs_[blob];
      runs_[record.tail].next = runCount_;
      record.tail = runCount_;
      ++record.runCount;
    }
    runs_[runCount_++] = {blob, xStart, xEnd, y, -1};
    return true;
  }

 private:
  // The label that this one has become: itself, or the survivor of its merges. Only labels of the
  // row above are looked up, so whatever was merged before has survivors there, and no blob can
  // cross another: the survivor is a few steps away.
  int Root(int label) const {
    while (blobs_[label].label == -1) label = blobs_[label].parent;
    return label;
  }

  int NewLabel() {
    BlobRecord& record = blobs_[labelCount_];
    record.label = labelCount_;
    record.runCount = 1;
    record.head = record.tail = runCount_;
    record.parent = -1;
    return labelCount_++;
  }

  // Merges two labels; `found` is the run's label so far, or negative. It survives, unless the
  // other one is the border's.
  int Join(int found, int root) {
    if (found < 0 || found == root) return root;
    if (root == border_) std::swap(found, root);
    BlobRecord& into = blobs_[found];
    BlobRecord& from = blobs_[root];
    from.label = -1;
    from.parent = found;
    runs_[into.tail].next = from.head;
    into.tail = from.tail;
    into.runCount += from.runCount;
    return found;
  }

  BlobRecord* const blobs_;
  RunRecord* const runs_;
  const int border_;
  int runCount_ = 0;
  int labelCount_ = 0;
  int rowBegin_ = 0;  // first run of the current row; the row above ends there
  int resume_ = 0;    // first run of the row above that may touch the next run
};

}  // namespace quillon
