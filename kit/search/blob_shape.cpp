#include "kit/search/blob_shape.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <numbers>
#include <numeric>
#include <string>

#include "kit/elementary.h"
#include "kit/errors.h"
#include "kit/measure/grey_statistics.h"

namespace quillon::kit {
namespace {

// Which runs belong together: each knows an earlier one of its group, and the first one itself.
class Groups {
 public:
  void Add() { parent_.push_back(parent_.size()); }
  size_t First(size_t run) {
    while (parent_[run] != run) run = parent_[run] = parent_[parent_[run]];
    return run;
  }
  void Join(size_t a, size_t b) {
    a = First(a);
    b = First(b);
    parent_[std::max(a, b)] = std::min(a, b);
  }

 private:
  std::vector<size_t> parent_;
};

// The area inside the convex hull of the corners of all runs: Andrew's monotone chains, whose
// points come by rows here, and the sum of trapezia.
double HullArea(const std::vector<BlobRun>& runs) {
  struct Corner {
    int64_t x, y;
  };
  std::vector<Corner> left, right;  // of each row, the outermost corners, above and below
  for (size_t i = 0; i < runs.size();) {
    int64_t first = runs[i].first, last = runs[i].last;
    const int row = runs[i].row;
    for (; i < runs.size() && runs[i].row == row; ++i) {
      first = std::min<int64_t>(first, runs[i].first);
      last = std::max<int64_t>(last, runs[i].last);
    }
    for (const int64_t y : {row, row + 1}) {
      left.push_back({first, y});
      right.push_back({last + 1, y});
    }
  }
  // What bends inwards is left out; `side` is 1 for the left chain, which lies at small columns.
  const auto chain = [](const std::vector<Corner>& corners, int side) {
    std::vector<Corner> kept;
    for (const Corner& next : corners) {
      while (!kept.empty() && kept.back().y == next.y) {
        if (side * (next.x - kept.back().x) >= 0) break;
        kept.pop_back();
      }
      if (!kept.empty() && kept.back().y == next.y) continue;
      while (kept.size() >= 2) {
        const Corner &a = kept[kept.size() - 2], &b = kept.back();
        const int64_t turn = (b.x - a.x) * (next.y - a.y) - (b.y - a.y) * (next.x - a.x);
        if (side * turn < 0) break;
        kept.pop_back();
      }
      kept.push_back(next);
    }
    double area = 0;  // between the chain and the column 0
    for (size_t i = 1; i < kept.size(); ++i) {
      area += static_cast<double>((kept[i].x + kept[i - 1].x) * (kept[i].y - kept[i - 1].y)) / 2;
    }
    return area;
  };
  return chain(right, -1) - chain(left, 1);
}

void AddMoments(const std::vector<BlobRun>& runs, BlobShape& shape) {
  double x = 0, y = 0;
  for (const auto& [row, first, last] : runs) {
    const double length = last - first + 1;
    shape.area += length;
    x += length * (first + last) / 2;
    y += length * row;
  }
  shape.x = x / shape.area;
  shape.y = y / shape.area;
  // A run is a rectangle, whose own second moments are 1 / 12 of its squared sides.
  for (const auto& [row, first, last] : runs) {
    const double length = last - first + 1, dx = (first + last) / 2.0 - shape.x, dy = row - shape.y;
    shape.mxx += length * (dx * dx + length * length / 12) / shape.area;
    shape.mxy += length * dx * dy / shape.area;
    shape.myy += length * (dy * dy + 1.0 / 12) / shape.area;
  }
  const double middle = (shape.mxx + shape.myy) / 2, half = (shape.mxx - shape.myy) / 2;
  const double apart = std::sqrt(half * half + shape.mxy * shape.mxy);
  shape.elongation = std::sqrt((middle + apart) / (middle - apart));
  shape.axis = ArcTangent(shape.mxy, half) / 2 * 180 / std::numbers::pi;
  if (shape.axis >= 90) shape.axis -= 180;
  shape.circularity = shape.area / (2 * std::numbers::pi * (shape.mxx + shape.myy));
}

void AddGreys(const std::vector<BlobRun>& runs, const GreyImage& image, BlobShape& shape) {
  GreyStatistics greys;
  for (const auto& [row, first, last] : runs) {
    for (int x = first; x <= last; ++x) greys.Add(image.rows[row][x]);
  }
  shape.mean = greys.Mean();
  shape.median = greys.Percentile(50);
  shape.deviation = greys.Deviation();
}

// The pixels around a blob that belong to no blob; each is counted once for a blob.
class Surroundings {
 public:
  Surroundings(const GreyImage& image, const GreyImage& binary)
      : image_(image), binary_(binary), seen_(size_t(image.width) * size_t(image.height)) {}

