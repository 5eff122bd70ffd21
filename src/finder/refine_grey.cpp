#include <algorithm>
#include <cmath>

#include "finder/refine.h"

namespace quillon::finder {
namespace {

constexpr double kVisible = 0.5;  // a cell that correlates so far is seen

// The picture between pixels, and its slope.
struct Sample {
  double value, slopeX, slopeY;
};

// Interpolated linearly: the pixels around a place in the picture.
bool SampleLinear(const Planes& planes, int level, double x, double y, Sample& sample) {
  const int width = planes.Width(level), height = planes.Height(level);
  if (width < 2 || height < 2 || !(x >= 0 && y >= 0 && x <= width - 1 && y <= height - 1))
    return false;
  const int left = std::min(static_cast<int>(x), width - 2);
  const int top = std::min(static_cast<int>(y), height - 2);
  const double fx = x - left, fy = y - top;
  const uint8_t* upper = planes.Row(level, top) + left;
  const uint8_t* lower = planes.Row(level, top + 1) + left;
  const double above = upper[0] + fx * (upper[1] - upper[0]);
  const double below = lower[0] + fx * (lower[1] - lower[0]);
  sample.value = above + fy * (below - above);
  sample.slopeX = (1 - fy) * (upper[1] - upper[0]) + fy * (lower[1] - lower[0]);
  sample.slopeY = below - above;
  return true;
}

// Four weights of cubic convolution and their slopes (R. G. Keys, "Cubic convolution interpolation
// for digital image processing", IEEE Trans. ASSP 1981).
struct CubicWeights {
  double value[4], slope[4];
  explicit CubicWeights(double t) {
    const double t2 = t * t, t3 = t2 * t;
    value[0] = 0.5 * (-t + 2 * t2 - t3);
    value[1] = 0.5 * (2 - 5 * t2 + 3 * t3);
    value[2] = 0.5 * (t + 4 * t2 - 3 * t3);
    value[3] = 0.5 * (-t2 + t3);
    slope[0] = 0.5 * (-1 + 4 * t - 3 * t2);
    slope[1] = 0.5 * (-10 * t + 9 * t2);
    slope[2] = 0.5 * (1 + 8 * t - 9 * t2);
    slope[3] = 0.5 * (-2 * t + 3 * t2);
  }
};

// Cubic: linear interpolation blurs the more, the nearer a place is to the middle between pixels,
// and would pull matches to whole pixels.
bool SampleCubic(const Planes& planes, int level, double x, double y, Sample& sample) {
  const int width = planes.Width(level), height = planes.Height(level);
  if (!(x >= 1 && y >= 1 && x < width - 2 && y < height - 2)) {
    return SampleLinear(planes, level, x, y, sample);
  }
  const int left = static_cast<int>(x), top = static_cast<int>(y);
  const CubicWeights wx(x - left), wy(y - top);
  sample = {};
  for (int j = 0; j < 4; ++j) {
    const uint8_t* row = planes.Row(level, top - 1 + j) + left - 1;
    double value = 0, slope = 0;
    for (int i = 0; i < 4; ++i) {
      value += wx.value[i] * row[i];
      slope += wx.slope[i] * row[i];
    }
    sample.value += wy.value[j] * value;
    sample.slopeX += wy.value[j] * slope;
    sample.slopeY += wy.slope[j] * value;
  }
  return true;
}

// A pixel of the template: where, its value, and how the template slopes there.
struct Pixel {
  double u, v, value, slopeU = 0, slopeV = 0;
};

// Calls body(pixel) for each pixel of the template at full resolution, every `step`-th of a row and
// column.
template <class Body>
void ForEachPixel(const Model& model, int step, Body&& body) {
  const double centreX = (model.width - 1) / 2.0, centreY = (model.height - 1) / 2.0;
  for (int y = step / 2; y < model.height; y += step) {
    const ptrdiff_t up = y > 0 ? -model.width : 0, down = y + 1 < model.height ? model.width : 0;
    const size_t row = static_cast<size_t>(y) * model.width;
    for (int x = step / 2; x < model.width; x += step) {
      if (model.mask && model.mask[row + x] == 0) continue;
      const uint8_t* at = &model.pixels[row + x];
      const int left = x > 0 ? -1 : 0, right = x + 1 < model.width ? 1 : 0;
      body(Pixel{x - centreX, y - centreY, static_cast<double>(*at), (at[right] - at[left]) / 2.0,
                 (at[down] - at[up]) / 2.0});
    }
  }
}

template <class Body>
void ForEachPoint(const Model& model, int level, int step, Body&& body) {
  if (level == 0) return ForEachPixel(model, step, body);
  for (const ModelPoint& point : model.level[level].points) body(Pixel{point.u, point.v, point.p});
}

struct Moments {
  double count = 0, t = 0, tt = 0, i = 0, ii = 0, ti = 0;
};

// The template is cut into cells, each correlated on its own: light may change over the template,
// and what covers a part of it takes no more than that part's share from the score.
constexpr int kMostCells = 6;  // a side

struct CellGrid {
  int across, down;
  double left, top, perU, perV;

