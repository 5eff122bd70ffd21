#include "kit/calibration/parameter_file.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/pixels.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

template <class Unsigned>
Unsigned Little(const std::string& bytes, size_t at) {
  Unsigned value = 0;
  for (size_t i = 0; i < sizeof value; ++i) {
    value |= Unsigned{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
  }
  return value;
}

std::string NameOf(const std::string& parameters) { return parameters + ".json"; }

int Side(const Json& companion, const char* name) {
  const auto side = companion.find(name);
  if (side == companion.end() || !side->is_number_integer()) return 0;
  const auto value = side->get<int64_t>();
  return value >= 1 && value <= 32767 ? static_cast<int>(value) : 0;
}

}  // namespace

ParameterFile::ParameterFile(std::string path, const char* kind, size_t size)
    : path_(std::move(path)), bytes_(ReadFile(path_)), kind_(kind) {
  if (bytes_.size() == size) return;
  Refuse("it has " + std::to_string(bytes_.size()) + " bytes, not " + std::to_string(size));
}

int ParameterFile::Word(size_t index) const {
  return static_cast<int>(Little<uint32_t>(bytes_, 4 * index));
}

double ParameterFile::Real(size_t byte) const {
  return __builtin_bit_cast(double, Little<uint64_t>(bytes_, byte));
}

int ParameterFile::Place(size_t index) const {
  constexpr int kFarthest = 1 << 20;
  const int place = Word(index);
  if (place < -kFarthest || place > kFarthest) {
    Refuse("its word " + std::to_string(index) + " is " + std::to_string(place) +
           ", no place in a picture");
  }
  return place;
}

void ParameterFile::Refuse(const std::string& why) const {
  throw Failure("'" + path_ + "' is no " + kind_ + " file: " + why);
}

PictureSize SizeIn(const Json& object) {
  const PictureSize size = {Side(object, "width"), Side(object, "height")};
  return size.width > 0 && size.height > 0 ? size : PictureSize();
}

void WriteCompanion(const std::string& parameters, const char* kind, PictureSize size,
                    const Json& more) {
  Json companion = {{"kind", kind}};
  if (size.width > 0) companion.update({{"width", size.width}, {"height", size.height}});
  companion.update(more);
  WriteFile(NameOf(parameters), companion.dump(2) + "\n");
}

PictureSize ReadCompanion(const std::string& parameters, const char* kind, const Json& own,
                          const Note& note) {
  const std::string name = NameOf(parameters);
  PictureSize size;
  std::error_code error;
  if (std::filesystem::exists(name, error)) {
    const Json companion = Json::parse(ReadFile(name), nullptr, false);
    if (!Says(companion, "kind", kind)) {
      throw Failure("'" + name + "' does not say that '" + parameters + "' is a " + kind + " file");
    }
    for (const auto& item : own.items()) {
      if (companion.value(item.key(), Json()) == item.value()) continue;
      throw Failure("'" + name + "' belongs to another file than '" + parameters + "': its " +
                    item.key() + " is not " + item.value().dump());
    }
    size = SizeIn(companion);
  }
  if (size.width == 0 && note) {
    note("'" + name + "' does not say for which size of pictures '" + parameters +
         "' was made: it is judged by what it holds");
  }
  return size;
}

void RequirePictureSize(const std::string& parameters, PictureSize size, const GreyImage& image) {
  if (size.width == 0 || (size.width == image.width && size.height == image.height)) return;
  throw Failure("'" + parameters + "' was made for pictures of " +
                SizeText(size.width, size.height) + ", this one has " +
                SizeText(image.width, image.height));
}

void CreateCorrected(const std::string& parameters, PictureSize size, const GreyImage& image,
                     GreyImage& corrected) {
  RequirePictureSize(parameters, size, image);
  corrected.Create(image.width, image.height);
  RequirePixels(corrected);
}

}  // namespace quillon::kit
