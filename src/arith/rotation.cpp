#include "arith/rotation.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "arith/quarter_turn.h"
#include "arith/rotation_kernels.h"
#include "core/angle.h"
#include "core/buffer.h"
#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr double kTolerance = 1e-9;

// This far inside the image's edge, the whole-number form of a position, which is a little off, has
// a next column and row as well.
constexpr double kMargin = 2.0 / (1 << kPositionBits);

// Rows that pixels are fetched ahead. The image is read in an order that processors do not foresee,
// and it took more than half of the time to wait for it.
constexpr int kRowsAhead = 16;
constexpr int kCachedBytes = 1 << 16;  // an image of so few is in the cache as it is

struct Columns {
  int first, end;
};

Columns Common(Columns a, Columns b) {
  const int first = std::max(a.first, b.first);
  return {first, std::max(first, std::min(a.end, b.end))};
}

// Positions low <= p < high.
struct Range {
  double low, high;
};

// Positions that show a pixel of a side, or interpolate two: those may lie a little outside.
Range Shown(Sampling sampling, int side) {
  if (sampling == Sampling::kNearest) return {0, double(side)};
  return {-kTolerance, std::nextafter(side - 1 + kTolerance, side)};
}

int64_t Floor(double value) {
  const auto whole = static_cast<int64_t>(value);
  return whole - (value < static_cast<double>(whole));
}

using Row = RotatedBand::Row;

double SourceX(const RotatedBand& band, const Row& row, int x) {
  return (band.columnX[x] + row.rowX) + band.originX;
}
double SourceY(const RotatedBand& band, const Row& row, int x) {
  return (row.rowY - band.columnY[x]) + band.originY;
}

// Rounded by an addition: the last bits of a sum so large are whole numbers. A call of lround took
// an eighth of a small image's time.
int32_t FixedPosition(double position) {
  constexpr double kLarge = 0x1.8p52;
  const double sum = position * (1 << kPositionBits) + kLarge;
  int64_t bits;
  std::memcpy(&bits, &sum, sizeof bits);
  return static_cast<int32_t>(bits);
}

// How far in memory the pixel that a column shows is from the one that it shows `rows` rows below.
int32_t AheadBy(int rows, const Direction& direction, int stride) {
  const auto right = static_cast<int64_t>(rows * direction.sine);
  const auto down = static_cast<int64_t>(rows * direction.cosine);
  return static_cast<int32_t>(right - down * stride);
}

// By how much a position grows from column to column, and the columns in which it grows by one.
struct Slope {
  explicit Slope(double growth) : rise(growth), run(1 / (growth + 0.0)) {}  // no negative zero
  double rise, run;
};

// The columns whose position lies in the range. Rounding never reverses the order of positions, so
// each bound is passed once: about where the slope says, and exactly where the positions say.
template <class Position>
Columns ColumnsWithin(Range range, int width, const Slope& slope, const Position& position) {
  const double start = position(0);
  const auto firstWhere = [&](double bound, const auto& passed) {
    const double guess = (bound - start) * slope.run;
    int x = guess > 0 ? static_cast<int>(std::min<double>(guess, width)) : 0;
    while (x > 0 && passed(position(x - 1))) --x;
    while (x < width && !passed(position(x))) ++x;
    return x;
  };
  const auto above = [](double bound) { return [=](double p) { return p >= bound; }; };
  const auto below = [](double bound) { return [=](double p) { return p < bound; }; };
  if (slope.rise >= 0) {
    return {firstWhere(range.low, above(range.low)), firstWhere(range.high, above(range.high))};
  }
  return {firstWhere(range.high, below(range.high)), firstWhere(range.low, below(range.low))};
}

// Interpolation where the last column or row may be reached.
uint8_t EdgePixel(const GreyImage& source, const RotatedBand& band, const Row& row, int x) {
  const double sx = std::clamp(SourceX(band, row, x), 0.0, source.width - 1.0);
  const double sy = std::clamp(SourceY(band, row, x), 0.0, source.height - 1.0);
  const int column = static_cast<int>(sx), line = static_cast<int>(sy);
  const int next = std::min(column + 1, source.width - 1);
  const uint8_t* upper = source.rows[line];
  const uint8_t* lower = source.rows[std::min(line + 1, source.height - 1)];
  const double right = sx - column, down = sy - line;
  const double above = upper[column] + (upper[next] - upper[column]) * right;
  const double below = lower[column] + (lower[next] - lower[column]) * right;
  const double rounded = above + (below - above) * down + 0.5;
  return static_cast<uint8_t>(rounded);
}

// The columns of a row that show something, and those among them that the kernels compute.
struct PlannedRow {
  Columns covered, inner;
};

