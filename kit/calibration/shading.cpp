#include "kit/calibration/shading.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "kit/errors.h"
#include "kit/files/checksum.h"
#include "kit/files/files.h"
#include "kit/images/pixels.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

constexpr const char* kKind = "shading";
constexpr int kWhitest = 255 * kLevelParts;
constexpr double kLeastAnswer = 0.1;   // a pixel that brightens by less of the mean is dead
constexpr double kMostDead = 0.001;    // of all pixels
constexpr size_t kLongestHead = 1000;  // bytes of the line that a file begins with
constexpr size_t kShownDead = 3;       // places that a message names

double Grey(double level) { return level / kLevelParts; }

std::string Tenths(double grey) { return ShortestDigits(std::round(10 * grey) / 10); }

std::string At(int x, int y) { return "(" + std::to_string(x) + ", " + std::to_string(y) + ")"; }

void AddLevels(const std::vector<uint16_t>& levels, std::string& bytes) {
  for (const uint16_t level : levels) {
    bytes += static_cast<char>(level & 255);
    bytes += static_cast<char>(level >> 8);
  }
}

std::vector<uint16_t> LevelsOf(std::string_view bytes) {
  std::vector<uint16_t> levels(bytes.size() / 2);
  for (size_t i = 0; i < levels.size(); ++i) {
    const auto low = static_cast<unsigned char>(bytes[2 * i]);
    const auto high = static_cast<unsigned char>(bytes[2 * i + 1]);
    levels[i] = static_cast<uint16_t>(low | high << 8);
  }
  return levels;
}

[[noreturn]] void RefuseDead(const std::vector<DeadPixel>& dead, int most, size_t pixels,
                             size_t saturated) {
  std::string places;
  for (size_t i = 0; i < std::min(dead.size(), kShownDead); ++i) {
    places += (i ? ", " : "") + At(dead[i].x, dead[i].y);
  }
  if (dead.size() > kShownDead) places += ", ...";
  std::string why = std::to_string(dead.size()) + " of " + std::to_string(pixels) +
                    " pixels are dead, " + std::to_string(most) + " may be: " + places;
  if (saturated > 0) {
    why += "; " + std::to_string(saturated) +
           " of them are 255 in every white picture: less light, or a shorter exposure, is wanted";
  }
  throw Failure(why);
}

}  // namespace

void MeanPicture::Add(const std::string& name, const GreyImage& image) try {
  if (count_ == 0) {
    size_ = {image.width, image.height};
    sums_.assign(static_cast<size_t>(image.width) * image.height, 0);
  }
  RequirePictureSize("the pictures before '" + name, size_, image);
  uint32_t* sum = sums_.data();
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) *sum++ += image.rows[y][x];
  }
  ++count_;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the mean of pictures");
}

std::vector<uint16_t> MeanPicture::Levels() const try {
  std::vector<uint16_t> levels;
  levels.reserve(sums_.size());
  const auto count = static_cast<uint64_t>(count_);
  for (const uint32_t sum : sums_) {
    levels.push_back(
        static_cast<uint16_t>((2 * kLevelParts * uint64_t{sum} + count) / (2 * count)));
  }
  return levels;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the mean of pictures");
}

size_t Shading::DeadCount() const {
  size_t count = 0;
  for (size_t i = 0; i < dark.size(); ++i) count += IsDead(i);
  return count;
}

