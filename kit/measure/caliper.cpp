#include "kit/measure/caliper.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kit/elementary.h"
#include "kit/errors.h"
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
    weights.push_back(k * Exp(-k * k / (2 * smoothing * smoothing)));
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

// What a profile shows at one place: the step that fits best if grey is even on both sides of it,
// and that between two ramps, where there is one.
struct Fitted {
  Step even = {}, ramps = {};
  double evenSquares = 0, rampsSquares = 0;  // of what is left near the step
  size_t free = 0;  // samples beyond the parameters with ramps; 0: no ramps
};

// The integral of the blurred step of height 1: 0 far before it, u far behind it.
double Ramp(double u, double blur) {
  const double v = u / blur;
  constexpr double kRoot = 0.3989422804014327;  // 1 / sqrt(2 pi)
  return u * (1 + ErrorFunction(v / std::numbers::sqrt2)) / 2 + blur * kRoot * Exp(-v * v / 2);
}

// Parameters of a step: position, height, blur and middle; where light changes beside it, how much
// grey rises from sample to sample before and behind it too.
constexpr size_t kStepOnly = 4, kStepAndRamps = 6;

// Fits a step to the samples, which begin at `first`; returns the sum of squares that is left.
double FitParameters(std::span<const double> samples, int first, std::vector<double>& p) {
  const bool hasRamps = p.size() == kStepAndRamps;
  const auto residuals = [&](std::span<const double> q, std::span<double> out) {
    const double scale = 1 / (std::numbers::sqrt2 * q[2]);
    for (size_t i = 0; i < samples.size(); ++i) {
      const double u = first + static_cast<double>(i) - q[0];
      out[i] = q[3] + q[1] / 2 * ErrorFunction(u * scale) - samples[i];
      if (!hasRamps) continue;
      const double behind = Ramp(u, std::abs(q[2]));
      out[i] += q[4] * (u - behind) + q[5] * behind;
    }
  };
  return Minimise(residuals, samples.size(), 1e-5, p, 20);
}

// Whether light changes beside the steps, such as over a bevel or in a shadow. Ramps make a place
// less certain, so they must be plain to see: what they take of the squares lies many standard
// deviations above what they would take of noise (the F test's mean and deviation). Steps of one
// shape are judged together, for they lie in the same light. A step alone has few samples to tell
// the noise by, and the F test's tail is long then: so noise must also be next to unable to do it.
bool HaveRamps(std::span<const Fitted> steps) {
  double even = 0, ramps = 0, count = 0, free = 0;
  for (const Fitted& step : steps) {
    if (step.free == 0) continue;
    even += step.evenSquares;
    ramps += step.rampsSquares;
    free += static_cast<double>(step.free);
    ++count;
  }
  if (free == 0) return false;
  constexpr double kParameters = kStepAndRamps - kStepOnly, kDeviations = 20;
  const double most = 1 + kDeviations * std::sqrt(2 / (kParameters * count) + 2 / free);
  if (!((even - ramps) / (kParameters * count) > most * ramps / free)) return false;
  // The chance that noise alone gives so small a quotient ramps / even: the tail of the beta
  // distribution with free / 2 and, as each step's ramps add two parameters, `count`. This is its
  // sum; the more steps there are, the smaller it is.
  constexpr double kMostChance = 1e-5;
  const double left = ramps / even;
  double term = left > 0 ? Exp(free / 2 * Log(left)) : 0, chance = term;
  for (int k = 1; k < static_cast<int>(count); ++k) {
    term *= (free / 2 + k - 1) / k * (1 - left);
    chance += term;
  }
  return chance < kMostChance;
}

const Step& Chosen(const Fitted& step, bool haveRamps) {
  return haveRamps && step.free > 0 ? step.ramps : step.even;
}

// The step of these parameters; nothing where it is not the one at the sample `peak`.
std::optional<Step> StepOf(std::span<const double> p, std::span<const double> samples,
                           double peak) {
  constexpr double kFarthestFromPeak = 2, kMostBlur = 10;
  const double blur = std::abs(p[2]), height = p[2] < 0 ? -p[1] : p[1];
  if (!(std::abs(p[0] - peak) <= kFarthestFromPeak && blur <= kMostBlur)) return {};
  // Where the step is wider than the samples, its height is only guessed: no more than they show.
  const auto [least, most] = std::minmax_element(samples.begin(), samples.end());
  const double shown = *most - *least;
  return Step{p[0], std::clamp(height, -shown, shown), blur};
}