struct Turn {
  const GreyImage& source;
  Direction direction;
  Slope slopeX, slopeY;
  double centreX, centreY;
  Sampling sampling;
  Range across, down;  // positions that show something

  Row RowAt(int y) const {
    return {.rowX = (y - centreY) * direction.sine,
            .rowY = (y - centreY) * direction.cosine,
            .first = 0,
            .end = 0,
            .out = nullptr};
  }

  Columns Within(const RotatedBand& band, const Row& row, Range x, Range y) const {
    const auto sourceX = [&](int column) { return SourceX(band, row, column); };
    const auto sourceY = [&](int column) { return SourceY(band, row, column); };
    return Common(ColumnsWithin(x, source.width, slopeX, sourceX),
                  ColumnsWithin(y, source.width, slopeY, sourceY));
  }

  PlannedRow Plan(const RotatedBand& band, const Row& row) const {
    const Columns covered = Within(band, row, across, down);
    if (sampling == Sampling::kNearest) return {covered, covered};
    const double right = source.width - 1, bottom = source.height - 1;
    const auto isInner = [&](int x) {
      const double sx = SourceX(band, row, x), sy = SourceY(band, row, x);
      return sx >= kMargin && sx < right - kMargin && sy >= kMargin && sy < bottom - kMargin;
    };
    Columns inner = covered;
    while (inner.first < inner.end && !isInner(inner.first)) ++inner.first;
    while (inner.first < inner.end && !isInner(inner.end - 1)) --inner.end;
    return {covered, inner};
  }

  // Where the band's rows begin in a strip of columns: in the pixel that the first one shows.
  void PlanStart(int strip, RotatedBand& band) const {
    const int64_t column = Floor(SourceX(band, band.rows[0], strip));
    const int64_t line = Floor(SourceY(band, band.rows[0], strip));
    band.startColumn = static_cast<int32_t>(column);
    band.startLine = static_cast<int32_t>(line);
    band.start = band.top + static_cast<ptrdiff_t>(column - line * band.stride);
    for (int i = 0; i < kBandRows; ++i) {
      const double x = SourceX(band, band.rows[i], strip);
      const double y = SourceY(band, band.rows[i], strip);
      band.startX[i] = FixedPosition(x - static_cast<double>(column));
      band.startY[i] = FixedPosition(y - static_cast<double>(line));
    }
  }
};

// Turns the columns of `strip` in the rows from y on.
void TurnBand(const Kernels& kernels, const Turn& turn, const Buffer<PlannedRow>& planned,
              Columns strip, int y, RotatedBand& band, const GreyImage& result) {
  const int rowCount = std::min(kBandRows, result.height - y);
  Columns covered[kBandRows] = {};
  bool isCovered = false;
  for (int i = 0; i < kBandRows; ++i) {
    Row& row = band.rows[i] = turn.RowAt(y + i);
    row.out = result.rows[y + std::min(i, rowCount - 1)];
    if (i >= rowCount) continue;
    covered[i] = Common(strip, planned[y + i].covered);
    const Columns inner = Common(covered[i], planned[y + i].inner);
    row.first = inner.first;
    row.end = inner.end;
    isCovered |= covered[i].first < covered[i].end;
  }
  if (!isCovered) return;
  turn.PlanStart(strip.first, band);
  const bool isNearest = turn.sampling == Sampling::kNearest;
  (isNearest ? kernels.rotation.NearestBand : kernels.rotation.BilinearBand)(band);
  if (isNearest) return;
  for (int i = 0; i < rowCount; ++i) {
    const Row& row = band.rows[i];
    const int edge = std::min(row.first, covered[i].end);
    const auto turnEdge = [&](int first, int end) {
      for (int x = first; x < end; ++x) row.out[x] = EdgePixel(turn.source, band, row, x);
    };
    turnEdge(covered[i].first, edge);
    turnEdge(std::max(row.end, edge), covered[i].end);
  }
}

// How many columns of a band are turned before the next band, which begins under the first of them:
// few enough for the caches to keep what they read for that band, where rows become columns; and
// otherwise many, as each row may be another page of memory.
int ColumnsTogether(const Direction& direction, int width) {
  constexpr double kLines = 512;  // of the source that they cross
  const double columns = std::min(kLines / (std::abs(direction.sine) + 1e-9), width + 0.0);
  return std::max(1, static_cast<int>(columns / kStripColumns + 0.999)) * kStripColumns;
}

