// The finder's row kernels against their definitions, at every level and at widths around every
// block.
#include "finder/finder_kernels.h"

#include <cmath>
#include <vector>

#include "finder/levels.h"
#include "support/images.h"

namespace quillon::test {
namespace {

constexpr int kWidths[] = {1, 2, 3, 15, 16, 17, 31, 33, 63, 64, 65, 127, 130, 259};
constexpr int kSlack = 2 * kSumBlock;  // what kernels may touch behind a row

template <class T, class Make>
std::vector<T> Row(int count, const Make& make) {
  std::vector<T> row(count);
  for (T& value : row) value = make();
  return row;
}

TEST(FinderKernels, AreTheirDefinitions) {
  Random random(3);
  const auto byte = [&] { return static_cast<uint8_t>(random.Within(0, 255)); };
  for (const FinderKernels* kernels : AvailableFinderKernels()) {
    for (const int width : kWidths) {
      SCOPED_TRACE(std::string(kernels->level) + ", width " + std::to_string(width));
      const auto a = Row<uint8_t>(2 * width + kSlack, byte),
                 b = Row<uint8_t>(2 * width + kSlack, byte);
      const auto c = Row<uint8_t>(2 * width + kSlack, byte);

      std::vector<uint8_t> halved(width), expectedHalved(width);
      kernels->HalveRow(a.data(), b.data(), halved.data(), width);
      for (int x = 0; x < width; ++x) {
        expectedHalved[x] =
            static_cast<uint8_t>((a[2 * x] + a[2 * x + 1] + b[2 * x] + b[2 * x + 1] + 2) / 4);
      }
      EXPECT_EQ(halved, expectedHalved);
      kernels->PoolRow(a.data(), b.data(), halved.data(), width);
      for (int x = 0; x < width; ++x) {
        expectedHalved[x] = std::max({a[2 * x], a[2 * x + 1], b[2 * x], b[2 * x + 1]});
      }
      EXPECT_EQ(halved, expectedHalved);

      if (width >= 3) {
        std::vector<Gradient16> gradient(width);
        kernels->GradientRow(a.data(), b.data(), c.data(), gradient.data(), width);
        for (int x = 0; x < width; ++x) {
          const bool inside = x > 0 && x < width - 1;
          const int gx =
              inside ? a[x + 1] + 2 * b[x + 1] + c[x + 1] - a[x - 1] - 2 * b[x - 1] - c[x - 1] : 0;
          const int gy =
              inside ? c[x - 1] + 2 * c[x] + c[x + 1] - a[x - 1] - 2 * a[x] - a[x + 1] : 0;
          ASSERT_TRUE(gradient[x].x == gx && gradient[x].y == gy) << x;
        }
        std::vector<Direction8> directions(width);
        kernels->DirectionRow(gradient.data(), 200, directions.data(), width);
        for (int x = 0; x < width; ++x) {
          const auto gx = static_cast<float>(gradient[x].x), gy = static_cast<float>(gradient[x].y);
          const float factor = 127.0F / std::max(std::sqrt(gx * gx + gy * gy), 200.0F);
          ASSERT_EQ(directions[x].x, static_cast<int>(gx * factor + 128.5F) - 128) << x;
          ASSERT_EQ(directions[x].y, static_cast<int>(gy * factor + 128.5F) - 128) << x;
        }
        for (const bool any : {false, true}) {
          std::vector<uint8_t> agreement(width);
          kernels->AgreementRow(directions.data(), 90, -90, any, agreement.data(), width);
          for (int x = 0; x < width; ++x) {
            const int nx = directions[x].x, ny = directions[x].y, dot = 90 * nx - 90 * ny;
            const int half = (nx >> 1) * (nx >> 1) + (ny >> 1) * (ny >> 1);
            const int twice = 2 * (dot >> 8) * (dot >> 8) - half;
            ASSERT_EQ(agreement[x], any ? (twice + 4352) >> 9 : ((dot + 1024) >> 11) + 8) << x;
          }
        }
      }

      // More rows than a byte's sum holds.
      std::vector<std::vector<uint8_t>> sixteens;
      std::vector<const uint8_t*> rows;
      for (int i = 0; i < 37; ++i) {
        sixteens.push_back(Row<uint8_t>(
            width + kSlack, [&] { return static_cast<uint8_t>(random.Within(8, 16)); }));
      }
      for (const auto& row : sixteens) rows.push_back(row.data());
      std::vector<uint16_t> sums(width + kSlack);
      kernels->SumRow(rows.data(), 37, width, sums.data());
      for (int x = 0; x < width; ++x) {
        int sum = 0;
        for (const auto& row : sixteens) sum += row[x];
        ASSERT_EQ(sums[x], sum) << x;
      }

      // Three rows in a frame of zeros, where many neighbours are equal.
      const int stride = width + 2;
      std::vector<uint16_t> map(5 * stride);
      for (int i = stride; i < 4 * stride; ++i) {
        const bool isFrame = i % stride == 0 || i % stride == width + 1;
        map[i] = isFrame ? 0 : static_cast<uint16_t>(65530 + random.Within(0, 4));
      }
      for (int y = 1; y < 4; ++y) {
        const uint16_t* row = &map[y * stride + 1];
        std::vector<int> tops, expected;
        for (int x = 0; x < width; ++x) {
          bool isTop = row[x] >= 65532;
          for (int i = 0; i < 9; ++i) {
            const uint16_t other = row[(i / 3 - 1) * stride + x + i % 3 - 1];
            isTop &= i < 4 ? other < row[x] : other <= row[x];
          }
          if (isTop) expected.push_back(x);
        }
        for (int x = 0; (x = kernels->NextTop(row, stride, x, width, 65532)) < width; ++x) {
          tops.push_back(x);
        }
        EXPECT_EQ(tops, expected);
      }

      std::vector<uint32_t> pairs(width + kSlack);
      kernels->PairRow(a.data(), pairs.data(), width + kSlack);
      const WeightPair weights[] = {{0, {3, -500}}, {5, {499, 0}}, {17, {-1, 77}}};
      const FootprintRun runs[] = {{2, 9}, {11, 12}};
      const TemplatePart part = {weights, runs, 3, 2, 0.01F, 700, 1.0F / 8, 8};
      std::vector<int32_t> prefix(width + kSlack + 1), squarePrefix(width + kSlack + 1);
      for (int x = 0; x < width + kSlack - 1; ++x) {
        prefix[x + 1] = prefix[x] + a[x];
        squarePrefix[x + 1] = squarePrefix[x] + a[x] * a[x];
      }
      std::vector<uint16_t> scores(width + kSlack, 5);
      kernels->CorrelatePart(part, pairs.data(), prefix.data(), squarePrefix.data(), width,
                             scores.data());
      for (int x = 0; x < width; ++x) {
        int product = 0, sum = 0, square = 0;
        for (const WeightPair& w : weights) {
          product += w.weight[0] * a[x + w.offset] + w.weight[1] * a[x + w.offset + 1];
        }
        for (const FootprintRun& run : runs) {
          for (int i = run.begin; i < run.end; ++i) sum += a[x + i], square += a[x + i] * a[x + i];
        }
        const auto s = static_cast<float>(sum);
        const float variance = static_cast<float>(square) - s * s * (1.0F / 8);
        const float score =
            static_cast<float>(product) * 0.01F / std::sqrt(std::max(variance, 8.0F));
        ASSERT_EQ(scores[x], 5 + static_cast<int>(std::clamp(score, 0.0F, 700.0F))) << x;
      }
    }
  }
}

// Edge points of a turned template, some of them outside of the picture, at nine places. The
// numbers are such that no rounding is involved but that to pixels.
TEST(FinderKernels, NinePlacesAreTheirDefinition) {
  Random random(5);
  constexpr int kWidth = 24, kHeight = 17;
  const auto unit = [&] { return static_cast<int8_t>(random.Within(-127, 127)); };
  std::vector<Direction8> pixels(kWidth * kHeight);
  for (Direction8& pixel : pixels) pixel = {unit(), unit()};
  const DirectionPlane plane = {pixels.data(), kWidth, kHeight};
  const PointPlacement place = {10.25F, 8.5F, 0.75F, -0.5F};
  constexpr float kUnit = 96;
  const auto half = [&](int most) { return static_cast<float>(random.Within(-most, most)) / 2; };
  for (const int count : {1, 12, 160}) {
    std::vector<ModelPoint> points(count);
    for (ModelPoint& point : points) point = {half(30), half(30), half(2), half(2)};
    for (const bool isAny : {false, true}) {
      int32_t expected[9] = {};
      for (const ModelPoint& point : points) {
        const auto turned = [&](float u, float v, float& x, float& y) {
          x = place.a * u - place.b * v;
          y = place.b * u + place.a * v;
        };
        float u, v, p, q;
        turned(point.u, point.v, u, v);
        turned(point.p, point.q, p, q);
        const int dx = static_cast<int>(kUnit * p), dy = static_cast<int>(kUnit * q);
        for (int i = 0; i < 9; ++i) {
          const int x = static_cast<int>(std::floor(place.x + u + 0.5F)) + i % 3 - 1;
          const int y = static_cast<int>(std::floor(place.y + v + 0.5F)) + i / 3 - 1;
          if (x < 0 || y < 0 || x >= kWidth || y >= kHeight) continue;
          const Direction8 n = pixels[y * kWidth + x];
          const int dot = n.x * dx + n.y * dy, cosine = dot >> 7;
          expected[i] += isAny ? 2 * cosine * cosine - n.x * n.x - n.y * n.y : dot;
        }
      }
      for (const FinderKernels* kernels : AvailableFinderKernels()) {
        SCOPED_TRACE(std::string(kernels->level) + ", points " + std::to_string(count));
        int32_t nine[9];
        kernels->SumNinePlaces(points.data(), count, place, kUnit, plane, isAny, nine);
        for (int i = 0; i < 9; ++i) EXPECT_EQ(nine[i], expected[i]) << i;
      }
    }
  }
}

// Points of a turned template: between pixels, and their sums with the template's columns.
TEST(FinderKernels, PointsAreTheirDefinitions) {
  Random random(4);
  constexpr int kSide = 40;
  std::vector<uint8_t> picture(kSide * kSide);
  for (uint8_t& pixel : picture) pixel = static_cast<uint8_t>(random.Within(0, 255));
  const auto cubic = [](double d) {  // by the distance from a pixel
    return d < 1 ? (1 - d * d) * (2 - d) / 2 : d < 2 ? (1 - d) * (2 - d) * (3 - d) / 6 : 0;
  };
  for (const int count : {16, 80, 208}) {
    std::vector<float> columns[kPointColumns];
    for (auto& column : columns) {
      column = Row<float>(count, [&] { return static_cast<float>(random.Within(-16, 16)) / 2; });
    }
    const PointPlacement place = {0.3F, -0.2F, 0.8F, -0.7F};
    for (const bool isCubic : {false, true}) {
      std::vector<float> first;
      float firstSums[kPointSums];
      for (const FinderKernels* kernels : AvailableFinderKernels()) {
        SCOPED_TRACE(std::string(kernels->level) + ", points " + std::to_string(count));
        const int middle = kSide / 2 * kSide + kSide / 2;
        std::vector<float> samples(count);
        kernels->SamplePoints(&picture[middle], kSide, place, columns[0].data(), columns[1].data(),
                              count, isCubic, 100, samples.data());
        const FitColumns all = {columns[0].data(), columns[1].data(), columns[2].data(),
                                columns[3].data(), columns[4].data()};
        float sums[kPointSums];
        kernels->CorrelatePoints(all, samples.data(), count, sums);
        if (first.empty()) {
          first = samples;
          std::copy(std::begin(sums), std::end(sums), firstSums);
        }
        EXPECT_EQ(samples, first);
        double expected[kPointSums] = {};
        for (int i = 0; i < count; ++i) {
          const double u = columns[0][i], v = columns[1][i];
          const double x = kSide / 2 + 0.3 + 0.8 * u + 0.7 * v;
          const double y = kSide / 2 - 0.2 - 0.7 * u + 0.8 * v;
          double value = -100;
          for (int j = 0; j < kSide * kSide; ++j) {
            const double dx = std::abs(x - j % kSide), dy = std::abs(y - j / kSide);
            value += picture[j] * (isCubic ? cubic(dx) * cubic(dy)
                                           : std::max(0.0, 1 - dx) * std::max(0.0, 1 - dy));
          }
          ASSERT_NEAR(samples[i], value, 1e-2) << i;
          const double s = samples[i], slopeU = columns[3][i], slopeV = columns[4][i];
          const double terms[kPointSums] = {
              columns[2][i],           1, slopeU, slopeV, u * slopeV - v * slopeU,
              u * slopeU + v * slopeV, s};
          for (int k = 0; k < kPointSums; ++k) expected[k] += s * terms[k];
        }
        for (int k = 0; k < kPointSums; ++k) {
          EXPECT_EQ(sums[k], firstSums[k]) << k;
          EXPECT_NEAR(sums[k], expected[k], 1e-3 * count * 100) << k;
        }
      }
    }
  }
}

}  // namespace
}  // namespace quillon::test
