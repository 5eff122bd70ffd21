// Flat-field correction. The file has 2072 bytes: height, width, y start, y end, x start, x end as
// 32-bit words, then 256 doubles.
#include "calib/flat_field.h"

#include <algorithm>
#include <cstdlib>

#include "calib/parameter_file.h"
#include "core/buffer.h"
#include "point/lookup_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kLevels = 256;

// A difference that wraps where 32 bits are not enough.
int32_t Difference(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

// The gain 0 / 0 or target / 0 of level 0 is not a number or infinite; black stays black with both.
uint8_t Corrected(int level, double gain) {
  const double value = level * gain;
  if (value >= 255.0) return 255;
  return value > 0.0 ? static_cast<uint8_t>(value) : 0;
}

// A new table of zeros in the image's slot, or none.
double* ReplaceTable(GreyImage& image) {
  std::free(image.flatFieldTable);
  image.flatFieldTable = static_cast<double*>(OrNote(std::calloc(kLevels, sizeof(double))));
  return image.flatFieldTable;
}

}  // namespace

bool BuildFlatFieldTable(GreyImage& image, int target, const FlatFieldRegion& region,
                         const char* fileName) {
  double* table = ReplaceTable(image);
  if (!table) return false;
  const double level = std::clamp(target, 0, kLevels - 1);
  for (int i = 0; i < kLevels; ++i) table[i] = level / i;

  ParameterFile file(fileName, "wb");
  if (!file) return false;
  file.Write(Difference(region.yEnd, region.yStart));
  file.Write(Difference(region.xEnd, region.xStart));
  file.Write(region.yStart);
  file.Write(region.yEnd);
  file.Write(region.xStart);
  file.Write(region.xEnd);
  for (int i = 0; i < kLevels; ++i) file.Write(table[i]);
  return true;
}

bool LoadFlatFieldTable(GreyImage& image, FlatFieldRegion& region, const char* fileName) {
  std::free(image.flatFieldTable);
  image.flatFieldTable = nullptr;
  ParameterFile file(fileName, "rb");
  if (!file || !ReplaceTable(image)) return false;
  int32_t size;  // height and width follow from the region
  file.Read(size);
  file.Read(size);
  file.Read(region.yStart);
  file.Read(region.yEnd);
  file.Read(region.xStart);
  file.Read(region.xEnd);
  for (int i = 0; i < kLevels; ++i) file.Read(image.flatFieldTable[i]);
  return true;
}

void ApplyFlatField(const Kernels& kernels, GreyImage& image, const FlatFieldRegion& region) {
  const int xStart = std::max(region.xStart, 0), xEnd = std::min(region.xEnd, image.width);
  const int yStart = std::max(region.yStart, 0), yEnd = std::min(region.yEnd, image.height);
  if (!image.flatFieldTable || xStart >= xEnd || yStart >= yEnd) return;

  uint8_t corrected[kLevels];
  for (int i = 0; i < kLevels; ++i) corrected[i] = Corrected(i, image.flatFieldTable[i]);
  for (int y = yEnd - 1; y >= yStart; --y) {
    uint8_t* pixels = image.rows[y] + xStart;
    kernels.lookup.LookupRow(pixels, pixels, xEnd - xStart, corrected);
  }
}

}  // namespace quillon
