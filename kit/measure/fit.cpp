#include "kit/measure/fit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "kit/elementary.h"
#include "kit/errors.h"
#include "kit/measure/least_squares.h"

namespace quillon::kit {
namespace {

constexpr double kRadians = std::numbers::pi / 180;

double Turned(double degrees) {
  double turned = std::fmod(degrees, 180);
  if (turned >= 90) turned -= 180;
  if (turned < -90) turned += 180;
  return turned;
}

// ---- the shapes: each has parameters, and fits them to points -----------------------------------

// x, y of the middle and the direction in radians.
struct LineShape {
  static constexpr size_t kPoints = 2;
  double p[3] = {};

  auto Distances() const {
    return [x = p[0], y = p[1], cosine = Cosine(p[2]), sine = Sine(p[2])](Point at) {
      return (at.y - y) * cosine - (at.x - x) * sine;
    };
  }
  bool Through(std::span<const Point> points) { return Fit(points); }
  // Total least squares: the direction of the greatest moment.
  bool Fit(std::span<const Point> points) {
    double x = 0, y = 0, xx = 0, xy = 0, yy = 0;
    const auto count = static_cast<double>(points.size());
    for (const Point& at : points) x += at.x / count, y += at.y / count;
    for (const Point& at : points) {
      xx += (at.x - x) * (at.x - x);
      xy += (at.x - x) * (at.y - y);
      yy += (at.y - y) * (at.y - y);
    }
    p[0] = x;
    p[1] = y;
    p[2] = ArcTangent(2 * xy, xx - yy) / 2;
    return xx + yy > 0;
  }
};

// Whether the points lie in a line, but for what rounding moves them aside.
bool LieInALine(std::span<const Point> points) {
  constexpr double kStraight = 1e-6;  // of how far they reach
  LineShape line;
  if (!line.Fit(points)) return true;
  double aside = 0, reach = 0;
  const auto distance = line.Distances();
  for (const Point& at : points) {
    aside = std::max(aside, std::abs(distance(at)));
    reach = std::max(reach, Length(at.x - line.p[0], at.y - line.p[1]));
  }
  return aside <= kStraight * reach;
}

// x, y and the radius.
struct CircleShape {
  static constexpr size_t kPoints = 3;
  double p[3] = {};

  auto Distances() const {
    return [x = p[0], y = p[1], radius = p[2]](Point at) {
      return Length(at.x - x, at.y - y) - radius;
    };
  }
  bool Through(std::span<const Point> points) { return Fit(points); }

  // Kasa's algebraic circle, x^2 + y^2 = 2 a x + 2 b y + c about the points' middle, and from there
  // the least squares of distances.
  bool Fit(std::span<const Point> points) {
    if (LieInALine(points)) return false;
    double x = 0, y = 0;
    const auto count = static_cast<double>(points.size());
    for (const Point& at : points) x += at.x / count, y += at.y / count;
    std::vector<double> a(9), b(3);
    for (const Point& at : points) {
      const double row[3] = {2 * (at.x - x), 2 * (at.y - y), 1};
      const double square = (row[0] * row[0] + row[1] * row[1]) / 4;
      for (size_t i = 0; i < 3; ++i) {
        b[i] += row[i] * square;
        for (size_t k = 0; k < 3; ++k) a[3 * i + k] += row[i] * row[k];
      }
    }
    if (!SolveSymmetric(a, b)) return false;
    p[0] = x + b[0];
    p[1] = y + b[1];
    p[2] = std::sqrt(std::max(b[2] + b[0] * b[0] + b[1] * b[1], 0.0));
    if (points.size() > kPoints) Refine(points);
    return p[2] > 0;
  }

 private:
  void Refine(std::span<const Point> points) {
    std::vector<double> q(p, p + 3);
    const auto distances = [&](std::span<const double> r, std::span<double> out) {
      const CircleShape shape = {{r[0], r[1], r[2]}};
      std::transform(points.begin(), points.end(), out.begin(), shape.Distances());
    };
    Minimise(distances, points.size(), 1e-4, q, 20);
    std::copy(q.begin(), q.end(), p);
  }
};

// x, y, the logarithms of both radii, and the direction of the first in radians.
struct EllipseShape {
  static constexpr size_t kPoints = 5;
  double p[5] = {};

