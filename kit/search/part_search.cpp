#include "kit/search/part_search.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/pixels.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

using finder::Status;

// The finder's view of an image, whose rows lie from the bottom up in memory.
finder::Picture PictureOf(const GreyImage& image) {
  return {image.rows[0], image.width, image.height, -static_cast<ptrdiff_t>(image.stride)};
}

void Require(Status status, const std::string& name) {
  if (status == Status::kNoMemory) throw OutOfMemory("template '" + name + "'");
  if (status != Status::kOk) throw Failure("'" + name + "': " + finder::Describe(status));
}

// Marks the pixels of a row from one place to another, both included.
void MarkSpan(double from, double to, std::vector<uint8_t>& row) {
  const auto last = static_cast<double>(row.size()) - 1;
  const double left = std::ceil(std::max(from, 0.0)), right = std::floor(std::min(to, last));
  for (double x = left; x <= right; ++x) row[static_cast<size_t>(x)] = 1;
}

// Blackens what lies outside: a pixel is inside where a line from it to the left crosses the
// polygon an odd number of times, or where it lies on the boundary.
void BlackenOutside(const std::vector<std::array<int, 2>>& polygon, GreyImage& mask) {
  std::vector<double> crossings;
  std::vector<uint8_t> inside(static_cast<size_t>(mask.width));
  for (int y = 0; y < mask.height; ++y) {
    std::fill(inside.begin(), inside.end(), uint8_t{0});
    crossings.clear();
    for (size_t i = 0; i < polygon.size(); ++i) {
      const auto [x0, y0] = polygon[i];
      const auto [x1, y1] = polygon[(i + 1) % polygon.size()];
      if (y0 == y && y1 == y) MarkSpan(std::min(x0, x1), std::max(x0, x1), inside);
      if (y0 == y) MarkSpan(x0, x0, inside);
      if ((y0 <= y) == (y1 <= y)) continue;
      // The product comes before the quotient, so that a crossing at a whole pixel comes out whole.
      const double left = x0, top = y0;
      crossings.push_back(left + (y - top) * (x1 - left) / (y1 - top));
    }
    std::sort(crossings.begin(), crossings.end());
    for (size_t i = 0; i + 1 < crossings.size(); i += 2) {
      MarkSpan(crossings[i], crossings[i + 1], inside);
    }
    for (int x = 0; x < mask.width; ++x) {
      if (inside[static_cast<size_t>(x)] == 0) mask.rows[y][x] = 0;
    }
  }
}

// Mask and polygon together as one picture of the template's size, black where it does not count.
void DrawMask(const std::string& name, const GreyImage& pattern, const PartMask& mask,
              GreyImage& drawn) {
  if (mask.picture) {
    if (mask.picture->width != pattern.width || mask.picture->height != pattern.height) {
      throw Failure("'" + name + "' has " + SizeText(pattern.width, pattern.height) +
                    " pixels, its mask " + SizeText(mask.picture->width, mask.picture->height));
    }
    CopyPicture(*mask.picture, drawn);
  } else {
    drawn.Create(pattern.width, pattern.height);
    RequirePixels(drawn);
    for (int y = 0; y < drawn.height; ++y) {
      std::memset(drawn.rows[y], 255, static_cast<size_t>(drawn.width));
    }
  }
  if (!mask.polygon.empty()) BlackenOutside(mask.polygon, drawn);
}

}  // namespace

const char* NameOf(finder::Way way) { return way == finder::Way::kGrey ? kByGray : kByEdges; }

finder::Way WayNamed(const std::string& name) {
  return name == kByGray ? finder::Way::kGrey : finder::Way::kEdges;
}

PartModel TeachPart(const std::string& name, const GreyImage& pattern, finder::Way way,
                    const PartMask& mask) try {
  auto model = std::make_unique<finder::Model>();
  finder::TeachOptions options;
  options.way = way;
  GreyImage drawn;
  if (mask.IsGiven()) {
    DrawMask(name, pattern, mask, drawn);
    options.mask = PictureOf(drawn);
  }
  const Status status = finder::Teach(BestFinderKernels(), PictureOf(pattern), options, *model);
  if (status == Status::kTooSmall && mask.IsGiven() &&
      std::min(pattern.width, pattern.height) >= finder::kMinSide) {
    throw Failure("'" + name + "': what its mask and polygon leave is smaller than " +
                  SizeText(finder::kMinSide, finder::kMinSide) + " pixels");
  }
  Require(status, name);
  return model;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a model");
}

PartModel ReadPart(const std::string& path, std::optional<finder::Way> way, const PartMask& mask,
                   const Reading& reading) try {
  const std::string file = ReadFile(path);
  const std::span bytes(reinterpret_cast<const uint8_t*>(file.data()), file.size());
  if (!finder::IsModelFile(bytes)) {
    GreyImage pattern;
    ColourImage colour;
    DecodeImage(bytes, path, pattern, colour, reading);
    return TeachPart(path, pattern, way.value_or(finder::Way::kEdges), mask);
  }
  if (mask.IsGiven()) {
    throw Failure("'" + path + "' is a model: what of it counts was said when it was taught");
  }
  auto model = std::make_unique<finder::Model>();
  Require(finder::Load(BestFinderKernels(), bytes, *model), path);
  if (way && *way != model->way) {
    throw Failure("'" + path + "': the model was taught by " + NameOf(model->way) + ", not by " +
                  NameOf(*way));
  }
  return model;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a model");
}

void WritePart(const std::string& path, const finder::Model& model) try {
  Buffer<uint8_t> bytes;
  Require(finder::Save(model, bytes), path);
  WriteFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a model");
}

std::vector<std::string> DoubtsOf(const finder::Model& model) try {
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
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the doubts of a model");
}

void TaughtPicture(const finder::Model& model, GreyImage& picture) try {
  picture.Create(model.width, model.height);
  RequirePixels(picture);
  const auto width = static_cast<size_t>(model.width);
  for (int y = 0; y < model.height; ++y) {
    std::memcpy(picture.rows[y], model.pixels.data() + static_cast<size_t>(y) * width, width);
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the picture of a model");
}

std::vector<finder::Match> FindParts(const GreyImage& image, const finder::Model& model,
                                     const finder::FindOptions& options) try {
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
    case Status::kNoMemory:
      throw OutOfMemory("a search in " + picture);
    default:
      throw Failure(finder::Describe(status));
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a search of parts");
}

}  // namespace quillon::kit
