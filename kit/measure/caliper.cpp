#include "kit/measure/caliper.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kit/measure/least_squares.h"

namespace quillon::kit {
namespace {

constexpr double kRadians = std::numbers::pi / 180;

// The grey value between four pixels; none outside their centres.
std::optional<double> GreyAt(const GreyImage& image, Point at) {
  if (!(at.x >= 0 && at.y >= 0 && at.x <= image.width - 1 && at.y <= image.height - 1)) return {};
  const int x = std::min(static_cast<int>(at.x), std::max(image.width - 2, 0));
  const int y = std::min(static_cast<int>(at.y), std::max(image.height - 2, 0));
  const int right = std::min(x + 1, image.width - 1), below = std::min(y + 1, image.height - 1);
  const double fx = at.x - x, fy = at.y - y;
  const unsigned char *top = image.rows[y], *bottom = image.rows[below];
  return (1 - fy) * ((1 - fx) * top[x] + fx * top[right]) +
         fy * ((1 - fx) * bottom[x] + fx * bottom[right]);
}

// The mean grey values across a rectangle; the first one stands at `begin` from its centre.
struct Profile {
  std::vector<double> grey;
  double begin = 0;
};

// `at(u, k)` is the point of the sample u from the middle of the profile, in the row k of `along`.
template <class At>
Profile ProfileOf(const GreyImage& image, double width, int along, At at) {
  const int across = std::max(1, static_cast<int>(std::lround(width)));
  Profile profile, longest;
  for (int i = 0; i < across; ++i) {
    const double u = i - (across - 1) / 2.0;
    double sum = 0;
    int count = 0;
    for (int k = 0; k < along; ++k) {
      const auto grey = GreyAt(image, at(u, k - (along - 1) / 2.0));
      if (grey) sum += *grey, ++count;
    }
    if (count == 0) {
      profile.grey.clear();
      continue;
    }
    if (profile.grey.empty()) profile.begin = u;
    profile.grey.push_back(sum / count);
    if (profile.grey.size() > longest.grey.size()) longest = profile;
  }
  return longest;
}

int RowsOf(double height) { return std::max(1, static_cast<int>(std::lround(height))); }

// The slope of the profile, smoothed: the profile and a Gaussian's derivative, with the profile's
// ends continued. A step of height h has a slope of h / (sqrt(2 pi) * smoothing) at the most.
std::vector<double> Slopes(const std::vector<double>& grey, double smoothing) {
  const int reach = std::max(1, static_cast<int>(std::ceil(3 * smoothing)));
  std::vector<double> weights;
  double gain = 0;  // of a ramp that rises by 1 a pixel
  for (int k = -reach; k <= reach; ++k) {
    weights.push_back(k * std::exp(-k * k / (2 * smoothing * smoothing)));
    gain += weights.back() * k;
  }
  const int count = static_cast<int>(grey.size());
  std::vector<double> slopes;
  for (int i = 0; i < count; ++i) {
    double sum = 0;
    for (int k = 0; k <= 2 * reach; ++k) {
      const int at = std::clamp(i + k - reach, 0, count - 1);
      sum += weights[static_cast<size_t>(k)] * grey[static_cast<size_t>(at)];
    }
    slopes.push_back(sum / gain);
  }
  return slopes;
}

// A blurred step in a profile.
struct Step {
  double position, height, blur;
};

// Fits the blurred step to samples first ... last, starting at the sample `peak`.
std::optional<Step> FitStep(const std::vector<double>& grey, int first, int last, int peak) {
  const auto begin = grey.begin() + first, end = grey.begin() + last + 1;
  const auto count = static_cast<size_t>(end - begin);
  if (count < 4) return {};
  const double rise = *(end - 1) - *begin;
  std::vector<double> p = {static_cast<double>(peak), rise, 1, (*begin + *(end - 1)) / 2};
  const auto residuals = [&](std::span<const double> q, std::span<double> out) {
    const double scale = 1 / (std::numbers::sqrt2 * q[2]);
    for (size_t i = 0; i < count; ++i) {
      const double u = first + static_cast<double>(i) - q[0];
      out[i] = q[3] + q[1] / 2 * std::erf(u * scale) - begin[static_cast<std::ptrdiff_t>(i)];
    }
  };
  Minimise(residuals, count, 1e-5, p, 20);
  constexpr double kFarthestFromPeak = 2, kMostBlur = 10;
  const double blur = std::abs(p[2]), height = p[2] < 0 ? -p[1] : p[1];
  if (!(std::abs(p[0] - peak) <= kFarthestFromPeak && blur <= kMostBlur)) return {};
  // Where the step is wider than the samples, its height is only guessed: no more than they show.
  const auto [least, most] = std::minmax_element(begin, end);
  const double shown = *most - *least;
  return Step{p[0], std::clamp(height, -shown, shown), blur};
}

// Samples where the slope is steepest among those of its sign.
std::vector<int> Peaks(const std::vector<double>& slopes, double least) {
  std::vector<int> peaks;
  for (int i = 0; i < static_cast<int>(slopes.size()); ++i) {
    const auto at = static_cast<size_t>(i);
    const double size = std::abs(slopes[at]);
    if (size < least) continue;
    // Of equal neighbours the first.
    const auto signedSize = [&](size_t other) {
      return slopes[at] > 0 ? slopes[other] : -slopes[other];
    };
    const bool overLeft = i == 0 || size > signedSize(at - 1);
    const bool overRight = at + 1 == slopes.size() || size >= signedSize(at + 1);
    if (overLeft && overRight) peaks.push_back(i);
  }
  return peaks;
}

bool HasSign(double step, EdgeSign sign) {
  return sign == EdgeSign::kAny || (step > 0) == (sign == EdgeSign::kRising);
}

template <class Found, class Strength>
void Keep(EdgeOrder order, std::vector<Found>& found, Strength strength) {
  if (found.size() < 2 || order == EdgeOrder::kAll) return;
  size_t kept = order == EdgeOrder::kLast ? found.size() - 1 : 0;
  if (order == EdgeOrder::kStrongest) {
    const auto weaker = [&](const Found& a, const Found& b) { return strength(a) < strength(b); };
    kept =
        static_cast<size_t>(std::max_element(found.begin(), found.end(), weaker) - found.begin());
  }
  found = {found[kept]};
}

// A step of a profile, from the middle of the profile.
std::vector<Step> StepsOf(const Profile& profile, const EdgeRule& rule) {
  const int count = static_cast<int>(profile.grey.size());
  if (count < 4) return {};
  const std::vector<double> slopes = Slopes(profile.grey, rule.smoothing);
  // A step that is blurred by no more than this reaches the least slope.
  constexpr double kExpectedBlur = 3;
  const double least =
      rule.minStrength / (std::sqrt(2 * std::numbers::pi) * Length(rule.smoothing, kExpectedBlur));
  const std::vector<int> peaks = Peaks(slopes, least);
  std::vector<Step> steps;
  for (size_t i = 0; i < peaks.size(); ++i) {
    // Up to halfway to the next candidate, and no farther than a step's blur reaches.
    constexpr int kReach = 9;
    int first = std::max(0, peaks[i] - kReach), last = std::min(count - 1, peaks[i] + kReach);
    if (i > 0) first = std::max(first, (peaks[i - 1] + peaks[i] + 1) / 2);
    if (i + 1 < peaks.size()) last = std::min(last, (peaks[i] + peaks[i + 1]) / 2);
    const auto step = FitStep(profile.grey, first, last, peaks[i]);
    if (!step || std::abs(step->height) < rule.minStrength) continue;
    steps.push_back({profile.begin + step->position, step->height, step->blur});
  }
  return steps;
}

void KeepSteps(const EdgeRule& rule, std::vector<Step>& steps) {
  std::erase_if(steps, [&](const Step& step) { return !HasSign(step.height, rule.sign); });
  Keep(rule.order, steps, [](const Step& step) { return std::abs(step.height); });
}

// All steps, of either sign.
std::vector<Step> StepsAcross(const GreyImage& image, const TurnedBox& box, const EdgeRule& rule) {
  const auto at = [&](double u, double k) { return box.At(u, k); };
  return StepsOf(ProfileOf(image, box.width, RowsOf(box.height), at), rule);
}

Edge EdgeOf(const TurnedBox& box, const Step& step) {
  return {box.At(step.position, 0), step.position + box.width / 2, step.height, step.blur};
}

}  // namespace

std::vector<Edge> FindEdges(const GreyImage& image, const TurnedBox& box, const EdgeRule& rule) {
  std::vector<Step> steps = StepsAcross(image, box, rule);
  KeepSteps(rule, steps);
  std::vector<Edge> edges;
  edges.reserve(steps.size());
  for (const Step& step : steps) edges.push_back(EdgeOf(box, step));
  return edges;
}

std::vector<EdgePair> FindEdgePairs(const GreyImage& image, const TurnedBox& box,
                                    const EdgeRule& rule) {
  std::vector<Edge> edges;
  for (const Step& step : StepsAcross(image, box, rule)) edges.push_back(EdgeOf(box, step));
  std::vector<EdgePair> pairs;
  for (size_t i = 0; i + 1 < edges.size(); ++i) {
    const Edge &first = edges[i], &second = edges[i + 1];
    if (!HasSign(first.strength, rule.sign) || first.strength * second.strength > 0) continue;
    pairs.push_back({first, second});
    ++i;
  }
  Keep(rule.order, pairs, [](const EdgePair& pair) {
    return std::min(std::abs(pair.first.strength), std::abs(pair.second.strength));
  });
  return pairs;
}

std::vector<Point> EdgesAcross(const GreyImage& image, const TurnedBox& box, int count,
                               const EdgeRule& rule) {
  std::vector<Point> points;
  const double height = box.height / count;
  for (int i = 0; i < count; ++i) {
    const Point centre = box.At(0, (i + 0.5) * height - box.height / 2);
    const TurnedBox part = {{centre.x, centre.y, box.pose.degrees}, box.width, height};
    for (const Edge& edge : FindEdges(image, part, rule)) points.push_back(edge.at);
  }
  return points;
}

// A ray's samples lie on arcs about the centre, so that a circle's edge is straight in its profile.
std::vector<Point> EdgesAround(const GreyImage& image, const Annulus& ring, int count, double width,
                               const EdgeRule& rule) {
  struct Found {
    double degrees;
    Step step;  // its position is the radius
  };
  std::vector<Found> found;
  const double middle = (ring.inner + ring.outer) / 2;
  for (int i = 0; i < count; ++i) {
    const double degrees = 360.0 * i / count;
    const auto at = [&](double u, double k) {
      const Pose ray = {ring.centre.x, ring.centre.y, degrees + k / middle / kRadians};
      return ray.At(middle + u, 0);
    };
    std::vector<Step> steps =
        StepsOf(ProfileOf(image, ring.outer - ring.inner, RowsOf(width), at), rule);
    KeepSteps(rule, steps);
    for (const Step& step : steps) {
      found.push_back({degrees, {middle + step.position, step.height, step.blur}});
    }
  }
  if (found.empty()) return {};
  // Blur draws the edge of a disc or a hole towards its centre, by blur^2 / (2 * radius): the
  // neighbourhood of the outline holds more of what is outside. What all rays tell of the blur, by
  // its median, takes that back.
  const auto half = found.begin() + static_cast<std::ptrdiff_t>(found.size() / 2);
  std::nth_element(found.begin(), half, found.end(),
                   [](const Found& a, const Found& b) { return a.step.blur < b.step.blur; });
  const double blur = half->step.blur;
  std::vector<Point> points;
  for (const auto& [degrees, step] : found) {
    const double radius = step.position;
    const Pose ray = {ring.centre.x, ring.centre.y, degrees};
    points.push_back(ray.At(radius + blur * blur / (2 * radius), 0));
  }
  return points;
}

}  // namespace quillon::kit
