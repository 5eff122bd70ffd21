#include "kit/samples/sample_board.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

constexpr double kGround = 225, kCopper = 40;
constexpr double kTrace = 4, kPitch = 18;  // half a trace's width; from trace to trace
constexpr double kLane = 92;               // least height of a lane

}  // namespace

SampleBoard::SampleBoard(uint32_t seed, int width, int height) try
    : width_(width), height_(height), state_(seed * 2654435761u | 1) {
  const int lanes = std::max(2, static_cast<int>(height / kLane));
  const auto first = static_cast<int>(Within(0, 3));
  for (int i = 0; i < lanes; ++i) {
    const double top = 1.0 * height * i / lanes + 8, bottom = 1.0 * height * (i + 1) / lanes - 8;
    switch ((i + first) % 3) {
      case 0:
        AddBus(top, bottom);
        break;
      case 1:
        AddPads(top, bottom);
        break;
      default:
        AddPlane(top, bottom);
    }
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a drawn board");
}

double SampleBoard::Within(double low, double high) {
  state_ ^= state_ << 13;
  state_ ^= state_ >> 17;
  state_ ^= state_ << 5;
  return low + (high - low) * (state_ / 4294967296.0);
}

// Parallel traces that step down once, by a slope of 45 degrees.
void SampleBoard::AddBus(double top, double bottom) {
  const double step = Within(8, 20);
  const int count = static_cast<int>((bottom - top - step) / kPitch);
  const double bend = Within(0.35, 0.65) * width_;
  for (int i = 0; i < count; ++i) {
    const double y = top + kTrace + i * kPitch;
    const double x = bend - 0.4 * kPitch * i;  // the slopes keep their distance
    strokes_.push_back({{-20, y}, {x, y}, kTrace});
    strokes_.push_back({{x, y}, {x + step, y + step}, kTrace});
    strokes_.push_back({{x + step, y + step}, {width_ + 20.0, y + step}, kTrace});
  }
  const int middle = count / 2;
  const double y = top + kTrace + kPitch * middle;
  const double left = Within(0.08, 0.14) * width_, right = Within(0.84, 0.9) * width_;
  spots_.push_back({"open", {{left, y}, {left + 6, y}, kTrace + 2, true}});
  spots_.push_back({"short", {{right, y + step}, {right, y + step - kPitch}, 3.5}});
}

// Round pads with holes, on tails of their own.
void SampleBoard::AddPads(double top, double bottom) {
  const double y = (top + bottom) / 2;
  const double pitch = Within(58, 72);
  const int count = static_cast<int>((width_ - 60) / pitch);
  for (int i = 0; i < count; ++i) {
    const double x = 45 + i * pitch;
    strokes_.push_back({{x, y}, {x, i % 2 == 0 ? top : bottom}, kTrace});
    strokes_.push_back({{x, y}, {x, y}, 19});
    strokes_.push_back({{x, y}, {x, y}, 7, true});
  }
  const double x = 45 + pitch * (count - 1);
  spots_.push_back({"spur", {{65, y}, {71, y}, 4}});
  spots_.push_back({"mousebite", {{x + 19, y}, {x + 19, y}, 7, true}});
}

// An area of copper, two holes in it, and free ground beside it.
void SampleBoard::AddPlane(double top, double bottom) {
  const double y = (top + bottom) / 2, radius = (bottom - top) / 2 - 4;
  const double right = Within(0.55, 0.65) * width_;
  strokes_.push_back({{radius + 12, y}, {right, y}, radius});
  strokes_.push_back({{right - 4, y}, {right - 4, y}, 11, true});
  strokes_.push_back({{0.4 * right, y - 6}, {0.4 * right, y + 6}, 6, true});
  const double hole = Within(0.65, 0.75) * right, island = Within(0.8, 0.88) * width_;
  spots_.push_back({"pin-hole", {{hole, y + 8}, {hole, y + 8}, 6, true}});
  spots_.push_back({"spurious copper", {{island, y}, {island + 8, y - 6}, 6}});
}

SampleBoard::Stroke SampleBoard::Placed(const Stroke& stroke, const BoardPose& pose,
                                        double growth) const {
  const double angle = pose.degrees * std::numbers::pi / 180;
  const double cosine = std::cos(angle), sine = std::sin(angle);
  const auto place = [&](Point p) -> Point {
    const double x = (p.x - width_ / 2.0) * pose.stretchX;
    const double y = (p.y - height_ / 2.0) * pose.stretchY;
    return {width_ / 2.0 + x * cosine - y * sine + pose.x,
            height_ / 2.0 + x * sine + y * cosine + pose.y};
  };
  return {place(stroke.a), place(stroke.b), stroke.radius + (stroke.hole ? -growth : growth),
          stroke.hole};
}

std::vector<SampleBoard::Stroke> SampleBoard::PlacedStrokes(const BoardPose& pose,
                                                            double growth) const {
  std::vector<Stroke> placed;
  for (const Stroke& stroke : strokes_) placed.push_back(Placed(stroke, pose, growth));
  return placed;
}

// Every stroke covers what lies within its radius, softly over the last pixel.
void SampleBoard::Render(const std::vector<Stroke>& strokes, GreyImage& image) const {
  image.Create(width_, height_);
  if (!image.bits) throw OutOfMemory("drawing a board");
  std::vector<double> copper(static_cast<size_t>(width_) * static_cast<size_t>(height_), 0.0);
  for (const Stroke& s : strokes) {
    const double reach = s.radius + 1;
    const auto within = [](double value, int most) {
      return static_cast<int>(std::clamp(value, 0.0, most - 1.0));
    };
    const int left = within(std::min(s.a.x, s.b.x) - reach, width_);
    const int right = within(std::max(s.a.x, s.b.x) + reach + 1, width_);
    const int top = within(std::min(s.a.y, s.b.y) - reach, height_);
    const int bottom = within(std::max(s.a.y, s.b.y) + reach + 1, height_);
    const Point along = {s.b.x - s.a.x, s.b.y - s.a.y};
    const double square = along.x * along.x + along.y * along.y;
    for (int y = top; y <= bottom; ++y) {
      for (int x = left; x <= right; ++x) {
        const Point p = {x - s.a.x, y - s.a.y};
        const double t =
            square > 0 ? std::clamp((p.x * along.x + p.y * along.y) / square, 0.0, 1.0) : 0.0;
        const double distance = Length(p.x - t * along.x, p.y - t * along.y) - s.radius;
        const double cover = std::clamp(0.5 - distance, 0.0, 1.0);
        double& c =
            copper[static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)];
        c = s.hole ? std::min(c, 1 - cover) : std::max(c, cover);
      }
    }
  }
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      const double c =
          copper[static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)];
      image.rows[y][x] = static_cast<unsigned char>(std::lround(kGround + (kCopper - kGround) * c));
    }
  }
}

