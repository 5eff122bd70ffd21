// What tests of the neighbourhood filters share: a filter at every level, on every image, out of
// place and in place, against its definition. Whole stores are compared, padding included.
#pragma once

#include "support/levels.h"

namespace quillon::test {

using Filter = void(const Kernels&, const GreyImage&, GreyImage&);

// Writes what the filter writes into `result`, which holds either zeros or the source. Reads the
// source only, and may read the byte after a row.
using FilterDefinition = std::function<void(const GreyImage& source, GreyImage& result)>;

inline void ExpectMatchesDefinition(Filter* filter, const FilterDefinition& define,
                                    const GreyImage& source) {
  GreyImage expected, actual;
  expected.Create(source.width, source.height);
  define(source, expected);
  const auto check = [&](const char* how) {
    ASSERT_SAME_PIXELS(actual, expected) << how;
    ASSERT_EQ(Bytes(actual), Bytes(expected)) << how << ": padding";
  };
  ForEachLevel([&](const Kernels& level) {
    FillStale(actual, source.width, source.height);
    filter(level, source, actual);
    check("into an image of the same size");
    FillStale(actual, source.width + 5, 3);
    filter(level, source, actual);
    check("into an image of another size");
  });
  GreyImage expectedInPlace;
  expectedInPlace.CopyFrom(&source);
  define(source, expectedInPlace);
  ASSERT_SAME_PIXELS(expectedInPlace, expected);
  ForEachLevel([&](const Kernels& level) {
    actual.CopyFrom(&source);
    filter(level, actual, actual);
    ASSERT_SAME_PIXELS(actual, expected) << "in place";
    ASSERT_EQ(Bytes(actual), Bytes(expectedInPlace)) << "in place: padding";
  });
}

// The geometry of an image whose rows have no padding although their width asks for it, as a host
// may lay them out: the right neighbour of a row's last pixel then belongs to another row, or to
// nobody. `image` sees the rows in `bytes`.
struct UnpaddedImage {
  UnpaddedImage(int width, int height) {
    image.Create(width, height);
    if (!image.bits) return;
    Random random(5);
    // The store shrinks from its end, so that its last byte is the top row's last pixel.
    image.stride = width;
    image.imageSize = width * height;
    bytes.resize(static_cast<size_t>(image.imageSize));
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.Next() >> 24);
    ownBits = image.bits;
    image.bits = bytes.data();
    for (int y = 0; y < height; ++y) image.rows[y] = bytes.data() + (height - 1 - y) * width;
  }
  ~UnpaddedImage() { image.bits = ownBits; }

  std::vector<uint8_t> bytes;  // a block of its own: a memory checker sees reads beyond it
  unsigned char* ownBits = nullptr;
  GreyImage image;
};

// Reads right of the last pixel are 0 there, and nothing is written beyond a row: the same result
// as from a padded image whose padding is 0, in place and out of place.
inline void ExpectUnpaddedRowsStayInside(Filter* filter, int width, int height) {
  GreyImage padded, expected, actual;
  UnpaddedImage unpadded(width, height);
  padded.Create(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) padded.rows[y][x] = unpadded.image.rows[y][x];
  }
  ForEachLevel([&](const Kernels& level) {
    filter(level, padded, expected);
    filter(level, unpadded.image, actual);
    ASSERT_SAME_PIXELS(actual, expected);
    UnpaddedImage inPlace(width, height);
    filter(level, inPlace.image, inPlace.image);
    ASSERT_SAME_PIXELS(inPlace.image, expected) << "in place";
  });
}

}  // namespace quillon::test