// Ramps are straight near the step only, so few samples on both sides of it tell them.
constexpr int kRampReach = 5;
constexpr double kBlurOfAStart = 1;  // where an even step is blurred more, ramps may be why

// Adds the step between two ramps, from samples first about the even step, then about what that
// gives.
void FitRamps(const std::vector<double>& grey, int first, int last, Fitted& fitted) {
  constexpr int kReach = kRampReach, kRounds = 2;
  const Step& even = fitted.even;
  double centre = even.position;
  for (int round = 0; round < kRounds; ++round) {
    const int begin = std::max(first, static_cast<int>(std::lround(centre)) - kReach);
    const int end = std::min(last, static_cast<int>(std::lround(centre)) + kReach);
    if (end - begin + 1 <= static_cast<int>(kStepAndRamps)) return;
    const std::span<const double> samples(grey.data() + begin, grey.data() + end + 1);
    const double middle = (samples.front() + samples.back()) / 2;
    std::vector<double> p = {even.position, even.height, even.blur, middle};
    fitted.evenSquares = FitParameters(samples, begin, p);
    std::vector<double> q = {centre, even.height, std::min(even.blur, kBlurOfAStart), middle, 0, 0};
    fitted.rampsSquares = FitParameters(samples, begin, q);
    const auto ramps = StepOf(q, samples, even.position);
    fitted.free = 0;
    if (!ramps || ramps->height * even.height <= 0) return;
    fitted.ramps = *ramps;
    fitted.free = samples.size() - kStepAndRamps;
    centre = ramps->position;
  }
}

// Fits the blurred step to samples first ... last, starting at the sample `peak`.
std::optional<Fitted> FitStep(const std::vector<double>& grey, int first, int last, int peak) {
  const std::span<const double> samples(grey.data() + first, grey.data() + last + 1);
  if (samples.size() < kStepOnly) return {};
  std::vector<double> p = {static_cast<double>(peak), samples.back() - samples.front(), 1,
                           (samples.front() + samples.back()) / 2};
  FitParameters(samples, first, p);
  const auto even = StepOf(p, samples, peak);
  if (!even) return {};
  Fitted fitted = {.even = *even};
  FitRamps(grey, first, last, fitted);
  return fitted;
}

// The upper one of two in the middle; there is one value at least.
double MedianOf(std::vector<double>& values) {
  const auto half = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), half, values.end());
  return *half;
}