void SampleBoard::DrawGood(GreyImage& image, const BoardPose& pose, double growth) const try {
  Render(PlacedStrokes(pose, growth), image);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a drawn board");
}

std::vector<DrawnDefect> SampleBoard::DrawTested(int count, GreyImage& image,
                                                 const BoardPose& pose) const try {
  std::vector<Stroke> strokes = PlacedStrokes(pose, 0);
  GreyImage before;
  Render(strokes, before);
  count = std::min(count, static_cast<int>(spots_.size()));
  std::vector<DrawnDefect> defects;
  for (int i = 0; i < count; ++i) {
    const Spot& spot = spots_[static_cast<size_t>(i)];
    const Stroke change = Placed(spot.change, pose, 0);
    std::vector<Stroke> alone = strokes;
    alone.push_back(change);
    Render(alone, image);
    DrawnDefect defect = {spot.name, change.hole ? Difference::kMissing : Difference::kExtra,
                          width_,    height_,
                          -1,        -1};
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        if (image.rows[y][x] == before.rows[y][x]) continue;
        defect.left = std::min(defect.left, x);
        defect.right = std::max(defect.right, x);
        defect.top = std::min(defect.top, y);
        defect.bottom = std::max(defect.bottom, y);
      }
    }
    defects.push_back(defect);
  }
  for (int i = 0; i < count; ++i) {
    strokes.push_back(Placed(spots_[static_cast<size_t>(i)].change, pose, 0));
  }
  Render(strokes, image);
  return defects;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a drawn board");
}

}  // namespace quillon::kit
