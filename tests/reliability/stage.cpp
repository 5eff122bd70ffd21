#include "reliability/stage.h"

#include <algorithm>
#include <fstream>

#include "support/images.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

constexpr size_t kTableBytes = size_t{1} << 24;

// Each pair of values of two parameters comes up on the plane over a prime at least as large as any
// domain: parameter 0 is a, parameter i is a * (i - 1) + b.
void AddPairs(const std::vector<int>& sizes, std::vector<std::vector<int>>& rows) {
  int prime =
      std::max(*std::max_element(sizes.begin(), sizes.end()), static_cast<int>(sizes.size()));
  const auto isPrime = [](int n) {
    for (int d = 2; d * d <= n; ++d) {
      if (n % d == 0) return false;
    }
    return n > 1;
  };
  while (!isPrime(prime)) ++prime;
  for (int a = 0; a < prime; ++a) {
    for (int b = 0; b < prime; ++b) {
      std::vector<int> row = {a % sizes[0]};
      for (int i = 1; i < static_cast<int>(sizes.size()); ++i) {
        row.push_back((a * (i - 1) + b) % prime % sizes[static_cast<size_t>(i)]);
      }
      rows.push_back(std::move(row));
    }
  }
}

// Each value beside usual ones, and rows in which half of the values are usual.
void AddMostlyUsual(const std::vector<int>& sizes, std::vector<std::vector<int>>& rows) {
  constexpr int kHalfUsual = 300;
  const std::vector<int> usual(sizes.size());
  for (size_t i = 0; i < sizes.size(); ++i) {
    for (int choice = 0; choice < sizes[i]; ++choice) {
      rows.push_back(usual);
      rows.back()[i] = choice;
    }
  }
  Random random(7);
  for (int n = 0; n < kHalfUsual; ++n) {
    rows.push_back(usual);
    for (size_t i = 0; i < sizes.size(); ++i) {
      if (random.Within(0, 1)) rows.back()[i] = random.Within(0, sizes[i] - 1);
    }
  }
}

void AddAll(const std::vector<int>& sizes, std::vector<std::vector<int>>& rows) {
  std::vector<int> row(sizes.size());
  for (;;) {
    rows.push_back(row);
    size_t i = 0;
    while (i < sizes.size() && ++row[i] == sizes[i]) row[i++] = 0;
    if (i == sizes.size()) return;
  }
}

// Two blobs and more, a hole, and a place where the pattern is.
void Label(RLERegion* region, const GreyImage& scene, int low) {
  const int points[] = {4, 3, 90, 3, 90, 75, 4, 75};
  IxPointToRegion(region, points, 4);
  IxGrayBlobLabel(&scene, region, low, 255);
}

}  // namespace

Stage::Stage() {
  MakeImages();
  MakeFiles();
}

