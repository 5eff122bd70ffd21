#include "arith/arithmetic.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "core/image_access.h"
#include "point/lookup_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// Calls row(from, to, count) over all pixels in the order of memory: row by row, or once where rows
// have no padding between them.
template <class Row>
void MapPixels(const GreyImage& source, GreyImage& result, const Row& row) {
  const int width = source.width, height = source.height;
  if (&result != &source && !RecreateForOverwrite(result, width, height)) return;
  if (source.stride == width && result.stride == width) {
    row(source.bits, result.bits, width * height);
    return;
  }
  for (int y = height - 1; y >= 0; --y) row(source.rows[y], result.rows[y], width);
}

// Gain and offset can be computed along an IntegerLine instead of looked up in a table. From this
// many pixels on, that saves more time than the search for such a line takes.
constexpr int kWorthALine = 1 << 14;

uint8_t GainOffset(int pixel, double gain, double offset) {
  const double value = pixel * gain + offset;
  if (value >= 255) return 255;
  return value > 0 ? static_cast<uint8_t>(value) : 0;
}

// The offsets k, in 65536ths, for which (p * slope + k) >> 16, clamped, is table[p] for all p.
struct Offsets {
  int64_t first, end;
};

Offsets OffsetsThatFit(const uint8_t* table, int64_t slope, Offsets among) {
  for (int p = 0; p < 256; ++p) {
    const int64_t low = table[p] * int64_t{65536} - p * slope;
    if (table[p] > 0) among.first = std::max(among.first, low);
    if (table[p] < 255) among.end = std::min(among.end, low + 65536);
  }
  return among;
}

// The line of this step and gain whose offset is within the given ones. Its offset is start * gain,
// of which only the fraction matters, for the base takes away whole numbers: starts are tried until
// the fraction fits.
std::optional<IntegerLine> LineWithStart(int step, int gain, Offsets offsets) {
  constexpr int kMaxStarts = 4096;  // more are hardly ever needed, and would cost what they save
  const int first = -32768 - std::min(255 * step, 0);
  const int last = 32767 - std::max(255 * step, 0);
  const int64_t range = offsets.end - offsets.first;
  for (int start = first; start <= std::min(last, first + kMaxStarts); ++start) {
    const int64_t beyond = int64_t{start} * gain - offsets.first;
    if ((beyond & 65535) >= range) continue;
    return IntegerLine{.step = static_cast<int16_t>(step),
                       .start = static_cast<int16_t>(start),
                       .gain = static_cast<int16_t>(gain),
                       .base = static_cast<uint16_t>(beyond >> 16)};
  }
  return std::nullopt;
}

// A line through whole numbers with exactly the table's entries, which are those of gain and
// offset, if one is found: several steps give several slopes close to the gain.
std::optional<IntegerLine> FindLine(const uint8_t* table, double gain, double offset) {
  constexpr double kMaxGain = 64, kMaxOffset = 15000;  // results stay within 16 bits
  constexpr int kSteps = 16;
  if (!(std::fabs(gain) <= kMaxGain && std::fabs(offset) <= kMaxOffset)) return std::nullopt;
  const auto about = static_cast<int64_t>(offset * 65536);
  const int least = static_cast<int>(2 * std::fabs(gain)) + 1;  // so shares stay below 2^15
  for (int size = least; size < least + kSteps; ++size) {
    const int step = gain < 0 ? -size : size;
    const int share = std::min(static_cast<int>(std::lround(gain / step * 65536)), 32767);
    const Offsets offsets =
        OffsetsThatFit(table, int64_t{step} * share, {about - 131072, about + 131072});
    if (offsets.first >= offsets.end) continue;
    if (const auto line = LineWithStart(step, share, offsets)) return line;
  }
  return std::nullopt;
}

}  // namespace

void CombinePixels(const Kernels& kernels, PairRule rule, const GreyImage& a, const GreyImage& b,
                   GreyImage& result) {
  const int width = a.width, height = a.height;
  if (b.width != width || b.height != height) return;
  const bool inPlace = &result == &a || &result == &b;
  if (!inPlace && !RecreateForOverwrite(result, width, height)) return;
  const auto row = kernels.arithmetic.PairRow[static_cast<int>(rule)];
  if (a.stride == width && b.stride == width && result.stride == width) {
    row(a.bits, b.bits, result.bits, width * height);
    return;
  }
  for (int y = height - 1; y >= 0; --y) row(a.rows[y], b.rows[y], result.rows[y], width);
}

void ShiftPixelsLeft(const Kernels& kernels, const GreyImage& source, GreyImage& result, int bits) {
  if (bits < 0) return;
  MapPixels(source, result, [&](const uint8_t* from, uint8_t* to, int count) {
    kernels.arithmetic.ShiftLeftRow(from, to, count, std::min(bits, 8));
  });
}

void ShiftPixelsRight(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                      int bits) {
  if (bits < 0) return;
  MapPixels(source, result, [&](const uint8_t* from, uint8_t* to, int count) {
    kernels.arithmetic.ShiftRightRow(from, to, count, std::min(bits, 8));
  });
}

void InvertPixels(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  MapPixels(source, result, kernels.arithmetic.InvertRow);
}

void ApplyGainOffset(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                     double gain, double offset) {
  uint8_t table[256];
  for (int pixel = 0; pixel < 256; ++pixel) table[pixel] = GainOffset(pixel, gain, offset);
  if (kernels.arithmetic.LineRow && source.imageSize >= kWorthALine) {
    if (const auto line = FindLine(table, gain, offset)) {
      MapPixels(source, result, [&](const uint8_t* from, uint8_t* to, int count) {
        kernels.arithmetic.LineRow(from, to, count, *line);
      });
      return;
    }
  }
  MapPixels(source, result, [&](const uint8_t* from, uint8_t* to, int count) {
    kernels.lookup.LookupRow(from, to, count, table);
  });
}

}  // namespace quillon