// Samples where the slope is steepest among those of its sign. A shoulder of a step, between which
// and the step the slope does not fall to half of the shoulder's, is no step of its own.
std::vector<int> Peaks(const std::vector<double>& slopes, double least) {
  std::vector<int> peaks;
  for (int i = 0; i < static_cast<int>(slopes.size()); ++i) {
    const auto at = static_cast<size_t>(i);
    const double size = std::abs(slopes[at]);
    if (size < least) continue;
    const auto signedSize = [&](size_t other) {
      return slopes[at] > 0 ? slopes[other] : -slopes[other];
    };
    // Of equal neighbours the first.
    const bool overLeft = i == 0 || size > signedSize(at - 1);
    const bool overRight = at + 1 == slopes.size() || size >= signedSize(at + 1);
    if (!overLeft || !overRight) continue;
    bool isShoulder = false;
    while (!peaks.empty() && !isShoulder) {
      const auto before = static_cast<size_t>(peaks.back());
      double lowest = size;
      for (size_t k = before; k < at; ++k) lowest = std::min(lowest, signedSize(k));
      const double lesser = std::min(size, signedSize(before));
      if (lowest < lesser / 2) break;
      isShoulder = signedSize(before) >= size;
      if (!isShoulder) peaks.pop_back();
    }
    if (!isShoulder) peaks.push_back(i);
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

// The steps of a profile, from the middle of the profile.
std::vector<Fitted> StepsOf(const Profile& profile, const EdgeRule& rule) {
  const int count = static_cast<int>(profile.grey.size());
  if (count < 4) return {};
  const std::vector<double> slopes = Slopes(profile.grey, rule.smoothing);
  // A step that is blurred by no more than this reaches the least slope.
  constexpr double kExpectedBlur = 3;
  const double least =
      rule.minStrength / (std::sqrt(2 * std::numbers::pi) * Length(rule.smoothing, kExpectedBlur));
  const std::vector<int> peaks = Peaks(slopes, least);
  std::vector<Fitted> steps;
  for (size_t i = 0; i < peaks.size(); ++i) {
    // Up to halfway to the next candidate, and no farther than a step's blur reaches. What is much
    // less steep is light that changes beside the step.
    constexpr int kReach = 9;
    constexpr double kMuchLess = 0.25;
    const auto size = [&](size_t k) { return std::abs(slopes[static_cast<size_t>(peaks[k])]); };
    const auto cuts = [&](size_t k) { return size(k) >= kMuchLess * size(i); };
    int first = std::max(0, peaks[i] - kReach), last = std::min(count - 1, peaks[i] + kReach);
    for (size_t k = 0; k < peaks.size(); ++k) {
      if (k < i && cuts(k)) first = std::max(first, (peaks[k] + peaks[i] + 1) / 2);
      if (k > i && cuts(k)) last = std::min(last, (peaks[i] + peaks[k]) / 2);
    }
    auto step = FitStep(profile.grey, first, last, peaks[i]);
    if (!step || std::abs(step->even.height) < rule.minStrength) continue;
    step->even.position += profile.begin;
    step->ramps.position += profile.begin;
    steps.push_back(*step);
  }
  return steps;
}

void KeepSteps(const EdgeRule& rule, std::vector<Fitted>& steps) {
  std::erase_if(steps, [&](const Fitted& step) { return !HasSign(step.even.height, rule.sign); });
  Keep(rule.order, steps, [](const Fitted& step) { return std::abs(step.even.height); });
}

// All steps of the profile across a box, rising and falling ones.
std::vector<Fitted> StepsAcross(const GreyImage& image, const TurnedBox& box,
                                const EdgeRule& rule) {
  const auto at = [&](double u, double k) { return box.At(u, k); };
  return StepsOf(ProfileOf(image, box.width, RowsOf(box.height), at), rule);
}

// Where light changes beside a step, an even one is drawn aside, the farther the more is sampled of
// that light and the less of the other side. So the part is sampled anew about its step until that
// stands in the middle: all parts along a line are drawn aside alike then.
void Centre(const GreyImage& image, const TurnedBox& part, Fitted& fitted) {
  constexpr int kSamples = 2 * kRampReach + 1, kRounds = 3;
  double centre = fitted.even.position, even = 0;
  std::vector<double> grey, p;
  for (int round = 0; round < kRounds; ++round) {
    const auto at = [&](double u, double k) { return part.At(centre + u, k); };
    Profile profile = ProfileOf(image, kSamples, RowsOf(part.height), at);
    if (profile.grey.size() < kSamples) return;
    grey = std::move(profile.grey);
    p = {0, fitted.even.height, std::min(fitted.even.blur, kBlurOfAStart),
         (grey.front() + grey.back()) / 2};
    FitParameters(grey, -kRampReach, p);
    const auto step = StepOf(p, grey, 0);
    if (!step || step->height * fitted.even.height <= 0) return;
    even = step->position;
    if (round + 1 < kRounds) centre += even;
  }
  std::vector<double> q = {p[0], p[1], p[2], p[3], 0, 0};
  FitParameters(grey, -kRampReach, q);
  const auto ramps = StepOf(q, grey, even);
  if (!ramps || ramps->height * fitted.even.height <= 0) return;
  fitted.even.position = centre + even;
  fitted.ramps.position = centre + ramps->position;
}

// The edge of one step. Whether light changes beside it is judged by this step alone.
Edge EdgeOf(const TurnedBox& box, const Fitted& fitted) {
  const Step& step = Chosen(fitted, HaveRamps({&fitted, 1}));
  return {box.At(step.position, 0), step.position + box.width / 2, step.height, step.blur};
}

}  // namespace

std::vector<Edge> FindEdges(const GreyImage& image, const TurnedBox& box,
                            const EdgeRule& rule) try {
  std::vector<Fitted> steps = StepsAcross(image, box, rule);
  KeepSteps(rule, steps);
  std::vector<Edge> edges;
  edges.reserve(steps.size());
  for (const Fitted& step : steps) edges.push_back(EdgeOf(box, step));
  return edges;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("edges");
}

std::vector<EdgePair> FindEdgePairs(const GreyImage& image, const TurnedBox& box,
                                    const EdgeRule& rule) try {
  std::vector<Edge> edges;
  for (const Fitted& step : StepsAcross(image, box, rule)) edges.push_back(EdgeOf(box, step));
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
} catch (const std::bad_alloc&) {
  throw OutOfMemory("edges");
}

std::vector<Point> EdgesAcross(const GreyImage& image, const TurnedBox& box, int count,
                               const EdgeRule& rule) try {
  const double height = box.height / count;
  std::vector<Fitted> found;
  std::vector<Point> centres;  // of the part that each is from
  for (int i = 0; i < count; ++i) {
    const Point centre = box.At(0, (i + 0.5) * height - box.height / 2);
    const TurnedBox part = {{centre.x, centre.y, box.pose.degrees}, box.width, height};
    std::vector<Fitted> steps = StepsAcross(image, part, rule);
    KeepSteps(rule, steps);
    found.insert(found.end(), steps.begin(), steps.end());
    centres.insert(centres.end(), steps.size(), centre);
  }
  // The parts lie side by side in the same light, so ramps move all steps alike: by the median of
  // what each tells, which even steps tell with less noise.
  double moved = 0;
  if (HaveRamps(found)) {
    std::vector<double> moves;
    for (size_t i = 0; i < found.size(); ++i) {
      Fitted& step = found[i];
      if (step.free == 0) continue;
      Centre(image, {{centres[i].x, centres[i].y, box.pose.degrees}, box.width, height}, step);
      moves.push_back(step.ramps.position - step.even.position);
    }
    moved = MedianOf(moves);
  }
  std::vector<Point> points;
  for (size_t i = 0; i < found.size(); ++i) {
    const Pose part = {centres[i].x, centres[i].y, box.pose.degrees};
    points.push_back(part.At(found[i].even.position + moved, 0));
  }
  return points;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("edges");
}

// A ray's samples lie on arcs about the centre, so that a circle's edge is straight in its profile.
std::vector<Point> EdgesAround(const GreyImage& image, const Annulus& ring, int count, double width,
                               const EdgeRule& rule) try {
  std::vector<Fitted> found;
  std::vector<double> directions;  // of the ray that each is from
  const double middle = (ring.inner + ring.outer) / 2;
  for (int i = 0; i < count; ++i) {
    const double degrees = 360.0 * i / count;
    const auto at = [&](double u, double k) {
      const Pose ray = {ring.centre.x, ring.centre.y, degrees + k / middle / kRadians};
      return ray.At(middle + u, 0);
    };
    std::vector<Fitted> steps =
        StepsOf(ProfileOf(image, ring.outer - ring.inner, RowsOf(width), at), rule);
    KeepSteps(rule, steps);
    found.insert(found.end(), steps.begin(), steps.end());
    directions.insert(directions.end(), steps.size(), degrees);
  }
  if (found.empty()) return {};
  // Blur draws the edge of a disc or a hole towards its centre, by blur^2 / (2 * radius): the
  // neighbourhood of the outline holds more of what is outside. What all rays tell of the blur, by
  // its median, takes that back.
  const bool haveRamps = HaveRamps(found);
  std::vector<double> blurs;
  blurs.reserve(found.size());
  for (const Fitted& step : found) blurs.push_back(Chosen(step, haveRamps).blur);
  const double blur = MedianOf(blurs);
  std::vector<Point> points;
  for (size_t i = 0; i < found.size(); ++i) {
    const double radius = middle + Chosen(found[i], haveRamps).position;
    const Pose ray = {ring.centre.x, ring.centre.y, directions[i]};
    points.push_back(ray.At(radius + blur * blur / (2 * radius), 0));
  }
  return points;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("edges");
}

}  // namespace quillon::kit
