#include "kit/calibration/lens.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <vector>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/pixels.h"
#include "kit/measure/least_squares.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

// Turned upside down about the row `centre`; rows that come from outside are black.
void FlipAbout(int centre, const GreyImage& image, GreyImage& flipped) {
  flipped.Create(image.width, image.height);
  RequirePixels(flipped);
  for (int y = 0; y < image.height; ++y) {
    const int source = 2 * centre - y;
    if (source < 0 || source >= image.height) continue;
    std::memcpy(flipped.rows[y], image.rows[source], static_cast<size_t>(image.width));
  }
}

// Numbers to the nearest pixel, from "x,y" lines; a first line of names is passed over.
std::vector<int> ReadPoints(const std::string& path) {
  std::istringstream file(ReadFile(path));
  std::vector<int> points;
  std::string line;
  const auto refuseLine = [&](int number) {
    throw Failure("'" + path + "' line " + std::to_string(number) + ": '" + line +
                  "' is not a point x,y with numbers up to 32767");
  };
  for (int number = 1; std::getline(file, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    const char *at = line.data(), *end = at + line.size();
    double pair[2];
    bool read = true;
    for (int i = 0; i < 2 && read; ++i) {
      while (at < end && (*at == ' ' || (i == 1 && *at == ','))) ++at;
      at = ReadNumber(at, end, pair[i]);
      read = at && std::fabs(pair[i]) <= 32767;
    }
    if (!read || at != end) {
      if (number == 1) continue;
      refuseLine(number);
    }
    for (double value : pair) points.push_back(static_cast<int>(std::lround(value)));
  }
  if (file.bad()) throw OutOfMemory("the points of '" + path + "'");
  return points;
}

constexpr size_t kFileSize = 208;
constexpr const char* kKind = "lens";

// What the file and the JSON file beside it both say.
Json Own(const GreyImage& fit) {
  return {{"centre", {fit.centreX, fit.centreY}},
          {"rectangle", {fit.xMin, fit.yMin, fit.xMax, fit.yMax}}};
}

std::string PlaceText(const std::vector<int>& points, int index) {
  return "point " + std::to_string(index + 1) + " (" + std::to_string(points[2 * index]) + ", " +
         std::to_string(points[2 * index + 1]) + ")";
}

// A grid listed by columns, from another corner or mirrored fits as well, and turns pictures over:
// so each point must lie right of the one before it in its row, and below that of the row before.
void RequireOrder(const std::string& file, const std::vector<int>& points, int side) {
  const auto refuse = [&](int index, int before, const char* where) {
    throw Failure("'" + file + "': " + PlaceText(points, index) + " does not lie " + where + " " +
                  PlaceText(points, before) +
                  "; points are listed row by row from the top left, each row from the left");
  };
  for (int index = 0; index < side * side; ++index) {
    const auto from = [&](int before) {
      return std::pair{points[2 * index] - points[2 * before],
                       points[2 * index + 1] - points[2 * before + 1]};
    };
    if (index % side > 0) {
      const auto [dx, dy] = from(index - 1);
      if (dx <= std::abs(dy)) refuse(index, index - 1, "right of");
    }
    if (index >= side) {
      const auto [dx, dy] = from(index - side);
      if (dy <= std::abs(dx)) refuse(index, index - side, "below");
    }
  }
}

void RequireInPicture(const std::string& file, const std::vector<int>& points, PictureSize size) {
  for (int i = 0; i < static_cast<int>(points.size() / 2); ++i) {
    const int x = points[2 * i], y = points[2 * i + 1];
    if (x >= 0 && x < size.width && y >= 0 && y < size.height) continue;
    throw Failure("'" + file + "': " + PlaceText(points, i) + " does not lie in the picture of " +
                  SizeText(size.width, size.height));
  }
}

// Of the cubic that the export fits, at a place relative to the centre, v upwards.
constexpr size_t kTerms = 10;
std::array<double, kTerms> CubicTerms(double u, double v) {
  return {1, u, v, u * u, v * v, u * v, u * v * v, u * u * v, u * u * u, v * v * v};
}

Point Cubic(const double* const* rows, double u, double v) {
  const auto terms = CubicTerms(u, v);
  Point sum = {0, 0};
  for (size_t i = 0; i < kTerms; ++i) {
    sum.x += rows[i][0] * terms[i];
    sum.y += rows[i][1] * terms[i];
  }
  return sum;
}

LensFit Judge(const GreyImage& fit, const std::vector<Point>& seen, int side, GridStep step) {
  LensFit result;
  double sum = 0;
  const double across = std::floor(step.across + 0.5), down = std::floor(step.down + 0.5);
  for (size_t i = 0; i < seen.size(); ++i) {
    const int column = static_cast<int>(i) % side - side / 2;
    const int row = static_cast<int>(i) / side - side / 2;
    const Point at = Cubic(fit.distortionCoefficientRows, column * across, -row * down);
    result.points.push_back({seen[i], {fit.centreX + at.x, fit.centreY - at.y}});
    const double residual = result.points.back().Residual();
    sum += residual * residual;
    if (residual > result.points[result.worst].Residual()) result.worst = i;
  }
  result.rms = std::sqrt(sum / static_cast<double>(seen.size()));
  return result;
}

void RequireLens(const ParameterFile& file) {
  for (size_t i = 0; i < 12; ++i) file.Place(i);
  for (size_t i = 0; i < 4; ++i) {
    if (file.Word(i) != file.Word(i + 8)) file.Refuse("its two headers differ");
  }
  const int width = file.Word(0), height = file.Word(1);
  const int xMax = file.Word(2), xMin = file.Word(3), yMin = file.Word(4), yMax = file.Word(5);
  const int x = file.Word(6), y = file.Word(7);
  if (width < 1 || height < 1 || width != xMax - xMin + 1 || height != yMax - yMin + 1) {
    file.Refuse("its rectangle of " + SizeText(width, height) + " is not that of its corners");
  }
  if (x < xMin || x > xMax || y < yMin || y > yMax)
    file.Refuse("its centre is not in its rectangle");
  for (size_t i = 0; i < 20; ++i) {
    if (!std::isfinite(file.Real(48 + 8 * i))) file.Refuse("a coefficient is no number");
  }
}

}  // namespace