Stage::~Stage() {
  for (RLERegion* region : regions_) DestroyRLERegion(region);
  for (NccTool* tool : nccTools_) IxDestroyNCCModel(tool);
  for (GeoMatchTool* tool : geoTools_) IxDestroyMatchModel(tool);
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void Stage::MakeImages() {
  const auto addBoth = [&] {
    grey_.push_back(std::make_unique<GreyImage>());
    colour_.push_back(std::make_unique<ColourImage>());
  };
  const auto addFilled = [&](int width, int height) {
    addBoth();
    Fill(*grey_.back(), width, height, Content::kNoise);
    Fill(*colour_.back(), width, height, Content::kNoise);
  };
  const auto addDepth = [&](int greyDepth, int colourDepth) {
    addBoth();
    CreateOfDepth(*grey_.back(), greyDepth, 20, 18);
    CreateOfDepth(*colour_.back(), colourDepth, 20, 18);
  };

  addBoth();
  GreyImage pattern;
  MakeScene({.templateWidth = 24, .templateHeight = 20, .width = 96, .height = 80, .seed = 5},
            pattern, *grey_[kScene]);
  Colourise(*grey_[kScene], *colour_[kScene]);
  grey_.push_back(nullptr);
  colour_.push_back(nullptr);
  addBoth();  // empty
  addBoth();
  grey_[kPattern]->CopyFrom(&pattern);
  Colourise(pattern, *colour_[kPattern]);
  addDepth(24, 8);
  addDepth(32, 32);
  addDepth(1, 1);
  for (auto [width, height] : {Extent{1, 1}, {2, 2}, {3, 3}, {1, 37}, {37, 1}, {2, 19}, {19, 2}}) {
    addFilled(width, height);
  }
  for (int width : {7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 128}) addFilled(width, 5);
  addFilled(32767, 2);
}

void Stage::MakeFiles() {
  folder_ = std::filesystem::temp_directory_path() /
            ("quillon-stage-" + std::to_string(reinterpret_cast<uintptr_t>(this)));
  std::filesystem::create_directories(folder_);
  const auto path = [&](const char* name) { return (folder_ / name).string(); };
  const auto write = [&](const char* name, size_t size) {
    std::ofstream file(path(name), std::ios::binary);
    Random random(9);
    for (size_t i = 0; i < size; ++i) file.put(static_cast<char>(random.Next() >> 24));
    return path(name);
  };
  gainsFile_ = path("gains");
  coefficientsFile_ = path("coefficients");
  GreyImage image;
  image.CopyFrom(Grey(kScene));
  IxFFCParaBuild(&image, 128, 2, 30, 1, 20, gainsFile_.c_str());
  std::vector<int> points = *Grid(0);
  IxDistortionParaBuild(&image, points.data(), static_cast<int>(points.size() / 2), 0.1f, 0.1f, 100,
                        100, coefficientsFile_.c_str());

  const auto add = [](Names& names, std::string name) {
    names.push_back(std::make_unique<std::string>(std::move(name)));
  };
  add(filesToRead_, gainsFile_);
  filesToRead_.push_back(nullptr);
  for (const std::string& name :
       {coefficientsFile_, std::string(), path("missing"), folder_.string(), write("short", 50),
        write("empty", 0), write("noise", 3000)}) {
    add(filesToRead_, name);
  }
  add(filesToWrite_, path("written"));
  filesToWrite_.push_back(nullptr);
  for (const std::string& name : {std::string(), folder_.string(), path("missing/file")}) {
    add(filesToWrite_, name);
  }
}

std::vector<std::vector<int>> Stage::Combinations(const Export& row, size_t most) const {
  if (row.parameters.empty()) return {{}};
  std::vector<int> sizes;
  size_t product = 1;
  for (const Parameter& parameter : row.parameters) {
    sizes.push_back(Choices(parameter));
    product *= static_cast<size_t>(sizes.back());
  }
  std::vector<std::vector<int>> rows;
  if (product <= most) {
    AddAll(sizes, rows);
  } else {
    AddMostlyUsual(sizes, rows);
    AddPairs(sizes, rows);
  }
  return rows;
}

uint8_t* Stage::Table(size_t k) {
  if (tables_[k].empty()) {
    tables_[k].resize(kTableBytes);
    for (size_t i = 0; i < kTableBytes; ++i) tables_[k][i] = static_cast<uint8_t>(i * (k + 3) >> 7);
  }
  return tables_[k].data();
}

RLERegion* Stage::MakeRegion(RegionState state) {
  if (state == RegionState::kNull) return nullptr;
  RLERegion* region = CreateRLERegion();
  if (!region || state == RegionState::kNew) return region;
  Label(region, *Grey(kScene), 150);
  switch (state) {
    case RegionState::kOutlined: {
      const int points[] = {-5, -5, 40, 20, 10, 100};
      IxPointToRegion(region, points, 3);
      break;
    }
    case RegionState::kLabelled:
      break;
    case RegionState::kNothingSelected:
      IxComputeAllBlobFeature(region);
      IxSelectBlobArea(region, -2, -3);
      break;
    case RegionState::kLabelledAgain:
      IxComputeAllBlobFeature(region);
      Label(region, *Grey(kScene), 60);
      break;
    case RegionState::kDisplayed:
      IxImgAssignToRegion(region, Grey(kScene));
      IxGetRegDisplay(region);
      break;
    case RegionState::kFilledUp: {
      GreyImage image;
      image.CopyFrom(Grey(kScene));
      IxComputeAllBlobFeature(region);
      IxBinaryFillUp(&image, region, 255);
      break;
    }
    default:
      IxComputeAllBlobFeature(region);
  }
  return region;
}

NccTool* Stage::MakeNccTool(NccState state) {
  if (state == NccState::kNull) return nullptr;
  NccTool* tool = IxCreateNCCTool();
  if (!tool || state == NccState::kNew) return tool;
  const auto teachColour = [&] { IxCreateNCCMatchColorModel(Colour(kPattern), tool, false); };
  if (state == NccState::kColour) {
    teachColour();
    return tool;
  }
  if (state == NccState::kSinglePosition) {
    IxCreateNCCMatchColorModel_ROI(Colour(kPattern), tool);
    return tool;
  }
  IxCreateNCCMatchModel(Grey(kPattern), tool, state == NccState::kMasked);
  if (state == NccState::kSearched) {
    IxFindNCCMatchModel(Grey(kScene), tool, 0.3, 0, 0, 1, 1, false, 9);
  }
  if (state == NccState::kRefused) {
    IxCreateNCCMatchModel(nullptr, tool, false);
    IxCreateNCCMatchColorModel(nullptr, tool, false);
  }
  if (state == NccState::kTaughtAgain) {
    teachColour();
    IxCreateNCCMatchModel(Grey(kScene), tool, false);
  }
  if (state == NccState::kFlat) {
    GreyImage flat;
    Fill(flat, 17, 16, Content::kFlat);
    IxCreateNCCMatchModel(&flat, tool, false);
  }
  return tool;
}

GeoMatchTool* Stage::MakeGeoTool(GeoState state) {
  if (state == GeoState::kNull) return nullptr;
  GeoMatchTool* tool = IxCreateGeoTool();
  if (!tool || state == GeoState::kNew) return tool;
  GreyImage flat;
  Fill(flat, 17, 16, Content::kFlat);
  IxCreateGeoMatchModel(state == GeoState::kFlat ? &flat : Grey(kPattern), tool, 60, 30);
  if (state == GeoState::kRefused) IxCreateGeoMatchModel(nullptr, tool, 60, 30);
  if (state == GeoState::kTaughtAgain) IxCreateGeoMatchModel(Grey(kScene), tool, 90, 40);
  return tool;
}

std::shared_ptr<GreyImage> Stage::MakeCalibrated(CalibrationState state) {
  if (state == CalibrationState::kNull) return nullptr;
  // An image without pixels keeps its calibration for ever: give it some, so that they go together.
  std::shared_ptr<GreyImage> image(new GreyImage, [](GreyImage* old) {
    const std::unique_ptr<GreyImage> owned(old);
    if (!old->bitmap) old->Create(1, 1);
  });
  // The constructor leaves these words as they are.
  image->centreX = image->centreY = image->correctedWidth = image->correctedHeight = 0;
  image->xMax = image->xMin = image->yMin = image->yMax = 0;
  if (state == CalibrationState::kEmpty) return image;
  switch (state) {
    case CalibrationState::kOnePixel:
      Fill(*image, 1, 1, Content::kNoise);
      break;
    case CalibrationState::kLong:
      Fill(*image, 32767, 2, Content::kNoise);
      break;
    case CalibrationState::kDeep:
      CreateOfDepth(*image, 24, 30, 20);
      break;
    default:
      image->CopyFrom(Grey(kScene));
  }
  if (state == CalibrationState::kNone) return image;
  if (state == CalibrationState::kFailed) {
    IxFFCParaLoad(image.get(), nullptr, FileToRead(4));
    IxDistortionParaLoad(image.get(), FileToRead(4));
    return image;
  }
  if (state != CalibrationState::kCoefficients) {
    IxFFCParaLoad(image.get(), nullptr, gainsFile_.c_str());
    if (state == CalibrationState::kGains) return image;
  }
  IxDistortionParaLoad(image.get(), coefficientsFile_.c_str());
  if (state != CalibrationState::kCoefficients) IxDistortionPreCalculate(image.get());
  if (state == CalibrationState::kResized) Fill(*image, 21, 33, Content::kNoise);
  return image;
}

RLERegion* Stage::Region(RegionState state) {
  while (regions_.size() <= static_cast<size_t>(state)) {
    regions_.push_back(MakeRegion(static_cast<RegionState>(regions_.size())));
  }
  return regions_[static_cast<size_t>(state)];
}

NccTool* Stage::Ncc(NccState state) {
  while (nccTools_.size() <= static_cast<size_t>(state)) {
    nccTools_.push_back(MakeNccTool(static_cast<NccState>(nccTools_.size())));
  }
  return nccTools_[static_cast<size_t>(state)];
}

GeoMatchTool* Stage::Geo(GeoState state) {
  while (geoTools_.size() <= static_cast<size_t>(state)) {
    geoTools_.push_back(MakeGeoTool(static_cast<GeoState>(geoTools_.size())));
  }
  return geoTools_[static_cast<size_t>(state)];
}

bool Stage::FindLongLived(Role role, int choice, Value& value) {
  constexpr size_t kOfEach = 3;
  constexpr Role kRoles[] = {Role::kRegion, Role::kNcc, Role::kGeo, Role::kCalibrated,
                             Role::kGreyInPlace};
  if (longLived_.empty()) {
    for (size_t i = 0; i < kOfEach; ++i) {
      longLived_.emplace_back(MakeRegion(RegionState::kNew), DestroyRLERegion);
      longLived_.emplace_back(MakeNccTool(NccState::kNew), IxDestroyNCCModel);
      longLived_.emplace_back(MakeGeoTool(GeoState::kNew), IxDestroyMatchModel);
      longLived_.push_back(MakeCalibrated(CalibrationState::kNone));
      longLived_.push_back(MakeCalibrated(CalibrationState::kNone));
    }
  }
  const auto* found = std::find(std::begin(kRoles), std::end(kRoles), role);
  constexpr int kNull = 1;  // in the domains of all these roles
  if (found == std::end(kRoles) || choice == kNull) return false;
  const size_t k = static_cast<size_t>(choice) % kOfEach;
  value.pointer = longLived_[k * std::size(kRoles) + static_cast<size_t>(found - kRoles)].get();
  // An image that only ever was its own result would end up blank.
  if (role == Role::kGreyInPlace && choice > 1) {
    static_cast<GreyImage*>(value.pointer)->CopyFrom(Grey(choice));
  }
  return true;
}

void Stage::KeepFor(const Export& row) {
  const auto last = [](auto count) {
    return static_cast<decltype(count)>(static_cast<int>(count) - 1);
  };
  for (const Parameter& parameter : row.parameters) {
    if (parameter.role == Role::kRegionRead) Region(last(RegionState::kCount));
    if (parameter.role == Role::kNccRead) Ncc(last(NccState::kCount));
    if (parameter.role == Role::kGeoRead) Geo(last(GeoState::kCount));
    for (size_t k = 0; parameter.role == Role::kTableRead && k < 3; ++k) Table(k);
  }
}

uint64_t Stage::Digest() {
  Hash hash;
  for (RLERegion* region : regions_) hash.AddRegion(region);
  for (NccTool* tool : nccTools_) hash.AddNcc(tool);
  for (GeoMatchTool* tool : geoTools_) hash.AddGeo(tool);
  for (const auto& table : tables_) hash.Add(table.data(), table.size());
  return hash.value();
}

}  // namespace quillon::test
