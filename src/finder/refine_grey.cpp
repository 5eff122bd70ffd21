#include <algorithm>
#include <cmath>

#include "finder/refine.h"

namespace quillon::finder {
namespace {

constexpr double kVisible = 0.5;  // a cell that correlates so far is seen

// The picture between pixels, interpolated linearly. A place of the last column or row belongs to
// the pixels before it.
struct LinearPicture {
  const uint8_t* pixels;
  ptrdiff_t stride;
  int width, height;

  LinearPicture(const Planes& planes, int level)
      : pixels(planes.Row(level, 0)),
        stride(planes.Stride(level)),
        width(planes.Width(level)),
        height(planes.Height(level)) {}
  bool Has(double x, double y) const {
    return width >= 2 && height >= 2 && x >= 0 && y >= 0 && x <= width - 1 && y <= height - 1;
  }
  double At(double x, double y) const {
    const int left = std::min(static_cast<int>(x), width - 2);
    const int top = std::min(static_cast<int>(y), height - 2);
    const double fx = x - left, fy = y - top;
    const uint8_t* upper = pixels + top * stride + left;
    const uint8_t* lower = upper + stride;
    const double above = upper[0] + fx * (upper[1] - upper[0]);
    const double below = lower[0] + fx * (lower[1] - lower[0]);
    return above + fy * (below - above);
  }
};

struct Moments {
  double count = 0, t = 0, tt = 0, i = 0, ii = 0, ti = 0;

  void Add(double own, double seen) {
    ++count;
    t += own;
    tt += own * own;
    i += seen;
    ii += seen * seen;
    ti += own * seen;
  }
  void Add(const Moments& m) {
    count += m.count;
    t += m.t;
    tt += m.tt;
    i += m.i;
    ii += m.ii;
    ti += m.ti;
  }
};

// The mean of cells' correlations, weighted by the template's contrast in them and by the share of
// them that lies in the picture. One below 0 counts as 0: what covers a cell takes that cell's
// share of the score, however it looks.
class CellMean {
 public:
  static constexpr double kEven = -2;
  // The correlation, or kEven where the cell has no contrast here or there. `whole` is the number
  // of all of the cell's pixels, `contrast` that of them.
  double Add(double whole, double contrast, const Moments& m) {
    if (whole < 3) return kEven;
    weights_ += contrast;
    if (m.count < 3) return kEven;
    const double varianceT = m.tt - m.t * m.t / m.count, varianceI = m.ii - m.i * m.i / m.count;
    // A deviation of less than a quarter of a grey value is even.
    if (!(varianceT > m.count / 16) || !(varianceI > m.count / 16)) return kEven;
    const double correlation = (m.ti - m.t * m.i / m.count) / std::sqrt(varianceT * varianceI);
    const double weight = contrast * m.count / whole;
    sum_ += weight * std::max(correlation, 0.0);
    if (correlation >= kVisible) seen_ += weight;
    return correlation;
  }
  Rating Mean() const {
    return weights_ > 0 ? Rating{sum_ / weights_, seen_ / weights_} : Rating{0, 0};
  }

 private:
  double weights_ = 0, sum_ = 0, seen_ = 0;
};

// Fits the pose by steps of least squares: the picture is sampled where the template's points lie,
// and what differs there is explained by a gain, an offset and a small change of the pose. How grey
// values change with the pose is taken from the slopes of the template, which are computed once
// when it is taught (S. Baker and I. Matthews, "Lucas-Kanade 20 years on: a unifying framework",
// IJCV 2004). Those of the picture have more noise, which interpolation smoothes most in the middle
// between pixels: they would pull the pose there.
class GreyFit {
 public:
  GreyFit(const RefineTask& task, int level, const GreyPoints& points, bool cubic)
      : task_(task), level_(level), points_(points), cubic_(cubic) {}