double GridPoint::Residual() const { return Distance(seen, fitted); }

namespace {

// Has the export fit the bend to points, row by row from the top left, and keeps its parameters
// where `judge`, which throws Failure otherwise, takes them.
template <class Judged>
LensFit FitPoints(const std::string& name, std::vector<int> points, const Grid& grid,
                  const std::string& parameters, Judged judge) {
  const auto count = static_cast<int>(points.size() / 2);
  GreyImage image;
  MakeHolder(image);
  constexpr float kPixelSize = 10000;  // then a pitch is a step in pixels
  LensFit fit;
  ReplaceFile(parameters, kFileSize, [&](const std::string& file) {
    if (!IxDistortionParaBuild(&image, points.data(), count, static_cast<float>(grid.step.across),
                               static_cast<float>(grid.step.down), kPixelSize, kPixelSize,
                               file.c_str())) {
      throw OutOfMemory("the fit of '" + name + "'");
    }
    fit = judge(image);
  });
  Json more = Own(image);
  more.update({{"step", {grid.step.across, grid.step.down}},
               {"points", count},
               {"rms", fit.rms},
               {"worst", fit.points[fit.worst].Residual()}});
  if (grid.pitch > 0) more.update({{"pitch", grid.pitch}, {"unit", grid.unit}});
  WriteCompanion(parameters, kKind, grid.size, more);
  return fit;
}

}  // namespace

LensFit FitLens(const std::string& file, const Grid& grid, const std::string& parameters) try {
  std::vector<int> points = ReadPoints(file);
  const auto count = static_cast<int>(points.size() / 2);
  const auto side = static_cast<int>(std::lround(std::sqrt(count)));
  if (count < 9 || side * side != count || side % 2 == 0) {
    throw Failure(
        "'" + file + "' has " + std::to_string(count) +
        " points: a square grid with an odd side is needed, 9, 25, 49, ... points, row by "
        "row from the top left");
  }
  RequireOrder(file, points, side);
  if (grid.size.width > 0) RequireInPicture(file, points, grid.size);
  std::vector<Point> seen;
  for (size_t i = 0; i < points.size(); i += 2) {
    seen.push_back({double(points[i]), double(points[i + 1])});
  }
  return FitPoints(file, std::move(points), grid, parameters, [&](const GreyImage& image) {
    LensFit fit = Judge(image, seen, side, grid.step);
    const double most =
        grid.maxResidual > 0 ? grid.maxResidual : std::min(grid.step.across, grid.step.down) / 4;
    const double worst = fit.points[fit.worst].Residual();
    if (worst > most) {
      const Point at = fit.points[fit.worst].seen;
      throw Failure("'" + file + "': point " + std::to_string(fit.worst + 1) + " (" +
                    ShortestDigits(at.x) + ", " + ShortestDigits(at.y) + ") lies " +
                    std::to_string(worst) + " pixels from its place in the fit, beyond " +
                    std::to_string(most) + " (--max-residual)");
    }
    return fit;
  });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fit of a lens");
}