  auto Distances() const {
    return [x = p[0], y = p[1], turn = SineCosineOf(p[4]), a = Exp(p[2]), b = Exp(p[3])](Point at) {
      const auto [sine, cosine] = turn;
      const double u = (at.x - x) * cosine + (at.y - y) * sine;
      const double v = (at.y - y) * cosine - (at.x - x) * sine;
      // The implicit equation sqrt((u / a)^2 + (v / b)^2) = 1 over its gradient.
      const double size = Length(u / a, v / b), slope = Length(u / (a * a), v / (b * b));
      return slope > 0 ? (size - 1) * size / slope : -std::min(a, b);
    };
  }

  // The conic A x^2 + B x y + C y^2 + D x + E y = 1 through five points, about their middle: an
  // ellipse goes around that. False where the conic is none.
  bool Through(std::span<const Point> points) {
    double x = 0, y = 0, reach = 0;
    for (const Point& at : points) x += at.x / kPoints, y += at.y / kPoints;
    for (const Point& at : points) reach += Length(at.x - x, at.y - y) / kPoints;
    if (!(reach > 0)) return false;
    std::array<std::array<double, kPoints + 1>, kPoints> rows;
    for (size_t i = 0; i < kPoints; ++i) {
      const double u = (points[i].x - x) / reach, v = (points[i].y - y) / reach;
      rows[i] = {u * u, u * v, v * v, u, v, 1};
    }
    if (!Eliminate(rows)) return false;
    const double a = rows[0][kPoints], b = rows[1][kPoints], c = rows[2][kPoints];
    const double d = rows[3][kPoints], e = rows[4][kPoints];
    const double determinant = 4 * a * c - b * b;
    if (!(determinant > 0)) return false;
    // About its own middle (s, t) it is A x^2 + B x y + C y^2 = level.
    const double s = (b * e - 2 * c * d) / determinant, t = (b * d - 2 * a * e) / determinant;
    const double level = 1 - (d * s + e * t) / 2;
    const double mean = (a + c) / 2, swing = Length(a - c, b) / 2;
    const double first = level / (mean + swing), second = level / (mean - swing);
    if (!(first > 0 && second > 0)) return false;
    p[0] = x + s * reach;
    p[1] = y + t * reach;
    p[2] = Log(std::sqrt(first) * reach);
    p[3] = Log(std::sqrt(second) * reach);
    p[4] = ArcTangent(b, a - c) / 2;
    return IsBounded();
  }

  // From the circle through the points, somewhat stretched two ways: an even circle has no
  // direction. The radii may change their order on the way. Points on two lines are fitted the
  // better the longer the ellipse is: there is none then.
  bool Fit(std::span<const Point> points) {
    CircleShape circle;
    if (!circle.Fit(points)) return false;
    double best = -1;
    for (const double direction : {0.0, 45.0}) {
      const double radius = Log(circle.p[2]);
      std::vector<double> q = {circle.p[0], circle.p[1], radius + 0.05, radius - 0.05,
                               direction * kRadians};
      const auto distances = [&](std::span<const double> r, std::span<double> out) {
        const EllipseShape shape = {{r[0], r[1], r[2], r[3], r[4]}};
        std::transform(points.begin(), points.end(), out.begin(), shape.Distances());
      };
      const double sum = Minimise(distances, points.size(), 1e-6, q, 30);
      if (!std::isfinite(sum) || (best >= 0 && sum >= best)) continue;
      best = sum;
      std::copy(q.begin(), q.end(), p);
    }
    return best >= 0 && IsBounded();
  }

 private:
  bool IsBounded() const {
    constexpr double kLongest = 32768;  // no picture is as wide
    return Exp(p[2]) < kLongest && Exp(p[3]) < kLongest;
  }

