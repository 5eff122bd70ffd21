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

double SourceX(const RotatedRow& row, int x) { return (row.columnX[x] + row.rowX) + row.originX; }
double SourceY(const RotatedRow& row, int x) { return (row.rowY - row.columnY[x]) + row.originY; }

int32_t FixedPosition(double position) {
  return static_cast<int32_t>(std::lround(position * (1 << kPositionBits)));
}

// How far in memory the pixel that a column shows is from the one that it shows `rows` rows below.
int32_t AheadBy(int rows, const Direction& direction, int stride) {
  const auto right = static_cast<int64_t>(rows * direction.sine);
  const auto down = static_cast<int64_t>(rows * direction.cosine);
  return static_cast<int32_t>(right - down * stride);
}

// The columns whose position lies in the range. Rounding never reverses the order of positions, so
// each bound is passed once: about where the slope says, and exactly where the positions say.
template <class Position>
Columns ColumnsWithin(Range range, int width, double slope, const Position& position) {
  const double start = position(0), rise = slope + 0.0;  // no negative zero
  const auto firstWhere = [&](double bound, const auto& passed) {
    const double guess = (bound - start) / rise;
    int x = guess > 0 ? static_cast<int>(std::min<double>(guess, width)) : 0;
    while (x > 0 && passed(position(x - 1))) --x;
    while (x < width && !passed(position(x))) ++x;
    return x;
  };
  const auto above = [](double bound) { return [=](double p) { return p >= bound; }; };
  const auto below = [](double bound) { return [=](double p) { return p < bound; }; };
  if (rise >= 0) {
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

// Columns of a row that show something, and those among them that the row kernel computes.
struct Spans {
  Columns covered, inner;
};

struct Turn {
  const GreyImage& source;
  Direction direction;
  double centreX, centreY;
  Sampling sampling;
  RotatedRow row;  // all that is the same for all rows and strips

  RotatedRow Row(int y) const {
    RotatedRow at = row;
    at.rowX = (y - centreY) * direction.sine;
    at.rowY = (y - centreY) * direction.cosine;
    return at;
  }

  // The row in the strip that begins at this column.
  RotatedRow RowInStrip(int y, int strip) const {
    RotatedRow at = Row(y);
    const double sx = SourceX(at, strip), sy = SourceY(at, strip);
    const double column = std::floor(sx), line = std::floor(sy);
    at.startX = FixedPosition(sx - column);
    at.startY = FixedPosition(sy - line);
    const auto offset = static_cast<int64_t>(column) - static_cast<int64_t>(line) * at.stride;
    at.start = at.top + static_cast<ptrdiff_t>(offset);
    at.fetched = y % 8;
    return at;
  }

  Columns Within(const RotatedRow& at, Range x, Range y) const {
    const auto sourceX = [&](int column) { return SourceX(at, column); };
    const auto sourceY = [&](int column) { return SourceY(at, column); };
    return Common(ColumnsWithin(x, source.width, direction.cosine, sourceX),
                  ColumnsWithin(y, source.width, -direction.sine, sourceY));
  }

  Spans RowSpans(int y) const {
    const RotatedRow at = Row(y);
    if (sampling == Sampling::kNearest) {
      const Columns all = Within(at, {0, double(source.width)}, {0, double(source.height)});
      return {all, all};
    }
    const double right = source.width - 1, bottom = source.height - 1;
    const auto tolerated = [](double last) -> Range {
      return {-kTolerance, std::nextafter(last + kTolerance, last + 1)};
    };
    const Columns covered = Within(at, tolerated(right), tolerated(bottom));
    return {covered,
            Common(covered, Within(at, {kMargin, right - kMargin}, {kMargin, bottom - kMargin}))};
  }
};

void TurnRows(const Kernels& kernels, const Turn& turn, const Buffer<Spans>& spans,
              GreyImage& result) {
  const int width = result.width, height = result.height;
  const auto turnRow = turn.sampling == Sampling::kNearest ? kernels.rotation.NearestRow
                                                           : kernels.rotation.BilinearRow;
  for (int y = 0; y < height; ++y) {
    const Columns covered = spans[y].covered;
    std::memset(result.rows[y], 0, static_cast<size_t>(covered.first));
    std::memset(result.rows[y] + covered.end, 0, static_cast<size_t>(width - covered.end));
  }
  // A strip of columns is turned from top to bottom before the next one: where rows become columns,
  // what it reads stays in the first cache from row to row.
  for (int strip = 0; strip < width; strip += kStripColumns) {
    const Columns columns = {strip, std::min(strip + kStripColumns, width)};
    for (int y = 0; y < height; ++y) {
      const Columns covered = Common(columns, spans[y].covered);
      const Columns inner = Common(covered, spans[y].inner);
      if (covered.first == covered.end) continue;
      const RotatedRow row = turn.RowInStrip(y, strip);
      uint8_t* out = result.rows[y];
      const int edge = std::min(inner.first, covered.end);
      for (int x = covered.first; x < edge; ++x) out[x] = EdgePixel(turn.source, row, x);
      turnRow(row, out, inner.first, inner.end);
      for (int x = std::max(inner.end, edge); x < covered.end; ++x) {
        out[x] = EdgePixel(turn.source, row, x);
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
  Buffer<double> columnX(static_cast<size_t>(width)), columnY(static_cast<size_t>(width));
  const auto padded = static_cast<size_t>(width) + kLanesBeyond;
  auto fixedX = Buffer<int32_t>::Zeroed(padded), fixedY = Buffer<int32_t>::Zeroed(padded);
  Buffer<Spans> spans(static_cast<size_t>(height));
  if (!columnX || !columnY || !fixedX || !fixedY || !spans) return;
  Turn turn = {.source = source,
               .direction = direction,
               .centreX = (width - 1) / 2.0,
               .centreY = (height - 1) / 2.0,
               .sampling = sampling,
               .row = {}};
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
  turn.row = {.columnX = columnX.data(),
              .columnY = columnY.data(),
              .rowX = 0,
              .rowY = 0,
              .originX = turn.centreX + half,
              .originY = turn.centreY + half,
              .top = source.rows[0],
              .stride = source.stride,
              .fixedX = fixedX.data(),
              .fixedY = fixedY.data(),
              .startX = 0,
              .startY = 0,
              .start = nullptr,
              .fetched = 0,
              .ahead = AheadBy(kRowsAhead, turn.direction, source.stride)};
  for (int y = 0; y < height; ++y) spans[y] = turn.RowSpans(y);
  if (RecreateForOverwrite(result, width, height)) TurnRows(kernels, turn, spans, result);
}

}  // namespace

void RotateImage(const Kernels& kernels, Sampling sampling, const GreyImage& source,
                 GreyImage& result, double angle) {
  if (!std::isfinite(angle)) return;
  if (&result != &source) return RotateInto(kernels, sampling, source, result, angle);
  GreyImage copy;
  copy.CopyFrom(&source);
  if (HasPixels(&copy)) RotateInto(kernels, sampling, copy, result, angle);
}

}  // namespace quillon