namespace {

// A place of the rectified picture relative to its middle, v upwards, and where the camera sees it.
struct SeenPlace {
  double u, v;
  Point seen;
};

// The cubic whose worst distance from the places is least, by Lawson's method: least squares again
// and again, with each place's weight multiplied by how far the cubic lies from it. Least squares
// alone follow the picture's broad middle and leave corners several times as far off.
class EvenCubic {
 public:
  explicit EvenCubic(const std::vector<SeenPlace>& places) {
    for (const auto& [u, v, seen] : places) {
      scale_ = std::max({scale_, std::abs(u), std::abs(v)});
    }
    constexpr int kRounds = 300;  // the worst then falls by less than a hundredth of a pixel
    std::vector<double> weights(places.size(), 1);
    double least = 0;
    for (int round = 0; round < kRounds; ++round) {
      const auto tried = Fitted(places, weights);
      if (!tried) break;  // the weights of all but a few places have vanished
      double worst = 0, total = 0;
      for (size_t i = 0; i < places.size(); ++i) {
        const double distance = Distance(At(*tried, places[i].u, places[i].v), places[i].seen);
        worst = std::max(worst, distance);
        total += weights[i] *= distance;
      }
      if (round == 0 || worst < least) least = worst, best_ = *tried;
      if (!(total > 0)) break;
      for (double& weight : weights) weight *= static_cast<double>(places.size()) / total;
    }
  }

  Point At(double u, double v) const { return At(best_, u, v); }

 private:
  using Coefficients = std::array<Point, kTerms>;

  Point At(const Coefficients& coefficients, double u, double v) const {
    const auto terms = CubicTerms(u / scale_, v / scale_);
    Point sum = {0, 0};
    for (size_t i = 0; i < kTerms; ++i) {
      sum.x += coefficients[i].x * terms[i];
      sum.y += coefficients[i].y * terms[i];
    }
    return sum;
  }

  std::optional<Coefficients> Fitted(const std::vector<SeenPlace>& places,
                                     const std::vector<double>& weights) const {
    std::vector<double> a(kTerms * kTerms), x(kTerms), y(kTerms);
    for (size_t n = 0; n < places.size(); ++n) {
      const auto terms = CubicTerms(places[n].u / scale_, places[n].v / scale_);
      for (size_t i = 0; i < kTerms; ++i) {
        const double weighted = weights[n] * terms[i];
        x[i] += weighted * places[n].seen.x;
        y[i] += weighted * places[n].seen.y;
        for (size_t k = 0; k < kTerms; ++k) a[kTerms * i + k] += weighted * terms[k];
      }
    }
    std::vector<double> again = a;
    if (!SolveSymmetric(a, x) || !SolveSymmetric(again, y)) return {};
    Coefficients coefficients;
    for (size_t i = 0; i < kTerms; ++i) coefficients[i] = {x[i], y[i]};
    return coefficients;
  }

  double scale_ = 1;
  Coefficients best_ = {};
};

bool IsIn(PictureSize size, Point at) {
  return at.x >= 0 && at.y >= 0 && at.x <= size.width - 1 && at.y <= size.height - 1;
}

// How far the parameters' cubic lies from where the camera sees each place. What the camera sees
// outside of its picture is to be black: there it counts how far into the picture the cubic looks.
LensFit JudgeTable(const GreyImage& table, const std::vector<SeenPlace>& places, PictureSize size) {
  LensFit result;
  double sum = 0;
  for (const auto& [u, v, seen] : places) {
    const Point at = Cubic(table.distortionCoefficientRows, u, v);
    GridPoint point = {seen, {table.centreX + at.x, table.centreY - at.y}};
    if (!IsIn(size, seen)) {
      if (!IsIn(size, point.fitted)) continue;
      const Point last = {size.width - 1.0, size.height - 1.0}, in = point.fitted;
      point.seen = {in.x + std::min({in.x, in.y, last.x - in.x, last.y - in.y}), in.y};
    }
    const double residual = point.Residual();
    result.points.push_back(point);
    sum += residual * residual;
    if (residual > result.points[result.worst].Residual()) result.worst = result.points.size() - 1;
  }
  result.rms = std::sqrt(sum / static_cast<double>(result.points.size()));
  return result;
}

}  // namespace

