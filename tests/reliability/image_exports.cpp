// The rows of operations from image to image.
#include <cmath>

#include "reliability/exports.h"

namespace quillon::test {
namespace {

// Thresholds: in place, 8 bits only.
const Refusal kNotGrey = RefuseWhen([](const Arguments& a) { return !a.IsGrey(0); });

// Neighbourhoods: any depth, read as bytes.
bool CannotFilter(const Arguments& a) { return !a.HasPixels(0) || a.IsNull(1); }

Export Filter(const char* name, std::function<Outcome(const Value*)> call) {
  return {name, std::move(call), {kGreySource, kGreyResult}, RefuseWhen(CannotFilter), 0,
          0,    SameAs(0)};
}

Export Convolution(const char* name, std::function<Outcome(const Value*)> call) {
  return {name,
          std::move(call),
          {kGreySource, kGreyResult, {Role::kWeights}},
          RefuseWhen([](const Arguments& a) { return CannotFilter(a) || a.IsNull(2); }),
          0,
          0,
          SameAs(0)};
}

// Arithmetic: 8 bits only, the result included.
bool CannotMap(const Arguments& a) { return !a.IsGrey(0) || !a.Reports8(1); }

bool CannotCombine(const Arguments& a) {
  return !a.IsGrey(0) || !a.IsGrey(1) || !a.Reports8(2) || a.Image(0)->width != a.Image(1)->width ||
         a.Image(0)->height != a.Image(1)->height;
}

Export Pair(const char* name, std::function<Outcome(const Value*)> call) {
  return {
      name, std::move(call), {kGreySource, kGreySource, kGreyResult}, RefuseWhen(CannotCombine), 0,
      0,    SameAs(0)};
}

Extent Scaled(const Arguments& a) {
  const auto side = [](int length, double scale) {
    if (!std::isfinite(scale) || scale <= 0) return 0;
    const double scaled = std::trunc(length * scale + 0.5);
    return scaled >= 1 && scaled <= 32767 ? static_cast<int>(scaled) : 0;
  };
  return {side(a.Image(0)->width, a.Number(2)), side(a.Image(0)->height, a.Number(3))};
}

bool CannotRotate(const Arguments& a) { return CannotMap(a) || !std::isfinite(a.Number(2)); }

// Morphology: any depth, at least 3 x 3.
bool CannotMorph(const Arguments& a) {
  return CannotFilter(a) || a.Image(0)->width < 3 || a.Image(0)->height < 3;
}

Export Rectangular(const char* name, std::function<Outcome(const Value*)> call, Parameter source) {
  return {name, std::move(call), {source, kGreyResult, Int(2), Int(3)}, RefuseWhen(CannotMorph), 0,
          0,    SameAs(0)};
}

Export Passes(const char* name, std::function<Outcome(const Value*)> call, Parameter source) {
  return {name, std::move(call), {source, kGreyResult, Int(3)}, RefuseWhen(CannotMorph), 0,
          0,    SameAs(0)};
}

}  // namespace

Family ThresholdExports() {
  return {"thresholds",
          {
              {QUILLON_EXPORT(IxThreshold), {kInPlace, Int(100)}, kNotGrey},
              {QUILLON_EXPORT(IxDoubleThreshold), {kInPlace, Int(50), Int(200)}, kNotGrey},
              {QUILLON_EXPORT(IxOtsuThreshold), {kInPlace}, kNotGrey},
          }};
}

Family FilterExports() {
  return {"filters",
          {
              Filter(QUILLON_EXPORT(IxSobel)),
              Filter(QUILLON_EXPORT(IxPrewitt)),
              Filter(QUILLON_EXPORT(IxRobert)),
              Filter(QUILLON_EXPORT(IxLaplacian)),
              Filter(QUILLON_EXPORT(IxLaplacianSharping)),
              Filter(QUILLON_EXPORT(IxMedianFilter3x3)),
              Filter(QUILLON_EXPORT(IxMedianFilter5x5)),
              Filter(QUILLON_EXPORT(IxGaussianSmoothing3x3)),
              Filter(QUILLON_EXPORT(IxGaussianSmoothing5x5)),
              Filter(QUILLON_EXPORT(IxGaussianSmoothing7x7)),
              {QUILLON_EXPORT(IxMeanSmoothing),
               {kGreySource, kGreyResult, Int(9)},
               RefuseWhen([](const Arguments& a) {
                 return CannotFilter(a) || a.Number(2) < 1 || std::fmod(a.Number(2), 2) == 0;
               }),
               0,
               0,
               SameAs(0)},
              Filter(QUILLON_EXPORT(IxMeanSmoothing3x3)),
              Filter(QUILLON_EXPORT(IxMeanSmoothing5x5)),
              Filter(QUILLON_EXPORT(IxMeanSmoothing7x7)),
              Convolution(QUILLON_EXPORT(IxArbitraryConvolution3x3)),
              Convolution(QUILLON_EXPORT(IxArbitraryConvolution5x5)),
              Convolution(QUILLON_EXPORT(IxArbitraryConvolution7x7)),
              {QUILLON_EXPORT(IxImgPyramid),
               {kGreySource, kGreyResult},
               RefuseWhen(CannotFilter),
               0,
               0,
               [](const Arguments& a) -> std::optional<Extent> {
                 if (a.Same(0, 1)) return std::nullopt;
                 return Extent{a.Image(0)->width / 16, a.Image(0)->height / 16};
               }},
          }};
}

Family ArithmeticExports() {
  const Refusal cannotShift =
      RefuseWhen([](const Arguments& a) { return CannotMap(a) || a.Number(2) < 0; });
  return {"arithmetic",
          {
              Pair(QUILLON_EXPORT(IxImageAdd)),
              Pair(QUILLON_EXPORT(IxImageSub)),
              Pair(QUILLON_EXPORT(IxImageMul)),
              Pair(QUILLON_EXPORT(IxImageDiv)),
              Pair(QUILLON_EXPORT(IxImageBirwiseAND)),
              Pair(QUILLON_EXPORT(IxImageBirwiseOR)),
              Pair(QUILLON_EXPORT(IxImageBirwiseXOR)),
              Pair(QUILLON_EXPORT(IxImageEqual)),
              Pair(QUILLON_EXPORT(IxImageNOTEqual)),
              {QUILLON_EXPORT(IxImageShiftLeft),
               {kGreySource, kGreyResult, Int(2)},
               cannotShift,
               0,
               0,
               SameAs(0)},
              {QUILLON_EXPORT(IxImageShiftRight),
               {kGreySource, kGreyResult, Int(2)},
               cannotShift,
               0,
               0,
               SameAs(0)},
              {QUILLON_EXPORT(IxImageInvert),
               {kGreySource, kGreyResult},
               RefuseWhen(CannotMap),
               0,
               0,
               SameAs(0)},
              {QUILLON_EXPORT(IxImageGainOffset),
               {kGreySource, kGreyResult, Double(1.25), Double(-7)},
               RefuseWhen(CannotMap),
               0,
               0,
               SameAs(0)},
          }};
}

Family TransformExports() {
  const std::vector<Parameter> turned = {kGreySource, kGreyResult, Double(17)};
  return {"transforms",
          {
              {QUILLON_EXPORT(IxImageScaling),
               {kGreySource, kGreyResult, Double(1.5), Double(0.75)},
               RefuseWhen([](const Arguments& a) {
                 if (CannotMap(a)) return true;
                 const Extent scaled = Scaled(a);
                 return scaled.width == 0 || scaled.height == 0;
               }),
               0,
               0,
               // The result may be the source: what it was is gone then.
               [](const Arguments& a) -> std::optional<Extent> {
                 if (a.Same(0, 1)) return std::nullopt;
                 return Scaled(a);
               }},
              {QUILLON_EXPORT(IxImageTranslation),
               {kGreySource, kGreyResult, Int(5), Int(-3)},
               RefuseWhen(CannotMap),
               0,
               0,
               SameAs(0)},
              {QUILLON_EXPORT(IxImageRotation), turned, RefuseWhen(CannotRotate), 0, 0, SameAs(0)},
              {QUILLON_EXPORT(IxImageRotationBilinear), turned, RefuseWhen(CannotRotate), 0, 0,
               SameAs(0)},
          }};
}

Family MorphologyExports() {
  return {"morphology",
          {
              Rectangular(QUILLON_EXPORT(IxDilation), kGreySource),
              Rectangular(QUILLON_EXPORT(IxErosion), kGreySource),
              Passes(QUILLON_EXPORT(IxDilationDiamond), kGreySource),
              Passes(QUILLON_EXPORT(IxErosionDiamond), kGreySource),
              Passes(QUILLON_EXPORT(IxDilationCircle), kGreySource),
              Passes(QUILLON_EXPORT(IxErosionCircle), kGreySource),
              Rectangular(QUILLON_EXPORT(IxOpening), kGreySource),
              Rectangular(QUILLON_EXPORT(IxClosing), kGreySource),
              Passes(QUILLON_EXPORT(IxOpeningDiamond), kGreySource),
              Passes(QUILLON_EXPORT(IxClosingDiamond), kGreySource),
              Passes(QUILLON_EXPORT(IxOpeningCircle), kGreySource),
              Passes(QUILLON_EXPORT(IxClosingCircle), kGreySource),
              // Gradient and white top-hat write their source too.
              Rectangular(QUILLON_EXPORT(IxMorphGradient), kInPlace),
              Passes(QUILLON_EXPORT(IxMorphGradientDiamond), kInPlace),
              Passes(QUILLON_EXPORT(IxMorphGradientCircle), kInPlace),
              Rectangular(QUILLON_EXPORT(IxMorphWhiteTopHat), kInPlace),
              Passes(QUILLON_EXPORT(IxMorphWhiteTopHatDiamond), kInPlace),
              Passes(QUILLON_EXPORT(IxMorphWhiteTopHatCircle), kInPlace),
              Rectangular(QUILLON_EXPORT(IxMorphBlackTopHat), kGreySource),
              Passes(QUILLON_EXPORT(IxMorphBlackTopHatDiamond), kGreySource),
              Passes(QUILLON_EXPORT(IxMorphBlackTopHatCircle), kGreySource),
          }};
}

const std::vector<Family>& Families() {
  static const std::vector<Family> families = {
      ThresholdExports(),    FilterExports(),           ArithmeticExports(),
      TransformExports(),    MorphologyExports(),       RegionExports(),
      BlobExports(),         ColourExports(),           CalibrationExports(),
      EdgeMatchingExports(), TemplateMatchingExports(),
  };
  return families;
}

}  // namespace quillon::test