  // Cells have about `side` samples a side.
  CellGrid(const Model& model, int level, int step) {
    const int side = level == 0 ? 8 : 5;
    const double pixel = 1 << level;
    const double width = model.width / pixel, height = model.height / pixel;
    across = std::clamp(static_cast<int>(width / (side * step)), 1, kMostCells);
    down = std::clamp(static_cast<int>(height / (side * step)), 1, kMostCells);
    left = -width / 2;
    top = -height / 2;
    perU = across / width;
    perV = down / height;
  }
  int At(double u, double v) const {
    const int x = std::clamp(static_cast<int>((u - left) * perU), 0, across - 1);
    const int y = std::clamp(static_cast<int>((v - top) * perV), 0, down - 1);
    return y * across + x;
  }
};

// How far a fit believes each cell.
struct Belief {
  double cell[kMostCells * kMostCells];
};

// The mean of the cells' correlations, weighted by the template's contrast in them.
Rating Measure(const RefineTask& task, int level, int step, const Pose& pose, Belief* belief) {
  const Placement place = PlacementOf(pose, level);
  const CellGrid grid(task.model, level, step);
  Moments cells[kMostCells * kMostCells], all[kMostCells * kMostCells];
  ForEachPoint(task.model, level, step, [&](const Pixel& pixel) {
    const double u = pixel.u, v = pixel.v, value = pixel.value;
    const int cell = grid.At(u, v);
    Moments& whole = all[cell];
    ++whole.count;
    whole.t += value;
    whole.tt += value * value;
    Sample sample;
    const double x = place.x + place.a * u - place.b * v, y = place.y + place.b * u + place.a * v;
    if (!SampleLinear(task.planes, level, x, y, sample)) return;
    Moments& m = cells[cell];
    ++m.count;
    m.t += value;
    m.tt += value * value;
    m.i += sample.value;
    m.ii += sample.value * sample.value;
    m.ti += value * sample.value;
  });
  double weights = 0, sum = 0, seen = 0;
  for (int i = 0; i < grid.across * grid.down; ++i) {
    const Moments& whole = all[i];
    // Cells that are covered pull a fit away; even ones tell nothing, but hold gain and offset.
    constexpr double kLeastBelief = 0.02, kEvenBelief = 0.2;
    if (belief) belief->cell[i] = kEvenBelief;
    if (whole.count < 3) continue;
    const double contrast = std::sqrt(std::max(0.0, whole.tt * whole.count - whole.t * whole.t));
    weights += contrast;
    const Moments& m = cells[i];
    if (m.count < 3) continue;
    const double varianceT = m.tt - m.t * m.t / m.count, varianceI = m.ii - m.i * m.i / m.count;
    // A deviation of less than a quarter of a grey value is even.
    if (!(varianceT > m.count / 16) || !(varianceI > m.count / 16)) continue;
    const double correlation = (m.ti - m.t * m.i / m.count) / std::sqrt(varianceT * varianceI);
    const double weight = contrast * m.count / whole.count;
    sum += weight * correlation;
    if (correlation >= kVisible) seen += weight;
    if (belief) {
      const double least = std::max(correlation, 0.0);
      belief->cell[i] = kLeastBelief + least * least;
    }
  }
  if (!(weights > 0)) return {0, 0};
  return {sum / weights, seen / weights};
}

// One step of least squares for a small change of the pose together with gain and offset (B. D.
// Lucas and T. Kanade, "An iterative image registration technique", IJCAI 1981). Terms: gain,
// offset, two of place, then one of turn and one of scale where they are free. False when it has
// arrived, or the pixels do not tell.
template <int kTerms>
bool FitStepOf(const RefineTask& task, int level, int step, bool cubic, const Belief& belief,
               double& gain, Pose& pose) {
  const Placement place = PlacementOf(pose, level);
  const double radius = std::max(1.0, task.model.level[level].radius * pose.scale);
  constexpr double kMiddle = 128;  // values around zero: the equations stay well conditioned
  const bool turns = task.freedom.turn;
  double a[kTerms][kTerms] = {}, b[kTerms] = {};
  const CellGrid grid(task.model, level, step);
  int used = 0;
  ForEachPoint(task.model, level, step, [&](const Pixel& pixel) {
    const double value = pixel.value;
    const double u = place.a * pixel.u - place.b * pixel.v;
    const double v = place.b * pixel.u + place.a * pixel.v;
    Sample sample;
    const bool inside = cubic ? SampleCubic(task.planes, level, place.x + u, place.y + v, sample)
                              : SampleLinear(task.planes, level, place.x + u, place.y + v, sample);
    if (!inside) return;
    if (level == 0) {
      // The template has less noise than the picture, whose own slopes would pull to between
      // pixels.
      const double shrink = gain / (pose.scale * pose.scale);
      sample.slopeX = shrink * (place.a * pixel.slopeU - place.b * pixel.slopeV);
      sample.slopeY = shrink * (place.b * pixel.slopeU + place.a * pixel.slopeV);
    }
    double terms[kTerms] = {-(value - kMiddle) / 16, -8, sample.slopeX, sample.slopeY};
    if constexpr (kTerms > 4) {
      const double turn = u * sample.slopeY - v * sample.slopeX;
      const double grow = u * sample.slopeX + v * sample.slopeY;
      terms[4] = (turns ? turn : grow) / radius;
      if constexpr (kTerms > 5) terms[5] = grow / radius;
    }
    const double target = kMiddle - sample.value;
    const double weight = belief.cell[grid.At(pixel.u, pixel.v)];
    for (int i = 0; i < kTerms; ++i) {
      const double weighted = weight * terms[i];
      for (int j = 0; j <= i; ++j) a[i][j] += weighted * terms[j];
      b[i] += weighted * target;
    }
    ++used;
  });
  if (used < 8) return false;
  for (int i = 0; i < kTerms; ++i) {
    for (int j = i + 1; j < kTerms; ++j) a[i][j] = a[j][i];
    a[i][i] += 1e-4 * used;
  }
  if (!Solve(a, b)) return false;
  gain = b[0] / 16;
  const double turn = kTerms > 4 && turns ? b[kTerms > 4 ? 4 : 0] : 0;
  const double grow = kTerms > 5 || (kTerms > 4 && !turns) ? b[kTerms - 1] : 0;
  const double longest = std::max({std::abs(b[2]), std::abs(b[3]), std::abs(turn), std::abs(grow)});
  const double shorten = longest > 1.5 ? 1.5 / longest : 1;
  const double pixel = 1 << level;
  pose.x += shorten * b[2] * pixel;
  pose.y += shorten * b[3] * pixel;
  pose.degrees += shorten * turn / radius * kDegrees;
  pose.scale *= 1 + shorten * grow / radius;
  task.freedom.Clamp(pose);
  return longest > 5e-4;
}

bool FitStep(const RefineTask& task, int level, int step, bool cubic, const Belief& belief,
             double& gain, Pose& pose) {
  const int freedoms = task.freedom.turn + task.freedom.scale;
  const auto fit = freedoms == 0 ? FitStepOf<4> : freedoms == 1 ? FitStepOf<5> : FitStepOf<6>;
  return fit(task, level, step, cubic, belief, gain, pose);
}

}  // namespace

bool FitByGrey(const RefineTask& task, int level, Candidate& candidate) {
  // Enough for a hundredth of a pixel; the last steps take all of a template of common size.
  constexpr double kFew = 1200, kMany = 16384;
  const double area = static_cast<double>(task.model.width) * task.model.height;
  const auto stepFor = [&](double points) {
    return std::max(1, Nearest(std::sqrt(area / points)));
  };
  const int coarse = level == 0 ? stepFor(kFew) : 1, fine = level == 0 ? stepFor(kMany) : 1;
  Pose pose = candidate.pose;
  Belief belief;
  double gain = 1;
  double best = Measure(task, level, coarse, pose, &belief).score;
  // From the level above, a match is less than a pixel away.
  const int steps = level == 0 || level == task.model.levels - 1 ? 3 : 2;
  for (int i = 0; i < steps && FitStep(task, level, coarse, false, belief, gain, pose); ++i) {
  }
  const double score = Measure(task, level, coarse, pose, &belief).score;
  if (score >= best) {
    best = score;
    candidate.pose = pose;
  }
  candidate.score = static_cast<float>(best);
  if (level > 0 || best < task.least) return true;
  // The score does not decide here: it is highest where interpolation smoothes the noise most.
  pose = candidate.pose;
  Measure(task, level, fine, pose, &belief);
  for (int i = 0; i < 4 && FitStep(task, level, fine, true, belief, gain, pose); ++i) {
  }
  if (std::abs(pose.x - candidate.pose.x) <= 1 && std::abs(pose.y - candidate.pose.y) <= 1 &&
      Measure(task, level, coarse, pose, nullptr).score >= best - 0.1) {
    candidate.pose = pose;
  }
  return true;
}

bool RateByGrey(const RefineTask& task, const Pose& pose, Rating& rating) {
  rating = Measure(task, 0, 1, pose, nullptr);
  return true;
}

}  // namespace quillon::finder
