#include "kit/measure/contour.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

constexpr size_t kMostContours = 20'000;  // as many as blobs can be measured

struct Pixel {
  int x, y;

  Pixel operator+(Pixel step) const { return {x + step.x, y + step.y}; }
  bool operator==(const Pixel&) const = default;
};

// Two neighbours with the contour between them.
struct Crossing {
  Pixel dark, bright;

  bool operator==(const Crossing&) const = default;
  // With the bright pixel on the right.
  Pixel Direction() const { return {bright.y - dark.y, dark.x - bright.x}; }
};

class Tracer {
 public:
  Tracer(const GreyImage& image, double level, double minLength)
      : image_(image),
        level_(level),
        minLength_(minLength),
        isSeen_(static_cast<size_t>(image.width) * static_cast<size_t>(image.height)) {}

  std::vector<Contour> All() {
    const int right = image_.width - 1, bottom = image_.height - 1;
    // First the contours that come in over the border, then those that never meet it.
    for (int x = 0; x < right; ++x) {
      Follow({{x + 1, 0}, {x, 0}});
      Follow({{x, bottom}, {x + 1, bottom}});
    }
    for (int y = 0; y < bottom; ++y) {
      Follow({{0, y}, {0, y + 1}});
      Follow({{right, y + 1}, {right, y}});
    }
    for (int y = 0; y <= bottom; ++y) {
      for (int x = 0; x < right; ++x) {
        if (!isSeen_[Place({x, y})]) Follow({{x, y}, {x + 1, y}});
      }
    }
    return std::move(found_);
  }

 private:
  int Grey(Pixel at) const { return image_.rows[at.y][at.x]; }
  bool IsBright(Pixel at) const { return Grey(at) >= level_; }
  bool IsIn(Pixel at) const {
    return at.x >= 0 && at.y >= 0 && at.x < image_.width && at.y < image_.height;
  }
  size_t Place(Pixel at) const {
    return static_cast<size_t>(at.y) * static_cast<size_t>(image_.width) +
           static_cast<size_t>(at.x);
  }

  Point At(const Crossing& crossing) const {
    const auto& [dark, bright] = crossing;
    const double t = (level_ - Grey(dark)) / (Grey(bright) - Grey(dark));
    return {dark.x + t * (bright.x - dark.x), dark.y + t * (bright.y - dark.y)};
  }

  // Every contour that closes goes upwards somewhere: with the dark pixel on the left.
  void See(const Crossing& crossing) {
    if (crossing.bright.x > crossing.dark.x) isSeen_[Place(crossing.dark)] = true;
  }

  // The contour from a crossing on, where there is one.
  void Follow(const Crossing& first) {
    if (IsBright(first.dark) || !IsBright(first.bright)) return;
    Contour contour{{}, true};
    Crossing here = first;
    do {
      See(here);
      contour.points.push_back(At(here));
      const Pixel step = here.Direction();
      const Pixel left = here.dark + step, right = here.bright + step;
      if (!IsIn(left) || !IsIn(right)) {
        contour.isClosed = false;
        break;
      }
      if (IsBright(left)) {
        here = {here.dark, left};
      } else if (IsBright(right)) {
        here = {left, right};
      } else {
        here = {right, here.bright};
      }
    } while (here != first);
    if (contour.Length() < minLength_) return;
    if (found_.size() == kMostContours) {
      throw Failure("more than " + std::to_string(kMostContours) +
                    " contours; raise the least length, or smooth the picture first");
    }
    found_.push_back(std::move(contour));
  }

  const GreyImage& image_;
  double level_, minLength_;
  std::vector<bool> isSeen_;
  std::vector<Contour> found_ = {};
};

Point TopOf(const Contour& contour) {
  return *std::min_element(contour.points.begin(), contour.points.end(),
                           [](Point a, Point b) { return a.y != b.y ? a.y < b.y : a.x < b.x; });
}

}  // namespace

double Contour::Length() const {
  double length = isClosed ? Distance(points.back(), points.front()) : 0;
  for (size_t i = 0; i + 1 < points.size(); ++i) length += Distance(points[i], points[i + 1]);
  return length;
}

bool Contour::IsAroundBright() const {
  double area = 0;
  for (size_t i = 0; i < points.size(); ++i) {
    const Point a = points[i], b = points[(i + 1) % points.size()];
    area += a.x * b.y - b.x * a.y;
  }
  return area > 0;
}

std::vector<Contour> FindContours(const GreyImage& image, double level, double minLength) try {
  std::vector<Contour> found = Tracer(image, level, minLength).All();
  std::vector<std::pair<Point, size_t>> order;
  order.reserve(found.size());
  for (const Contour& contour : found) order.emplace_back(TopOf(contour), order.size());
  std::sort(order.begin(), order.end(), [](const auto& a, const auto& b) {
    const auto& [at, place] = a;
    const auto& [other, otherPlace] = b;
    if (at.y != other.y) return at.y < other.y;
    return at.x != other.x ? at.x < other.x : place < otherPlace;
  });
  std::vector<Contour> sorted;
  sorted.reserve(order.size());
  for (const auto& entry : order) sorted.push_back(std::move(found[entry.second]));
  return sorted;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("contours");
}

std::vector<Contour> CutTo(const TurnedBox& box, const std::vector<Contour>& contours,
                           double minLength) try {
  const Pose back = {0, 0, -box.pose.degrees};
  const auto isInside = [&](Point point) {
    const Point at = back.At(point.x - box.pose.x, point.y - box.pose.y);
    return std::abs(at.x) <= box.width / 2 && std::abs(at.y) <= box.height / 2;
  };
  std::vector<Contour> pieces;
  for (const Contour& contour : contours) {
    const std::vector<Point>& points = contour.points;
    const size_t count = points.size();
    const auto outside = std::find_if_not(points.begin(), points.end(), isInside);
    if (outside == points.end()) {
      pieces.push_back(contour);
      continue;
    }
    // A closed one is walked from a point outside, so that no piece is cut where it begins.
    const auto start = contour.isClosed ? static_cast<size_t>(outside - points.begin()) : 0;
    Contour piece{{}, false};
    const auto end = [&] {
      if (!piece.points.empty() && piece.Length() >= minLength) pieces.push_back(piece);
      piece.points.clear();
    };
    for (size_t i = 0; i < count; ++i) {
      const Point at = points[(start + i) % count];
      if (isInside(at)) {
        piece.points.push_back(at);
      } else {
        end();
      }
    }
    end();
  }
  return pieces;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("contours");
}

std::vector<Point> Thinned(const Contour& contour, size_t most) try {
  const size_t count = contour.points.size();
  if (count <= most) return contour.points;
  std::vector<Point> points;
  for (size_t i = 0; i < most; ++i) points.push_back(contour.points[i * count / most]);
  return points;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("contours");
}

}  // namespace quillon::kit
