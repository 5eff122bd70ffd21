#include "kit/calibration/lens.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <sstream>
#include <vector>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/pixels.h"

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
      const auto result = std::from_chars(at, end, pair[i]);
      read = result.ec == std::errc() && std::fabs(pair[i]) <= 32767;
      at = result.ptr;
    }
    if (!read || at != end) {
      if (number == 1) continue;
      refuseLine(number);
    }
    for (double value : pair) points.push_back(static_cast<int>(std::lround(value)));
  }
  return points;
}

}  // namespace

void FitLens(const std::string& grid, GridStep step, const std::string& parameters) {
  std::vector<int> points = ReadPoints(grid);
  const auto count = static_cast<int>(points.size() / 2);
  const auto side = static_cast<int>(std::lround(std::sqrt(count)));
  if (count < 9 || side * side != count || side % 2 == 0) {
    throw Failure(
        "'" + grid + "' has " + std::to_string(count) +
        " points: a square grid with an odd side is needed, 9, 25, 49, ... points, row by "
        "row from the top left");
  }
  GreyImage image;
  image.Create(1, 1);
  constexpr float kPixelSize = 10000;  // then a pitch is a step in pixels
  const auto xPitch = static_cast<float>(step.across);
  const auto yPitch = static_cast<float>(step.down);
  constexpr size_t kFileSize = 208;
  ReplaceFile(parameters, kFileSize, [&](const std::string& file) {
    IxDistortionParaBuild(&image, points.data(), count, xPitch, yPitch, kPixelSize, kPixelSize,
                          file.c_str());
  });
}

LensCorrection::LensCorrection(std::string path) : path_(std::move(path)) {
  RequireRegularFile(path_);
  // What a short file leaves as it was.
  work_.centreX = work_.centreY = work_.correctedWidth = work_.correctedHeight = 0;
  work_.xMin = work_.xMax = work_.yMin = work_.yMax = 0;
  if (!IxDistortionParaLoad(&work_, path_.c_str())) throw Failure("cannot open '" + path_ + "'");
}

// The library's map runs upwards and its result is packed, top row first. So the flipped picture
// goes in, and the packed rows that come out are the corrected picture.
void LensCorrection::Apply(const GreyImage& image, GreyImage& corrected) {
  const bool sameSize = work_.width == image.width && work_.height == image.height;
  FlipAbout(work_.centreY, image, work_);
  if (!sameSize) IxDistortionPreCalculate(&work_);
  if (!IxDistortionCalibrate(&work_)) {
    throw Failure("'" + path_ + "' holds no rectangle that can be corrected: " +
                  std::to_string(work_.correctedWidth) + " x " +
                  std::to_string(work_.correctedHeight));
  }
  corrected.Create(image.width, image.height);
  RequirePixels(corrected);
  for (int y = 0; y < corrected.height; ++y) {
    std::memcpy(corrected.rows[y], work_.bits + static_cast<size_t>(y) * image.width,
                static_cast<size_t>(image.width));
  }
}

}  // namespace quillon::kit
