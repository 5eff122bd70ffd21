#include "support/images.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace quillon::test {
namespace {

template <class Pixel>
constexpr int kBytes = static_cast<int>(sizeof(Pixel));

uint8_t Value(Content content, int x, int y, Random& random) {
  switch (content) {
    case Content::kNoise:
      return static_cast<uint8_t>(random.Next() >> 24);
    case Content::kBinary:
      return random.Next() >> 31 ? 255 : 0;
    case Content::kRamp:
      return static_cast<uint8_t>(3 * x + 7 * y);
    case Content::kFlat:
      return 137;
    case Content::kExtremes:  // runs of 0, 1, 127, 128, 254, 255: where signs and sums turn over
      static constexpr uint8_t kValues[] = {0, 255, 1, 254, 127, 128};
      return kValues[random.Next() >> 16 & 7 ? (x / 5 + y) % 6 : random.Next() % 6];
  }
  return 0;
}

}  // namespace

template <class Pixel>
void FillPadding(CImage<Pixel>& image, uint8_t value) {
  const int used = image.width * kBytes<Pixel>;
  for (int y = 0; y < image.height; ++y) {
    std::memset(image.rows[y] + used, value, static_cast<size_t>(image.stride - used));
  }
}

template <class Pixel>
void Fill(CImage<Pixel>& image, int width, int height, Content content, uint32_t seed) {
  image.Create(width, height);
  if (!image.bits) return;
  Random random(seed + 31 * static_cast<uint32_t>(width) + static_cast<uint32_t>(height));
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width * kBytes<Pixel>; ++x) {
      image.rows[y][x] = Value(content, x, y, random);
    }
  }
  FillPadding(image, kPadding);
}

template <class Pixel>
void CreateOfDepth(CImage<Pixel>& image, int depth, int width, int height) {
  image.AllocateBitmap(depth, width, height);
  if (image.bpp == depth) return;
  image.bpp = depth;
  image.stride = std::min(image.stride, (width * depth + 31) / 32 * 4);
  image.imageSize = image.stride * height;
}

template <class Pixel>
void FillStale(CImage<Pixel>& image, int width, int height) {
  Fill(image, width, height, Content::kNoise, 77);
}

void Draw(GreyImage& image, const std::vector<std::string>& rows,
          const std::function<uint8_t(char)>& value) {
  image.Create(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()));
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      image.rows[y][x] = value(rows[static_cast<size_t>(y)][static_cast<size_t>(x)]);
    }
  }
  FillPadding(image, kPadding);
}

const std::vector<Size>& Sizes() {
  static const std::vector<Size> sizes = [] {
    std::vector<Size> all;
    for (int width = 1; width <= 36; ++width) all.push_back({width, 5 + width % 3});
    for (int width : {47, 48, 49,  63,  64,  65,  66,  71,  72,  73,  80,  81,
                      95, 97, 127, 128, 129, 130, 143, 145, 191, 193, 255, 257}) {
      all.push_back({width, 6});
    }
    for (int height : {1, 2, 3, 4, 9, 33}) all.push_back({41, height}), all.push_back({3, height});
    return all;
  }();
  return sizes;
}

void ForEachImage(const std::function<void(const GreyImage&)>& check) {
  GreyImage image;
  for (const Size& size : Sizes()) {
    for (Content content : kContents) {
      Fill(image, size.width, size.height, content);
      SCOPED_TRACE(testing::Message() << size.width << " x " << size.height << ", content "
                                      << static_cast<int>(content));
      check(image);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

template <class Pixel>
std::string Difference(const CImage<Pixel>& actual, const CImage<Pixel>& expected) {
  std::ostringstream message;
  if (!actual.bits || !expected.bits) {
    if (!actual.bits && !expected.bits) return "";
    message << (actual.bits ? "an image" : "empty") << " instead of "
            << (expected.bits ? "an image" : "empty");
    return message.str();
  }
  if (actual.width != expected.width || actual.height != expected.height ||
      actual.bpp != expected.bpp) {
    message << actual.width << " x " << actual.height << " x " << actual.bpp << " instead of "
            << expected.width << " x " << expected.height << " x " << expected.bpp;
    return message.str();
  }
  int count = 0;
  for (int y = 0; y < actual.height; ++y) {
    for (int i = 0; i < actual.width * kBytes<Pixel>; ++i) {
      const int got = actual.rows[y][i], wanted = expected.rows[y][i];
      if (got == wanted) continue;
      if (count++ == 0) {
        message << "first at (" << i / kBytes<Pixel> << ", " << y << "): " << got << " instead of "
                << wanted;
      }
    }
  }
  if (count > 0) message << "; " << count << " values differ";
  return message.str();
}

template void FillPadding(GreyImage&, uint8_t);
template void FillPadding(ColourImage&, uint8_t);
template void Fill(GreyImage&, int, int, Content, uint32_t);
template void Fill(ColourImage&, int, int, Content, uint32_t);
template void CreateOfDepth(GreyImage&, int, int, int);
template void CreateOfDepth(ColourImage&, int, int, int);
template void FillStale(GreyImage&, int, int);
template void FillStale(ColourImage&, int, int);
template std::string Difference(const GreyImage&, const GreyImage&);
template std::string Difference(const ColourImage&, const ColourImage&);

}  // namespace quillon::test
