// The numbers and arrays that exports are tried with, and the hash of what can be seen of objects.
#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>

#include "reliability/stage.h"

namespace quillon::test {
namespace {

constexpr int kInts[] = {0, 1, -1, 2, 3, 7, 8, 255, 256, 32767, INT_MAX, INT_MIN};
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kDoubles[] = {
    0,           -0.0,         1,         -1,         0.5,
    359,         1e9,          1e-300,    DBL_MAX,    -DBL_MAX,
    4.9407e-324, -4.9407e-324, kInfinity, -kInfinity, std::numeric_limits<double>::quiet_NaN()};
constexpr float kFloats[] = {0,
                             -0.0f,
                             1,
                             -1,
                             1e-30f,
                             FLT_MAX,
                             -FLT_MAX,
                             1.4e-45f,
                             std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::quiet_NaN()};

const std::vector<std::vector<int>>& AllWeights() {
  static const std::vector<std::vector<int>> all = [] {
    std::vector<std::vector<int>> made(5, std::vector<int>(49));
    for (int i = 0; i < 49; ++i) {
      const auto k = static_cast<size_t>(i);
      made[0][k] = i % 5 - 1;
      made[2][k] = INT_MAX;
      made[3][k] = INT_MIN;
      made[4][k] = i % 2 ? INT_MAX : INT_MIN;
    }
    return made;  // 1 is all zero
  }();
  return all;
}

constexpr int kPolygonPoints = 4;
const std::vector<std::vector<int>> kPolygons = {
    {4, 3, 90, 3, 90, 75, 4, 75},
    {4, 3, 4, 75, 90, 75, 90, 3},
    {0, 0, 32766, 0, 32766, 1, 0, 1},
    {-50, -50, 200, 10, 30, 300, -50, 20},
    {7, 7, 7, 7, 7, 7, 7, 7},
    {INT_MIN, INT_MIN, INT_MAX, INT_MIN, INT_MAX, INT_MAX, INT_MIN, INT_MAX},
    {INT_MAX, 0, INT_MAX, 5, INT_MAX - 3, 5, INT_MAX - 3, 0},
    {0, INT_MIN, 5, INT_MIN, 5, INT_MIN + 3, 0, INT_MIN + 3},
};
constexpr int kPolygonCounts[] = {kPolygonPoints, 0, -1, INT_MIN, 1, 2, 3};

constexpr int kGridPoints = 25;
constexpr int kGridCounts[] = {kGridPoints, 9, 1, 3, 5, 2, 24, 0, -1, INT_MIN};

const std::vector<std::vector<int>>& Grids() {
  static const std::vector<std::vector<int>> all = [] {
    std::vector<std::vector<int>> made(4, std::vector<int>(2 * kGridPoints));
    for (int i = 0; i < kGridPoints; ++i) {
      const int x = i % 5 - 2, y = i / 5 - 2;
      const auto k = static_cast<size_t>(2 * i);
      made[0][k] = 48 + 10 * x + x * y;  // a little bent
      made[0][k + 1] = 40 + 10 * y - x * x;
      made[2][k] = i % 2 ? INT_MAX : INT_MIN;
      made[2][k + 1] = i % 3 ? INT_MIN : INT_MAX;
      made[3][k] = made[3][k + 1] = 10 * i;  // on one line
    }
    return made;  // 1 is all zero
  }();
  return all;
}

// Choice 1 is the null pointer.
const std::vector<int>* Array(const std::vector<std::vector<int>>& arrays, int choice) {
  if (choice == 1) return nullptr;
  return &arrays[static_cast<size_t>(choice > 1 ? choice - 1 : choice)];
}

}  // namespace

int Stage::Choices(const Parameter& parameter) const {
  const auto withNull = [](const auto& arrays) { return static_cast<int>(arrays.size()) + 1; };
  switch (parameter.role) {
    case Role::kGrey:
    case Role::kColour:
    case Role::kGreyInPlace:
      return static_cast<int>(grey_.size());
    case Role::kGreyResult:
    case Role::kColourResult:
      return 7;
    case Role::kCalibrated:
      return static_cast<int>(CalibrationState::kCount);
    case Role::kInt:
      return 1 + static_cast<int>(std::size(kInts));
    case Role::kDouble:
      return 1 + static_cast<int>(std::size(kDoubles));
    case Role::kFloat:
      return 1 + static_cast<int>(std::size(kFloats));
    case Role::kWeights:
      return withNull(AllWeights());
    case Role::kPolygon:
      return withNull(kPolygons);
    case Role::kPolygonCount:
      return static_cast<int>(std::size(kPolygonCounts));
    case Role::kGrid:
      return withNull(Grids());
    case Role::kGridCount:
      return static_cast<int>(std::size(kGridCounts));
    case Role::kFileRead:
      return static_cast<int>(filesToRead_.size());
    case Role::kFileWritten:
      return static_cast<int>(filesToWrite_.size());
    case Role::kRegion:
    case Role::kRegionRead:
    case Role::kRegionReleased:
      return static_cast<int>(RegionState::kCount);
    case Role::kNcc:
    case Role::kNccRead:
    case Role::kNccReleased:
      return static_cast<int>(NccState::kCount);
    case Role::kGeo:
    case Role::kGeoRead:
    case Role::kGeoReleased:
      return static_cast<int>(GeoState::kCount);
    case Role::kBool:
    case Role::kOut:
    case Role::kBlobList:
    case Role::kTable:
    case Role::kTableRead:
      return 2;
  }
  return 1;
}

double Stage::Number(const Parameter& parameter, int choice) {
  const auto k = static_cast<size_t>(choice);
  switch (parameter.role) {
    case Role::kPolygonCount:
      return kPolygonCounts[k];
    case Role::kGridCount:
      return kGridCounts[k];
    case Role::kBool:
      return choice == 0 ? parameter.usual : 1 - parameter.usual;
    case Role::kInt:
      return choice == 0 ? parameter.usual : kInts[k - 1];
    case Role::kFloat:
      return choice == 0 ? parameter.usual : static_cast<double>(kFloats[k - 1]);
    default:
      return choice == 0 ? parameter.usual : kDoubles[k - 1];
  }
}

const std::vector<int>* Stage::Weights(int choice) { return Array(AllWeights(), choice); }
const std::vector<int>* Stage::Polygon(int choice) { return Array(kPolygons, choice); }
const std::vector<int>* Stage::Grid(int choice) { return Array(Grids(), choice); }

void Hash::Add(const void* data, size_t size) {
  constexpr uint64_t kPrime = 0x100000001b3;
  const auto* bytes = static_cast<const uint8_t*>(data);
  size_t i = 0;
  for (; i + 8 <= size; i += 8) {
    uint64_t word;
    memcpy(&word, bytes + i, 8);
    value_ = (value_ ^ word) * kPrime;
    value_ ^= value_ >> 29;
  }
  for (; i < size; ++i) value_ = (value_ ^ bytes[i]) * kPrime;
}

template <class Pixel>
void Hash::AddImage(const CImage<Pixel>* image) {
  if (!image) return AddNumber(-1);
  for (int32_t number : {image->width, image->height, image->bpp}) AddNumber(number);
  if (image->bits) Add(image->bits, static_cast<size_t>(image->imageSize));
  if (image->flatFieldTable) Add(image->flatFieldTable, 256 * sizeof(double));
  if (image->distortionCoefficients) Add(image->distortionCoefficients, 20 * sizeof(double));
  if (image->distortionMap && image->correctedWidth > 0 && image->correctedHeight > 0) {
    Add(image->distortionMap, size_t{2} * sizeof(int32_t) *
                                  static_cast<size_t>(image->correctedWidth) *
                                  static_cast<size_t>(image->correctedHeight));
  }
}

void Hash::AddRegion(RLERegion* region) {
  AddNumber(region ? IxGetBlobCount(region) : -1);
  if (!region) return;
  const int selected = IxGetSelectBlobCount(region);
  AddNumber(selected);
  for (int n = 0; n < IxGetBlobCount(region) && n < 20; ++n) {
    int bound[4];
    float centre[2];
    AddNumber(IxGetnBlobArea(region, n));
    IxGetnBlobBound(region, n, bound);
    IxGetnBlobCenter(region, n, centre);
    Add(bound, sizeof bound);
    Add(centre, sizeof centre);
  }
  std::vector<BlobFeature> list(static_cast<size_t>(selected));
  if (IxGetBlobList(region, list.data())) {
    for (const BlobFeature& blob : list) {
      AddNumber(blob.area);
      AddNumber(blob.centreX);
      AddNumber(blob.angle);
      Add(blob.corners, sizeof blob.corners);
    }
  }
}

void Hash::AddNcc(NccTool* tool) {
  AddNumber(IxGet_DefaultPyramidLevel(tool));
  AddNumber(IxGet_CurrentPyramidLevel(tool));
  for (int level = 0; level <= IxGet_DefaultPyramidLevel(tool); ++level) {
    GreyImage grey;
    ColourImage colour;
    if (IxGet_Pyramid_GrayImage(tool, &grey, level)) AddImage(&grey);
    if (IxGet_Pyramid_ColorImage(tool, &colour, level)) AddImage(&colour);
  }
  NccResult result;
  for (int i = 0; IxGetNCCMatchResults(tool, i, &result); ++i) {
    for (double number : {result.x, result.y, result.angle, result.scale, result.score}) {
      AddNumber(number);
    }
  }
}

void Hash::AddGeo(const GeoMatchTool* tool) {
  if (!tool) return AddNumber(-1);
  const GeoModelLevel& model = *tool->model;
  const size_t count = static_cast<size_t>(model.count);
  AddNumber(model.count);
  if (count == 0) return;
  Add(model.x, count * sizeof(int32_t));
  Add(model.y, count * sizeof(int32_t));
  Add(model.inverseMagnitude, count * sizeof(double));
}

template void Hash::AddImage(const GreyImage*);
template void Hash::AddImage(const ColourImage*);

}  // namespace quillon::test
