// Prints the tables of docs/measure-accuracy.md: how well calipers and fits measure what is drawn
// exactly, beside the least deviation that any unbiased method can have (Cramer and Rao).
//
//   quillon_measure_accuracy RECIPE [first seed]
//
// RECIPE is examples/recipes/measure-brackets.json.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "kit/measure/caliper.h"
#include "kit/measure/least_squares.h"
#include "kit/measure/shape.h"
#include "tray_accuracy.h"

namespace {

using namespace quillon;
using namespace quillon::kit;

constexpr double kNoise = 5, kDark = 60, kBright = 180;
constexpr int kSide = 64;

// Grey values of a shape without noise: `inside` is the distance to its outline, positive inside.
// Light is blurred by a Gaussian, then gathered by square pixels.
std::vector<double> Drawn(const std::function<double(double x, double y)>& inside, double blur,
                          double dark = kDark, double bright = kBright) {
  constexpr int kParts = 4;
  std::vector<double> grey;
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      double sum = 0;
      for (int i = 0; i < kParts * kParts; ++i) {
        const double dx = (i % kParts + 0.5) / kParts - 0.5, dy = (i / kParts + 0.5) / kParts - 0.5;
        sum += std::erfc(-inside(x + dx, y + dy) / (blur * std::sqrt(2.0))) / 2;
      }
      grey.push_back(dark + (bright - dark) * sum / (kParts * kParts));
    }
  }
  return grey;
}

// The same for a shape of any outline: fine pixels are covered or not, then blurred and gathered.
std::vector<double> DrawnFinely(const std::function<double(double x, double y)>& inside,
                                double blur) {
  constexpr int kParts = 6, kFine = kParts * kSide;
  std::vector<double> fine, rows(kFine * kFine), grey;
  for (int i = 0; i < kFine * kFine; ++i) {
    const double x = (i % kFine + 0.5) / kParts - 0.5, y = (i / kFine + 0.5) / kParts - 0.5;
    fine.push_back(std::clamp(inside(x, y) * kParts + 0.5, 0.0, 1.0));
  }
  const double deviation = blur * kParts;
  const int reach = static_cast<int>(4 * deviation);
  std::vector<double> weights;
  double total = 0;
  for (int k = -reach; k <= reach; ++k) {
    weights.push_back(std::exp(-k * k / (2 * deviation * deviation)));
    total += weights.back();
  }
  const auto smooth = [&](const std::vector<double>& from, std::vector<double>& to, int step) {
    for (int i = 0; i < kFine * kFine; ++i) {
      const int at = i / step % kFine;
      double sum = 0;
      for (int k = -reach; k <= reach; ++k) {
        const int there = std::clamp(at + k, 0, kFine - 1);
        sum += weights[static_cast<size_t>(k + reach)] *
               from[static_cast<size_t>(i + (there - at) * step)];
      }
      to[static_cast<size_t>(i)] = sum / total;
    }
  };
  smooth(fine, rows, 1);
  smooth(rows, fine, kFine);
  grey.resize(kSide * kSide);
  for (int i = 0; i < kFine * kFine; ++i) {
    const int x = i % kFine / kParts, y = i / kFine / kParts;
    grey[static_cast<size_t>(y * kSide + x)] += fine[static_cast<size_t>(i)] / (kParts * kParts);
  }
  for (double& value : grey) value = kDark + (kBright - kDark) * value;
  return grey;
}

void AddNoise(const std::vector<double>& grey, std::mt19937_64& random, GreyImage& image) {
  std::normal_distribution<double> noise(0, kNoise);
  image.Create(kSide, kSide);
  for (int i = 0; i < kSide * kSide; ++i) {
    const double value = std::clamp(grey[static_cast<size_t>(i)] + noise(random), 0.0, 255.0);
    image.rows[i / kSide][i % kSide] = static_cast<unsigned char>(std::lround(value));
  }
}

struct Errors {
  int count = 0;
  double sum = 0, squares = 0;
  void Add(double error) {
    ++count;
    sum += error;
    squares += error * error;
  }
  double Bias() const { return sum / count; }
  double Deviation() const { return std::sqrt(squares / count - Bias() * Bias()); }
};

// ---- edges --------------------------------------------------------------------------------------

// How far inside the bright half a point is, for an edge through the middle moved by `shift`.
std::function<double(double, double)> Half(double degrees, double shift) {
  const double a = degrees * std::acos(-1.0) / 180, c = (kSide - 1) / 2.0;
  return [=](double x, double y) { return (x - c) * std::cos(a) + (y - c) * std::sin(a) - shift; };
}

// The least deviation of the position when dark, bright and blur are unknown too, from the pixels
// whose centres lie in the rectangle.
double LeastDeviation(const TurnedBox& box, double shift, double blur) {
  constexpr double kStep = 1e-4;
  const auto drawn = [&](int parameter, double change) {
    return Drawn(Half(box.pose.degrees, shift + (parameter == 0 ? change : 0)),
                 blur + (parameter == 1 ? change : 0), kDark + (parameter == 2 ? change : 0),
                 kBright + (parameter == 3 ? change : 0));
  };
  std::vector<std::vector<double>> slopes;
  for (int i = 0; i < 4; ++i) {
    const std::vector<double> ahead = drawn(i, kStep), behind = drawn(i, -kStep);
    std::vector<double>& slope = slopes.emplace_back();
    for (int k = 0; k < kSide * kSide; ++k) {
      const Point at = {k % kSide - box.pose.x, k / kSide - box.pose.y};
      const double a = box.pose.degrees * std::acos(-1.0) / 180;
      const double u = at.x * std::cos(a) + at.y * std::sin(a);
      const double v = at.y * std::cos(a) - at.x * std::sin(a);
      if (std::abs(u) > box.width / 2 || std::abs(v) > box.height / 2) continue;
      const auto n = static_cast<size_t>(k);
      slope.push_back((ahead[n] - behind[n]) / (2 * kStep));
    }
  }
  std::vector<double> information(16), unit = {1, 0, 0, 0};
  for (size_t i = 0; i < 4; ++i) {
    for (size_t k = 0; k < 4; ++k) {
      for (size_t n = 0; n < slopes[0].size(); ++n) {
        information[4 * i + k] += slopes[i][n] * slopes[k][n];
      }
    }
  }
  SolveSymmetric(information, unit);
  constexpr double kRounding = 1.0 / 12;
  return std::sqrt(unit[0] * (kNoise * kNoise + kRounding));
}

