// Row kernels of rotation. Compiled once per level. Positions are computed in whole numbers, next
// to the definition's; the few pixels for which that may matter are computed again in double.
#include "arith/rotation_kernels.h"

#include <stddef.h>

#include "simd/blocks.h"
#include "simd/byte_window.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kLanes = kVectorBytes / 4;
constexpr int kGroup = 16;  // pixels that are computed together
constexpr int kVectors = kGroup / kLanes;
using Longs = I32<kLanes>;
using Floats = F32<kLanes>;

constexpr int kUnit = 1 << kPositionBits;

// One row of a band. A copy: the result's bytes might change what a reference refers to.
struct Row {
  QUILLON_INLINE Row(const RotatedBand& band, int i)
      : columnX(band.columnX),
        columnY(band.columnY),
        rowX(band.rows[i].rowX),
        rowY(band.rows[i].rowY),
        originX(band.originX),
        originY(band.originY),
        top(band.top),
        stride(band.stride),
        fixedX(band.fixedX),
        fixedY(band.fixedY),
        startX(band.startX[i]),
        startY(band.startY[i]),
        start(band.start),
        fetched(band.ahead != 0 ? i : kStripColumns),
        ahead(band.ahead) {}

  const double* columnX;
  const double* columnY;
  double rowX, rowY;
  double originX, originY;
  const uint8_t* top;
  int32_t stride;
  const int32_t* fixedX;
  const int32_t* fixedY;
  int32_t startX, startY;
  const uint8_t* start;
  // Of every eight pixels, the cache is asked for number `fetched`: eight rows ask for all.
  int32_t fetched;
  int32_t ahead;
};

QUILLON_INLINE double SourceX(const Row& row, int x) {
  return (row.columnX[x] + row.rowX) + row.originX;
}

QUILLON_INLINE double SourceY(const Row& row, int x) {
  return (row.rowY - row.columnY[x]) + row.originY;
}

QUILLON_INLINE const uint8_t* PixelAt(const Row& row, int column, int line) {
  return row.top + column - static_cast<ptrdiff_t>(line) * row.stride;
}

// Offsets within a strip of wider rows may not fit 32 bits: all of their pixels are computed in
// double.
constexpr int kWidestStride = 1 << 22;

// Where the source's pixels for a run of columns lie. First all of them are located, then loaded:
// one by one, each load would wait for its address.
constexpr int kRun = 128;

struct Run {
  alignas(64) int32_t offsets[kRun];  // from `start`
};

QUILLON_INLINE Longs FixedX(const Row& row, int x) {
  return Load<int32_t, kLanes>(row.fixedX + x) + row.startX;
}
QUILLON_INLINE Longs FixedY(const Row& row, int x) {
  return Load<int32_t, kLanes>(row.fixedY + x) + row.startY;
}

// Locates the pixels from column x on, whole vectors of them, and calls see(x, y, i) for each
// vector.
template <class See>
QUILLON_INLINE void Locate(const Row& row, int x, int count, Run& run, const See& see) {
  for (int i = 0; i < count; i += kLanes) {
    const Longs sx = FixedX(row, x + i), sy = FixedY(row, x + i);
    Store(run.offsets + i, (sx >> kPositionBits) - (sy >> kPositionBits) * row.stride);
    see(sx, sy, i);
  }
  for (int i = row.fetched; i < count; i += 8) {
    __builtin_prefetch(row.start + run.offsets[i] + row.ahead);
  }
}

// ---- nearest ------------------------------------------------------------------------------------

// Whether eight pixels follow one another in memory, as they mostly do where an image is turned a
// little. Positions never step by more than 1 and never turn back; another line would be farther
// off than a group, which no row is shorter than.
QUILLON_INLINE bool FollowEachOther(const int32_t* offsets) { return offsets[7] - offsets[0] == 7; }

// Eight pixels in the lower half.
QUILLON_INLINE U8<16> LoadEight(const uint8_t* start, const int32_t* offsets) {
  return FollowEachOther(offsets) ? LoadHalf(start + offsets[0]) : CollectBytes(start, offsets);
}

