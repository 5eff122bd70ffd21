#include "geomatch/edges.h"

#include <algorithm>
#include <cmath>

#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kStrongest = 255;

// The magnitude on a scale where the level's strongest has 255, truncated.
int NormalisedMagnitude(int32_t square, double strongest) {
  return square == 0
             ? 0
             : static_cast<int>(std::sqrt(static_cast<double>(square)) / strongest * kStrongest);
}

// The least squared magnitude whose normalised value satisfies `passes`, which holds from some
// value on; one more than the greatest when there is none.
template <class Predicate>
int32_t LeastSquare(int32_t greatest, const Predicate& passes) {
  const double strongest = std::sqrt(static_cast<double>(greatest));
  int32_t low = 0, high = greatest + 1;
  while (low < high) {
    const int32_t middle = low + (high - low) / 2;
    if (passes(NormalisedMagnitude(middle, strongest))) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return low;
}

// Which pixels of a level are edge points.
class EdgeMap {
 public:
  EdgeMap(int width, int height)
      : width_(width),
        height_(height),
        gradients_(Pixels()),
        squares_(Buffer<int32_t>::Zeroed(Pixels())),
        classes_(Pixels()),
        columns_(static_cast<size_t>(width)) {}

  explicit operator bool() const { return gradients_ && squares_ && classes_ && columns_; }
  PackedVector Gradient(int x, int y) const { return gradients_[At(x, y)]; }

  void Compute(const Kernels& kernels, const uint8_t* const* rows, double high, double low) {
    const int inner = width_ - 2;
    for (int y = 1; y < height_ - 1; ++y) {
      PackedVector* gradients = gradients_.data() + At(1, y);
      kernels.geomatch.SobelRow(rows[y - 1], rows[y], rows[y + 1], gradients, inner);
      kernels.geomatch.SquareRow(gradients, squares_.data() + At(1, y), inner);
    }
    const int32_t greatest = *std::max_element(squares_.begin(), squares_.end());
    const EdgeLimits limits = {
        .weak = LeastSquare(greatest, [&](int v) { return !(v < low); }),
        .strong = LeastSquare(greatest, [&](int v) { return v >= high; }),
    };
    const int32_t nothing = limits.strong == 0 ? kStrongEdge : kNoEdge;
    std::fill(classes_.begin(), classes_.end(), nothing);
    for (int y = 1; y < height_ - 1; ++y) {
      const int32_t* squares = squares_.data() + At(1, y);
      kernels.geomatch.ClassifyRow(gradients_.data() + At(1, y), squares - width_, squares,
                                   squares + width_, limits, classes_.data() + At(1, y), inner);
    }
    for (int y = 1; y < height_ - 1; ++y) {
      const int32_t* classes = classes_.data() + At(1, y);
      kernels.geomatch.MarkRow(gradients_.data() + At(1, y), classes - width_, classes,
                               classes + width_, squares_.data() + At(1, y), inner);
    }
  }

  // Columns are listed first, without a branch for each pixel.
  template <class Visit>
  void ForEachPoint(const Visit& visit) {
    for (int y = 1; y < height_ - 1; ++y) {
      const int32_t* marks = squares_.data() + At(0, y);
      int points = 0;
      for (int x = 1; x < width_ - 1; ++x) {
        columns_[points] = x;
        points += marks[x];
      }
      for (int i = 0; i < points; ++i) visit(columns_[i], y);
    }
  }

 private:
  size_t Pixels() const { return static_cast<size_t>(width_) * static_cast<size_t>(height_); }
  size_t At(int x, int y) const {
    return static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x);
  }

  int width_, height_;
  Buffer<PackedVector> gradients_;     // inner pixels only
  Buffer<int32_t> squares_, classes_;  // in the end marks take the place of the squares
  Buffer<int32_t> columns_;
};

}  // namespace

bool ExtractGeoEdges(const Kernels& kernels, const LevelPixels& pixels, double high, double low,
                     GeoOwnedLevel& level) {
  level.radius = 0;
  if (pixels.width < 3 || pixels.height < 3) return level.Allocate(0);
  EdgeMap edges(pixels.width, pixels.height);
  if (!edges) return false;
  edges.Compute(kernels, pixels.rows, high, low);

  int count = 0;
  edges.ForEachPoint([&](int, int) { ++count; });
  if (!level.Allocate(count)) return false;
  GeoOwnedLevel::Components to = level.Writable();
  double farthest = 0;
  edges.ForEachPoint([&](int x, int y) {
    const PackedVector gradient = edges.Gradient(x, y);
    const double gx = VectorX(gradient), gy = VectorY(gradient);
    const double dx = x - level.referenceX, dy = y - level.referenceY;
    *to.x++ = x - level.referenceX;
    *to.y++ = y - level.referenceY;
    *to.gradientX++ = VectorX(gradient);
    *to.gradientY++ = VectorY(gradient);
    *to.inverseMagnitude++ = 1 / std::sqrt(gx * gx + gy * gy);
    farthest = std::max(farthest, dx * dx + dy * dy);
  });
  level.radius = std::sqrt(farthest);
  return true;
}

void ComputeSobelGradients(const Kernels& kernels, const LevelPixels& level, int y, int first,
                           int last, PackedVector* gradients) {
  std::fill(gradients, gradients + (last - first + 1), 0);
  const int from = std::max(first, 1), to = std::min(last, level.width - 2);
  if (level.height < 3 || y < 0 || y >= level.height || to < from) return;
  const uint8_t* const* row = level.rows + (std::clamp(y, 1, level.height - 2) - level.top);
  const int left = from - 1 - level.left;
  kernels.geomatch.SobelRow(row[-1] + left, row[0] + left, row[1] + left,
                            gradients + (from - first), to - from + 1);
}

}  // namespace quillon
