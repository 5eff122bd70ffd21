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

int64_t Floor(double value) {
  const auto whole = static_cast<int64_t>(value);
  return whole - (value < static_cast<double>(whole));
}

double SourceX(const RotatedRow& row, int x) { return (row.columnX[x] + row.rowX) + row.originX; }
double SourceY(const RotatedRow& row, int x) { return (row.rowY - row.columnY[x]) + row.originY; }

// Rounded without a call: lround took an eighth of a small image's time.
int32_t FixedPosition(double position) {
  const double units = position * (1 << kPositionBits);
  return static_cast<int32_t>(units + (units < 0 ? -0.5 : 0.5));
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
uint8_t EdgePixel(const GreyImage& source, const RotatedRow& row, int x) {
  const double sx = std::clamp(SourceX(row, x), 0.0, source.width - 1.0);
  const double sy = std::clamp(SourceY(row, x), 0.0, source.height - 1.0);
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

// What is known of a row before it is turned.
struct PlannedRow {
  Columns covered, inner;  // that show something; those among them that the row kernel computes
  // Where it begins in the strip of columns that is being turned.
  const uint8_t* start;
  int32_t startX, startY;
};

struct Turn {
  const GreyImage& source;
  Direction direction;
  Slope slopeX, slopeY;
  double centreX, centreY;
  Sampling sampling;

  void MoveTo(int y, RotatedRow& at) const {
    at.rowX = (y - centreY) * direction.sine;
    at.rowY = (y - centreY) * direction.cosine;
  }

  Columns Within(const RotatedRow& at, Range x, Range y) const {
    const auto sourceX = [&](int column) { return SourceX(at, column); };
    const auto sourceY = [&](int column) { return SourceY(at, column); };
    return Common(ColumnsWithin(x, source.width, slopeX, sourceX),
                  ColumnsWithin(y, source.width, slopeY, sourceY));
  }

  void PlanColumns(const RotatedRow& at, PlannedRow& row) const {
    if (sampling == Sampling::kNearest) {
      row.covered = Within(at, {0, double(source.width)}, {0, double(source.height)});
      row.inner = row.covered;
      return;
    }
    const double right = source.width - 1, bottom = source.height - 1;
    const auto tolerated = [](double last) -> Range {
      return {-kTolerance, std::nextafter(last + kTolerance, last + 1)};
    };
    row.covered = Within(at, tolerated(right), tolerated(bottom));
    row.inner =
        Common(row.covered, Within(at, {kMargin, right - kMargin}, {kMargin, bottom - kMargin}));
  }

  void PlanStart(const RotatedRow& at, int strip, PlannedRow& row) const {
    const double sx = SourceX(at, strip), sy = SourceY(at, strip);
    const int64_t column = Floor(sx), line = Floor(sy);
    row.start = at.top + static_cast<ptrdiff_t>(column - line * at.stride);
    row.startX = FixedPosition(sx - static_cast<double>(column));
    row.startY = FixedPosition(sy - static_cast<double>(line));
  }
};

void TurnRows(const Kernels& kernels, const Turn& turn, Buffer<PlannedRow>& rows, RotatedRow at,
              GreyImage& result) {
  const int width = result.width, height = result.height;
  const auto turnRow = turn.sampling == Sampling::kNearest ? kernels.rotation.NearestRow
                                                           : kernels.rotation.BilinearRow;
  const bool isCached = int64_t{at.stride} * turn.source.height <= kCachedBytes;
  // Clearing a small result as a whole takes less than two calls a row.
  if (isCached && result.stride == width) {
    std::memset(result.bits, 0, static_cast<size_t>(result.imageSize));
  } else {
    for (int y = 0; y < height; ++y) {
      const Columns covered = rows[y].covered;
      std::memset(result.rows[y], 0, static_cast<size_t>(covered.first));
      std::memset(result.rows[y] + covered.end, 0, static_cast<size_t>(width - covered.end));
    }
  }
  // A strip of columns is turned from top to bottom before the next one: where rows become columns,
  // what it reads stays in the first cache from row to row.
  for (int strip = 0; strip < width; strip += kStripColumns) {
    const Columns columns = {strip, std::min(strip + kStripColumns, width)};
    // All rows at once: one by one, each kernel call would wait for its row's start.
    for (int y = 0; y < height; ++y) {
      turn.MoveTo(y, at);
      turn.PlanStart(at, strip, rows[y]);
    }
    for (int y = 0; y < height; ++y) {
      const PlannedRow& row = rows[y];
      const Columns covered = Common(columns, row.covered);
      const Columns inner = Common(covered, row.inner);
      if (covered.first == covered.end) continue;
      turn.MoveTo(y, at);
      at.start = row.start;
      at.startX = row.startX;
      at.startY = row.startY;
      at.fetched = isCached ? kStripColumns : y % 8;
      uint8_t* out = result.rows[y];
      const int edge = std::min(inner.first, covered.end);
      for (int x = covered.first; x < edge; ++x) out[x] = EdgePixel(turn.source, at, x);
      turnRow(at, out, inner.first, inner.end);
      for (int x = std::max(inner.end, edge); x < covered.end; ++x) {
        out[x] = EdgePixel(turn.source, at, x);
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
                     .sampling = sampling};
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
  RotatedRow at = {.columnX = columnX,
                   .columnY = columnY,
                   .rowX = 0,
                   .rowY = 0,
                   .originX = turn.centreX + half,
                   .originY = turn.centreY + half,
                   .top = source.rows[0],
                   .stride = source.stride,
                   .fixedX = fixedX,
                   .fixedY = fixedY,
                   .startX = 0,
                   .startY = 0,
                   .start = nullptr,
                   .fetched = 0,
                   .ahead = AheadBy(kRowsAhead, turn.direction, source.stride)};
  for (int y = 0; y < height; ++y) {
    turn.MoveTo(y, at);
    turn.PlanColumns(at, rows[y]);
  }
  if (RecreateForOverwrite(result, width, height)) TurnRows(kernels, turn, rows, at, result);
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
