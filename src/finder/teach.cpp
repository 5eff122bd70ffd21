#include <algorithm>
#include <cmath>

#include "finder/edge_points.h"
#include "finder/finder.h"
#include "finder/geometry.h"
#include "finder/judge.h"
#include "finder/level_mask.h"
#include "finder/planes.h"

namespace quillon::finder {
namespace {

// A template keeps so many pixels, and so many along its shorter side, at its coarsest level; with
// fewer, other places look the same.
constexpr int kLeastEdgeSide = 12, kLeastEdgeArea = 400, kLeastEdgePoints = 28;
constexpr int kLeastGreySide = 5, kLeastGreyArea = 64;

bool IsPicture(const Picture& picture) {
  return picture.pixels && picture.width > 0 && picture.height > 0 && picture.width <= kMaxSide &&
         picture.height <= kMaxSide;
}

bool Copy(const Picture& picture, Buffer<uint8_t>& pixels) {
  pixels = Buffer<uint8_t>(static_cast<size_t>(picture.width) * picture.height);
  if (!pixels) return false;
  for (int y = 0; y < picture.height; ++y) {
    std::memcpy(pixels.data() + static_cast<size_t>(y) * picture.width,
                picture.pixels + y * picture.stride, picture.width);
  }
  return true;
}

// The side of the grid that spreads about so many points over the level.
int StepFor(const LevelMask& mask, double points) {
  const double area = static_cast<double>(mask.Width()) * mask.Height();
  return std::max(1, Nearest(std::sqrt(area / points)));
}

bool MakeGreyPoints(const Planes& planes, int l, Model& model, const LevelMask& mask) {
  // With kFew points a fit ends within a hundredth of a pixel. Its last steps, at full resolution,
  // take every pixel of a template of up to kMany.
  constexpr double kFew = 1200, kMany = 16384;
  constexpr int kMost = 400, kCoarseCell = 5;
  ModelLevel& level = model.level[l];
  const double centreX = ToLevel((model.width - 1) / 2.0, l);
  const double centreY = ToLevel((model.height - 1) / 2.0, l);
  level.radius = 0;
  for (int y = 0; y < mask.Height(); ++y) {
    for (int x = 0; x < mask.Width(); ++x) {
      if (!mask.At(x, y)) continue;
      const double u = x - centreX, v = y - centreY;
      level.radius = std::max(level.radius, static_cast<float>(std::sqrt(u * u + v * v)));
    }
  }
  const auto make = [&](int step, int side, GreyPoints& points) {
    return points.Make(planes.Row(l, 0), planes.Stride(l), mask, centreX, centreY, step, side);
  };
  if (l == 0) {
    return make(StepFor(mask, kFew), kRatedCell, level.grey) &&
           make(StepFor(mask, kMany), kRatedCell, model.fineGrey);
  }
  int step = 1;
  while ((mask.Width() / step) * (mask.Height() / step) > kMost) ++step;
  return make(step, kCoarseCell, level.grey);
}

bool IsFlat(const Model& model) {
  double count = 0, sum = 0, squares = 0;
  for (size_t i = 0; i < model.pixels.size(); ++i) {
    if (model.mask && model.mask[i] == 0) continue;
    const double value = model.pixels[i];
    ++count;
    sum += value;
    squares += value * value;
  }
  return squares - sum * sum / std::max(count, 1.0) < count;  // a deviation of one grey value
}

// The points of the level below in pixels of this one.
bool PoolPoints(const ModelLevel& from, ModelLevel& to) {
  to = ModelLevel();
  to.isPooled = true;
  to.contrast = from.contrast;
  to.radius = from.radius / 2;
  for (const ModelPoint& point : from.points) {
    if (!to.points.Add({point.u / 2, point.v / 2, point.p, point.q})) return false;
  }
  return true;
}

Status MakeLevels(const FinderKernels& kernels, Model& model) {
  const Picture own = {model.pixels.data(), model.width, model.height, model.width};
  Planes planes;
  LevelMask mask;
  if (!planes.Open(kernels, own, kMaxLevels) || !mask.Open(model)) return Status::kNoMemory;
  const bool edges = model.way == Way::kEdges;
  const int leastSide = edges ? kLeastEdgeSide : kLeastGreySide;
  const int leastArea = edges ? kLeastEdgeArea : kLeastGreyArea;
  for (int l = 0; l < kMaxLevels; ++l) {
    if (l > 0) {
      mask.Halve();
      if (std::min(mask.Width(), mask.Height()) < leastSide ||
          mask.Width() * mask.Height() < leastArea)
        break;
    }
    ModelLevel& level = model.level[l];
    if (edges) {
      if (!FindEdgePoints(planes, l, model, mask, level)) return Status::kNoMemory;
      if (level.points.size() < static_cast<size_t>(l == 0 ? kMinEdges : kLeastEdgePoints)) {
        if (l == 0) break;
        if (!PoolPoints(model.level[l - 1], level)) return Status::kNoMemory;
        model.levels = l + 1;
        break;
      }
    } else {
      if (!MakeGreyPoints(planes, l, model, mask)) return Status::kNoMemory;
      if (level.radius == 0 || (l > 0 && level.grey.Count() < kLeastGreyArea / 2)) break;
    }
    model.levels = l + 1;
  }
  if (model.levels == 0) return edges ? Status::kTooFewEdges : Status::kTooSmall;
  return Status::kOk;
}

}  // namespace

const char* Describe(Status status) {
  switch (status) {
    case Status::kOk:
      return "done";
    case Status::kNoMemory:
      return "there is not enough memory";
    case Status::kNoPicture:
      return "there is no picture, or a side is above 16384 pixels";
    case Status::kBadMask:
      return "the mask has another size than the template";
    case Status::kTooSmall:
      return "the template is smaller than 6 x 6 pixels";
    case Status::kFlat:
      return "the template has no contrast";
    case Status::kTooFewEdges:
      return "the template has fewer than 12 edge points";
    case Status::kBadNumber:
      return "a number is not finite or outside of its range";
    case Status::kBadRegion:
      return "the region holds no pixel of the picture";
    case Status::kDoesNotFit:
      return "the template is larger than the picture";
    case Status::kDamaged:
      return "the model is damaged";
    case Status::kUnknownVersion:
      return "the model was written by a later version";
  }
  return "";
}

Status Teach(const FinderKernels& kernels, const Picture& picture, const TeachOptions& options,
             Model& model) {
  model = Model();
  if (!IsPicture(picture)) return Status::kNoPicture;
  if (std::min(picture.width, picture.height) < kMinSide) return Status::kTooSmall;
  Model made;
  made.way = options.way;
  made.width = picture.width;
  made.height = picture.height;
  if (!Copy(picture, made.pixels)) return Status::kNoMemory;
  if (options.mask.pixels) {
    if (options.mask.width != picture.width || options.mask.height != picture.height) {
      return Status::kBadMask;
    }
    if (!Copy(options.mask, made.mask)) return Status::kNoMemory;
    size_t used = 0;
    for (uint8_t& value : made.mask) {
      value = value != 0 ? 255 : 0;
      used += value != 0;
    }
    if (used < kMinSide * kMinSide) return Status::kTooSmall;
  }
  if (made.way == Way::kGrey && IsFlat(made)) return Status::kFlat;
  Status status = MakeLevels(kernels, made);
  if (status == Status::kOk) status = Judge(kernels, made);
  if (status == Status::kOk) model = std::move(made);
  return status;
}

}  // namespace quillon::finder
