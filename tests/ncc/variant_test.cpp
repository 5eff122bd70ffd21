#include "ncc/variant.h"

#include <cmath>
#include <cstring>

#include "ncc/correlation_kernels.h"
#include "ncc/model.h"
#include "ncc/pose.h"
#include "simd/kernels.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

// A template scaled and turned, pixel by pixel; -1 where nothing takes part.
class PlainVariant {
 public:
  PlainVariant(const NccTool& tool, double scale, double degrees)
      : level_(tool.levels[0]), mask_(tool.maskEnabled ? &tool.masks[0] : nullptr), scale_(scale) {
    const bool own = IsOwnSize(scale);
    scaled_ = {own ? level_.width : static_cast<int>(level_.width * scale),
               own ? level_.height : static_cast<int>(level_.height * scale)};
    box_ = scaled_;
    if (degrees == 0) return;
    turned_ = true;
    cosine_ = std::cos(degrees * kRadians), sine_ = std::sin(degrees * kRadians);
    const auto whole = [](double side) { return static_cast<int>(std::ceil(side - 1e-6)); };
    box_ = {whole(std::abs(scaled_.width * cosine_) + std::abs(scaled_.height * sine_)),
            whole(std::abs(scaled_.width * sine_) + std::abs(scaled_.height * cosine_))};
  }

  Size Box() const { return box_; }

  int At(int plane, int x, int y) const {
    if (!turned_) return TakesPart(x, y) ? Scaled(plane, x, y) : -1;
    const double fromX = 0.5 - box_.width * 0.5, fromY = y + 0.5 - box_.height * 0.5;
    const int u = Fixed(fromX * cosine_ + fromY * sine_ + scaled_.width * 0.5) + x * Fixed(cosine_);
    const int v = Fixed(fromY * cosine_ - fromX * sine_ + scaled_.height * 0.5) + x * Fixed(-sine_);
    if (u < 0 || v < 0 || u >= scaled_.width * kOne || v >= scaled_.height * kOne) return -1;
    if (!TakesPart(u / kOne, v / kOne)) return -1;
    const int atU = std::clamp(u - kOne / 2, 0, (scaled_.width - 1) * kOne);
    const int atV = std::clamp(v - kOne / 2, 0, (scaled_.height - 1) * kOne);
    const int left = atU / kOne, top = atV / kOne;
    const int right = std::min(left + 1, scaled_.width - 1);
    const int bottom = std::min(top + 1, scaled_.height - 1);
    const int fu = atU % kOne / 256, fv = atV % kOne / 256;
    const int above = Scaled(plane, left, top) * (256 - fu) + Scaled(plane, right, top) * fu;
    const int below = Scaled(plane, left, bottom) * (256 - fu) + Scaled(plane, right, bottom) * fu;
    return (above * (256 - fv) + below * fv + kOne / 2) / kOne;
  }

 private:
  static constexpr int kOne = 65536;

  static int Fixed(double value) { return static_cast<int>(std::lround(value * kOne)); }
  int Source(int i, int part, int full) const {
    const double step = IsOwnSize(scale_) ? 1.0 : 1 / scale_;
    const double offset = (0.5 - part * 0.5) * step + full * 0.5 - 0.5;
    return std::min(static_cast<int>(i * step + 0.5 + offset), full - 1);
  }
  int Scaled(int plane, int x, int y) const {
    return level_.Plane(
        plane)[Source(y, scaled_.height, level_.height)][Source(x, scaled_.width, level_.width)];
  }
  bool TakesPart(int x, int y) const {
    return !mask_ || mask_->rows[Source(y, scaled_.height, level_.height)]
                                [Source(x, scaled_.width, level_.width)] == 0;
  }

  const NccLevel& level_;
  const NccMask* mask_;
  double scale_, cosine_ = 1, sine_ = 0;
  bool turned_ = false;
  Size scaled_ = {}, box_ = {};
};

