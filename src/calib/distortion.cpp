// Lens distortion. u and v are ideal positions relative to the middle point of the grid, v upwards.
#include "calib/distortion.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "calib/parameter_file.h"
#include "calib/polynomial.h"
#include "core/buffer.h"
#include "core/image_access.h"
#include "point/lookup_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// 32-bit sums and products that wrap: the parameters come from hosts and files.
int32_t Add(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t Subtract(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
int32_t Multiply(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// Truncation as the processor does it: INT_MIN for what does not fit.
int32_t Truncate(double value) {
  return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int32_t>(value) : INT_MIN;
}

// Whole in single precision.
int32_t GridStep(float pitch, float pixelSize) {
  return Truncate(pitch * 10000.0f / pixelSize + 0.5f);
}

int32_t Extent(int32_t first, int32_t last) { return Add(Subtract(last, first), 1); }

// Column or row numbers of a grid of n points: both run through -(side - 1) / 2 ... from the top
// left.
struct GridPosition {
  int32_t column, row;
};
GridPosition PositionOf(int32_t index, int32_t side) {
  const int32_t half = (side - 1) / 2;
  return {index % side - half, half - index / side};
}

void FreeCoefficients(GreyImage& image) {
  std::free(image.distortionCoefficients);
  std::free(image.distortionCoefficientRows);
  image.distortionCoefficients = nullptr;
  image.distortionCoefficientRows = nullptr;
}

// New coefficients, all 0, with their row table; false and none when there is no memory.
bool ReplaceCoefficients(GreyImage& image) {
  FreeCoefficients(image);
  auto* block = static_cast<double*>(std::calloc(2 * kCubicTerms, sizeof(double)));
  auto** rows = static_cast<double**>(std::malloc(kCubicTerms * sizeof(double*)));
  if (!block || !rows) {
    NoteLackOfMemory();
    std::free(block);
    std::free(rows);
    return false;
  }
  for (int i = 0; i < kCubicTerms; ++i) rows[i] = block + ptrdiff_t{2} * i;
  image.distortionCoefficients = block;
  image.distortionCoefficientRows = rows;
  return true;
}

void FreeMap(GreyImage& image) {
  std::free(image.distortionMap);
  std::free(image.distortionMapRows);
  image.distortionMap = nullptr;
  image.distortionMapRows = nullptr;
}

// The rectangle that the map covers. New parameters with another one leave the map without meaning,
// and its memory without known bounds.
struct Rectangle {
  explicit Rectangle(const GreyImage& image)
      : xMin(image.xMin), xMax(image.xMax), yMin(image.yMin), yMax(image.yMax) {}
  bool operator==(const Rectangle&) const = default;
  int32_t xMin, xMax, yMin, yMax;
};

// What a map covers, or nothing: the words of an image without a map may hold anything.
std::optional<Rectangle> Mapped(const GreyImage& image) {
  return image.distortionMap ? std::optional(Rectangle(image)) : std::nullopt;
}

// A map of the corrected size, all 0; false and none when that is impossible or needs 2 GiB.
bool ReplaceMap(GreyImage& image) {
  FreeMap(image);
  const int64_t width = int64_t{image.xMax} - image.xMin + 1;
  const int64_t height = int64_t{image.yMax} - image.yMin + 1;
  if (width != image.correctedWidth || height != image.correctedHeight || width <= 0 ||
      height <= 0 || width > INT32_MAX / 8 / height) {
    return false;
  }
  const auto rowBytes = static_cast<size_t>(width) * 2 * sizeof(int32_t);
  auto* map = static_cast<int32_t*>(std::calloc(static_cast<size_t>(height), rowBytes));
  auto** rows = static_cast<int32_t**>(std::malloc(static_cast<size_t>(height) * sizeof(int32_t*)));
  if (!map || !rows) {
    NoteLackOfMemory();
    std::free(map);
    std::free(rows);
    return false;
  }
  for (int64_t y = 0; y < height; ++y) rows[y] = map + y * width * 2;
  image.distortionMap = map;
  image.distortionMapRows = rows;
  return true;
}

// The file has 208 bytes: the header twice, from its third and from its first word on, six words
// each, then the coefficients.
void WriteParameters(const GreyImage& image, const char* fileName) {
  ParameterFile file(fileName, "wb");
  if (!file) return;
  const int32_t header[] = {
      image.centreX, image.centreY, image.correctedWidth, image.correctedHeight,
      image.xMax,    image.xMin,    image.yMin,           image.yMax};
  for (int i = 2; i < 8; ++i) file.Write(header[i]);
  for (int i = 0; i < 6; ++i) file.Write(header[i]);
  for (int i = 0; i < 2 * kCubicTerms; ++i) file.Write(image.distortionCoefficients[i]);
}

}  // namespace

bool BuildDistortionModel(GreyImage& image, int32_t* points, int count, const GridPitch& pitch,
                          const char* fileName) {
  if (!points || count < 1 || count % 2 == 0 || !ReplaceCoefficients(image)) return false;
  const auto mapped = Mapped(image);
  const int32_t xStep = GridStep(pitch.xPitch, pitch.xPixelSize);
  const int32_t yStep = GridStep(pitch.yPitch, pitch.yPixelSize);
  const ptrdiff_t middle = (count - 1) / 2;
  image.centreX = points[2 * middle];
  image.centreY = points[2 * middle + 1];
  for (ptrdiff_t i = 0; i < count; ++i) {
    points[2 * i] = Subtract(points[2 * i], image.centreX);
    points[2 * i + 1] = Subtract(image.centreY, points[2 * i + 1]);
  }

  const auto side = static_cast<int32_t>(std::sqrt(static_cast<double>(count)));
  const auto idealU = [&](int32_t i) {
    return static_cast<float>(Multiply(PositionOf(i, side).column, xStep));
  };
  const auto idealV = [&](int32_t i) {
    return static_cast<float>(Multiply(PositionOf(i, side).row, yStep));
  };
  const auto centreX = static_cast<float>(image.centreX);
  const auto centreY = static_cast<float>(image.centreY);
  image.yMin = Truncate(centreY - idealV(0));
  image.xMin = Truncate(idealU(0) + centreX);
  image.yMax = Truncate(centreY - idealV(count - 1));
  image.xMax = Truncate(idealU(count - 1) + centreX);
  image.correctedWidth = Extent(image.xMin, image.xMax);
  image.correctedHeight = Extent(image.yMin, image.yMax);
  if (mapped && *mapped != Rectangle(image)) FreeMap(image);

  double uScale = 1, vScale = 1;
  for (int32_t i = 0; i < count; ++i) {
    uScale = std::max(uScale, std::fabs(double{idealU(i)}));
    vScale = std::max(vScale, std::fabs(double{idealV(i)}));
  }
  CubicFit fit(uScale, vScale);
  for (int32_t i = 0; i < count; ++i) {
    fit.Add(idealU(i), idealV(i), points[ptrdiff_t{2} * i], points[ptrdiff_t{2} * i + 1]);
  }
  const auto coefficients = fit.Solve();
  for (int i = 0; i < kCubicTerms; ++i) {
    image.distortionCoefficientRows[i][0] = coefficients[i][0];
    image.distortionCoefficientRows[i][1] = coefficients[i][1];
  }
  WriteParameters(image, fileName);
  return true;
}

bool LoadDistortionParameters(GreyImage& image, const char* fileName) {
  FreeCoefficients(image);
  ParameterFile file(fileName, "rb");
  if (!file || !ReplaceCoefficients(image)) return false;
  const auto mapped = Mapped(image);
  int32_t* const fromThird[] = {&image.correctedWidth, &image.correctedHeight,
                                &image.xMax,           &image.xMin,
                                &image.yMin,           &image.yMax};
  int32_t* const fromFirst[] = {&image.centreX,         &image.centreY, &image.correctedWidth,
                                &image.correctedHeight, &image.xMax,    &image.xMin};
  for (int32_t* word : fromThird) file.Read(*word);
  for (int32_t* word : fromFirst) file.Read(*word);
  if (mapped && *mapped != Rectangle(image)) FreeMap(image);
  for (int i = 0; i < 2 * kCubicTerms; ++i) file.Read(image.distortionCoefficients[i]);
  return true;
}

void BuildDistortionMap(GreyImage& image) {
  if (!image.distortionCoefficients || !image.distortionCoefficientRows || !ReplaceMap(image)) {
    return;
  }
  const double* const* coefficients = image.distortionCoefficientRows;
  for (int32_t row = 0; row < image.correctedHeight; ++row) {
    const auto v = static_cast<double>(int64_t{image.centreY} - image.yMin - row);
    int32_t* entry = image.distortionMapRows[row];
    for (int32_t column = 0; column < image.correctedWidth; ++column, entry += 2) {
      const auto u = static_cast<double>(int64_t{image.xMin} + column - image.centreX);
      const auto terms = CubicTerms(u, v);
      double x = 0, y = 0;
      for (int i = 0; i < kCubicTerms; ++i) {
        x += coefficients[i][0] * terms[i];
        y += coefficients[i][1] * terms[i];
      }
      const int32_t sourceX = Add(Truncate(x + 0.5), image.centreX);
      const int32_t sourceY = Add(Truncate(y + 0.5), image.centreY);
      // Only x is guarded: hosts that read maps expect the row as computed.
      entry[1] = sourceY;
      if (sourceX >= 0 && sourceX < image.width && sourceY >= 0 && sourceY < image.height) {
        entry[0] = sourceX;
      }
    }
  }
}

// The result is packed top row first and copied over the bottom-up store as it is: rows come out
// upside down, which undoes that the map's y grows upwards.
bool ApplyDistortionMap(const Kernels& kernels, GreyImage& image) {
  if (!image.distortionCoefficients || !image.distortionCoefficientRows ||
      !image.distortionMapRows) {
    return false;
  }
  const auto width = static_cast<size_t>(image.width);
  const size_t size = width * static_cast<size_t>(image.height);
  auto packed = Buffer<uint8_t>::Zeroed(size);
  if (!packed) return false;
  const int32_t xFirst = std::max(image.xMin, 0), xLast = std::min(image.xMax, image.width - 1);
  const int32_t yFirst = std::max(image.yMin, 0), yLast = std::min(image.yMax, image.height - 1);
  for (int32_t y = yFirst; y <= yLast && xFirst <= xLast; ++y) {
    const int32_t* map =
        image.distortionMapRows[y - image.yMin] + 2 * (ptrdiff_t{xFirst} - image.xMin);
    kernels.lookup.MappedRow(map, packed.data() + static_cast<size_t>(y) * width + xFirst,
                             xLast - xFirst + 1, image.rows, image.width, image.height);
  }
  std::memcpy(image.bits, packed.data(), size);
  std::memset(image.bits + size, 0, static_cast<size_t>(image.imageSize) - size);
  return true;
}

}  // namespace quillon
