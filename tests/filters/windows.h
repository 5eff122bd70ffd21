// What the tests of window filters share: the border rule, and calls in place and out of place.
#pragma once

#include <algorithm>

#include "support/levels.h"

namespace quillon::test {

// The definition: inner pixels have value(x, y), others that of the nearest inner pixel. An image
// smaller than the window is copied.
template <class Value>
void FilterByDefinition(const GreyImage& source, int size, GreyImage& result, const Value& value) {
  const int r = size / 2, w = source.width, h = source.height;
  result.Create(w, h);
  const bool fits = w >= size && h >= size;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const bool inner = x >= r && x < w - r && y >= r && y < h - r;
      if (!fits) result.rows[y][x] = source.rows[y][x];
      if (fits && inner) result.rows[y][x] = value(x, y);
    }
  }
  if (!fits) return;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      result.rows[y][x] = result.rows[std::clamp(y, r, h - 1 - r)][std::clamp(x, r, w - 1 - r)];
    }
  }
}

// Runs filter(source, result) into a used image of the same size, a used image of another size, and
// in place. Padding is zero in the first two and untouched in the third.
template <class Filter>
void ExpectEverywhere(const GreyImage& source, const GreyImage& expected, const Filter& filter) {
  const std::vector<uint8_t> before = Bytes(source);
  for (int more : {0, 3}) {
    GreyImage result;
    FillStale(result, source.width + more, source.height + more);
    filter(source, result);
    ASSERT_SAME_PIXELS(result, expected) << more;
    ASSERT_EQ(Bytes(result), Bytes(expected)) << "padding is not zero";
    ASSERT_EQ(Bytes(source), before) << "the source has changed";
  }
  GreyImage image, padded;
  image.CopyFrom(&source);
  padded.CopyFrom(&expected);
  FillPadding(image, kPadding);
  FillPadding(padded, kPadding);
  filter(image, image);
  ASSERT_SAME_PIXELS(image, expected) << "in place";
  ASSERT_EQ(Bytes(image), Bytes(padded)) << "padding has changed";
}

}  // namespace quillon::test