void NearestRow(const Row& row, uint8_t* out, int first, int end) {
  const auto exactPixel = [&](int x) {
    out[x] = *PixelAt(row, static_cast<int>(SourceX(row, x)), static_cast<int>(SourceY(row, x)));
  };
  if (row.stride > kWidestStride) {
    for (int x = first; x < end; ++x) exactPixel(x);
    return;
  }
  Run run;
  for (int x = first; x < end; x += kRun) {
    const int count = end - x < kRun ? end - x : kRun;
    // A position so near to a whole number may truncate to another pixel than the definition's.
    Longs nearest = Longs{} + kUnit;
    Locate(row, x, count, run, [&](Longs sx, Longs sy, int) {
      nearest = Min(nearest, Min((sx + 2) & (kUnit - 1), (sy + 2) & (kUnit - 1)));
    });
    if (MoveWordMask(nearest - 4) != 0) {
      for (int i = 0; i < count; ++i) exactPixel(x + i);
      continue;
    }
    if (count < kGroup) {
      for (int i = 0; i < count; ++i) out[x + i] = row.start[run.offsets[i]];
      continue;
    }
    // The last group overlaps the one before: how many pixels are left, processors cannot foresee.
    for (int i = 0; i < count; i += kGroup) {
      const int at = i <= count - kGroup ? i : count - kGroup;
      Store(out + x + at, JoinLowHalves(LoadEight(row.start, run.offsets + at),
                                        LoadEight(row.start, run.offsets + at + 8)));
    }
  }
}

// ---- bilinear -----------------------------------------------------------------------------------

// a + (b - a) * share, rounded after each operation.
QUILLON_INLINE double Between(double a, double b, double share) { return a + (b - a) * share; }

// The same, rounded less often where that is faster.
QUILLON_INLINE Floats Between(Floats a, Floats b, Floats share) { return MulAdd(b - a, share, a); }

// Linear interpolation of four pixels, in T.
template <class T>
QUILLON_INLINE T Interpolate(T nw, T ne, T sw, T se, T right, T down) {
  return Between(Between(nw, ne, right), Between(sw, se, right), down);
}

uint8_t ExactPixel(const Row& row, int x) {
  const double sx = SourceX(row, x), sy = SourceY(row, x);
  const int column = static_cast<int>(sx), line = static_cast<int>(sy);
  const uint8_t* upper = PixelAt(row, column, line);
  const uint8_t* lower = upper - row.stride;
  const double rounded =
      Interpolate<double>(upper[0], upper[1], lower[0], lower[1], sx - column, sy - line) + 0.5;
  return static_cast<uint8_t>(rounded);
}

// A position that is off by 1.01 units in each direction moves the value by less than
// 2 * 255 * 1.01 * 2^-22 < 2^-12.98, also where it lies in the next pixel. In float, the sum of
// interpolation and 1/2 is off by less than 10 * 2^-17: 2^-17 for each rounding of a number below
// 256, carried along. So where both ends of a range of 2^-12 around it truncate to the same value,
// this is the definition's; the other pixels are few.
constexpr float kDoubt = 0x1p-12f;

// Each of eight pixels with its right neighbour, in 16 bits.
QUILLON_INLINE U16<8> LoadEightPairs(const uint8_t* from, const int32_t* offsets) {
  return BitCast<U16<8>>(FollowEachOther(offsets)
                             ? ZipLow(LoadHalf(from + offsets[0]), LoadHalf(from + offsets[0] + 1))
                             : CollectBytePairs(from, offsets));
}

// The pairs of a group in 32-bit lanes.
QUILLON_INLINE void LoadPairs(const uint8_t* from, const int32_t* offsets,
                              Longs (&pairs)[kVectors]) {
  WidenWords(LoadEightPairs(from, offsets), LoadEightPairs(from, offsets + 8), pairs);
}

