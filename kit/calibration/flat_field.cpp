#include "kit/calibration/flat_field.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/pixels.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

constexpr size_t kFileSize = 2072;
constexpr size_t kGains = 24;  // the byte where they begin
constexpr const char* kKind = "flat-field";

// What the file and the JSON file beside it both say.
Json Own(const int (&region)[4]) {
  return {{"region", {region[0], region[1], region[2], region[3]}}};
}

// Gains are target / level: their products with the level are one number up to 255. That of black,
// which is infinite or no number, is passed over.
void RequireGains(const ParameterFile& file) {
  const double target = file.Real(kGains + 8);
  if (!(target >= 0 && target <= 255)) file.Refuse("its gains reach no grey level");
  for (size_t level = 2; level < 256; ++level) {
    const double product = file.Real(kGains + 8 * level) * static_cast<double>(level);
    if (!(std::fabs(product - target) <= 1e-6)) {
      file.Refuse("its gain for level " + std::to_string(level) + " is not that of level 1");
    }
  }
}

}  // namespace

void MakeFlatField(GreyImage& image, int target, CorrectedRegion region,
                   const std::string& parameters) try {
  ReplaceFile(parameters, kFileSize, [&](const std::string& file) {
    CallExports([&] {
      IxFFCParaBuild(&image, target, region.firstColumn, region.endColumn, region.firstRow,
                     region.endRow, file.c_str());
    });
  });
  Json more = Own({region.firstColumn, region.endColumn, region.firstRow, region.endRow});
  more["target"] = target;
  WriteCompanion(parameters, kKind, {image.width, image.height}, more);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a flat field");
}

FlatFieldCorrection::FlatFieldCorrection(const std::string& path, const Note& note) try
    : path_(path) {
  const ParameterFile file(path, kKind, kFileSize);
  for (size_t i = 0; i < kGains / 4; ++i) file.Place(i);
  RequireGains(file);
  MakeHolder(image_);
  if (!CallExports([&] { return IxFFCParaLoad(&image_, region_, path.c_str()); })) {
    throw Failure("cannot open '" + path + "'");
  }
  if (region_[0] < 0 || region_[0] >= region_[1] || region_[2] < 0 || region_[2] >= region_[3]) {
    file.Refuse("its region is empty, or begins outside pictures");
  }
  size_ = ReadCompanion(path, kKind, Own(region_), note);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a flat field");
}

void FlatFieldCorrection::Apply(const GreyImage& image, GreyImage& corrected) try {
  RequirePictureSize(path_, size_, image);
  if (region_[1] > image.width || region_[3] > image.height) {
    throw Failure("the region of '" + path_ + "' ends at column " + std::to_string(region_[1]) +
                  ", row " + std::to_string(region_[3]) + ", outside the picture of " +
                  SizeText(image.width, image.height));
  }
  // The gains are lent to the result: their image keeps its pixel, without which it would not
  // release them.
  CopyPicture(image, corrected);
  double* const own = std::exchange(corrected.flatFieldTable, image_.flatFieldTable);
  IxFFCCalibrate(&corrected, region_[0], region_[1], region_[2], region_[3]);
  corrected.flatFieldTable = own;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a flat field");
}

}  // namespace quillon::kit