bool PrintEdges(uint64_t seed) {
  std::printf(
      "| blur | angle | missed | bias | deviation | least possible | ratio |\n"
      "|---|---|---|---|---|---|---|\n");
  bool isGood = true;
  constexpr int kEdges = 400;
  for (const double blur : {0.7, 1.0, 1.5, 2.0}) {
    for (const double degrees : {0.0, 7.0, 30.0, 45.0}) {
      const double c = (kSide - 1) / 2.0;
      const TurnedBox box = {{c, c, degrees}, 24, 20};
      Errors errors;
      int missed = 0;
      double least = 0;
      constexpr int kBounds = 4;
      for (int i = 0; i < kBounds; ++i) {
        least += LeastDeviation(box, (i + 0.5) / kBounds - 0.5, blur) / kBounds;
      }
      for (int i = 0; i < kEdges; ++i) {
        std::mt19937_64 random(seed + static_cast<uint64_t>(i));
        const double shift = std::uniform_real_distribution<double>(-3, 3)(random);
        GreyImage image;
        AddNoise(Drawn(Half(degrees, shift), blur), random, image);
        const auto edges = FindEdges(image, box, {.sign = EdgeSign::kRising});
        if (edges.size() != 1) {
          ++missed;
          continue;
        }
        errors.Add(edges[0].position - box.width / 2 - shift);
      }
      const double ratio = errors.Deviation() / least;
      isGood = isGood && missed == 0 && std::abs(errors.Bias()) < 0.01 && ratio < 1.3;
      std::printf("| %.1f | %.0f | %d | %+.4f | %.4f | %.4f | %.2f |\n", blur, degrees, missed,
                  errors.Bias(), errors.Deviation(), least, ratio);
    }
  }
  return isGood;
}

// ---- fits ---------------------------------------------------------------------------------------

bool PrintCircles(uint64_t seed) {
  std::printf(
      "\n| blur | refused | x: bias, deviation | diameter: bias, deviation | ellipse's width |\n"
      "|---|---|---|---|---|\n");
  bool isGood = true;
  constexpr int kCircles = 100;
  for (const double blur : {0.7, 1.0, 1.5, 2.0}) {
    Errors x, diameter, width;
    int refused = 0;
    for (int i = 0; i < kCircles; ++i) {
      std::mt19937_64 random(seed + static_cast<uint64_t>(i));
      std::uniform_real_distribution<double> place(-1, 1);
      const double c = (kSide - 1) / 2.0, cx = c + place(random), cy = c + place(random);
      const double radius = 20 + place(random);
      // A bite of 5 pixels out of one side: its edge points are no part of the circle.
      const auto disc = [=](double px, double py) {
        const double bite = std::hypot(px - cx - radius, py - cy) - 5;
        return std::min(radius - std::hypot(px - cx, py - cy), bite);
      };
      GreyImage image;
      AddNoise(DrawnFinely(disc, blur), random, image);
      const Annulus ring = {{c, c}, 10, 30};
      const ShapeRule rule = {48, {.sign = EdgeSign::kFalling, .order = EdgeOrder::kLast}, 3};
      const auto foundCircle = FindCircle(image, ring, 3, rule);
      const auto foundEllipse = FindEllipse(image, ring, 3, rule);
      if (!foundCircle || !foundEllipse) return false;
      const FittedEllipse &circle = foundCircle->shape, &ellipse = foundEllipse->shape;
      refused += circle.residual.refused;
      x.Add(circle.centre.x - cx);
      diameter.Add(circle.width - 2 * radius);
      width.Add((ellipse.width + ellipse.height) / 2 - 2 * radius);
    }
    isGood = isGood && std::abs(diameter.Bias()) < 0.03 && diameter.Deviation() < 0.05;
    std::printf("| %.1f | %.1f | %+.4f, %.4f | %+.4f, %.4f | %+.4f, %.4f |\n", blur,
                double(refused) / kCircles, x.Bias(), x.Deviation(), diameter.Bias(),
                diameter.Deviation(), width.Bias(), width.Deviation());
  }
  return isGood;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) return 2;
  // The methods were settled with seeds from 1; those from 100000 were set aside for the figures.
  const uint64_t seed = count > 2 ? std::strtoull(arguments[2], nullptr, 10) : 100000;
  const bool edges = PrintEdges(seed);
  const bool circles = PrintCircles(seed);
  const bool trays = accuracy::PrintTrays(seed, arguments[1]);
  std::printf("\nedges %s, circles %s, trays %s\n", edges ? "good" : "BAD",
              circles ? "good" : "BAD", trays ? "good" : "BAD");
  return edges && circles && trays ? 0 : 1;
}
