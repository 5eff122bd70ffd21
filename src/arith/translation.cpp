#include "arith/translation.h"

#include <algorithm>
#include <cstring>

#include "core/image_access.h"

namespace quillon {
namespace {

constexpr int kBytesAtOnce = 1 << 15;  // they stay in the cache until their ends are cleared

void Clear(uint8_t* row, int first, int end) {
  if (first < end) std::memset(row + first, 0, static_cast<size_t>(end - first));
}

}  // namespace

void TranslateImage(const GreyImage& source, GreyImage& result, int dx, int dy) {
  const int width = source.width, height = source.height;
  if (&result != &source && !RecreateForOverwrite(result, width, height)) return;
  // The columns that pixels move to. Farther than out of the image is out of the image.
  const int right = std::clamp(dx, -width, width);
  const int first = std::max(right, 0), end = std::min(width + right, width);
  // Rows without padding move several in one go, the end of each into the next one's beginning,
  // which is cleared afterwards.
  const bool together = &result != &source && source.stride == width && result.stride == width;
  const int most = together ? std::max(kBytesAtOnce / width, 1) : 1;
  // Row y of the result, and those above it.
  const auto moveRows = [&](int y, int count) {
    const int64_t from = int64_t{y} - dy;
    const bool shows = from >= 0 && from < height && first < end;
    if (shows) {
      const auto bytes = static_cast<size_t>(count - 1) * static_cast<size_t>(width) +
                         static_cast<size_t>(end - first);
      std::memmove(result.rows[y] + first, source.rows[from] + first - right, bytes);
    }
    for (int i = 0; i < count; ++i) {
      Clear(result.rows[y - i], 0, shows ? first : width);
      Clear(result.rows[y - i], shows ? end : width, width);
    }
  };
  // In the order of memory, where fetching ahead follows; in place and upwards the other way, so
  // that a row is overwritten only after it has moved on.
  if (&result == &source && dy <= 0) {
    for (int y = 0; y < height; ++y) moveRows(y, 1);
    return;
  }
  const int top = static_cast<int>(std::clamp<int64_t>(dy, 0, height));
  const int bottom = static_cast<int>(std::clamp<int64_t>(int64_t{height} + dy, 0, height));
  for (int y = height - 1; y >= 0;) {
    const bool shows = y >= top && y < bottom;
    const int count = shows ? std::min(most, y - top + 1) : 1;
    moveRows(y, count);
    y -= count;
  }
}

}  // namespace quillon