void BilinearRow(const Row& row, uint8_t* out, int first, int end) {
  if (row.stride > kWidestStride) {
    for (int x = first; x < end; ++x) out[x] = ExactPixel(row, x);
    return;
  }
  const auto fraction = [](Longs position) {
    return Convert<float, kLanes>(position & (kUnit - 1)) * (1.0f / kUnit);
  };
  Run run;
  for (int x = first, count; x < end; x += count) {
    count = end - x < kRun ? end - x : kRun;
    // Whole groups; the last overlaps the one before. One by one, its pixels took longer.
    if (count >= kGroup) {
      count -= count % kGroup;
    } else if (end - first >= kGroup) {
      x = end - kGroup;
      count = kGroup;
    }
    Locate(row, x, count, run, [](Longs, Longs, int) {});
    int i = 0;
    for (; i <= count - kGroup; i += kGroup) {
      Longs upper[kVectors], lower[kVectors], least[kVectors], most[kVectors];
      LoadPairs(row.start, run.offsets + i, upper);
      LoadPairs(row.start - row.stride, run.offsets + i, lower);
      for (int v = 0; v < kVectors; ++v) {
        const auto real = [](Longs lanes) { return Convert<float, kLanes>(lanes); };
        const int at = x + i + v * kLanes;
        const Floats value =
            Interpolate(real(upper[v] & 255), real(upper[v] >> 8), real(lower[v] & 255),
                        real(lower[v] >> 8), fraction(FixedX(row, at)), fraction(FixedY(row, at)));
        least[v] = Convert<int32_t, kLanes>(value + (0.5f - kDoubt));
        most[v] = Convert<int32_t, kLanes>(value + (0.5f + kDoubt));
      }
      const U8<16> pixels = PackToBytes(least);
      Store(out + x + i, pixels);
      auto doubtful = static_cast<uint32_t>(MoveMask(pixels != PackToBytes(most)));
      for (; doubtful != 0; doubtful &= doubtful - 1) {
        const int at = x + i + __builtin_ctz(doubtful);
        out[at] = ExactPixel(row, at);
      }
    }
    for (; i < count; ++i) out[x + i] = ExactPixel(row, x + i);
  }
}

// ---- bands --------------------------------------------------------------------------------------

#if QUILLON_BYTE_WINDOWS

constexpr int Least(int a, int b) { return a < b ? a : b; }
constexpr int Most(int a, int b) { return a > b ? a : b; }

// Squares of a band. What a square shows lies in a small window of the source at any angle: its
// sides are at most 7 * sqrt(2) pixels long, and interpolation takes one pixel more. So the window
// is loaded line by line, and all pixels are picked from it at once.
//
// A square's pixels are four vectors of 32-bit lanes, so that the lowest bytes of the four, merged,
// are row after row: lane i of vector v is row i / 2, column i % 2 * 4 + v.
class Squares {
 public:
  static constexpr int kVectors = 4;

  QUILLON_INLINE explicit Squares(const RotatedBand& band)
      : fixedX_(band.fixedX),
        fixedY_(band.fixedY),
        start_(band.start),
        stride_(band.stride),
        ahead_(band.ahead),
        columns_{-band.startColumn, band.width - ByteWindow::kColumns - band.startColumn},
        lines_{-band.startLine, band.height - ByteWindow::kLines - band.startLine},
        leastX_(Place(band.startX, band.stepX, x_)),
        leastY_(Place(band.startY, band.stepY, y_)) {}

  // Whether windows fit into the source.
  static bool Suit(const RotatedBand& band) {
    return band.width >= ByteWindow::kColumns && band.height >= ByteWindow::kLines;
  }

  // The square that begins at column x: its window, and its positions from the window's corner on,
  // `lift` units more. All that lies in the source lies in the window: at the source's edges that
  // is moved inwards.
  struct Square {
    ByteWindow window;
    Longs x[kVectors], y[kVectors];
  };
  QUILLON_INLINE Square At(int x, int lift) const {
    const int column = Within(columns_, (fixedX_[x] + leastX_) >> kPositionBits);
    const int line = Within(lines_, (fixedY_[x] + leastY_) >> kPositionBits);
    const uint8_t* corner = start_ + column - line * stride_;
    // Squares side by side ask for other lines of what a later band will show.
    if (ahead_ != 0) {
      __builtin_prefetch(corner + ahead_ - (x / kBandColumns % kBandRows) * stride_, 0, 2);
    }
    Square square = {ByteWindow(corner, -stride_), {}, {}};
    const auto from = [&](int fixed, int pixels) {
      return static_cast<int>(fixed - (static_cast<uint32_t>(pixels) << kPositionBits) + lift);
    };
    for (int v = 0; v < kVectors; ++v) {
      square.x[v] = x_[v] + from(fixedX_[x], column);
      square.y[v] = y_[v] + from(fixedY_[x], line);
    }
    return square;
  }

  // Where in its window a pixel lies, in the lowest byte of its lane.
  QUILLON_INLINE static Longs PlaceOf(Longs x, Longs y) {
    return x >> kPositionBits | (y >> (kPositionBits - 4) & 0xF0);
  }

