#include "kit/calibration/flat_field.h"

#include "kit/errors.h"
#include "kit/files/files.h"

namespace quillon::kit {

void MakeFlatField(GreyImage& image, int target, CorrectedRegion region,
                   const std::string& parameters) {
  constexpr size_t kFileSize = 2072;
  ReplaceFile(parameters, kFileSize, [&](const std::string& file) {
    IxFFCParaBuild(&image, target, region.firstColumn, region.endColumn, region.firstRow,
                   region.endRow, file.c_str());
  });
}

FlatFieldCorrection::FlatFieldCorrection(const std::string& path) {
  RequireRegularFile(path);
  if (!IxFFCParaLoad(&image_, region_, path.c_str())) throw Failure("cannot open '" + path + "'");
}

void FlatFieldCorrection::Apply(const GreyImage& image, GreyImage& corrected) {
  image_.CopyFrom(&image);
  IxFFCCalibrate(&image_, region_[0], region_[1], region_[2], region_[3]);
  corrected.CopyFrom(&image_);
}

}  // namespace quillon::kit