void TurnRows(const Kernels& kernels, const Turn& turn, const Buffer<PlannedRow>& planned,
              RotatedBand& band, GreyImage& result) {
  const int width = result.width, height = result.height;
  const bool isCached = int64_t{band.stride} * turn.source.height <= kCachedBytes;
  if (isCached) band.ahead = 0;
  // Clearing a small result as a whole takes less than two calls a row.
  if (isCached && result.stride == width) {
    std::memset(result.bits, 0, static_cast<size_t>(result.imageSize));
  } else {
    for (int y = 0; y < height; ++y) {
      const Columns covered = planned[y].covered;
      std::memset(result.rows[y], 0, static_cast<size_t>(covered.first));
      std::memset(result.rows[y] + covered.end, 0, static_cast<size_t>(width - covered.end));
    }
  }
  const int together = ColumnsTogether(turn.direction, width);
  for (int first = 0; first < width; first += together) {
    const int end = std::min(first + together, width);
    for (int y = 0; y < height; y += kBandRows) {
      for (int x = first; x < end; x += kStripColumns) {
        const Columns strip = {x, std::min(x + kStripColumns, end)};
        TurnBand(kernels, turn, planned, strip, y, band, result);
      }
    }
  }
}

void RotateInto(const Kernels& kernels, Sampling sampling, const GreyImage& source,
                GreyImage& result, double angle) {
  const int width = source.width, height = source.height;
  const Direction direction = DirectionOf(angle);
  // One quarter puts pixels between pixels where one side is odd and the other even.
  const bool meets = sampling == Sampling::kNearest || (width - height) % 2 == 0;
  if (direction.sine == 0 || (direction.cosine == 0 && meets)) {
    const int quarters = direction.cosine > 0 ? 0
                         : direction.sine > 0 ? 1
                         : direction.sine < 0 ? 3
                                              : 2;
    return TurnByQuarters(kernels, source, result, quarters);
  }
  const auto padded = static_cast<size_t>(width) + kLanesBeyond;
  Buffer<double> columns(2 * static_cast<size_t>(width));
  auto fixed = Buffer<int32_t>::Zeroed(2 * padded);
  Buffer<PlannedRow> rows(static_cast<size_t>(height));
  if (!columns || !fixed || !rows) return;
  double *const columnX = columns.data(), *const columnY = columnX + width;
  int32_t *const fixedX = fixed.data(), *const fixedY = fixedX + padded;
  const Turn turn = {.source = source,
                     .direction = direction,
                     .slopeX = Slope(direction.cosine),
                     .slopeY = Slope(-direction.sine),
                     .centreX = (width - 1) / 2.0,
                     .centreY = (height - 1) / 2.0,
                     .sampling = sampling,
                     .across = Shown(sampling, width),
                     .down = Shown(sampling, height)};
  for (int x = 0; x < width; ++x) {
    columnX[x] = (x - turn.centreX) * turn.direction.cosine;
    columnY[x] = (x - turn.centreX) * turn.direction.sine;
    const int strip = x - x % kStripColumns;
    fixedX[x] = FixedPosition(columnX[x] - columnX[strip]);
    // Rounding may make a step one unit longer than a pixel, which kernels take for impossible.
    if (x > strip) fixedX[x] = std::min(fixedX[x], fixedX[x - 1] + (1 << kPositionBits));
    fixedY[x] = FixedPosition(columnY[strip] - columnY[x]);
  }
  const double half = sampling == Sampling::kNearest ? 0.5 : 0;  // truncating then rounds
  RotatedBand band = {};
  band.columnX = columnX;
  band.columnY = columnY;
  band.originX = turn.centreX + half;
  band.originY = turn.centreY + half;
  band.top = source.rows[0];
  band.stride = source.stride;
  band.width = width;
  band.height = height;
  band.fixedX = fixedX;
  band.fixedY = fixedY;
  band.ahead = AheadBy(kRowsAhead, turn.direction, source.stride);
  for (int c = 0; c < kBandColumns; ++c) {
    band.stepX[c] = FixedPosition(c * direction.cosine);
    band.stepY[c] = FixedPosition(-c * direction.sine);
  }
  for (int y = 0; y < height; ++y) rows[y] = turn.Plan(band, turn.RowAt(y));
  if (RecreateForOverwrite(result, width, height)) TurnRows(kernels, turn, rows, band, result);
}

}  // namespace

void RotateImage(const Kernels& kernels, Sampling sampling, const GreyImage& source,
                 GreyImage& result, double angle) {
  if (!std::isfinite(angle)) return;
  if (&result != &source) return RotateInto(kernels, sampling, source, result, angle);
  GreyImage copy;
  copy.CopyFrom(&source);
  if (!HasPixels(&copy)) return NoteLackOfMemory();
  RotateInto(kernels, sampling, copy, result, angle);
}

}  // namespace quillon