ShadingFit FitShading(const MeanPicture& dark, const MeanPicture& white,
                      const ShadingLimits& limits) try {
  const PictureSize size = dark.Size();
  if (size.width != white.Size().width || size.height != white.Size().height) {
    throw Failure("the dark pictures have " + SizeText(size.width, size.height) +
                  " pixels, the white ones " + SizeText(white.Size().width, white.Size().height));
  }
  ShadingFit fit;
  fit.shading = {size, 0, dark.Count(), white.Count(), dark.Levels(), white.Levels()};
  Shading& shading = fit.shading;
  const size_t pixels = shading.dark.size();
  const auto mean = [&](const std::vector<uint16_t>& levels) {
    uint64_t sum = 0;
    for (const uint16_t level : levels) sum += level;
    return static_cast<double>(sum) / static_cast<double>(levels.size());
  };
  const double answer = mean(shading.white) - mean(shading.dark);
  if (answer < kLevelParts) {
    throw Failure("the white pictures are not brighter than the dark ones: their means are " +
                  Tenths(Grey(mean(shading.white))) + " and " + Tenths(Grey(mean(shading.dark))));
  }
  double darkSum = 0, whiteSum = 0, least = kWhitest, greatest = 0;
  size_t saturated = 0;
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const size_t i = shading.Offset(x, y);
      const int low = shading.dark[i], high = shading.white[i];
      const bool isFull = high == kWhitest;
      if (isFull || high - low < kLeastAnswer * answer) {
        fit.dead.push_back({x, y, Grey(low), Grey(high)});
        saturated += isFull;
        shading.white[i] = shading.dark[i];
        continue;
      }
      darkSum += low;
      whiteSum += high;
      least = std::min<double>(least, high - low);
      greatest = std::max<double>(greatest, high - low);
    }
  }
  const int most = limits.mostDead >= 0 ? limits.mostDead
                                        : static_cast<int>(kMostDead * static_cast<double>(pixels));
  const size_t living = pixels - fit.dead.size();
  if (fit.dead.size() > static_cast<size_t>(most) || living == 0) {
    RefuseDead(fit.dead, most, pixels, saturated);
  }
  fit.dark = Grey(darkSum / static_cast<double>(living));
  fit.white = Grey(whiteSum / static_cast<double>(living));
  shading.target = limits.target > 0
                       ? limits.target
                       : std::clamp(static_cast<int>(std::lround(fit.white - fit.dark)), 1, 255);
  fit.leastGain = shading.target / Grey(greatest);
  fit.greatestGain = shading.target / Grey(least);
  return fit;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a shading");
}

std::string ShadingText(const Shading& shading) try {
  const Json head = {{"kind", kKind},
                     {"width", shading.size.width},
                     {"height", shading.size.height},
                     {"target", shading.target},
                     {"dark_pictures", shading.darkPictures},
                     {"white_pictures", shading.whitePictures},
                     {"dead_pixels", shading.DeadCount()}};
  std::string text = head.dump() + "\n";
  text.reserve(text.size() + 4 * shading.dark.size() + Checksum::kDigits);
  AddLevels(shading.dark, text);
  AddLevels(shading.white, text);
  Checksum sum;
  sum.Add(text);
  return text + sum.Text();
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a shading");
}

Shading ParseShading(const std::string& path, std::string_view text) try {
  const auto refuse = [&](const std::string& why) {
    throw Failure("'" + path + "' is no shading file: " + why);
  };
  const size_t end = text.substr(0, kLongestHead).find('\n');
  const Json head = Json::parse(text.substr(0, end == text.npos ? 0 : end), nullptr, false);
  if (!Says(head, "kind", kKind)) {
    refuse("it does not begin with a line that says so");
  }
  Shading shading;
  shading.size = SizeIn(head);
  if (shading.size.width == 0) refuse("it does not say for which size of pictures it was made");
  const auto whole = [&](const char* name, int least, int most) {
    const Json value = head.value(name, Json());
    if (!value.is_number_integer() || value.get<double>() < least || value.get<double>() > most) {
      refuse("its " + std::string(name) + " is no whole number from " + std::to_string(least) +
             " to " + std::to_string(most));
    }
    return value.get<int>();
  };
  constexpr int kMostPictures = 1 << 24;
  shading.target = whole("target", 1, 255);
  shading.darkPictures = whole("dark_pictures", 1, kMostPictures);
  shading.whitePictures = whole("white_pictures", 1, kMostPictures);
  const uint64_t pixels = uint64_t(shading.size.width) * uint64_t(shading.size.height);
  const uint64_t wanted = end + 1 + 4 * pixels + Checksum::kDigits;
  if (text.size() != wanted) {
    refuse("it has " + std::to_string(text.size()) + " bytes, not " + std::to_string(wanted));
  }
  const size_t covered = text.size() - Checksum::kDigits;
  Checksum sum;
  sum.Add(text.substr(0, covered));
  if (text.substr(covered) != sum.Text()) refuse("its checksum is wrong: it was changed");
  const auto plane = static_cast<size_t>(2 * pixels);
  shading.dark = LevelsOf(text.substr(end + 1, plane));
  shading.white = LevelsOf(text.substr(end + 1 + plane, plane));
  for (size_t i = 0; i < shading.dark.size(); ++i) {
    if (shading.white[i] > kWhitest || shading.white[i] < shading.dark[i]) {
      const auto width = static_cast<size_t>(shading.size.width);
      refuse("its levels at " + At(static_cast<int>(i % width), static_cast<int>(i / width)) +
             " are those of no pixel");
    }
  }
  if (shading.DeadCount() == shading.dark.size()) refuse("all of its pixels are dead");
  return shading;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a shading");
}

