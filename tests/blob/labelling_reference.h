// Labelling, pixel by pixel.
#pragma once

#include <algorithm>
#include <span>
#include <vector>

#include "blob/region.h"

namespace quillon::test::reference {

// Labelling step by step, as the tables are defined: pixel by pixel, two row lists with a resume
// position, chains spliced at every merge.
class Labelling {
 public:
  std::vector<BlobRecord> blobs;
  std::vector<RunRecord> runs;
  std::vector<int> blobIndex;

  Labelling(const GreyImage& image, std::span<const RunRecord> roi, int low, int high) {
    for (int v = 0; v < 256; ++v) {
      inBand_[v] = std::min(low, high) <= v && v <= std::max(low, high);
    }
    for (size_t i = 0; i < roi.size(); ++i) {
      const RunRecord& run = roi[i];
      if (i > 0 && run.y != roi[i - 1].y) {
        above_ = std::move(current_);
        current_.clear();
        resume_ = 0;
      }
      Scan(image, run);
      if (full_ || runs.size() >= kMaxRuns || blobs.size() >= kMaxLabels) break;
    }
    SumUp();
  }

 private:
  struct Entry {
    int xStart, xEnd, label;
  };

  void Scan(const GreyImage& image, const RunRecord& run) {
    const int end = run.xEnd == image.width - 1 ? run.xEnd : run.xEnd + 1;
    int length = 0;
    for (int x = run.xStart; x <= end && !full_; ++x) {
      const bool visible = x >= 0 && x < image.width && run.y >= 0 && run.y < image.height;
      if (x < end && visible && inBand_[image.rows[run.y][x]]) {
        ++length;
      } else if (length > 0) {
        Close(x - length, x - 1, run.y);
        length = 0;
      }
    }
  }

  void Close(int s, int e, int y) {
    int found = -1;
    for (size_t i = resume_; i < above_.size(); ++i) {
      const Entry& entry = above_[i];
      if (s > entry.xEnd + 1 || entry.xStart > e + 1) {
        if (found < 0) continue;
        resume_ = i - 1;
        break;
      }
      int root = entry.label;
      while (blobs[root].label == -1) root = blobs[root].parent;
      if (found < 0) {
        found = root;
      } else if (root != found) {
        blobs[root].label = -1;
        blobs[root].parent = found;
        runs[blobs[found].tail].next = blobs[root].head;
        blobs[found].runCount += blobs[root].runCount;
        blobs[found].tail = blobs[root].tail;
      }
    }
    const int index = static_cast<int>(runs.size());
    full_ = index == kMaxRuns || (found < 0 && blobs.size() == kMaxLabels);
    if (full_) return;
    if (found < 0) {
      found = static_cast<int>(blobs.size());
      BlobRecord blob = {};
      blob.label = found;
      blob.runCount = 1;
      blob.head = blob.tail = index;
      blob.parent = -1;
      blobs.push_back(blob);
    } else {
      runs[blobs[found].tail].next = index;
      blobs[found].tail = index;
      ++blobs[found].runCount;
    }
    runs.push_back({-1, s, e, y, -1});
    current_.push_back({s, e, found});
  }

  void SumUp() {
    for (size_t label = 0; label < blobs.size(); ++label) {
      BlobRecord& blob = blobs[label];
      if (blob.label == -1) continue;
      blob.label = static_cast<int>(blobIndex.size());
      blobIndex.push_back(static_cast<int>(label));
      for (int i = blob.head, n = 0; n < blob.runCount && i != -1; i = runs[i].next, ++n) {
        RunRecord& run = runs[i];
        const int length = run.xEnd - run.xStart + 1;
        run.blob = blob.label;
        blob.area += length;
        blob.centreX += (run.xStart + run.xEnd) * length / 2;
        blob.centreY += run.y * length;
      }
      blob.left = runs[blob.head].xStart;
      blob.right = runs[blob.head].xEnd;
      blob.top = blob.bottom = runs[blob.head].y;
      blob.centreX *= 1.0 / blob.area;
      blob.centreY *= 1.0 / blob.area;
    }
  }

  bool inBand_[256];
  bool full_ = false;
  std::vector<Entry> above_, current_;
  size_t resume_ = 0;
};

// Areas of the connected groups of marked pixels, by flooding, sorted.
inline std::vector<int> GroupAreas(const GreyImage& image, int columns, int low, int high) {
  std::vector<int> areas;
  std::vector<uint8_t> open(static_cast<size_t>(columns * image.height));
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < columns; ++x) {
      open[static_cast<size_t>(y * columns + x)] =
          image.rows[y][x] >= low && image.rows[y][x] <= high;
    }
  }
  std::vector<int> stack;
  const auto visit = [&](int x, int y) {
    if (x < 0 || x >= columns || y < 0 || y >= image.height) return;
    uint8_t& pixel = open[static_cast<size_t>(y * columns + x)];
    if (pixel) stack.push_back(y * columns + x);
    pixel = 0;
  };
  for (int seed = 0; seed < columns * image.height; ++seed) {
    int area = 0;
    visit(seed % columns, seed / columns);
    while (!stack.empty()) {
      const int at = stack.back();
      stack.pop_back();
      ++area;
      for (int i = 0; i < 9; ++i) visit(at % columns + i % 3 - 1, at / columns + i / 3 - 1);
    }
    if (area > 0) areas.push_back(area);
  }
  std::sort(areas.begin(), areas.end());
  return areas;
}

}  // namespace quillon::test::reference