  double MeanAround(const std::vector<BlobRun>& runs) {
    constexpr int kReach = 3;
    ++blob_;
    GreyStatistics greys;
    for (const auto& [row, first, last] : runs) {
      const int top = std::max(row - kReach, 0), bottom = std::min(row + kReach, image_.height - 1);
      const int left = std::max(first - kReach, 0),
                right = std::min(last + kReach, image_.width - 1);
      for (int y = top; y <= bottom; ++y) {
        for (int x = left; x <= right; ++x) {
          uint32_t& seen = seen_[size_t(y) * size_t(image_.width) + size_t(x)];
          if (binary_.rows[y][x] || seen == blob_) continue;
          seen = blob_;
          greys.Add(image_.rows[y][x]);
        }
      }
    }
    return greys.Count() > 0 ? greys.Mean() : NAN;
  }

 private:
  const GreyImage &image_, &binary_;
  std::vector<uint32_t> seen_;  // the blob that came near a pixel last
  uint32_t blob_ = 0;
};

}  // namespace

std::vector<std::vector<BlobRun>> RunsOfBlobs(const GreyImage& binary) try {
  std::vector<BlobRun> runs;
  Groups groups;
  size_t above = 0, aboveEnd = 0;  // the runs of the row before
  for (int y = 0; y < binary.height; ++y) {
    const size_t here = runs.size();
    for (int x = 0; x < binary.width; ++x) {
      if (!binary.rows[y][x]) continue;
      const int first = x;
      while (x + 1 < binary.width && binary.rows[y][x + 1]) ++x;
      groups.Add();
      // Diagonals join, so one column aside counts.
      while (above < aboveEnd && runs[above].last < first - 1) ++above;
      for (size_t k = above; k < aboveEnd && runs[k].first <= x + 1; ++k) {
        groups.Join(k, runs.size());
      }
      runs.push_back({y, first, x});
    }
    above = here;
    aboveEnd = runs.size();
  }
  std::vector<std::vector<BlobRun>> blobs;
  std::vector<size_t> numbers(runs.size());
  for (size_t i = 0; i < runs.size(); ++i) {
    const size_t first = groups.First(i);
    if (first == i) {
      numbers[i] = blobs.size();
      blobs.emplace_back();
    }
    blobs[numbers[first]].push_back(runs[i]);
  }
  return blobs;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the runs of blobs");
}

std::vector<BlobShape> ShapesOf(const GreyImage& image, const GreyImage& binary,
                                const std::vector<FoundBlob>& blobs) try {
  struct Group {
    std::vector<BlobRun> runs;
    BlobShape shape;
  };
  std::multimap<std::array<int, 5>, Group> groups;  // by box and area
  for (std::vector<BlobRun>& runs : RunsOfBlobs(binary)) {
    BlobShape shape = {.left = runs[0].first,
                       .top = runs.front().row,
                       .right = runs[0].last,
                       .bottom = runs.back().row};
    for (const BlobRun& run : runs) {
      shape.left = std::min(shape.left, run.first);
      shape.right = std::max(shape.right, run.last);
    }
    AddMoments(runs, shape);
    const std::array key = {shape.left, shape.top, shape.right, shape.bottom,
                            static_cast<int>(shape.area)};
    groups.emplace(key, Group{std::move(runs), shape});
  }
  std::vector<BlobShape> shapes;
  Surroundings surroundings(image, binary);
  for (const FoundBlob& blob : blobs) {
    const auto range =
        groups.equal_range({blob.left, blob.top, blob.right, blob.bottom, blob.feature.area});
    // Of several with one box and area, the one whose centre is nearest.
    const auto away = [&](const BlobShape& shape) {
      return std::abs(shape.x - blob.feature.centreX) + std::abs(shape.y - blob.feature.centreY);
    };
    const auto found = std::min_element(
        range.first, range.second,
        [&](const auto& a, const auto& b) { return away(a.second.shape) < away(b.second.shape); });
    if (found == range.second) {
      throw Failure("blob " + std::to_string(blob.number) + " has no pixels");
    }
    auto& [runs, shape] = found->second;
    shape.hull = HullArea(runs);
    shape.convexity = shape.area / shape.hull;
    AddGreys(runs, image, shape);
    const double around = surroundings.MeanAround(runs);
    shape.contrast = std::isfinite(around) ? shape.mean - around : 0;
    shapes.push_back(shape);
  }
  return shapes;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the shapes of blobs");
}

}  // namespace quillon::kit