  // Gauss's method: the last column becomes the solution. False where there is not just one.
  static bool Eliminate(std::array<std::array<double, kPoints + 1>, kPoints>& rows) {
    constexpr double kVanishes = 1e-12;
    for (size_t i = 0; i < kPoints; ++i) {
      const auto larger = [i](const auto& one, const auto& other) {
        return std::abs(one[i]) < std::abs(other[i]);
      };
      std::swap(rows[i], *std::max_element(rows.begin() + i, rows.end(), larger));
      if (!(std::abs(rows[i][i]) > kVanishes)) return false;
      for (size_t k = 0; k < kPoints; ++k) {
        const double times = k == i ? 0 : rows[k][i] / rows[i][i];
        for (size_t column = i; column <= kPoints; ++column) {
          rows[k][column] -= times * rows[i][column];
        }
      }
    }
    for (size_t i = 0; i < kPoints; ++i) rows[i][kPoints] /= rows[i][i];
    return true;
  }
};

// ---- which points belong ------------------------------------------------------------------------

// Random choices that are the same on every system and in every version, so that the same points
// always give the same shape: a linear congruential generator with Knuth's constants.
class Sequence {
 public:
  size_t Below(size_t limit) {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<size_t>((state_ >> 33) % limit);
  }

 private:
  uint64_t state_ = 1;
};

template <class Shape>
double MedianDistance(const Shape& shape, std::span<const Point> points) {
  std::vector<double> distances;
  distances.reserve(points.size());
  const auto distance = shape.Distances();
  for (const Point& at : points) distances.push_back(std::abs(distance(at)));
  const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
  std::nth_element(distances.begin(), middle, distances.end());
  return *middle;
}

template <class Shape>
std::vector<Point> Chosen(std::span<const Point> points, const std::vector<bool>& isUsed) {
  std::vector<Point> chosen;
  for (size_t i = 0; i < points.size(); ++i) {
    if (isUsed[i]) chosen.push_back(points[i]);
  }
  return chosen;
}

// The shape with the least median of distances.
template <class Shape>
std::optional<Shape> MedianShape(std::span<const Point> points, int trials) {
  std::optional<Shape> best;
  double least = 0;
  Sequence sequence;
  for (int trial = 0; trial < trials; ++trial) {
    std::vector<size_t> taken;
    while (taken.size() < Shape::kPoints) {
      const size_t next = sequence.Below(points.size());
      if (std::find(taken.begin(), taken.end(), next) == taken.end()) taken.push_back(next);
    }
    std::vector<Point> few;
    few.reserve(taken.size());
    for (const size_t i : taken) few.push_back(points[i]);
    Shape shape;
    if (!shape.Through(few)) continue;
    const double median = MedianDistance(shape, points);
    if (std::isfinite(median) && (!best || median < least)) {
      best = shape;
      least = median;
    }
  }
  return best;
}

// Half of the points may be wrong: this many trials miss a good one once in a million for lines and
// circles, once in fifty thousand for ellipses.
template <class Shape>
constexpr int kTrials = 0;
template <>
constexpr int kTrials<LineShape> = 60;
template <>
constexpr int kTrials<CircleShape> = 110;
template <>
constexpr int kTrials<EllipseShape> = 120;

// How often points are judged by the shape that was fitted, until the same are used again. An
// ellipse through five points with noise may begin far beside the best one, and this forgets where
// it began; lines and circles begin near, and more rounds only take good points away.
template <class Shape>
constexpr int kRounds = 2;
template <>
constexpr int kRounds<EllipseShape> = 20;

template <class Shape>
std::optional<Shape> RobustFit(std::span<const Point> points, double refuse, Residual& residual) {
  residual.isUsed.assign(points.size(), true);
  Shape shape;
  const size_t count = points.size();
  if (count < Shape::kPoints) return {};
  if (refuse < kRefuseNone && count > Shape::kPoints) {
    const auto robust = MedianShape<Shape>(points, kTrials<Shape>);
    if (!robust) return {};
    shape = *robust;
    constexpr double kLeastDeviation = 0.02;  // pixels: rounding is no reason to refuse
    std::vector<bool> before;
    for (int round = 0; round < kRounds<Shape> && before != residual.isUsed; ++round) {
      before = round == 0 ? std::vector<bool>() : residual.isUsed;
      // The median of a normal distribution's distances, and Rousseeuw's correction for few points.
      const double few = 1 + 5.0 / static_cast<double>(count - Shape::kPoints);
      const double deviation =
          std::max(kLeastDeviation, 1.4826 * few * MedianDistance(shape, points));
      const auto distance = shape.Distances();
      for (size_t i = 0; i < count; ++i) {
        residual.isUsed[i] = std::abs(distance(points[i])) <= refuse * deviation;
      }
      const std::vector<Point> used = Chosen<Shape>(points, residual.isUsed);
      if (used.size() < Shape::kPoints || !shape.Fit(used)) return {};
    }
  } else if (!shape.Fit(points)) {
    return {};
  }
  double least = 0, most = 0, sum = 0;
  const auto distances = shape.Distances();
  for (size_t i = 0; i < count; ++i) {
    if (!residual.isUsed[i]) continue;
    const double distance = distances(points[i]);
    least = residual.used ? std::min(least, distance) : distance;
    most = residual.used ? std::max(most, distance) : distance;
    sum += distance * distance;
    ++residual.used;
  }
  residual.refused = static_cast<int>(count) - residual.used;
  residual.rms = std::sqrt(sum / residual.used);
  residual.worst = std::max(std::abs(least), std::abs(most));
  residual.spread = most - least;
  return shape;
}

}  // namespace

std::optional<FittedLine> FitLine(std::span<const Point> points, double refuse) try {
  FittedLine line = {};
  const auto shape = RobustFit<LineShape>(points, refuse, line.residual);
  if (!shape) return {};
  const auto [sine, cosine] = SineCosineOf(shape->p[2]);
  double first = 0, last = 0;
  for (size_t i = 0; i < points.size(); ++i) {
    if (!line.residual.isUsed[i]) continue;
    const double at = (points[i].x - shape->p[0]) * cosine + (points[i].y - shape->p[1]) * sine;
    first = std::min(first, at);
    last = std::max(last, at);
  }
  line.middle = {shape->p[0] + (first + last) / 2 * cosine,
                 shape->p[1] + (first + last) / 2 * sine};
  line.degrees = Turned(shape->p[2] / kRadians);
  line.length = last - first;
  return line;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fit of a line");
}

std::optional<FittedEllipse> FitCircle(std::span<const Point> points, double refuse) try {
  FittedEllipse circle = {};
  const auto shape = RobustFit<CircleShape>(points, refuse, circle.residual);
  if (!shape) return {};
  circle.centre = {shape->p[0], shape->p[1]};
  circle.width = circle.height = 2 * shape->p[2];
  return circle;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fit of a circle");
}

std::optional<FittedEllipse> FitEllipse(std::span<const Point> points, double refuse) try {
  FittedEllipse ellipse = {};
  const auto shape = RobustFit<EllipseShape>(points, refuse, ellipse.residual);
  if (!shape) return {};
  ellipse.centre = {shape->p[0], shape->p[1]};
  double width = 2 * Exp(shape->p[2]), height = 2 * Exp(shape->p[3]);
  double degrees = shape->p[4] / kRadians;
  if (width < height) {
    std::swap(width, height);
    degrees += 90;
  }
  ellipse.width = width;
  ellipse.height = height;
  ellipse.degrees = Turned(degrees);
  return ellipse;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fit of an ellipse");
}

std::optional<Point> Crossing(Point a, double degreesA, Point b, double degreesB) {
  const double ax = Cosine(degreesA * kRadians), ay = Sine(degreesA * kRadians);
  const double bx = Cosine(degreesB * kRadians), by = Sine(degreesB * kRadians);
  const double cross = ax * by - ay * bx;
  constexpr double kParallel = 1e-9;
  if (std::abs(cross) < kParallel) return {};
  const double along = ((b.x - a.x) * by - (b.y - a.y) * bx) / cross;
  return Point{a.x + along * ax, a.y + along * ay};
}

}  // namespace quillon::kit
