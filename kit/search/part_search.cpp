#include "kit/search/part_search.h"

#include <cmath>
#include <cstring>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/pixels.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

using finder::Status;

// Rows lie from the bottom up, the first at the end.
finder::Picture PictureOf(const GreyImage& image) {
  return {image.rows[0], image.width, image.height, -static_cast<ptrdiff_t>(image.stride)};
}

void Require(Status status, const std::string& name) {
  if (status != Status::kOk) throw Failure("'" + name + "': " + finder::Describe(status));
}

}  // namespace

const char* NameOf(finder::Way way) { return way == finder::Way::kGrey ? kByGray : kByEdges; }

finder::Way WayNamed(const std::string& name) {
  return name == kByGray ? finder::Way::kGrey : finder::Way::kEdges;
}

PartModel TeachPart(const std::string& name, const GreyImage& pattern, finder::Way way,
                    const GreyImage* mask) {
  auto model = std::make_unique<finder::Model>();
  finder::TeachOptions options;
  options.way = way;
  if (mask) options.mask = PictureOf(*mask);
  const Status status = finder::Teach(BestFinderKernels(), PictureOf(pattern), options, *model);
  if (status == Status::kBadMask) {
    throw Failure("'" + name + "' has " + SizeText(pattern.width, pattern.height) +
                  " pixels, its mask " + SizeText(mask->width, mask->height));
  }
  Require(status, name);
  return model;
}

PartModel ReadPart(const std::string& path, std::optional<finder::Way> way,
                   const Reading& reading) {
  const std::string file = ReadFile(path);
  const std::span bytes(reinterpret_cast<const uint8_t*>(file.data()), file.size());
  if (!finder::IsModelFile(bytes)) {
    GreyImage pattern;
    ColourImage colour;
    DecodeImage(bytes, path, pattern, colour, reading);
    return TeachPart(path, pattern, way.value_or(finder::Way::kEdges));
  }
  auto model = std::make_unique<finder::Model>();
  Require(finder::Load(BestFinderKernels(), bytes, *model), path);
  if (way && *way != model->way) {
    throw Failure("'" + path + "': the model was taught by " + NameOf(model->way) + ", not by " +
                  NameOf(*way));
  }
  return model;
}

void WritePart(const std::string& path, const finder::Model& model) {
  Buffer<uint8_t> bytes;
  Require(finder::Save(model, bytes), path);
  WriteFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

std::vector<std::string> DoubtsOf(const finder::Model& model) {
  std::vector<std::string> doubts;
  if (model.doubts & finder::kFewEdges) {
    doubts.emplace_back("it has few edges: other patterns may look the same by chance");
  }
  if (model.doubts & finder::kRepeats) {
    doubts.emplace_back(
        "it looks like itself when moved or turned: wrong places may score as well");
  }
  if (model.doubts & finder::kSlides) {
    doubts.push_back("it slides: a place along the direction of " +
                     std::to_string(std::lround(model.slideDegrees)) + " degrees is not told");
  }
  if (model.doubts & finder::kSymmetric) {
    doubts.push_back(model.symmetry == 0
                         ? "it is round: its angle is not told"
                         : "it looks the same at " + std::to_string(model.symmetry) + " angles");
  }
  return doubts;
}

void TaughtPicture(const finder::Model& model, GreyImage& picture) {
  picture.Create(model.width, model.height);
  RequirePixels(picture);
  const auto width = static_cast<size_t>(model.width);
  for (int y = 0; y < model.height; ++y) {
    std::memcpy(picture.rows[y], model.pixels.data() + static_cast<size_t>(y) * width, width);
  }
}

std::vector<finder::Match> FindParts(const GreyImage& image, const finder::Model& model,
                                     const finder::FindOptions& options) {
  finder::Results results;
  const Status status =
      finder::Find(BestFinderKernels(), model, PictureOf(image), options, results);
  const std::string picture = "the picture, " + SizeText(image.width, image.height);
  switch (status) {
    case Status::kOk:
      return {results.begin(), results.end()};
    case Status::kBadRegion:
      throw Failure("the region begins at column " + std::to_string(options.left) + ", row " +
                    std::to_string(options.top) + ": it holds no pixel of " + picture);
    case Status::kDoesNotFit:
      throw Failure("the template, " + SizeText(model.width, model.height) + ", is larger than " +
                    picture + ", at the smallest scale of " + std::to_string(options.scaleLow));
    default:
      throw Failure(finder::Describe(status));
  }
}

}  // namespace quillon::kit
