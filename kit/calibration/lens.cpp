#include "kit/calibration/lens.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/pixels.h"
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

// The cubic of the coefficients at a place relative to the centre, v upwards.
Point Cubic(const double* const* rows, double u, double v) {
  const double terms[] = {1, u, v, u * u, v * v, u * v, u * v * v, u * u * v, u * u * u, v * v * v};
  Point sum = {0, 0};
  for (size_t i = 0; i < std::size(terms); ++i) {
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

// Fits the bend to points, row by row from the top left; messages call them by the name.
LensFit FitPoints(const std::string& name, std::vector<int> points, const Grid& grid,
                  const std::string& parameters) {
  const auto count = static_cast<int>(points.size() / 2);
  const auto side = static_cast<int>(std::lround(std::sqrt(count)));
  std::vector<Point> seen;
  for (size_t i = 0; i < points.size(); i += 2) {
    seen.push_back({double(points[i]), double(points[i + 1])});
  }
  GreyImage image;
  image.Create(1, 1);
  constexpr float kPixelSize = 10000;  // then a pitch is a step in pixels
  LensFit fit;
  ReplaceFile(parameters, kFileSize, [&](const std::string& file) {
    if (!IxDistortionParaBuild(&image, points.data(), count, static_cast<float>(grid.step.across),
                               static_cast<float>(grid.step.down), kPixelSize, kPixelSize,
                               file.c_str())) {
      throw OutOfMemory("the fit of '" + name + "'");
    }
    fit = Judge(image, seen, side, grid.step);
    const double most =
        grid.maxResidual > 0 ? grid.maxResidual : std::min(grid.step.across, grid.step.down) / 4;
    const double worst = fit.points[fit.worst].Residual();
    if (worst > most) {
      const Point at = fit.points[fit.worst].seen;
      throw Failure("'" + name + "': point " + std::to_string(fit.worst + 1) + " (" +
                    ShortestDigits(at.x) + ", " + ShortestDigits(at.y) + ") lies " +
                    std::to_string(worst) + " pixels from its place in the fit, beyond " +
                    std::to_string(most) + " (--max-residual)");
    }
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
  return FitPoints(file, std::move(points), grid, parameters);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fit of a lens");
}

LensFit FitLensToCamera(const Camera& camera, double maxResidual,
                        const std::string& parameters) try {
  // Points to whole pixels, as the fit takes them: many, so that their rounding evens out.
  constexpr int kSide = 41;
  const auto [width, height] = camera.size;
  const auto stepOf = [](int size) { return std::ceil(size / double(kSide - 1)); };
  const Grid grid = {.step = {stepOf(width), stepOf(height)},
                     .size = camera.size,
                     .pitch = UnitPerPixel(camera) * stepOf(width),
                     .maxResidual = maxResidual};
  const RectifiedPlaces places(camera);
  const int middleX = width / 2, middleY = height / 2;
  constexpr int kMiddle = kSide / 2;
  std::vector<int> points;
  for (int row = 0; row < kSide; ++row) {
    for (int column = 0; column < kSide; ++column) {
      const Point seen = places.SeenAt(middleX + (column - kMiddle) * grid.step.across,
                                       middleY + (row - kMiddle) * grid.step.down);
      constexpr double kFarthest = 32767;
      if (!(std::abs(seen.x) <= kFarthest && std::abs(seen.y) <= kFarthest)) {
        throw Failure("the camera's bend is not known all over the rectified picture");
      }
      points.push_back(static_cast<int>(std::lround(seen.x)));
      points.push_back(static_cast<int>(std::lround(seen.y)));
    }
  }
  return FitPoints("the camera's bend", std::move(points), grid, parameters);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fit of a lens");
}

LensCorrection::LensCorrection(std::string path, const Note& note) try : path_(std::move(path)) {
  RequireLens(ParameterFile(path_, kKind, kFileSize));
  work_.Create(1, 1);  // an image without pixels would not release its parameters
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