int Unpacked(const Kernels& kernels, const Variant& variant, int plane, int x, int y) {
  const auto& k = kernels.correlation;
  const uint8_t* at =
      variant.Packed(plane, y) + ptrdiff_t{x - variant.rows[y].first} * k.elementBytes;
  int16_t word = 0;
  if (k.elementBytes == 2) return std::memcpy(&word, at, 2), word;
  return k.patternBias != 0 ? static_cast<int8_t>(*at) + k.patternBias : *at;
}

void ExpectVariant(const Kernels& kernels, const NccTool& tool, double scale, double degrees,
                   const Variant& variant) {
  const PlainVariant plain(tool, scale, degrees);
  ASSERT_EQ(variant.width, plain.Box().width);
  ASSERT_EQ(variant.height, plain.Box().height);
  uint64_t sum = 0, squares = 0;
  uint32_t count = 0;
  int run = 0;
  for (int y = 0; y < variant.height; ++y) {
    for (int x = 0; x < variant.width; ++x) {
      while (run < variant.runCount && (variant.runs[run].y < y ||
                                        (variant.runs[run].y == y && variant.runs[run].last < x))) {
        ++run;
      }
      const bool inRun =
          run < variant.runCount && variant.runs[run].y == y && variant.runs[run].first <= x;
      for (int plane = 0; plane < variant.planes; ++plane) {
        const int value = plain.At(plane, x, y);
        ASSERT_EQ(inRun, value >= 0) << x << ", " << y;
        if (!inRun) continue;
        ASSERT_GE(x, variant.rows[y].first);
        ASSERT_LT(x, variant.rows[y].first + variant.rows[y].count);
        ASSERT_EQ(Unpacked(kernels, variant, plane, x, y), value) << x << ", " << y;
        ++count;
        sum += static_cast<uint64_t>(value);
        squares += static_cast<uint64_t>(value * value);
      }
    }
  }
  const double mean = count > 0 ? static_cast<double>(sum) / count : 0;
  const double deviation = static_cast<double>(squares) - mean * mean * count;
  const bool flat = deviation < 0.25;  // or empty
  ASSERT_EQ(variant.count, flat ? 0 : count);
  if (flat) return;
  EXPECT_EQ(variant.sum, sum);
  EXPECT_EQ(variant.mean, mean);
  EXPECT_NEAR(variant.deviation, deviation, 1e-5);
}

template <class Pixel>
void ExpectVariants(Size size, bool masked) {
  CImage<Pixel> pattern;
  Fill(pattern, size.width, size.height, Content::kNoise, 5);
  for (int y = 0; masked && y < size.height; ++y) {
    std::fill_n(pattern.rows[y] + size.width / 3 * sizeof(Pixel),
                (size.width / 4 + y % 2) * sizeof(Pixel), uint8_t{0});
  }
  ForEachLevel([&](const Kernels& kernels) {
    NccTool tool;
    ASSERT_TRUE(BuildNccModel(kernels, pattern, masked, tool));
    VariantMaker maker(kernels, tool.levels[0], masked ? &tool.masks[0] : nullptr);
    Variant variant;  // each is drawn over the one before
    for (double scale : {1.0, 0.83, 1.3}) {
      for (double degrees : {0.0, 17.0, -3.5, 45.0, 90.0, -121.0, 180.0, 1e-3, 270.0}) {
        SCOPED_TRACE(testing::Message() << size.width << " x " << size.height << ", scale " << scale
                                        << ", " << degrees << " degrees, masked " << masked);
        ASSERT_TRUE(maker.Make(scale, degrees, variant));
        ExpectVariant(kernels, tool, scale, degrees, variant);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  });
}

}  // namespace

TEST(NccVariant, IsTheTemplateScaledAndTurnedPixelByPixel) {
  for (Size size : {Size{3, 2}, {2, 9}, {8, 8}, {16, 5}, {23, 17}, {40, 33}}) {
    for (bool masked : {false, true}) {
      ExpectVariants<unsigned char>(size, masked);
      ExpectVariants<RGB_24>(size, masked);
    }
  }
}

}  // namespace quillon::test
