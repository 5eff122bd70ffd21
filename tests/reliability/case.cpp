#include "reliability/case.h"

#include <cmath>
#include <sstream>

#include "support/images.h"

namespace quillon::test {
namespace {

constexpr size_t kGuard = 32;
constexpr uint8_t kGuardByte = 0xC3, kFillByte = 0x5A;
constexpr size_t kFeatureBytes = sizeof(BlobFeature);

bool IsImage(Role role) {
  return role == Role::kGrey || role == Role::kColour || role == Role::kGreyResult ||
         role == Role::kColourResult || role == Role::kGreyInPlace || role == Role::kCalibrated;
}

bool IsReadImage(Role role) { return role == Role::kGrey || role == Role::kColour; }
bool IsColour(Role role) { return role == Role::kColour || role == Role::kColourResult; }

std::vector<uint8_t> Copy(const void* data, size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  return {bytes, bytes + size};
}

bool IsWhole(const GreyImage& image) {
  if (!image.bitmap) return !image.bits && !image.rows;
  return image.bits && image.rows && image.width > 0 && image.height > 0 &&
         image.imageSize == image.stride * image.height &&
         image.rows[image.height - 1] == image.bits;
}

}  // namespace

Case::Case(Stage& stage, const Export& row, const std::vector<int>& choice, Lifetime lifetime)
    : stage_(stage),
      row_(row),
      choice_(choice),
      lifetime_(lifetime),
      values_(row.parameters.size()) {
  for (size_t i = 0; i < values_.size(); ++i) Make(i, choice[i]);
  WatchImages();
  const Arguments arguments(values_);
  refused_ = row_.refusal(arguments);
  if (!refused_ && row_.extent) extent_ = row_.extent(arguments);
}

template <class Pixel>
CImage<Pixel>* Case::Own(const CImage<Pixel>* copied) {
  auto image = std::make_shared<CImage<Pixel>>();
  // The constructor leaves these words as they are.
  image->centreX = image->centreY = image->correctedWidth = image->correctedHeight = 0;
  image->xMax = image->xMin = image->yMin = image->yMax = 0;
  if (copied) image->CopyFrom(copied);
  owned_.push_back(image);
  return image.get();
}

void Case::Watch(size_t i, const void* data, size_t size, bool isRead) {
  watched_.push_back({i, data, Copy(data, size), isRead});
}

void Case::MakeArray(size_t i, size_t size) {
  auto bytes = std::make_unique<std::vector<uint8_t>>(size + 2 * kGuard, kGuardByte);
  std::fill_n(bytes->begin() + kGuard, size, kFillByte);
  values_[i].pointer = bytes->data() + kGuard;
  Watch(i, values_[i].pointer, size, false);
  arrays_.push_back({i, std::move(bytes)});
}

void Case::Make(size_t i, int choice) {
  const Parameter& parameter = row_.parameters[i];
  Value& value = values_[i];
  const auto own = [&](auto* object, auto destroy) {
    value.pointer = object;
    if (object) owned_.push_back(std::shared_ptr<void>(object, [=](void*) { destroy(object); }));
  };
  const auto ints = [&](const std::vector<int>* numbers, bool isRead) {
    if (!numbers) return;
    auto copy = std::make_shared<std::vector<int>>(*numbers);
    value.pointer = copy->data();
    Watch(i, copy->data(), copy->size() * sizeof(int), isRead);
    owned_.push_back(copy);
  };
  if (lifetime_ == Lifetime::kLong && stage_.FindLongLived(parameter.role, choice, value)) {
    return;
  }
  switch (parameter.role) {
    case Role::kGrey:
      value.pointer = stage_.Grey(choice);
      break;
    case Role::kColour:
      value.pointer = stage_.Colour(choice);
      break;
    case Role::kGreyInPlace:
      if (const GreyImage* shape = stage_.Grey(choice)) value.pointer = Own(shape);
      break;
    case Role::kCalibrated:
      if (auto image = stage_.MakeCalibrated(static_cast<CalibrationState>(choice))) {
        value.pointer = image.get();
        owned_.push_back(image);
      }
      break;
    case Role::kGreyResult:
    case Role::kColourResult:
      MakeResult(i, choice);
      break;
    case Role::kInt:
    case Role::kBool:
    case Role::kDouble:
    case Role::kFloat:
    case Role::kPolygonCount:
    case Role::kGridCount:
      value.number = Stage::Number(parameter, choice);
      break;
    case Role::kWeights:
      ints(Stage::Weights(choice), true);
      break;
    case Role::kPolygon:
      ints(Stage::Polygon(choice), true);
      break;
    case Role::kGrid:
      ints(Stage::Grid(choice), false);
      break;
    case Role::kOut:
      if (choice == 0) MakeArray(i, static_cast<size_t>(parameter.usual));
      break;
    case Role::kBlobList:
      if (choice == 0) {
        const auto* region = static_cast<const RLERegion*>(values_[0].pointer);
        MakeArray(i, kFeatureBytes * static_cast<size_t>(IxGetSelectBlobCount(region)));
      }
      break;
    case Role::kTable:
    case Role::kTableRead:
      if (choice == 0) value.pointer = stage_.Table(i % 3);
      break;
    case Role::kFileRead:
      value.pointer = const_cast<char*>(stage_.FileToRead(choice));
      break;
    case Role::kFileWritten:
      value.pointer = const_cast<char*>(stage_.FileToWrite(choice));
      break;
    case Role::kRegion:
      own(stage_.MakeRegion(static_cast<RegionState>(choice)), DestroyRLERegion);
      break;
    case Role::kRegionRead:
      value.pointer = stage_.Region(static_cast<RegionState>(choice));
      break;
    case Role::kRegionReleased:
      value.pointer = stage_.MakeRegion(static_cast<RegionState>(choice));
      break;
    case Role::kNcc:
      own(stage_.MakeNccTool(static_cast<NccState>(choice)), IxDestroyNCCModel);
      break;
    case Role::kNccRead:
      value.pointer = stage_.Ncc(static_cast<NccState>(choice));
      break;
    case Role::kNccReleased:
      value.pointer = stage_.MakeNccTool(static_cast<NccState>(choice));
      break;
    case Role::kGeo:
      own(stage_.MakeGeoTool(static_cast<GeoState>(choice)), IxDestroyMatchModel);
      break;
    case Role::kGeoRead:
      value.pointer = stage_.Geo(static_cast<GeoState>(choice));
      break;
    case Role::kGeoReleased:
      value.pointer = stage_.MakeGeoTool(static_cast<GeoState>(choice));
      break;
  }
}

void Case::MakeResult(size_t i, int choice) {
  results_.push_back(i);
  if (IsColour(row_.parameters[i].role)) {
    MakeResultOf<RGB_24>(i, choice);
  } else {
    MakeResultOf<unsigned char>(i, choice);
  }
}

template <class Pixel>
void Case::MakeResultOf(size_t i, int choice) {
  constexpr bool kIsColour = sizeof(Pixel) == 3;
  enum { kEmpty, kNull, kStale, kOtherSize, kOtherDepth, kSource, kSecondSource };
  if (choice == kNull) return;
  if (choice >= kSource) {
    // The result is one of the sources, which then is an image of the case's own.
    const size_t source = choice == kSource ? 0 : 1;
    const Role role = row_.parameters[source].role;
    if (source < i && IsImage(role) && IsColour(role) == kIsColour && values_[source].pointer) {
      if (IsReadImage(role)) {
        values_[source].pointer = Own(static_cast<const CImage<Pixel>*>(values_[source].pointer));
      }
      values_[i] = values_[source];
      return;
    }
  }
  CImage<Pixel>* image = Own<Pixel>(nullptr);
  values_[i].pointer = image;
  const auto* source = static_cast<const GreyImage*>(values_[0].pointer);
  if (choice == kStale && IsImage(row_.parameters[0].role) && source && source->bits) {
    FillStale(*image, source->width, source->height);
  }
  if (choice == kOtherSize) FillStale(*image, 13, 7);
  if (choice == kOtherDepth) CreateOfDepth(*image, kIsColour ? 8 : 24, 20, 18);
}

void Case::WatchImages() {
  for (size_t i = 0; i < values_.size(); ++i) {
    const Role role = row_.parameters[i].role;
    if (!IsImage(role) || !values_[i].pointer) continue;
    const auto* image = static_cast<const GreyImage*>(values_[i].pointer);
    bool isRead = IsReadImage(role);
    for (size_t k = 0; k < values_.size(); ++k) {
      if (k != i && IsImage(row_.parameters[k].role) && !IsReadImage(row_.parameters[k].role) &&
          values_[k].pointer == image) {
        isRead = false;
      }
    }
    const size_t size = image->bits ? static_cast<size_t>(image->imageSize) : 0;
    images_.push_back(
        {i, image, Copy(image, sizeof *image), Copy(size ? image->bits : nullptr, size), isRead});
  }
}

void Case::Keep() {
  if (row_.release && outcome_.pointer) {
    owned_.push_back(std::shared_ptr<void>(outcome_.pointer, row_.release));
  }
}

std::string Case::ProblemOfImages(bool mayWrite) const {
  for (const WatchedImage& watched : images_) {
    const std::string place = "image " + std::to_string(watched.parameter);
    if (!IsWhole(*watched.image)) return place + " is in pieces";
    if (!watched.isRead && mayWrite) continue;
    if (memcmp(static_cast<const void*>(watched.image), watched.object.data(),
               watched.object.size()) != 0) {
      return place + " is another object";
    }
    if (!watched.store.empty() &&
        memcmp(watched.image->bits, watched.store.data(), watched.store.size()) != 0) {
      return place + " has other bytes";
    }
  }
  return "";
}

std::string Case::ProblemOfArrays(bool mayWrite) const {
  for (const Array& array : arrays_) {
    const auto isGuard = [](uint8_t byte) { return byte == kGuardByte; };
    if (!std::all_of(array.bytes->begin(), array.bytes->begin() + kGuard, isGuard) ||
        !std::all_of(array.bytes->end() - kGuard, array.bytes->end(), isGuard)) {
      return "wrote beside array " + std::to_string(array.parameter);
    }
  }
  for (const Watched& watched : watched_) {
    if ((watched.isRead || !mayWrite) && !watched.before.empty() &&
        memcmp(watched.data, watched.before.data(), watched.before.size()) != 0) {
      return "changed array " + std::to_string(watched.parameter);
    }
  }
  return "";
}

std::string Case::ProblemWithoutMemory(uint64_t reference) const {
  std::string problem = ProblemOfArrays(true) + ProblemOfImages(true);
  if (Digest() == reference) return problem;
  if (outcome_.number != 0 || outcome_.pointer) problem += " claims to have worked";
  for (const WatchedImage& watched : images_) {
    const Role role = row_.parameters[watched.parameter].role;
    const bool isResult = role == Role::kGreyResult || role == Role::kColourResult;
    if ((isResult && !IsInPlace()) || watched.store.empty()) continue;
    if (watched.image->bits == nullptr ||
        memcmp(watched.image->bits, watched.store.data(), watched.store.size()) != 0) {
      problem += " left image " + std::to_string(watched.parameter) + " half done";
    }
  }
  return problem;
}

std::string Case::Problem() const {
  const bool works = !refused_;
  std::string problem = ProblemOfArrays(works) + ProblemOfImages(works);
  const double number = outcome_.number;
  const bool isPromised =
      works ? std::isnan(row_.highest) || (number >= row_.lowest && number <= row_.highest)
            : number == *refused_ && !outcome_.pointer;
  if (!isPromised) problem += " returned " + std::to_string(number);
  for (size_t i = 0; extent_ && i < results_.size(); ++i) {
    const auto* image = static_cast<const GreyImage*>(values_[results_[i]].pointer);
    if (image->width != extent_->width || image->height != extent_->height) {
      problem += " made " + std::to_string(image->width) + " x " + std::to_string(image->height);
    }
  }
  return problem;
}

bool Case::IsInPlace() const {
  return std::any_of(results_.begin(), results_.end(), [&](size_t i) {
    return values_[i].pointer && values_[i].pointer == values_[0].pointer;
  });
}

bool Case::LeavesImage() const {
  const std::string name = row_.name;
  return IsInPlace() &&
         (name.find("Gradient") != std::string::npos || name.find("TopHat") != std::string::npos);
}

uint64_t Case::Digest() const {
  Hash hash;
  hash.AddNumber(outcome_.number);
  hash.AddNumber(outcome_.pointer != nullptr);
  for (const WatchedImage& watched : images_) {
    if (!watched.isRead) hash.AddImage(watched.image);
  }
  for (const Watched& watched : watched_) {
    if (!watched.isRead) hash.Add(watched.data, watched.before.size());
  }
  for (size_t i = 0; i < values_.size(); ++i) {
    void* object = values_[i].pointer;
    const Role role = row_.parameters[i].role;
    if (role == Role::kRegion) hash.AddRegion(static_cast<RLERegion*>(object));
    if (role == Role::kNcc) hash.AddNcc(static_cast<NccTool*>(object));
    if (role == Role::kGeo) hash.AddGeo(static_cast<GeoMatchTool*>(object));
  }
  return hash.value();
}

std::string Case::Describe() const {
  std::ostringstream text;
  text << row_.name << "(";
  for (size_t i = 0; i < values_.size(); ++i) {
    text << (i ? ", " : "");
    if (IsImage(row_.parameters[i].role) && values_[i].pointer) {
      const auto* image = static_cast<const GreyImage*>(values_[i].pointer);
      text << image->width << " x " << image->height << " x " << image->bpp;
    } else if (values_[i].pointer) {
      text << "choice";
    } else {
      text << values_[i].number;
    }
    text << " #" << choice_[i];
  }
  text << ")";
  return text.str();
}

}  // namespace quillon::test
