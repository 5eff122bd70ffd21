// Images for tests: sizes around every block width, contents that make kernels disagree, and the
// comparison that reports the first pixel that differs.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "quillon/image.h"

namespace quillon::test {

// What row padding holds before a test: an operation that reads or keeps it shows.
constexpr uint8_t kPadding = 0xA5;

// A small generator with the same numbers everywhere.
class Random {
 public:
  explicit Random(uint32_t seed) : state_(seed * 2654435761u + 1) {}
  uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }
  // A number of [low, high].
  int Within(int low, int high) {
    const auto span = static_cast<uint32_t>(static_cast<int64_t>(high) - low) + 1;
    return static_cast<int>(low + static_cast<int64_t>(Next() % span));
  }
  // A number of [0, 1).
  double Unit() { return Next() / 4294967296.0; }

 private:
  uint32_t state_;
};

enum class Content { kNoise, kBinary, kRamp, kFlat, kExtremes };
constexpr Content kContents[] = {Content::kNoise, Content::kBinary, Content::kRamp, Content::kFlat,
                                 Content::kExtremes};

template <class Pixel>
void FillPadding(CImage<Pixel>& image, uint8_t value);

// An image of the size and content, its padding filled with kPadding.
template <class Pixel>
void Fill(CImage<Pixel>& image, int width, int height, Content content, uint32_t seed = 1);

// A first store for an image that reports another depth than its class has. A colour image gets
// none but 24 bits a pixel, so it only says otherwise, with rows as short as that depth has them.
template <class Pixel>
void CreateOfDepth(CImage<Pixel>& image, int depth, int width, int height);

// A destination with a past: the size of the next result, other contents, padding not zero.
template <class Pixel>
void FillStale(CImage<Pixel>& image, int width, int height);

// Makes `copy` the image again, in the store it has where sizes are the same: objects are dear on
// Windows.
template <class Pixel>
void Restore(const CImage<Pixel>& image, CImage<Pixel>& copy) {
  if (copy.bits && copy.width == image.width && copy.height == image.height) {
    std::memcpy(copy.bits, image.bits, static_cast<size_t>(image.imageSize));
  } else {
    copy.CopyFrom(&image);
  }
}

// The image given row by row, one digit or letter a pixel, mapped by `value`.
void Draw(GreyImage& image, const std::vector<std::string>& rows,
          const std::function<uint8_t(char)>& value);

// Sizes around every block width and every row-phase rule.
struct Size {
  int width, height;
};
const std::vector<Size>& Sizes();

// Every size x content, with padding filled.
void ForEachImage(const std::function<void(const GreyImage&)>& check);

// Pixels (and depth and size) of two images; a message with the first difference, or empty.
template <class Pixel>
std::string Difference(const CImage<Pixel>& actual, const CImage<Pixel>& expected);

// All bytes of the store, padding included.
template <class Pixel>
std::vector<uint8_t> Bytes(const CImage<Pixel>& image) {
  return {image.bits, image.bits + (image.bits ? image.imageSize : 0)};
}

}  // namespace quillon::test

#define EXPECT_SAME_PIXELS(actual, expected) \
  EXPECT_EQ(::quillon::test::Difference(actual, expected), "")
#define ASSERT_SAME_PIXELS(actual, expected) \
  ASSERT_EQ(::quillon::test::Difference(actual, expected), "")