LensFit FitLensToCamera(const Camera& camera, double maxResidual,
                        const std::string& parameters) try {
  constexpr int kSide = 81, kMiddle = kSide / 2;
  const auto [width, height] = camera.size;
  const auto stepOf = [](int size) { return std::ceil(size / double(kSide - 1)); };
  const Grid grid = {.step = {stepOf(width), stepOf(height)},
                     .size = camera.size,
                     .pitch = UnitPerPixel(camera) * stepOf(width),
                     .maxResidual = maxResidual};
  const RectifiedPlaces rectified(camera);
  const int middleX = width / 2, middleY = height / 2;
  std::vector<SeenPlace> places, inPicture;
  for (int row = -kMiddle; row <= kMiddle; ++row) {
    for (int column = -kMiddle; column <= kMiddle; ++column) {
      const double u = column * grid.step.across, v = -row * grid.step.down;
      places.push_back({u, v, rectified.SeenAt(middleX + u, middleY - v)});
      if (IsIn(camera.size, places.back().seen)) inPicture.push_back(places.back());
    }
  }
  // The export fits by least squares. From the cubic's own points it makes that cubic again, but
  // for their rounding to whole pixels, which so many points even out.
  const EvenCubic cubic(inPicture);
  std::vector<int> points;
  for (const auto& [u, v, seen] : places) {
    const bool isMiddle = u == 0 && v == 0;  // which says where the picture comes to lie
    const Point at = isMiddle ? seen : cubic.At(u, v);
    constexpr double kFarthest = 32767;
    if (!(std::abs(at.x) <= kFarthest && std::abs(at.y) <= kFarthest)) {
      throw Failure("the camera's bend is not known all over the rectified picture");
    }
    points.push_back(static_cast<int>(std::lround(at.x)));
    points.push_back(static_cast<int>(std::lround(at.y)));
  }
  const auto judge = [&](const GreyImage& table) {
    LensFit fit = JudgeTable(table, places, camera.size);
    if (fit.points.empty()) throw Failure("the camera does not see the plane");
    const GridPoint& worst = fit.points[fit.worst];
    if (worst.Residual() > maxResidual) {
      const auto digits = [](double value) { return ShortestDigits(static_cast<float>(value)); };
      throw Failure("a table's cubic follows this camera to " + digits(worst.Residual()) +
                    " pixels at best, at (" + digits(worst.fitted.x) + ", " +
                    digits(worst.fitted.y) + "), beyond " + ShortestDigits(maxResidual) +
                    " (--max-residual); rectify follows the camera file itself");
    }
    return fit;
  };
  return FitPoints("the camera's bend", std::move(points), grid, parameters, judge);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fit of a lens");
}

LensCorrection::LensCorrection(std::string path, const Note& note) try : path_(std::move(path)) {
  RequireLens(ParameterFile(path_, kKind, kFileSize));
  MakeHolder(work_);
  if (!CallExports([&] { return IxDistortionParaLoad(&work_, path_.c_str()); })) {
    throw Failure("cannot open '" + path_ + "'");
  }
  size_ = ReadCompanion(path_, kKind, Own(work_), note);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the correction of a lens");
}

// Parameters that were made for larger pictures, or for another part of them, would give black ones
// in silence. The rectangle of a lens that pulls corners in goes beyond the picture a little.
void LensCorrection::RequireRectangleIn(const GreyImage& image) const {
  const int aside = work_.correctedWidth / 4, above = work_.correctedHeight / 4;
  const bool isCentreIn = work_.centreX >= 0 && work_.centreX < image.width && work_.centreY >= 0 &&
                          work_.centreY < image.height;
  if (isCentreIn && work_.xMin >= -aside && work_.xMax < image.width + aside &&
      work_.yMin >= -above && work_.yMax < image.height + above) {
    return;
  }
  throw Failure("'" + path_ + "' corrects columns " + std::to_string(work_.xMin) + " to " +
                std::to_string(work_.xMax) + ", rows " + std::to_string(work_.yMin) + " to " +
                std::to_string(work_.yMax) + " about " + std::to_string(work_.centreX) + ", " +
                std::to_string(work_.centreY) + ": not in a picture of " +
                SizeText(image.width, image.height));
}

// The library's map runs upwards and its result is packed, top row first. So the flipped picture
// goes in, and the packed rows that come out are the corrected picture.
void LensCorrection::Apply(const GreyImage& image, GreyImage& corrected) try {
  RequirePictureSize(path_, size_, image);
  RequireRectangleIn(image);
  const bool hasMap =
      work_.distortionMap && work_.width == image.width && work_.height == image.height;
  FlipAbout(work_.centreY, image, work_);
  if (!hasMap) IxDistortionPreCalculate(&work_);
  if (!IxDistortionCalibrate(&work_)) {
    if (work_.correctedWidth > 0 && work_.correctedHeight > 0) throw OutOfMemory("the correction");
    throw Failure("'" + path_ + "' holds no rectangle that can be corrected: " +
                  SizeText(work_.correctedWidth, work_.correctedHeight));
  }
  corrected.Create(image.width, image.height);
  RequirePixels(corrected);
  for (int y = 0; y < corrected.height; ++y) {
    std::memcpy(corrected.rows[y], work_.bits + static_cast<size_t>(y) * image.width,
                static_cast<size_t>(image.width));
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the correction of a lens");
}

}  // namespace quillon::kit