// From the living pixels outwards, a step at a time: a dead pixel takes the place of the first of
// its neighbours that has one, in the order left, above, right, below.
ShadingCorrection::ShadingCorrection(const std::string& path, const Note& /*the file says all*/) try
    : path_(path), shading_(ParseShading(path, ReadFile(path))) {
  if (shading_.DeadCount() == 0) return;
  constexpr uint32_t kNone = UINT32_MAX;
  constexpr int kSteps[4][2] = {{-1, 0}, {0, -1}, {1, 0}, {0, 1}};
  const int width = shading_.size.width, height = shading_.size.height;
  std::vector<uint32_t> places(shading_.dark.size(), kNone);
  for (uint32_t i = 0; i < places.size(); ++i) {
    if (!shading_.IsDead(i)) places[i] = i;
  }
  const auto forNeighbours = [&](uint32_t pixel, auto work) {
    const int x = static_cast<int>(pixel) % width, y = static_cast<int>(pixel) / width;
    for (const auto& [dx, dy] : kSteps) {
      const bool isIn = x + dx >= 0 && x + dx < width && y + dy >= 0 && y + dy < height;
      if (isIn) work(static_cast<uint32_t>(shading_.Offset(x + dx, y + dy)));
    }
  };
  const auto place = [&](uint32_t pixel, uint32_t from) {
    if (places[pixel] != kNone) return;
    places[pixel] = from;
    replacements_.push_back({pixel, from});
  };
  for (uint32_t i = 0; i < places.size(); ++i) {
    if (!shading_.IsDead(i)) continue;
    forNeighbours(i, [&](uint32_t neighbour) {
      if (!shading_.IsDead(neighbour)) place(i, neighbour);
    });
  }
  for (size_t i = 0; i < replacements_.size(); ++i) {  // which grows meanwhile
    const auto [pixel, from] = replacements_[i];
    forNeighbours(pixel, [&, from = from](uint32_t neighbour) { place(neighbour, from); });
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a shading");
}

void ShadingCorrection::Apply(const GreyImage& image, GreyImage& corrected) const try {
  CreateCorrected(path_, shading_.size, image, corrected);
  const auto target = static_cast<uint32_t>(shading_.target);
  const uint16_t *dark = shading_.dark.data(), *white = shading_.white.data();
  for (int y = 0; y < image.height; ++y) {
    const unsigned char* const from = image.rows[y];
    unsigned char* const to = corrected.rows[y];
    for (int x = 0; x < image.width; ++x, ++dark, ++white) {
      const uint32_t level = uint32_t{kLevelParts} * from[x], span = uint32_t{*white} - *dark;
      if (level <= *dark || span == 0) continue;  // stays black; a dead pixel gets its value below
      const uint32_t value = ((level - *dark) * target + span / 2) / span;
      to[x] = static_cast<unsigned char>(std::min(value, 255u));
    }
  }
  const auto width = static_cast<uint32_t>(image.width);
  for (const auto& [pixel, from] : replacements_) {
    corrected.rows[pixel / width][pixel % width] = corrected.rows[from / width][from % width];
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a corrected picture");
}

}  // namespace quillon::kit