  // The score at a pose. False when memory is short.
  bool Look(const Pose& pose, double& score) {
    if (task_.samples.size() < static_cast<size_t>(points_.Size())) {
      task_.samples = Buffer<float>(points_.Size());
      if (!task_.samples) return false;
    }
    const Placement place = PlacementOf(pose, level_);
    IsWhole(place) ? SumWhole(place) : SumCut(place);
    CellMean mean;
    for (int i = 0; i < points_.Grid().Count(); ++i) {
      const GreyPoints::Cell& cell = points_.CellAt(i);
      const CellSums& s = sums_[i];
      const Moments moments = {s.products->Count(),     s.products->Sum(), s.products->Squares(),
                               s.terms[1] / kPerOffset, s.squares,         s.terms[0] / kPerGain};
      const double correlation = mean.Add(cell.count, cell.contrast, moments);
      // How much a cell counts in the fit. One that correlates badly is probably covered, and would
      // pull the pose away; so, by less, would one that is half covered. An even one tells nothing
      // of the pose, but steadies gain and offset.
      constexpr double kLeastBelief = 0.02, kEvenBelief = 0.2;
      const double agrees = std::max(correlation, 0.0), trust = agrees * agrees;
      belief_[i] = correlation == CellMean::kEven ? kEvenBelief : kLeastBelief + trust * trust;
    }
    score = mean.Mean().score;
    return true;
  }

  // Changes the pose that was looked at to a better one. Returns by how many pixels of the level
  // that moves the template's farthest point; 0 where the pixels do not tell.
  double Move(Pose& pose) const;

 private:
  struct CellSums {
    const TermProducts* products;
    double terms[kFitTerms];  // the picture's values times the terms
    double squares;
  };

  template <int... kTerm>
  double MoveBy(Pose& pose) const;
  bool IsWhole(const Placement& place) const;
  void SumWhole(const Placement& place);
  void SumCut(const Placement& place);

