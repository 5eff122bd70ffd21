// Row kernels of the finder. Compiled once per level; simd/level.h names the level. All are integer
// arithmetic, or single operations that IEEE arithmetic rounds in one way.
#include "finder/finder_kernels.h"

#include "simd/blocks.h"

#define QUILLON_QUOTE(name) #name
#define QUILLON_TEXT(name) QUILLON_QUOTE(name)

namespace quillon::QUILLON_LEVEL {
namespace {

// Lanes of a and b in turn, in their order over the whole vector: of the lower halves, or of the
// upper ones.
template <int kFrom, class V, int... i>
QUILLON_INLINE V InTurnFrom(V a, V b, std::integer_sequence<int, i...>) {
  constexpr int n = sizeof...(i);
  return __builtin_shufflevector(a, b, (kFrom + i / 2 + i % 2 * n)...);
}
template <class V>
QUILLON_INLINE V LowInTurn(V a, V b) {
  return InTurnFrom<0>(a, b, std::make_integer_sequence<int, vec_detail::kLanes<V>>{});
}
template <class V>
QUILLON_INLINE V HighInTurn(V a, V b) {
  constexpr int n = vec_detail::kLanes<V>;
  return InTurnFrom<n / 2>(a, b, std::make_integer_sequence<int, n>{});
}

// Calls block(in, out) for each kLanes elements. The last ones are copied to where there is room
// for a whole block.
template <int kLanes, class In, class Out, class Block>
QUILLON_INLINE void ForEachPart(const In* in, Out* out, int count, Block&& block) {
  int x = 0;
  for (; x <= count - kLanes; x += kLanes) block(in + x, out + x);
  if (x == count) return;
  In rest[kLanes] = {};
  Out made[kLanes];
  const auto left = static_cast<unsigned>(count - x);
  __builtin_memcpy(rest, in + x, left * sizeof(In));
  block(rest, made);
  __builtin_memcpy(out + x, made, left * sizeof(Out));
}

// The means of 2 x 2 pixels, of as many such squares as two registers hold: eight to 32.
QUILLON_INLINE I16<kVectorBytes / 2> HalveBlock(const uint8_t* upper, const uint8_t* lower) {
  const auto a = Load<uint8_t, kVectorBytes>(upper), b = Load<uint8_t, kVectorBytes>(lower);
  const auto sum = (EvenBytes(a) + OddBytes(a) + EvenBytes(b) + OddBytes(b) + 2) >> 2;
  return BitCast<I16<kVectorBytes / 2>>(sum);
}

void HalveRow(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int count) {
  int x = 0;
  for (; x <= count - kVectorBytes; x += kVectorBytes) {
    const int from = 2 * x;
    Store(out + x, PackLanes(HalveBlock(upper + from, lower + from),
                             HalveBlock(upper + from + kVectorBytes, lower + from + kVectorBytes)));
  }
  for (; x < count; ++x) {
    out[x] = static_cast<uint8_t>(
        (upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1] + 2) >> 2);
  }
}

void PoolRow(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int count) {
  const auto pool = [&](int from) {
    const auto a = Load<uint8_t, kVectorBytes>(upper + from);
    const auto larger = Max(a, Load<uint8_t, kVectorBytes>(lower + from));
    return BitCast<I16<kVectorBytes / 2>>(Max(EvenBytes(larger), OddBytes(larger)));
  };
  int x = 0;
  for (; x <= count - kVectorBytes; x += kVectorBytes) {
    Store(out + x, PackLanes(pool(2 * x), pool(2 * x + kVectorBytes)));
  }
  for (; x < count; ++x) {
    const uint8_t left = upper[2 * x] > lower[2 * x] ? upper[2 * x] : lower[2 * x];
    const uint8_t right = upper[2 * x + 1] > lower[2 * x + 1] ? upper[2 * x + 1] : lower[2 * x + 1];
    out[x] = left > right ? left : right;
  }
}

// The sums at one column, or at as many as V has lanes.
template <class V>
struct Sobel {
  V x, y;
  Sobel(V nw, V n, V ne, V w, V e, V sw, V s, V se)
      : x((ne + 2 * e + se) - (nw + 2 * w + sw)), y((sw + 2 * s + se) - (nw + 2 * n + ne)) {}
};

void GradientRow(const uint8_t* above, const uint8_t* row, const uint8_t* below, Gradient16* out,
                 int width) {
  constexpr int kLanes = kVectorBytes / 2;
  int x = 1;
  for (; x <= width - 1 - kLanes; x += kLanes) {
    const auto at = [&](const uint8_t* from, int dx) { return LoadWidened<kLanes>(from + x + dx); };
    const Sobel<I16<kLanes>> g(at(above, -1), at(above, 0), at(above, 1), at(row, -1), at(row, 1),
                               at(below, -1), at(below, 0), at(below, 1));
    auto* to = reinterpret_cast<int16_t*>(out + x);
    Store(to, LowInTurn(g.x, g.y));
    Store(to + kLanes, HighInTurn(g.x, g.y));
  }
  for (; x < width - 1; ++x) {
    const Sobel<int> g(above[x - 1], above[x], above[x + 1], row[x - 1], row[x + 1], below[x - 1],
                       below[x], below[x + 1]);
    out[x] = {static_cast<int16_t>(g.x), static_cast<int16_t>(g.y)};
  }
  out[0] = out[width - 1] = {0, 0};
}

// As many gradients as a register holds, brought to a length of 127, x and y apart.
struct Directions32 {
  I32<kVectorBytes / 4> x, y;
};
QUILLON_INLINE Directions32 NormaliseBlock(const Gradient16* gradient, float contrast) {
  constexpr int kLanes = kVectorBytes / 4;
  const auto pairs = Load<int32_t, kLanes>(reinterpret_cast<const int32_t*>(gradient));
  const auto gx = Convert<float, kLanes>(pairs << 16 >> 16);
  const auto gy = Convert<float, kLanes>(pairs >> 16);
  const auto length = Max(Sqrt(gx * gx + gy * gy), Splat<float, kLanes>(contrast));
  const auto factor = 127.0F / length;
  // Shifted to positive numbers, truncation rounds.
  return {Convert<int32_t, kLanes>(gx * factor + 128.5F) - 128,
          Convert<int32_t, kLanes>(gy * factor + 128.5F) - 128};
}

void DirectionRow(const Gradient16* gradient, float contrast, Direction8* out, int count) {
  constexpr int kLanes = kVectorBytes / 4;
  const auto block = [contrast](const Gradient16* from, Direction8* to) {
    const Directions32 a = NormaliseBlock(from, contrast);
    const Directions32 b = NormaliseBlock(from + kLanes, contrast);
    const auto nx = PackLanes(a.x, b.x), ny = PackLanes(a.y, b.y);
    Store(reinterpret_cast<uint16_t*>(to), (nx & 255) | ny << 8);
  };
  ForEachPart<2 * kLanes>(gradient, out, count, block);
}

template <bool kAny>
QUILLON_INLINE I16<kVectorBytes / 2> AgreementBlock(const Direction8* directions, int16_t c,
                                                    int16_t s) {
  const auto pairs = Load<int16_t, kVectorBytes / 2>(reinterpret_cast<const int16_t*>(directions));
  const I16<kVectorBytes / 2> nx = pairs << 8 >> 8, ny = pairs >> 8;
  const I16<kVectorBytes / 2> dot = nx * c + ny * s;
  if constexpr (kAny) {
    const I16<kVectorBytes / 2> cosine = dot >> 8, x = nx >> 1, y = ny >> 1;
    return (2 * cosine * cosine - x * x - y * y + 4096 + 256) >> 9;
  } else {
    return ((dot + 1024) >> 11) + 8;
  }
}

template <bool kAny>
void AgreementRowOf(const Direction8* directions, int c, int s, uint8_t* out, int count) {
  const auto block = [=](const Direction8* from, uint8_t* to) {
    const auto cosine = static_cast<int16_t>(c), sine = static_cast<int16_t>(s);
    Store(to, PackLanes(AgreementBlock<kAny>(from, cosine, sine),
                        AgreementBlock<kAny>(from + kVectorBytes / 2, cosine, sine)));
  };
  ForEachPart<kVectorBytes>(directions, out, count, block);
}

void AgreementRow(const Direction8* directions, int c, int s, bool anyPolarity, uint8_t* out,
                  int count) {
  if (anyPolarity) return AgreementRowOf<true>(directions, c, s, out, count);
  AgreementRowOf<false>(directions, c, s, out, count);
}

void SumRow(const uint8_t* const* rows, int rowCount, int count, uint16_t* out) {
  constexpr int kLanes = kVectorBytes, kBlock = 2 * kLanes;
  constexpr int kBytesHold = 15;  // so many values of up to 16 add up to a byte
  static_assert(kBlock <= kSumBlock);
  for (int x = 0; x < count; x += kBlock) {
    // The sums of even and of odd columns, with 16 bits each.
    U16<kLanes / 2> even[2] = {}, odd[2] = {};
    for (int i = 0; i < rowCount;) {
      const int stop = i + kBytesHold < rowCount ? i + kBytesHold : rowCount;
      U8<kLanes> first = {}, second = {};
      for (; i < stop; ++i) {
        first += Load<uint8_t, kLanes>(rows[i] + x);
        second += Load<uint8_t, kLanes>(rows[i] + x + kLanes);
      }
      even[0] += EvenBytes(first);
      odd[0] += OddBytes(first);
      even[1] += EvenBytes(second);
      odd[1] += OddBytes(second);
    }
    for (int half = 0; half < 2; ++half) {
      Store(out + x + half * kLanes, LowInTurn(even[half], odd[half]));
      Store(out + x + half * kLanes + kLanes / 2, HighInTurn(even[half], odd[half]));
    }
  }
}

// The highest of the four neighbours before a place in reading order, and of the four after it; of
// one place, or of as many as V has lanes.
template <class V>
struct Neighbours {
  V before, after;
  Neighbours(V nw, V n, V ne, V w, V e, V sw, V s, V se)
      : before(Max(Max(nw, n), Max(ne, w))), after(Max(Max(e, sw), Max(s, se))) {}
};

int NextTop(const uint16_t* row, ptrdiff_t stride, int from, int count, uint16_t least) {
  constexpr int kLanes = kVectorBytes / 2;
  const uint16_t *above = row - stride, *below = row + stride;
  int x = from;
  for (; x <= count - kLanes; x += kLanes) {
    const auto at = [x](const uint16_t* in, int dx) { return Load<uint16_t, kLanes>(in + x + dx); };
    const auto here = at(row, 0);
    const auto isHigh = here >= Splat<uint16_t, kLanes>(least);
    if (MoveMask(BitCast<U8<kVectorBytes>>(isHigh)) == 0) continue;
    const Neighbours<U16<kLanes>> around(at(above, -1), at(above, 0), at(above, 1), at(row, -1),
                                         at(row, 1), at(below, -1), at(below, 0), at(below, 1));
    const auto isTop = isHigh & (here > around.before) & (here >= around.after);
    const uint64_t tops = MoveMask(BitCast<U8<kVectorBytes>>(isTop));
    if (tops != 0) return x + __builtin_ctzll(tops) / 2;
  }
  for (; x < count; ++x) {
    if (row[x] < least) continue;
    const Neighbours<uint16_t> around(above[x - 1], above[x], above[x + 1], row[x - 1], row[x + 1],
                                      below[x - 1], below[x], below[x + 1]);
    if (row[x] > around.before && row[x] >= around.after) return x;
  }
  return count;
}

void PairRow(const uint8_t* row, uint32_t* out, int count) {
  for (int x = 0; x < count - 1; ++x) out[x] = row[x] | static_cast<uint32_t>(row[x + 1]) << 16;
  out[count - 1] = row[count - 1] * 0x10001U;
}

void CorrelatePart(const TemplatePart& part, const uint32_t* pairs, const int32_t* prefix,
                   const int32_t* squarePrefix, int count, uint16_t* out) {
  constexpr int kLanes = kVectorBytes / 4, kRegisters = 4;
  static_assert(kLanes * kRegisters <= kSumBlock);
  for (int x = 0; x < count; x += kRegisters * kLanes) {
    I32<kLanes> products[kRegisters] = {};
    for (int i = 0; i < part.weightCount; ++i) {
      int32_t both;
      __builtin_memcpy(&both, part.weights[i].weight, sizeof both);
      const auto weight = BitCast<I16<2 * kLanes>>(Splat<int32_t, kLanes>(both));
      const uint32_t* from = pairs + part.weights[i].offset + x;
      for (int r = 0; r < kRegisters; ++r) {
        const auto pixels = BitCast<I16<2 * kLanes>>(Load<uint32_t, kLanes>(from + r * kLanes));
        products[r] += DotPairs(pixels, weight);
      }
    }
    I32<kLanes> sums[kRegisters] = {}, squares[kRegisters] = {};
    for (int i = 0; i < part.runCount; ++i) {
      const FootprintRun run = part.runs[i];
      for (int r = 0; r < kRegisters; ++r) {
        const auto over = [&](const int32_t* from) {
          from += x + r * kLanes;
          return Load<int32_t, kLanes>(from + run.end) - Load<int32_t, kLanes>(from + run.begin);
        };
        sums[r] += over(prefix);
        squares[r] += over(squarePrefix);
      }
    }
    const auto scores = [&](int r) {
      const auto sum = Convert<float, kLanes>(sums[r]);
      const auto variance = Convert<float, kLanes>(squares[r]) - sum * sum * part.share;
      const auto deviation = Sqrt(Max(variance, Splat<float, kLanes>(part.leastVariance)));
      const auto score = Convert<float, kLanes>(products[r]) * part.factor / deviation;
      const auto least = F32<kLanes>{}, most = Splat<float, kLanes>(part.most);
      return Convert<int32_t, kLanes>(Min(Max(score, least), most));
    };
    for (int r = 0; r < kRegisters; r += 2) {
      uint16_t* to = out + x + r * kLanes;
      const auto added = BitCast<U16<2 * kLanes>>(PackLanes(scores(r), scores(r + 1)));
      Store(to, Load<uint16_t, 2 * kLanes>(to) + added);
    }
  }
}

// ---- edge points of a template ------------------------------------------------------------------

// Adds how well four neighbouring directions agree with a point's, which is repeated in `point`.
template <bool kAny>
QUILLON_INLINE I32<4> AddAgreement(I32<4> sum, const Direction8* from, I16<8> point) {
  const auto bytes = LoadHalf(reinterpret_cast<const uint8_t*>(from));
  const auto n = BitCast<I16<8>>(ZipLow(bytes, bytes)) >> 8;
  if constexpr (!kAny) return AddDotPairs(sum, n, point);
  // n^2 cos 2a from 127 |n| cos a. The cosine's upper half is cleared: it must not be squared too.
  const auto cosine = BitCast<I16<8>>((DotPairs(n, point) >> 7) & 0xFFFF);
  return sum + 2 * DotPairs(cosine, cosine) - DotPairs(n, n);
}

// The three rows of four from (left, top) on, of which three count; those outside of the picture
// are 0.
QUILLON_INLINE void CopyAround(const DirectionPlane& plane, int left, int top,
                               Direction8 (&around)[3][4]) {
  for (int i = 0; i < 12; ++i) {
    const int x = left + i % 4, y = top + i / 4;
    const bool isInside = x >= 0 && y >= 0 && x < plane.width && y < plane.height;
    around[i / 4][i % 4] =
        isInside ? plane.pixels[static_cast<ptrdiff_t>(y) * plane.width + x] : Direction8{0, 0};
  }
}

template <bool kAny>
void SumNinePlacesBy(const ModelPoint* points, int count, const PointPlacement& place, float unit,
                     const DirectionPlane& directions, int32_t* nine) {
  const int width = directions.width, height = directions.height;
  // A point's place and its direction turn alike, so that four lanes do both. Shifted to positive
  // numbers, truncation rounds; points that far outside of the picture stay there.
  constexpr float kShift = 1024;
  const F32<4> a = Splat<float, 4>(place.a), b = {-place.b, place.b, -place.b, place.b};
  const F32<4> units = {1, 1, unit, unit};
  const F32<4> from = {place.x, place.y, 0, 0};
  I32<4> rows[3] = {};
  for (int i = 0; i < count; ++i) {
    const auto point = Load<float, 4>(&points[i].u);
    const auto across = __builtin_shufflevector(point, point, 1, 0, 3, 2);
    const auto turned = (a * point + b * across) * units + from;
    int32_t at[4];
    Store(at, Convert<int32_t, 4>(turned + (kShift + 0.5F)) - static_cast<int32_t>(kShift));
    const int left = at[0] - 1, top = at[1] - 1;
    const auto pair = static_cast<uint16_t>(at[2]) | static_cast<uint32_t>(at[3]) << 16;
    const auto direction = BitCast<I16<8>>(Splat<uint32_t, 4>(pair));
    if (left >= 0 && top >= 0 && left < width - 3 && top < height - 2) {
      const Direction8* row = directions.pixels + static_cast<ptrdiff_t>(top) * width + left;
      for (auto& sum : rows) {
        sum = AddAgreement<kAny>(sum, row, direction);
        row += width;
      }
    } else {
      Direction8 around[3][4];
      CopyAround(directions, left, top, around);
      for (int k = 0; k < 3; ++k) rows[k] = AddAgreement<kAny>(rows[k], around[k], direction);
    }
  }
  for (int k = 0; k < 9; ++k) nine[k] = rows[k / 3][k % 3];
}

void SumNinePlaces(const ModelPoint* points, int count, const PointPlacement& place, float unit,
                   const DirectionPlane& directions, bool anyPolarity, int32_t* nine) {
  const auto sum = anyPolarity ? SumNinePlacesBy<true> : SumNinePlacesBy<false>;
  sum(points, count, place, unit, directions, nine);
}

// ---- points of a template -----------------------------------------------------------------------

constexpr int kPointLanes = kVectorBytes / 4;
using Floats = F32<kPointLanes>;
using Longs = I32<kPointLanes>;

QUILLON_INLINE Floats ToFloats(Longs v) { return Convert<float, kPointLanes>(v); }

// Numbers as whole ones that are not above them, and what is left: 0 ... 1.
QUILLON_INLINE Longs TakeFloor(Floats& v) {
  Longs whole = Convert<int32_t, kPointLanes>(v);
  whole += ToFloats(whole) > v;  // a comparison that holds is -1
  v -= ToFloats(whole);
  return whole;
}

// The weights of four neighbours, of which the place lies between the middle two, t from the first:
// the values there of the cubics that are 1 at one neighbour and 0 at the others.
struct CubicWeights {
  Floats weight[4];
  explicit CubicWeights(Floats t) {
    const Floats before = t + 1, rest = 1 - t, behind = 2 - t;
    const Floats outer = t * rest * (-1 / 6.0F), inner = before * behind * 0.5F;
    weight[0] = outer * behind;
    weight[1] = inner * rest;
    weight[2] = inner * t;
    weight[3] = outer * before;
  }
};

// In three passes over a part of the points, so that no load waits for narrower stores just before
// it: places, the pixels around them, values between these.
constexpr int kPart = 64;
struct PointPart {
  int32_t column[kPart], row[kPart];
  float fractionX[kPart], fractionY[kPart];
  uint32_t around[4][kPart];  // four pixels each: 2 x 2 in the first, or rows of four
};

template <bool kCubic>
QUILLON_INLINE Floats Interpolate(const PointPart& part, int i) {
  const auto fx = Load<float, kPointLanes>(part.fractionX + i);
  const auto fy = Load<float, kPointLanes>(part.fractionY + i);
  const auto pixel = [&](int row, int place) {
    const auto four = Load<uint32_t, kPointLanes>(part.around[row] + i);
    return ToFloats(BitCast<Longs>((four >> (8 * place)) & 255));
  };
  if constexpr (kCubic) {
    const CubicWeights across(fx), down(fy);
    Floats value = {};
    for (int row = 0; row < 4; ++row) {
      value += down.weight[row] *
               ((across.weight[0] * pixel(row, 0) + across.weight[1] * pixel(row, 1)) +
                (across.weight[2] * pixel(row, 2) + across.weight[3] * pixel(row, 3)));
    }
    return value;
  } else {
    const Floats above = pixel(0, 0) + fx * (pixel(0, 1) - pixel(0, 0));
    const Floats below = pixel(0, 2) + fx * (pixel(0, 3) - pixel(0, 2));
    return above + fy * (below - above);
  }
}

template <bool kCubic>
void SamplePointsBy(const uint8_t* pixel, ptrdiff_t stride, const PointPlacement& place,
                    const float* u, const float* v, int count, float middle, float* samples) {
  for (int from = 0; from < count; from += kPart) {
    const int left = count - from < kPart ? count - from : kPart;
    PointPart part;
    for (int i = 0; i < left; i += kPointLanes) {
      const auto atU = Load<float, kPointLanes>(u + from + i);
      const auto atV = Load<float, kPointLanes>(v + from + i);
      Floats x = place.x + (place.a * atU - place.b * atV);
      Floats y = place.y + (place.b * atU + place.a * atV);
      Store(part.column + i, TakeFloor(x));
      Store(part.row + i, TakeFloor(y));
      Store(part.fractionX + i, x);
      Store(part.fractionY + i, y);
    }
    for (int i = 0; i < left; ++i) {
      const uint8_t* at = pixel + part.row[i] * stride + part.column[i];
      if constexpr (kCubic) {
        for (int row = 0; row < 4; ++row) {
          __builtin_memcpy(&part.around[row][i], at + (row - 1) * stride - 1, 4);
        }
      } else {
        uint16_t above, below;
        __builtin_memcpy(&above, at, 2);
        __builtin_memcpy(&below, at + stride, 2);
        part.around[0][i] = above | static_cast<uint32_t>(below) << 16;
      }
    }
    for (int i = 0; i < left; i += kPointLanes) {
      Store(samples + from + i, Interpolate<kCubic>(part, i) - middle);
    }
  }
}

void SamplePoints(const uint8_t* pixel, ptrdiff_t stride, const PointPlacement& place,
                  const float* u, const float* v, int count, bool cubic, float middle,
                  float* samples) {
  const auto sample = cubic ? SamplePointsBy<true> : SamplePointsBy<false>;
  sample(pixel, stride, place, u, v, count, middle, samples);
}

// kPointBlock partial sums, whatever a register holds, so that the rounding is the same everywhere.
void CorrelatePoints(const FitColumns& points, const float* samples, int count, float* sums) {
  static_assert(kPointBlock % kPointLanes == 0);
  float partial[kPointSums][kPointBlock];
  for (int lane = 0; lane < kPointBlock; lane += kPointLanes) {
    Floats sum[kPointSums] = {};
    for (int i = lane; i < count; i += kPointBlock) {
      const auto at = [i](const float* column) { return Load<float, kPointLanes>(column + i); };
      const Floats s = at(samples), u = at(points.u), v = at(points.v);
      const Floats slopeU = at(points.slopeU), slopeV = at(points.slopeV);
      sum[0] += s * at(points.value);
      sum[1] += s;
      sum[2] += s * slopeU;
      sum[3] += s * slopeV;
      sum[4] += s * (u * slopeV - v * slopeU);
      sum[5] += s * (u * slopeU + v * slopeV);
      sum[6] += s * s;
    }
    for (int k = 0; k < kPointSums; ++k) Store(&partial[k][lane], sum[k]);
  }
  for (int k = 0; k < kPointSums; ++k) {
    for (int half = kPointBlock / 2; half > 0; half /= 2) {
      for (int i = 0; i < half; ++i) partial[k][i] += partial[k][i + half];
    }
    sums[k] = partial[k][0];
  }
}

}  // namespace

const FinderKernels search = {.level = QUILLON_TEXT(QUILLON_LEVEL),
                              .HalveRow = HalveRow,
                              .PoolRow = PoolRow,
                              .GradientRow = GradientRow,
                              .DirectionRow = DirectionRow,
                              .AgreementRow = AgreementRow,
                              .SumRow = SumRow,
                              .NextTop = NextTop,
                              .PairRow = PairRow,
                              .CorrelatePart = CorrelatePart,
                              .SamplePoints = SamplePoints,
                              .SumNinePlaces = SumNinePlaces,
                              .CorrelatePoints = CorrelatePoints};

}  // namespace quillon::QUILLON_LEVEL