 private:
  struct Bounds {
    int least, most;
  };
  QUILLON_INLINE static int Within(Bounds bounds, int at) {
    return Least(Most(at, bounds.least), bounds.most);
  }

  // The rows' and columns' shares of positions in a square; returns the least sum.
  QUILLON_INLINE static int Place(const int32_t* rows, const int32_t* columns,
                                  Longs (&places)[kVectors]) {
    const auto row = Load<int32_t, kBandRows>(rows);
    const Longs twice =
        __builtin_shufflevector(row, row, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7);
    for (int v = 0; v < kVectors; ++v) {
      const U64<kLanes / 2> pair =
          U64<kLanes / 2>{} + (static_cast<uint32_t>(columns[v]) |
                               static_cast<uint64_t>(static_cast<uint32_t>(columns[v + 4])) << 32);
      places[v] = twice + BitCast<Longs>(pair);
    }
    return Least(rows[0], rows[kBandRows - 1]) + Least(columns[0], columns[kBandColumns - 1]);
  }

  Longs x_[kVectors], y_[kVectors];
  const int32_t* fixedX_;
  const int32_t* fixedY_;
  const uint8_t* start_;
  ptrdiff_t stride_;
  ptrdiff_t ahead_;
  Bounds columns_, lines_;
  int leastX_, leastY_;
};

// The turned columns of a band, until whole rows are copied to the result: where those are 4096
// bytes apart, a square's rows would drive each other out of the first cache.
class Turned {
 public:
  // Of columns from `first` on.
  explicit Turned(int first) : first_(first) {}

  QUILLON_INLINE void Store(int x, U8<64> pixels) {
    const auto rows = BitCast<U64<kBandRows>>(pixels);
    for (int i = 0; i < kBandRows; ++i) {
      const uint64_t row = rows[i];
      __builtin_memcpy(RowAt(i) + x, &row, sizeof row);
    }
  }

  // Where column 0 of a row would be.
  QUILLON_INLINE uint8_t* RowAt(int i) { return pixels_ + i * kPitch - first_; }

 private:
  static constexpr int kPitch = kStripColumns + 64;
  const int first_;
  alignas(64) uint8_t pixels_[kBandRows * kPitch];
};

struct NearestSquare {
  QUILLON_INLINE static void Turn(const Squares& squares, const RotatedBand& band, int x,
                                  Turned& turned) {
    const auto square = squares.At(x, 2);
    Longs nearest = Longs{} + kUnit, places[Squares::kVectors];
    for (int v = 0; v < Squares::kVectors; ++v) {
      nearest = Min(nearest, Min(square.x[v] & (kUnit - 4), square.y[v] & (kUnit - 4)));
      places[v] = Squares::PlaceOf(square.x[v], square.y[v]);
    }
    turned.Store(x, square.window.At(MergeLowBytes(places[0], places[1], places[2], places[3])));
    if (MoveWordMask(nearest - 1) != 0) TurnAgain(band, x, turned);
  }

  // A position so near to a whole number may truncate to another pixel than the definition's.
  [[gnu::noinline]] static void TurnAgain(const RotatedBand& band, int x, Turned& turned) {
    for (int i = 0; i < kBandRows; ++i) {
      const int first = Most(x, band.rows[i].first),
                end = Least(x + kBandColumns, band.rows[i].end);
      if (first < end) NearestRow(Row(band, i), turned.RowAt(i), first, end);
    }
  }
};