  const RefineTask& task_;
  const int level_;
  const GreyPoints& points_;
  const bool cubic_;
  CellSums sums_[kMostCells * kMostCells];
  TermProducts cut_[kMostCells * kMostCells];
  double belief_[kMostCells * kMostCells];
};

// Does all of the template lie in the picture, with the pixels around that sampling takes?
bool GreyFit::IsWhole(const Placement& place) const {
  const double x =
      std::abs(place.a) * points_.HalfWidth() + std::abs(place.b) * points_.HalfHeight();
  const double y =
      std::abs(place.b) * points_.HalfWidth() + std::abs(place.a) * points_.HalfHeight();
  const double before = cubic_ ? 1.1 : 0.1, behind = cubic_ ? 2.1 : 1.1;
  return place.x - x >= before && place.y - y >= before &&
         place.x + x <= task_.planes.Width(level_) - behind &&
         place.y + y <= task_.planes.Height(level_) - behind;
}

void GreyFit::SumWhole(const Placement& place) {
  const Planes& planes = task_.planes;
  // From a pixel nearby, single precision is enough.
  const int left = Floor(place.x), top = Floor(place.y);
  const PointPlacement near = {static_cast<float>(place.x - left),
                               static_cast<float>(place.y - top), static_cast<float>(place.a),
                               static_cast<float>(place.b)};
  const FitColumns all = points_.Columns(0);
  float* samples = task_.samples.data();
  task_.kernels.SamplePoints(planes.Row(level_, top) + left, planes.Stride(level_), near, all.u,
                             all.v, points_.Size(), cubic_, kMiddleGrey, samples);
  for (int i = 0; i < points_.Grid().Count(); ++i) {
    const GreyPoints::Cell& cell = points_.CellAt(i);
    float* from = samples + cell.begin;
    const int padded = RoundUpToBlock(cell.count);
    std::fill(from + cell.count, from + padded, 0.0F);
    float sum[kPointSums];
    task_.kernels.CorrelatePoints(points_.Columns(cell.begin), from, padded, sum);
    sums_[i] = {&cell.products,
                {sum[0] * kPerGain, sum[1] * kPerOffset, sum[2], sum[3], sum[4] / points_.Radius(),
                 sum[5] / points_.Radius()},
                sum[6]};
  }
}

// The same of those points alone that lie in the picture.
void GreyFit::SumCut(const Placement& place) {
  const LinearPicture picture(task_.planes, level_);
  for (int i = 0; i < points_.Grid().Count(); ++i) {
    const GreyPoints::Cell& cell = points_.CellAt(i);
    const FitColumns p = points_.Columns(cell.begin);
    CellSums& sums = sums_[i];
    sums = {&cut_[i], {}, 0};
    cut_[i] = {};
    for (int k = 0; k < cell.count; ++k) {
      const double x = place.x + (place.a * p.u[k] - place.b * p.v[k]);
      const double y = place.y + (place.b * p.u[k] + place.a * p.v[k]);
      if (!picture.Has(x, y)) continue;
      const double value = picture.At(x, y) - kMiddleGrey;
      double terms[kFitTerms];
      TermsOf(p.u[k], p.v[k], p.value[k], p.slopeU[k], p.slopeV[k], points_.Radius(), terms);
      cut_[i].Add(terms);
      for (int t = 0; t < kFitTerms; ++t) sums.terms[t] += value * terms[t];
      sums.squares += value * value;
    }
  }
}

double GreyFit::Move(Pose& pose) const {
  const Freedom& freedom = task_.freedom;
  if (freedom.turn && freedom.scale) return MoveBy<0, 1, 2, 3, 4, 5>(pose);
  if (freedom.turn) return MoveBy<0, 1, 2, 3, 4>(pose);
  if (freedom.scale) return MoveBy<0, 1, 2, 3, 5>(pose);
  return MoveBy<0, 1, 2, 3>(pose);
}

template <int... kTerm>
double GreyFit::MoveBy(Pose& pose) const {
  constexpr int kCount = sizeof...(kTerm), kTerms[] = {kTerm...};
  double a[kCount][kCount] = {}, b[kCount] = {};
  double used = 0;
  for (int i = 0; i < points_.Grid().Count(); ++i) {
    const CellSums& s = sums_[i];
    for (int j = 0; j < kCount; ++j) {
      for (int k = j; k < kCount; ++k) {
        a[j][k] += belief_[i] * s.products->sum[TermProducts::At(kTerms[j], kTerms[k])];
      }
      b[j] += belief_[i] * s.terms[kTerms[j]];
    }
    used += s.products->Count();
  }
  if (used < 8) return 0;
  for (int j = 0; j < kCount; ++j) {
    for (int k = 0; k < j; ++k) a[j][k] = a[k][j];
    a[j][j] += 1e-4 * used;
  }
  constexpr double kLeastGain = 0.05;
  if (!Solve(a, b)) return 0;
  const double gain = b[0] * kPerGain;
  if (!(gain >= kLeastGain)) return 0;
  double move[kFitTerms] = {}, longest = 0;
  for (int j = 2; j < kCount; ++j) {
    move[kTerms[j]] = b[j] / gain;
    longest = std::max(longest, std::abs(b[j] / gain) * pose.scale);
  }
  const double shorten = longest > 1.5 ? 1.5 / longest : 1;
  const Placement place = PlacementOf(pose, level_);
  const double pixel = shorten * (1 << level_);
  pose.x -= pixel * (place.a * move[2] - place.b * move[3]);
  pose.y -= pixel * (place.b * move[2] + place.a * move[3]);
  pose.degrees -= shorten * move[4] / points_.Radius() * kDegrees;
  pose.scale /= 1 + shorten * move[5] / points_.Radius();
  task_.freedom.Clamp(pose);
  return longest;
}

// Moves `pose` until a step is shorter than `arrived`; `best` has the best pose on the way. False
// when memory is short.
bool FitIn(GreyFit& fit, int mostSteps, double arrived, Candidate& best) {
  Pose pose = best.pose;
  double score;
  if (!fit.Look(pose, score)) return false;
  best.score = static_cast<float>(score);
  for (int i = 0; i < mostSteps && fit.Move(pose) > arrived; ++i) {
    if (!fit.Look(pose, score)) return false;
    if (score < best.score) continue;
    best = {pose, static_cast<float>(score)};
  }
  return true;
}

// The best of the poses around one: moved by a pixel of the level, and grown by one at the
// template's farthest point. False when memory is short.
bool LookAround(const Freedom& freedom, int level, double radius, GreyFit& fit, Candidate& best) {
  const Pose start = best.pose;
  const double pixel = 1 << level;
  best.score = 0;
  for (int i = 0; i < 27; ++i) {
    const int right = i % 3 - 1, down = i / 3 % 3 - 1, growth = i / 9 - 1;
    Pose pose = {start.x + right * pixel, start.y + down * pixel, start.degrees,
                 start.scale * (1 + growth / radius)};
    freedom.Clamp(pose);
    double score;
    if (!fit.Look(pose, score)) return false;
    if (score > best.score) best = {pose, static_cast<float>(score)};
  }
  return true;
}

}  // namespace

bool IsBarelySwept(const RefineTask& task) {
  constexpr double kFew = 50;  // pixels
  const Model& model = task.model;
  const double area =
      static_cast<double>(model.width >> task.sweptLevel) * (model.height >> task.sweptLevel);
  const double least = task.freedom.scaleLow;
  return task.freedom.scale && !task.freedom.turn && area * least * least < kFew;
}

bool FitByGrey(const RefineTask& task, int level, Candidate& candidate) {
  constexpr int kMostSteps = 8;  // of a covered part; others take two or three
  // Linear interpolation blurs most in the middle between pixels. On a coarse level that may hide a
  // fine pattern altogether, so all steps interpolate by cubics there.
  GreyFit coarse(task, level, task.model.level[level].grey, level > 0);
  const Candidate before = candidate;
  const double arrived = level == 0 ? 0.05 : 0.02;
  if (!FitIn(coarse, kMostSteps, arrived, candidate)) return false;
  // Where a good score is gone on the level below the swept one, the poses around are tried.
  constexpr double kLost = 0.7;
  if (level == task.sweptLevel - 1 && IsBarelySwept(task) && before.score >= task.least &&
      candidate.score < kLost * before.score) {
    Candidate other = before;
    if (!LookAround(task.freedom, level, task.model.level[level].radius, coarse, other) ||
        !FitIn(coarse, kMostSteps, arrived, other)) {
      return false;
    }
    if (other.score > candidate.score) candidate = other;
  }
  // The sweep compares at whole pixels, without interpolation, and so may give a fine pattern the
  // better score of the two.
  if (level == task.sweptLevel) candidate.score = std::max(candidate.score, before.score);
  if (level > 0 || candidate.score < task.least) return true;
  // At full resolution linear interpolation is good enough to come near, but would pull the match
  // towards whole pixels: the last steps are cubic, over all pixels of a template of common size.
  // They are taken though the score may fall a little, for it is highest where interpolation
  // smoothes the noise most, and not where the pose is right.
  GreyFit fine(task, level, task.model.fineGrey, true);
  Pose pose = candidate.pose;
  double first, score;
  if (!fine.Look(pose, first)) return false;
  score = first;
  for (int i = 0; i < 4 && fine.Move(pose) > 4e-3; ++i) {
    if (!fine.Look(pose, score)) return false;
  }
  constexpr double kFar = 1.5;  // pixels: another place, not the same one more exactly
  if (std::abs(pose.x - candidate.pose.x) <= kFar && std::abs(pose.y - candidate.pose.y) <= kFar &&
      score >= first - 0.1) {
    candidate.pose = pose;
  }
  return true;
}

bool RateByGrey(const RefineTask& task, const Pose& pose, Rating& rating) {
  const Model& model = task.model;
  const Placement place = PlacementOf(pose, 0);
  const CellGrid grid = CellGrid::Of(model.width, model.height, kRatedCell);
  const LinearPicture picture(task.planes, 0);
  Moments cells[kMostCells * kMostCells], all[kMostCells * kMostCells];
  const double centreX = (model.width - 1) / 2.0, centreY = (model.height - 1) / 2.0;
  for (int y = 0; y < model.height; ++y) {
    const size_t row = static_cast<size_t>(y) * model.width;
    const double v = y - centreY;
    const double left = place.x - place.b * v, top = place.y + place.a * v;
    // Along a row the cells come one after the other.
    for (int x = 0; x < model.width;) {
      const int cell = grid.At(x - centreX, v);
      Moments own, seen;
      for (; x < model.width && grid.At(x - centreX, v) == cell; ++x) {
        if (model.mask && model.mask[row + x] == 0) continue;
        const double u = x - centreX, value = model.pixels[row + x];
        own.Add(value, 0);
        const double atX = left + place.a * u, atY = top + place.b * u;
        if (picture.Has(atX, atY)) seen.Add(value, picture.At(atX, atY));
      }
      all[cell].Add(own);
      cells[cell].Add(seen);
    }
  }
  CellMean mean;
  for (int i = 0; i < grid.Count(); ++i) {
    const Moments& m = all[i];
    mean.Add(m.count, std::sqrt(std::max(0.0, m.tt * m.count - m.t * m.t)), cells[i]);
  }
  rating = mean.Mean();
  return true;
}

}  // namespace quillon::finder
