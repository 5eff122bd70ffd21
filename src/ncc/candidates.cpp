#include "ncc/candidates.h"

#include <algorithm>
#include <cmath>

namespace quillon {

// ---- the list of a sweep ------------------------------------------------------------------------

bool CandidateList::Open(int capacity, int width, int height, double cell) {
  capacity_ = capacity;
  count_ = 0;
  isHeap_ = false;
  perPixel_ = 1 / std::max(cell, 1.0);
  columns_ = static_cast<int>(width * perPixel_) + 1;
  rows_ = static_cast<int>(height * perPixel_) + 1;
  const auto size = static_cast<size_t>(capacity);
  entries_ = Buffer<Entry>(size);
  heap_ = Buffer<int>(size);
  free_ = Buffer<int>(size);
  cells_ = Buffer<int>(static_cast<size_t>(columns_) * rows_);
  if (!entries_ || !heap_ || !free_ || !cells_) return false;
  std::fill(cells_.begin(), cells_.end(), -1);
  for (int i = 0; i < capacity; ++i) free_[i] = capacity - 1 - i;
  return true;
}

bool CandidateList::Precedes(int a, int b) const {
  const Entry &first = entries_[a], &second = entries_[b];
  return first.candidate.score != second.candidate.score
             ? first.candidate.score > second.candidate.score
             : first.order < second.order;
}

int CandidateList::Column(double x) const {
  return std::clamp(static_cast<int>(x * perPixel_), 0, columns_ - 1);
}

int CandidateList::Row(double y) const {
  return std::clamp(static_cast<int>(y * perPixel_), 0, rows_ - 1);
}

void CandidateList::Link(int entry) {
  Entry& e = entries_[entry];
  e.cell = Row(e.candidate.pose.y) * columns_ + Column(e.candidate.pose.x);
  e.previous = -1;
  e.next = cells_[e.cell];
  if (e.next >= 0) entries_[e.next].previous = entry;
  cells_[e.cell] = entry;
}

void CandidateList::Unlink(int entry) {
  const Entry& e = entries_[entry];
  if (e.next >= 0) entries_[e.next].previous = e.previous;
  (e.previous >= 0 ? entries_[e.previous].next : cells_[e.cell]) = e.next;
}

void CandidateList::SetHeap(int place, int entry) {
  heap_[place] = entry;
  entries_[entry].heapPlace = place;
}

void CandidateList::SiftUp(int place) {
  const int entry = heap_[place];
  while (place > 0) {
    const int parent = (place - 1) / 2;
    if (!Precedes(heap_[parent], entry)) break;
    SetHeap(place, heap_[parent]);
    place = parent;
  }
  SetHeap(place, entry);
}

void CandidateList::SiftDown(int place) {
  const int entry = heap_[place];
  while (2 * place + 1 < count_) {
    int child = 2 * place + 1;
    if (child + 1 < count_ && Precedes(heap_[child], heap_[child + 1])) ++child;
    if (!Precedes(entry, heap_[child])) break;
    SetHeap(place, heap_[child]);
    place = child;
  }
  SetHeap(place, entry);
}

// The last entry is asked for once the list is full; until then, the heap has no order.
void CandidateList::Add(const Candidate& candidate) {
  const int entry = free_[capacity_ - 1 - count_];
  entries_[entry] = {.candidate = candidate, .order = arrivals_++};
  Link(entry);
  SetHeap(count_++, entry);
  if (isHeap_) {
    SiftUp(count_ - 1);
  } else if (count_ == capacity_) {
    isHeap_ = true;
    for (int place = count_ / 2 - 1; place >= 0; --place) SiftDown(place);
  }
}

void CandidateList::Remove(int entry) {
  Unlink(entry);
  const int place = entries_[entry].heapPlace;
  --count_;
  free_[capacity_ - 1 - count_] = entry;
  if (place == count_) return;
  SetHeap(place, heap_[count_]);
  if (!isHeap_) return;
  SiftUp(place);
  SiftDown(place);
}

void CandidateList::Insert(const Candidate& candidate, double reachX, double reachY) {
  if (count_ == capacity_) Remove(heap_[0]);
  const Pose& pose = candidate.pose;
  int weaker = -1;  // the first in order of those that are near and come after the candidate
  const auto isBest = [&](int cell) {
    for (int i = cells_[cell]; i >= 0; i = entries_[i].next) {
      const Candidate& other = entries_[i].candidate;
      if (std::abs(other.pose.x - pose.x) >= reachX || std::abs(other.pose.y - pose.y) >= reachY) {
        continue;
      }
      if (other.score >= candidate.score) return false;
      if (weaker < 0 || Precedes(i, weaker)) weaker = i;
    }
    return true;
  };
  // Look in the candidate's own cell first: there, most find the better one that rules them out.
  const int own = Row(pose.y) * columns_ + Column(pose.x);
  if (!isBest(own)) return;
  const int left = Column(pose.x - reachX), right = Column(pose.x + reachX);
  const int top = Row(pose.y - reachY), bottom = Row(pose.y + reachY);
  for (int row = top; row <= bottom; ++row) {
    for (int column = left; column <= right; ++column) {
      const int cell = row * columns_ + column;
      if (cell != own && !isBest(cell)) return;
    }
  }
  if (weaker >= 0) Remove(weaker);
  Add(candidate);
}

void CandidateList::CopyTo(Candidate* sorted) {
  std::sort(heap_.begin(), heap_.begin() + count_, [&](int a, int b) { return Precedes(a, b); });
  for (int i = 0; i < count_; ++i) sorted[i] = entries_[heap_[i]].candidate;
}

// ---- after the sweep ----------------------------------------------------------------------------

int PruneAtKnee(const Candidate* sorted, int count, int wanted) {
  if (wanted < 1 || count <= 2 * wanted) return count;
  int kept = count;
  double sharpest = 0;
  for (int i = 2 * wanted - 1; i <= count - 3; ++i) {
    const double bend = std::abs(2 * sorted[i + 1].score - sorted[i].score - sorted[i + 2].score);
    if (bend > sharpest) {
      sharpest = bend;
      kept = i + 3;
    }
  }
  return kept;
}

bool SuppressDuplicates(Place* places, int count, double distance) {
  if (count == 0) return true;
  double left = places[0].x, right = left, top = places[0].y, bottom = top;
  for (int i = 1; i < count; ++i) {
    left = std::min(left, places[i].x), right = std::max(right, places[i].x);
    top = std::min(top, places[i].y), bottom = std::max(bottom, places[i].y);
  }
  // About as many cells as places, none smaller than the distance: neighbours share a cell or
  // touch.
  const double cell = std::max({distance, 1.0, std::sqrt((right - left) * (bottom - top) / count),
                                std::max(right - left, bottom - top) / count});
  const int columns = static_cast<int>((right - left) / cell) + 1;
  const int rows = static_cast<int>((bottom - top) / cell) + 1;
  Buffer<int> cells(static_cast<size_t>(columns) * rows), next(static_cast<size_t>(count));
  if (!cells || !next) return false;
  std::fill(cells.begin(), cells.end(), -1);
  const auto column = [&](const Place& p) { return static_cast<int>((p.x - left) / cell); };
  const auto row = [&](const Place& p) { return static_cast<int>((p.y - top) / cell); };
  for (int i = 0; i < count; ++i) {
    int& first = cells[row(places[i]) * columns + column(places[i])];
    next[i] = first;
    first = i;
  }
  for (int i = 0; i < count; ++i) {
    const double score = places[i].score;
    const int x = column(places[i]), y = row(places[i]);
    for (int r = std::max(y - 1, 0); r <= std::min(y + 1, rows - 1); ++r) {
      for (int c = std::max(x - 1, 0); c <= std::min(x + 1, columns - 1); ++c) {
        for (int j = cells[r * columns + c]; j >= 0; j = next[j]) {
          if (j == i || std::abs(places[j].x - places[i].x) >= distance ||
              std::abs(places[j].y - places[i].y) >= distance) {
            continue;
          }
          (score > places[j].score ? places[j] : places[i]).score = -1.0;
        }
      }
    }
  }
  return true;
}

}  // namespace quillon
