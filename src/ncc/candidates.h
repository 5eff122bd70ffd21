// Places where a template may be.
#pragma once

#include <cstdint>

#include "core/buffer.h"
#include "ncc/pose.h"

namespace quillon {

struct Candidate {
  int angle, scale;  // points of the search's lattice
  double score;
  Pose pose;  // near that point, where it scored; in pixels of the level it was found at
};

// The best candidates of a sweep, in decreasing order of score, equals in the order they came, no
// two of them close together. It gives what a sorted array with linear searches would give; a grid
// finds neighbours and a heap the last entry, so an insertion costs the logarithm of the length.
class CandidateList {
 public:
  // For candidates with centres in width x height; `cell` is about the least half size. False when
  // memory is short.
  bool Open(int capacity, int width, int height, double cell);

  // Enters a candidate that scores more than the last entry of a full list, which drops out. Where
  // an entry at least as good is nearer than `reachX` and `reachY`, the candidate is not kept;
  // otherwise the best entry so near is removed.
  void Insert(const Candidate& candidate, double reachX, double reachY);

  int Count() const { return count_; }
  // The score of entry number `capacity`: 0 while the list is not full.
  double LastScore() const {
    return count_ == capacity_ ? entries_[heap_[0]].candidate.score : 0.0;
  }
  // Writes Count() candidates in order, and ends the list's use.
  void CopyTo(Candidate* sorted);

 private:
  struct Entry {
    Candidate candidate = {};
    int64_t order = 0;  // of arrival
    int cell = -1, next = -1, previous = -1;
    int heapPlace = -1;
  };

  bool Precedes(int a, int b) const;
  int Column(double x) const;
  int Row(double y) const;
  void Link(int entry);
  void Unlink(int entry);
  void Add(const Candidate& candidate);
  void Remove(int entry);
  void SetHeap(int place, int entry);
  void SiftUp(int place);
  void SiftDown(int place);

  int capacity_ = 0, count_ = 0;
  bool isHeap_ = false;  // since the list was full
  int64_t arrivals_ = 0;
  double perPixel_ = 1;  // cells
  int columns_ = 0, rows_ = 0;
  Buffer<Entry> entries_;
  Buffer<int> cells_;  // first entry of each, -1 when empty
  Buffer<int> heap_;   // the last entry on top
  Buffer<int> free_;
};

// Keeps the first entries of a sorted list, up to the sharpest bend of its scores behind entry
// number 2 * wanted; returns how many.
int PruneAtKnee(const Candidate* sorted, int count, int wanted);

struct Place {
  double x, y, score;
};

// Of places closer than `distance` along both axes the better one keeps its score and the other
// gets -1; of equals, the later keeps it. A place that was suppressed in its turn has still
// suppressed the weaker ones around it. False when memory is short.
bool SuppressDuplicates(Place* places, int count, double distance);

}  // namespace quillon
