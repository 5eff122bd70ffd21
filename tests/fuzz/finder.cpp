// The finder: teaching from anything, saving, loading what was saved or damaged, searching with any
// numbers.
#include "finder/finder.h"

#include <cmath>

#include "fuzz/input.h"

namespace quillon::fuzz {
namespace {

finder::Picture PictureOf(const GreyImage& image) {
  if (!image.bits) return {};
  return {image.rows[0], image.width, image.height, -static_cast<ptrdiff_t>(image.stride)};
}

double Number(Input& input, double usual) { return input.Choice(4) ? usual : input.Double(); }

}  // namespace

void Run(Input& input) {
  GreyImage pattern, mask, image;
  input.Image(pattern, 40);
  input.Image(image, 64);
  finder::TeachOptions teaching;
  teaching.way = input.Choice(2) ? finder::Way::kEdges : finder::Way::kGrey;
  if (input.Choice(4) == 0) {
    mask.Create(pattern.width, pattern.height);
    input.Fill(mask);
    teaching.mask = PictureOf(mask);
  }
  const FinderKernels& kernels = BestFinderKernels();
  finder::Model model;
  const finder::Status taught = finder::Teach(kernels, PictureOf(pattern), teaching, model);
  Require((taught == finder::Status::kOk) == model.IsTaught(), "a model is taught or it is not");
  Buffer<uint8_t> bytes;
  if (finder::Save(model, bytes) == finder::Status::kOk) {
    const size_t at = input.Choice(static_cast<int>(bytes.size()));
    const auto change = static_cast<uint8_t>(input.Choice(3) ? 0 : input.Byte());
    bytes[at] ^= change;
    finder::Model loaded;
    const finder::Status status = finder::Load(kernels, {bytes.data(), bytes.size()}, loaded);
    Require((status == finder::Status::kOk) == (change == 0), "a damaged file is refused");
  }
  finder::FindOptions options;
  options.angleLow = Number(input, -20);
  options.angleHigh = Number(input, 30);
  options.scaleLow = Number(input, 1);
  options.scaleHigh = Number(input, 1.2);
  options.minScore = Number(input, 0.4);
  options.maxOverlap = Number(input, 0.5);
  options.maxCount = input.Choice(4) ? 3 : input.Int();
  if (input.Choice(4) == 0) {
    options.left = input.Int(), options.top = input.Int();
    options.right = input.Int(), options.bottom = input.Int();
  }
  options.polarity = input.Choice(2) ? finder::Polarity::kSame : finder::Polarity::kAny;
  finder::Results results;
  const finder::Status found = finder::Find(kernels, model, PictureOf(image), options, results);
  Require(found == finder::Status::kOk || results.empty(), "no results without success");
  for (const finder::Match& match : results) {
    Require(std::isfinite(match.x) && std::isfinite(match.y) && match.score >= options.minScore &&
                match.score <= 1.000001 && match.scale >= options.scaleLow &&
                match.scale <= options.scaleHigh && match.degrees >= options.angleLow,
            "matches keep what was asked for");
  }
}

}  // namespace quillon::fuzz
