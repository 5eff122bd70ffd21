#include "arith/translation.h"

#include <algorithm>
#include <cstring>

#include "core/image_access.h"

namespace quillon {
namespace {

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
  const auto moveRow = [&](int y) {
    uint8_t* row = result.rows[y];
    const int64_t from = int64_t{y} - dy;
    if (from < 0 || from >= height) return Clear(row, 0, width);
    if (first < end) {
      std::memmove(row + first, source.rows[from] + first - right,
                   static_cast<size_t>(end - first));
    }
    Clear(row, 0, first);
    Clear(row, std::max(end, first), width);
  };
  // In the order of memory, where fetching ahead follows; in place and upwards the other way, so
  // that a row is overwritten only after it has moved on.
  if (&result == &source && dy <= 0) {
    for (int y = 0; y < height; ++y) moveRow(y);
  } else {
    for (int y = height - 1; y >= 0; --y) moveRow(y);
  }
}

}  // namespace quillon