// The value is the upper left pixel, plus its difference from the right one and from the lower one
// and the difference of these differences, each times its share. Sums of bytes are exact, and the
// float of the result is off by less than 2^-15.
struct BilinearSquare {
  QUILLON_INLINE static void Turn(const Squares& squares, const RotatedBand& band, int x,
                                  Turned& turned) {
    constexpr float kFixed = 1 << 16;  // of a value: its pixel is then a byte of its lane
    alignas(16) static constexpr uint8_t kLowest[16] = {0, 0, 0, 0, 4,  4,  4,  4,
                                                        8, 8, 8, 8, 12, 12, 12, 12};
    const auto bytes = [](uint32_t four) {
      return BitCast<U8<kVectorBytes>>(Splat<uint32_t, kLanes>(four));
    };
    const auto real = [](Longs lanes) { return Convert<float, kLanes>(lanes); };
    const auto square = squares.At(x, 0);
    Longs pixels[Squares::kVectors], doubts[Squares::kVectors], doubt = Longs{} + 1;
    for (int v = 0; v < Squares::kVectors; ++v) {
      const auto place = BitCast<U8<kVectorBytes>>(Squares::PlaceOf(square.x[v], square.y[v]));
      // Of each pixel: itself, the right one, the lower one, and that one's right one.
      const auto four = square.window.At(ShuffleBytes(place, Repeat16<kVectorBytes>(kLowest)) +
                                         bytes(ByteWindow::kColumns * 0x01010000 + 0x01000100));
      const auto sum = [&](uint32_t factors) {
        return real(AddDotBytes(Longs{}, four, bytes(factors)));
      };
      const Floats right = real(square.x[v] & (kUnit - 1)) * (kFixed / kUnit);
      const Floats down = real(square.y[v] & (kUnit - 1)) * (1.0f / kUnit);
      const Floats toRight = sum(0x000001FF), toLower = sum(0x000100FF), twist = sum(0x01FFFF01);
      const Floats left = MulAdd(down, toLower, real(BitCast<Longs>(four) & 255));
      const Floats value =
          MulAdd(right, MulAdd(down, twist, toRight),
                 MulAdd(left, Floats{} + kFixed, Floats{} + (0.5f + kDoubt) * kFixed));
      pixels[v] = Convert<int32_t, kLanes>(value);
      doubts[v] = pixels[v] & static_cast<int>(kFixed - 2 * kDoubt * kFixed);
      doubt = Min(doubt, doubts[v]);
      pixels[v] >>= 16;
    }
    turned.Store(x, MergeLowBytes(pixels[0], pixels[1], pixels[2], pixels[3]));
    if (MoveWordMask(doubt - 1) != 0) TurnAgain(band, x, doubts, turned);
  }

  // The pixels whose doubts are 0.
  [[gnu::noinline]] static void TurnAgain(const RotatedBand& band, int x,
                                          const Longs (&doubts)[Squares::kVectors],
                                          Turned& turned) {
    for (int v = 0; v < Squares::kVectors; ++v) {
      for (uint32_t lanes = MoveWordMask(doubts[v] - 1); lanes != 0; lanes &= lanes - 1) {
        const int lane = __builtin_ctz(lanes), at = x + lane % 2 * 4 + v;
        const auto& row = band.rows[lane / 2];
        if (at < row.first || at >= row.end) continue;
        turned.RowAt(lane / 2)[at] = ExactPixel(Row(band, lane / 2), at);
      }
    }
  }
};

// From the first column of any row to the last one. False where the source is too small.
template <class Square>
bool TurnSquares(const RotatedBand& band) {
  if (!Squares::Suit(band)) return false;
  int first = 1 << 30, end = 0;
  for (const auto& row : band.rows) {
    if (row.first == row.end) continue;
    first = Least(first, row.first);
    end = Most(end, row.end);
  }
  if (first >= end) return true;
  const Squares squares(band);
  Turned turned(first);
  for (int x = first; x < end; x += kBandColumns) Square::Turn(squares, band, x, turned);
  for (int i = 0; i < kBandRows; ++i) {
    const auto& row = band.rows[i];
    const uint8_t* from = turned.RowAt(i);
    const auto copy = [&](auto width, int x) {
      Store(row.out + x, Load<uint8_t, width>(from + x));
    };
    if (ForEachOverlappingBlock(row.first, row.end, copy)) continue;
    for (int x = row.first; x < row.end; ++x) row.out[x] = from[x];
  }
  return true;
}

#endif

template <auto kTurnRow>
void TurnRows(const RotatedBand& band) {
  for (int i = 0; i < kBandRows; ++i) {
    const auto& row = band.rows[i];
    if (row.first < row.end) kTurnRow(Row(band, i), row.out, row.first, row.end);
  }
}

void NearestBand(const RotatedBand& band) {
#if QUILLON_BYTE_WINDOWS
  if (TurnSquares<NearestSquare>(band)) return;
#endif
  TurnRows<NearestRow>(band);
}

void BilinearBand(const RotatedBand& band) {
#if QUILLON_BYTE_WINDOWS
  if (TurnSquares<BilinearSquare>(band)) return;
#endif
  TurnRows<BilinearRow>(band);
}

}  // namespace

const RotationKernels rotation = {.NearestBand = NearestBand, .BilinearBand = BilinearBand};

}  // namespace quillon::QUILLON_LEVEL
